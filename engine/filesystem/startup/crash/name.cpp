#include "engine/filesystem/startup/crash/name.h"

namespace crash {

namespace {

char* put_digits(char* out, int value, int digits) {
    for (int i = digits - 1; i >= 0; --i, value /= 10) out[i] = static_cast<char>('0' + value % 10);
    return out + digits;
}

}  // namespace

void write_stamp(char (&out)[stamp_capacity], const platform::CalendarTime& time) {
    char* at = put_digits(out, time.year, 4);
    at = put_digits(at, time.month, 2);
    at = put_digits(at, time.day, 2);
    *at++ = '_';
    at = put_digits(at, time.hour, 2);
    at = put_digits(at, time.minute, 2);
    at = put_digits(at, time.second, 2);
    at = put_digits(at, time.millisecond, 3);
    *at = '\0';
}

}  // namespace crash

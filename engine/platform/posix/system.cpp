// What error codes mean, file times, local time, and text.
#include "engine/platform/posix/system.h"

#include <algorithm>
#include <iterator>
#include <limits>

#include "engine/platform/text.h"

namespace platform {
namespace {

constexpr std::int64_t seconds_from_1601_to_1970 = 11'644'473'600;

using enum Failure;
/// EBADF: the descriptor is open, but not for this. ENXIO: a socket, or a pipe that nobody reads. ESTALE: of a network's
/// file system.
constexpr Meaning error_codes[] = {
    {NOT_FOUND, {ENOENT, ENOTDIR, ELOOP}},
    {ACCESS_DENIED, {EACCES, EPERM, EBADF}},
    {IN_USE, {EBUSY, ETXTBSY, EWOULDBLOCK}},
    {ALREADY_EXISTS, {EEXIST}},
    {NOT_EMPTY, {ENOTEMPTY}},
    {DISK_FULL, {ENOSPC, EDQUOT, EFBIG}},
    {PATH_TOO_LONG, {ENAMETOOLONG}},
    {NOT_REGULAR, {EISDIR, ENXIO, ENODEV}},
    {READ_ONLY, {EROFS}},
    {OUT_OF_MEMORY, {ENOMEM, ENOBUFS}},
    {TOO_MANY_FILES, {EMFILE, ENFILE}},
    {IO, {EIO, ESTALE}},
};

}  // namespace

constinit const std::span<const Meaning> system_codes(error_codes);

int os_code_of(Failure failure) {
    const auto* const found = std::ranges::find(error_codes, failure, &Meaning::failure);
    return found != std::end(error_codes) ? *found->codes.begin() : EIO;
}

// Some disks keep times that 64 bits of ticks cannot hold; the first or last one stands for them.
std::int64_t to_file_time(const timespec& time) {
    constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max() / ticks_per_second - 1;
    const std::int64_t seconds = std::clamp<std::int64_t>(time.tv_sec, -most, most - seconds_from_1601_to_1970);
    return (seconds + seconds_from_1601_to_1970) * ticks_per_second + time.tv_nsec / 100;
}

timespec from_file_time(std::int64_t time) {
    // Rounded down step by step: the ticks of the first whole second would not fit.
    const std::int64_t ticks = time % ticks_per_second;
    const std::int64_t borrowed = ticks < 0 ? 1 : 0;
    return {.tv_sec = static_cast<time_t>(time / ticks_per_second - borrowed - seconds_from_1601_to_1970),
            .tv_nsec = static_cast<long>((ticks + borrowed * ticks_per_second) * 100)};
}

std::int64_t now_utc() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return to_file_time(now);
}

LocalOffset local_offset_at(std::int64_t utc) {
    const time_t seconds = from_file_time(utc).tv_sec;
    tm fields{};
    if (localtime_r(&seconds, &fields) == nullptr) return {};
    return {.ticks = fields.tm_gmtoff * ticks_per_second, .is_summer = fields.tm_isdst > 0};
}

std::size_t narrow_to_wide(const char* text, std::size_t length, wchar_t* out) {
    std::size_t written = 0;
    for (std::string_view rest(text, length); !rest.empty();) {
        Utf8Character character = decode_utf8(rest);
        if (character.length == 0) character = {static_cast<unsigned char>(rest[0]), 1};
        out[written++] = static_cast<wchar_t>(character.value);
        rest.remove_prefix(character.length);
    }
    return written;
}

}  // namespace platform

#include "engine/filesystem/startup/crash/name.h"

#include <charconv>
#include <cstdint>

#include "engine/platform/process.h"

namespace crash {

namespace {

void add_number(platform::BoundedText& out, std::uint32_t value, std::size_t width) {
    char digits[10];
    const auto end = std::to_chars(digits, digits + sizeof(digits), value).ptr;
    const std::string_view text(digits, static_cast<std::size_t>(end - digits));
    for (std::size_t i = text.size(); i < width; ++i) out.add('0');
    out.add(text);
}

}  // namespace

void add_stamped_name(platform::BoundedText& out, const platform::CalendarTime& time, std::string_view ending) {
    const auto add = [&](int value, std::size_t width) { add_number(out, static_cast<std::uint32_t>(value), width); };
    out.add("crash_");
    add(time.year, 4);
    for (const int part : {time.month, time.day}) add(part, 2);
    out.add('_');
    for (const int part : {time.hour, time.minute, time.second}) add(part, 2);
    add(time.millisecond, 3);
    out.add(ending);
}

void add_with_process(platform::BoundedText& out, std::string_view name) {
    const std::size_t slash = name.find_last_of("/\\");
    const std::size_t dot = name.rfind('.');
    const bool has_ending = dot != std::string_view::npos && (slash == std::string_view::npos || dot > slash);
    const std::size_t end = has_ending ? dot : name.size();
    out.add(name.substr(0, end)).add('_');
    add_number(out, platform::process_id(), 1);
    out.add(name.substr(end));
}

}  // namespace crash

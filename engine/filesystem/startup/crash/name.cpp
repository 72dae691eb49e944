#include "engine/filesystem/startup/crash/name.h"

#include "engine/platform/process.h"

namespace crash {

void add_stamped_name(platform::BoundedText& out, const platform::CalendarTime& time, std::string_view ending) {
    out.add("crash_").add_number(time.year, 10, 4);
    for (const int part : {time.month, time.day}) out.add_number(part, 10, 2);
    out.add('_');
    for (const int part : {time.hour, time.minute, time.second}) out.add_number(part, 10, 2);
    out.add_number(time.millisecond, 10, 3).add(ending);
}

void add_with_process(platform::BoundedText& out, std::string_view name) {
    const std::size_t slash = name.find_last_of("/\\");
    const std::size_t dot = name.rfind('.');
    const bool has_ending = dot != std::string_view::npos && (slash == std::string_view::npos || dot > slash);
    const std::size_t end = has_ending ? dot : name.size();
    out.add(name.substr(0, end)).add('_').add_number(platform::process_id()).add(name.substr(end));
}

}  // namespace crash

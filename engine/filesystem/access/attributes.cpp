#include <cstdio>

#include <engine/filesystem/access/manage.h>

#include "engine/filesystem/access/parts.h"
#include "engine/platform/clock.h"

namespace fs {

namespace {

using registry::ExclusiveGuard;
using registry::Match;
using registry::SharedGuard;

constexpr std::uint64_t ticks_per_ms = 10000;
constexpr int last_calendar_year = 9999;

bool set_read_only(const char* path, bool on) {
    return with_holder(path, Match::WHOLE, false, [&](CFSSource& source, const fs::path& name) {
        const ErrorScope scope;
        return source.set_read_only(name, on) ||
               fail_unless_told(scope, EFSError::ACCESS_DENIED, path, "The source keeps no read-only attribute.");
    });
}

}  // namespace

int compare_time(std::int64_t a, std::int64_t b, std::uint32_t tolerance_ms) {
    const std::uint64_t tolerance = tolerance_ms * ticks_per_ms;
    const auto first = static_cast<std::uint64_t>(a);
    const auto second = static_cast<std::uint64_t>(b);
    if (a >= b) return first - second > tolerance ? 1 : 0;
    return second - first > tolerance ? -1 : 0;
}

std::int64_t write_time(const char* path) {
    return with_holder(path, Match::AS_SOURCE_DOES, std::int64_t{-1}, &CFSSource::write_time);
}

bool set_write_time(const char* path, std::int64_t time) {
    return with_holder(path, Match::WHOLE, false, [&](CFSSource& source, const fs::path& name) {
        const ErrorScope scope;
        return source.set_write_time(name, time) ||
               fail_unless_told(scope, EFSError::ACCESS_DENIED, path, "The source did not set the time.");
    });
}

fs::string get_time_as_str(std::int64_t time) {
    return guarded(nullptr, fs::string(), [&]() -> fs::string {
        if (time < 0) return {};
        const platform::CalendarTime at = platform::to_calendar(time);
        if (at.year > last_calendar_year) return {};
        char text[32];
        std::snprintf(text, sizeof(text), "%04d-%02d-%02d %02d:%02d:%02d", at.year, at.month, at.day, at.hour,
                      at.minute, at.second);
        return text;
    });
}

bool is_protected(const char* path) {
    return with_holder(path, Match::AS_SOURCE_DOES, false,
                       [](CFSSource& source, const fs::path&) { return source.is_protected(); });
}

bool read_only(const char* path) { return with_holder(path, Match::AS_SOURCE_DOES, false, &CFSSource::read_only); }

bool read_only_set(const char* path) { return set_read_only(path, true); }
bool read_only_remove(const char* path) { return set_read_only(path, false); }

void mark_installed(const char* path, bool on) {
    guarded(path, [&] {
        const fs::path name = lookup_name(path);
        if (name.Empty()) return;
        const ExclusiveGuard guard;
        const registry::Concerned concerned(name);
        registry::for_each_source([&](CFSSource& source) {
            if (concerned(source)) source.mark_installed(name, on);
        });
    });
}

void mark_installed(bool on) {
    guarded(nullptr, [&] {
        const ExclusiveGuard guard;
        registry::for_each_source([&](CFSSource& source) { source.mark_installed_all(on); });
    });
}

bool is_installed(const char* path) {
    constexpr int known_not_installed = 1;
    constexpr int known_installed = 2;
    return guarded(path, false, [&] {
        const fs::path name = lookup_name(path);
        const SharedGuard guard;
        const registry::Concerned concerned(name);
        bool installed = true;
        const CFSSource* const certain = registry::first_source([&](CFSSource& source) {
            const int answer = concerned(source) ? source.is_installed(name) : 0;
            if (answer == known_not_installed) installed = false;
            return answer == known_installed;
        });
        return certain != nullptr || installed;
    });
}

}  // namespace fs

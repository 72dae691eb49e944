#include <algorithm>
#include <cstdio>

#include <engine/filesystem/access/manage.h>
#include <engine/filesystem/contract/native_source.h>

#include "engine/filesystem/access/parts.h"
#include "engine/platform/clock.h"
#include "engine/platform/directories.h"
#include "engine/platform/files.h"

// What is told of a file, and set on it, by its name: whether there is one, where it lies, its time and its marks.

namespace fs {

namespace {

using NativeText = char[platform::path_buffer_size];

enum class Place { ELSEWHERE, ON_DISK, NOT_ON_DISK };

/// Where reading `name` in this source would find its file; `out` is set for ON_DISK.
Place place_in(CFSSource& source, const fs::path& name, NativeText& out) {
    if (!source.exists(name)) return Place::ELSEWHERE;
    auto* const native = dynamic_cast<NativeSource*>(&source);
    if (native == nullptr) return Place::NOT_ON_DISK;
    NativeText path;
    if (!native->native_path(name, path, sizeof(path))) return Place::ELSEWHERE;
    const auto attributes = platform::get_attributes(path);
    if (attributes && attributes->is_directory) return Place::ELSEWHERE;
    if (attributes && platform::resolve_case(path, out)) return Place::ON_DISK;
    const platform::Error& error = platform::last_error();
    if (error.failure != platform::Failure::NOT_FOUND) set_error_from_platform(path, "could not be looked up", error);
    return Place::ELSEWHERE;
}

/// What the first source that holds the name answers to a question about it.
fs::string answer_of(const char* path, void (CFSSource::*question)(fs::path& out, const fs::path& p)) {
    return with_holder(path, Match::AS_SOURCE_DOES, fs::string(), [&](CFSSource& source, const fs::path& name) {
        fs::path out;
        (source.*question)(out, name);
        return full_name(out);
    });
}

constexpr int last_calendar_year = 9999;

bool set_read_only(const char* path, bool on) {
    return change_held(path, "The source keeps no read-only attribute.",
                       [=](CFSSource& source, const fs::path& name) { return source.set_read_only(name, on); });
}

}  // namespace

bool exists(const char* path, FFSOpenFlags::FLAGS flags) {
    return guarded(path, false, [&] {
        const bool in_cache = (flags & FFSOpenFlags::IN_CACHE_DIR) != 0;
        const fs::path name = in_cache ? lookup_name(with_cache_directory(path, flags).c_str()) : lookup_name(path);
        const SharedGuard guard;
        return registry::first_holder(name, match_of(flags)) != nullptr;
    });
}

bool does_file_exist(const char* path) { return exists(path) || native_does_file_exist(path); }
bool native_does_file_exist(const char* path) {
    const auto attributes = platform::get_attributes(path != nullptr ? path : "");
    return attributes && !attributes->is_directory;
}
bool does_dir_exist(const char* path) { return is_native_directory(path != nullptr ? path : ""); }

fs::string get_source_name(const char* path) {
    return with_holder(path, Match::AS_SOURCE_DOES, fs::string(),
                       [](CFSSource& source, const fs::path&) { return fs::string(source.path().PathNameView()); });
}

const fs::string full_path(const char* path) { return answer_of(path, &CFSSource::full_path); }
const fs::string root_path(const char* path) { return answer_of(path, &CFSSource::root_path); }

bool native_path(const char* path, fs::string& out) {
    return guarded(path, false, [&] {
        ErrorScope scope;
        const fs::path name = lookup_name(path);
        const SharedGuard guard;
        NativeText found = "";
        Place place = Place::ELSEWHERE;
        registry::first_concerned(name, [&](CFSSource& source) {
            place = place_in(source, name, found);
            return place != Place::ELSEWHERE;
        });
        if (place == Place::NOT_ON_DISK)
            return refuse(EFSError::UNSUPPORTED, path,
                          "The file lies in a pack or in memory and has no path on the disk.");
        if (place == Place::ELSEWHERE)
            return fail_unless_told(scope, EFSError::NOT_FOUND, path, "No source holds a file of this name.");
        out = found;
        scope.forget();
        return true;
    });
}

void precache_file(const char* path) { full_path(path); }

int compare_time(std::int64_t a, std::int64_t b, std::uint32_t tolerance_ms) {
    const std::uint64_t tolerance = static_cast<std::uint64_t>(tolerance_ms * platform::ticks_per_ms);
    const auto first = static_cast<std::uint64_t>(a);
    const auto second = static_cast<std::uint64_t>(b);
    if (a >= b) return first - second > tolerance ? 1 : 0;
    return second - first > tolerance ? -1 : 0;
}

std::int64_t write_time(const char* path) {
    return with_holder(path, Match::AS_SOURCE_DOES, std::int64_t{-1}, &CFSSource::write_time);
}

bool set_write_time(const char* path, std::int64_t time) {
    return change_held(path, "The source did not set the time.",
                       [=](CFSSource& source, const fs::path& name) { return source.set_write_time(name, time); });
}

fs::string get_time_as_str(std::int64_t time) {
    return guarded(nullptr, fs::string(), [&]() -> fs::string {
        const platform::CalendarTime at = platform::to_calendar(std::max<std::int64_t>(time, 0));
        if (time < 0 || at.year > last_calendar_year)
            return refuse(EFSError::INVALID_ARGUMENT, nullptr, "The time has no calendar form."), "";
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
        const ExclusiveGuard guard;
        registry::first_concerned(name, [&](CFSSource& source) { return source.mark_installed(name, on), false; });
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
        bool installed = true;
        const CFSSource* const certain = registry::first_concerned(name, [&](CFSSource& source) {
            const int answer = source.is_installed(name);
            if (answer == known_not_installed) installed = false;
            return answer == known_installed;
        });
        return certain != nullptr || installed;
    });
}

}  // namespace fs

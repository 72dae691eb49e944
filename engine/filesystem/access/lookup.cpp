#include <engine/filesystem/access/open.h>

#include <engine/filesystem/contract/native_source.h>

#include "engine/filesystem/access/parts.h"
#include "engine/filesystem/contract/path.h"
#include "engine/platform/directories.h"
#include "engine/platform/files.h"

namespace fs {

namespace {

using registry::Match;
using registry::SharedGuard;

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
        const registry::Concerned concerned(name);
        NativeText found = "";
        Place place = Place::ELSEWHERE;
        registry::first_source([&](CFSSource& source) {
            if (!name.Empty() && concerned(source)) place = place_in(source, name, found);
            return place != Place::ELSEWHERE;
        });
        if (place == Place::ON_DISK) {
            out = found;
            scope.forget();
        }
        if (place == Place::NOT_ON_DISK) {
            set_error(EFSError::UNSUPPORTED, path, "The file lies in a pack or in memory and has no path on the disk.");
        }
        if (place == Place::ELSEWHERE)
            fail_unless_told(scope, EFSError::NOT_FOUND, path, "No source holds a file of this name.");
        return place == Place::ON_DISK;
    });
}

void precache_file(const char* path) { full_path(path); }

}  // namespace fs

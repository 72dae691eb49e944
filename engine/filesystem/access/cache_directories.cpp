#include <string_view>

#include <engine/filesystem/access/manage.h>

#include "engine/filesystem/access/parts.h"
#include "engine/filesystem/contract/path.h"

// The cache directory is a place on the disk that need not lie below any source, so its directories are made and asked
// for there.

namespace fs {

namespace {

/// The full path of a directory below the cache directory, with its "/"; "", with the failure stored, where there is none.
std::string cache_path_of(const char* path) {
    const std::string_view cache = registry::state().cache_dir;
    const NormalText inner(path, true);
    const NormalText whole(with_cache_directory(inner.c_str(), FFSOpenFlags::IN_CACHE_DIR).c_str(), true);
    std::string full(whole.view());
    if (!full.ends_with('/')) full += '/';
    const char* const why = climbs(inner.view())            ? "The path climbs above the cache directory."
                            : cache.empty() || cache == "/" ? "There is no cache directory."
                            : full.size() > path_capacity   ? "The path of the directory is longer than 259 bytes."
                                                            : nullptr;
    if (why == nullptr) return full;
    set_error(EFSError::INVALID_NAME, path, why);
    return {};
}

}  // namespace

bool mkdir_cache(const char* path) {
    return guarded(path, false, [&] {
        if (NormalText(path, true).names_nothing()) {
            return refuse(EFSError::INVALID_NAME, path, "An empty path names no directory.");
        }
        const std::string whole = cache_path_of(path);
        return !whole.empty() && make_native_directory(whole, path);
    });
}

bool does_cache_dir_exist(const char* path) {
    return guarded(path, false, [&] {
        std::string whole = cache_path_of(path);
        if (whole.empty()) return false;
        whole.pop_back();
        return is_native_directory(whole.c_str());
    });
}

}  // namespace fs

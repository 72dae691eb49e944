#include <cstring>

#include <engine/filesystem/access/manage.h>

#include "engine/filesystem/access/cache_path.h"
#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/contract/set_error.h"
#include "engine/platform/directories.h"
#include "engine/platform/files.h"

// The cache directory is a place on the disk that need not lie below any source, so its directories are made and asked
// for there.

namespace fs {

namespace {

bool is_directory(const char* path) {
    const auto attributes = platform::get_attributes(path);
    return attributes && attributes->is_directory;
}

/// Makes `path` and every directory above it that is missing. `path` is changed on the way and is whole again after it.
bool make_chain(char* path) {
    for (char* at = path + 1; *at != '\0'; ++at) {
        if (*at != '/' || at[-1] == ':' || at[-1] == '/') continue;
        *at = '\0';
        const bool made = is_directory(path) || platform::create_directory(path) || is_directory(path);
        *at = '/';
        if (!made) return false;
    }
    return is_directory(path) || platform::create_directory(path);
}

/// The full path of a directory below the cache directory; false, with the failure stored, where there is none.
bool cache_path_of(const char* path, char* out) {
    const NormalText inner(path, true);
    if (inner.climbs()) return refuse(EFSError::INVALID_NAME, path, "The path climbs above the cache directory.");
    const CachePath whole(inner.c_str(), FFSOpenFlags::IN_CACHE_DIR);
    NormalText normal(whole.c_str(), true);
    normal.drop_trailing_slash();
    if (normal.empty() || normal.view().size() >= platform::path_buffer_size) {
        return refuse(EFSError::INVALID_NAME, path, "The path is empty or longer than 259 bytes.");
    }
    std::memcpy(out, normal.c_str(), normal.view().size() + 1);
    return true;
}

}  // namespace

bool mkdir_cache(const char* path) {
    if (NormalText(path, true).names_nothing()) {
        return refuse(EFSError::INVALID_NAME, path, "An empty path names no directory.");
    }
    char whole[platform::path_buffer_size];
    if (!cache_path_of(path, whole)) return false;
    return make_chain(whole) || refuse_by_disk(whole, "cannot be made");
}

bool does_cache_dir_exist(const char* path) {
    char whole[platform::path_buffer_size];
    return cache_path_of(path, whole) && is_directory(whole);
}

}  // namespace fs

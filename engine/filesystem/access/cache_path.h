#pragma once

#include <engine/filesystem/contract/flags.h>
#include <engine/kernel/ztl.h>

namespace fs {

/// A path with the cache directory put before it when IN_CACHE_DIR asks for that. Null is "", and so is a path that
/// memory cannot be had for. `path` must outlive it.
class CachePath {
public:
    CachePath(const char* path, FFSOpenFlags::FLAGS flags);
    CachePath(const CachePath&) = delete;
    CachePath& operator=(const CachePath&) = delete;

    const char* c_str() const { return text_; }

private:
    fs::string prefixed_;
    const char* text_;
};

}  // namespace fs

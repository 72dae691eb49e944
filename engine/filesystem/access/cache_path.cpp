#include "engine/filesystem/access/cache_path.h"

#include "engine/filesystem/registry/registry.h"

namespace fs {

CachePath::CachePath(const char* path, FFSOpenFlags::FLAGS flags) : text_(path != nullptr ? path : "") {
    if ((flags & FFSOpenFlags::IN_CACHE_DIR) == 0) return;
    try {
        prefixed_.assign(registry::state().cache_dir).append(text_);
    } catch (...) {
        prefixed_.clear();
    }
    text_ = prefixed_.c_str();
}

}  // namespace fs

#include "engine/filesystem/access/parts.h"
#include "engine/filesystem/contract/path.h"

// Who makes what is not there yet, and where.

namespace fs {

std::string with_cache_directory(const char* path, FFSOpenFlags::FLAGS flags) {
    std::string whole((flags & FFSOpenFlags::IN_CACHE_DIR) != 0 ? registry::state().cache_dir : "");
    return whole.append(path != nullptr ? path : "");
}

CFSSource* creator_of(const registry::Concerned& concerned, fs::path& name) {
    if (concerned.is_outside()) return registry::state().fallback.get();
    CFSSource* const home = concerned.home();
    if (home == nullptr) return registry::creator(name.PathNameView());
    name = path_of(*registry::below_root(*home, name.PathNameView()), name.FileName(), name.IsLowercase());
    return home;
}

bool may_create(CFSSource* creator, const char* path) {
    if (creator == nullptr && registry::state().empty()) {
        return refuse(EFSError::NOT_INITIALIZED, path, "No source is registered.");
    }
    if (creator == nullptr) {
        return refuse(EFSError::ACCESS_DENIED, path,
                      "The path lies in no mounted directory, and there is no fallback that would reach it.");
    }
    if (creator->writable()) return true;
    return refuse(EFSError::READ_ONLY, path, "The source that would make this cannot be written.");
}

bool make_native_directory(std::string native, const char* path) {
    if (!create_directories(native)) return false;
    native.pop_back();
    return is_native_directory(native.c_str()) ||
           refuse(EFSError::ALREADY_EXISTS, path, "What bears this name is no directory.");
}

}  // namespace fs

#include <algorithm>

#include "engine/filesystem/access/parts.h"
#include "engine/platform/directories.h"

// Who makes what is not there yet, and where.

namespace fs {

namespace {

bool is_directory(const char* path) {
    const auto attributes = platform::get_attributes(path);
    return attributes && attributes->is_directory;
}

}  // namespace

std::string with_cache_directory(const char* path, FFSOpenFlags::FLAGS flags) {
    std::string whole((flags & FFSOpenFlags::IN_CACHE_DIR) != 0 ? registry::state().cache_dir : "");
    return whole.append(path != nullptr ? path : "");
}

CFSSource* creator_of(const registry::State& state, const registry::Concerned& concerned, fs::path& name) {
    if (concerned.is_outside()) return state.fallback.get();
    CFSSource* const home = concerned.home();
    if (home == nullptr) return !state.sources.empty() ? state.sources.front().get() : nullptr;
    const auto directory = registry::below_root(*home, name.PathNameView());
    fs::path inner = directory_name(directory.value_or(""), name.IsLowercase());
    inner.Set(inner.PathName(), name.FileName(), name.IsLowercase());
    if (inner.Empty() != name.Empty() || inner.EmptyFile() != name.EmptyFile()) throw std::bad_alloc();
    name = std::move(inner);
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

bool make_native_directories(std::string path) {
    const bool is_network = path.starts_with("//");
    const std::size_t share_end = is_network ? path.find('/', path.find('/', 2) + 1) : 0;
    for (std::size_t at = share_end + 1; at < path.size(); ++at) {
        if (path[at] != '/' || path[at - 1] == ':' || path[at - 1] == '/') continue;
        path[at] = '\0';
        if (!is_directory(path.c_str()) && !platform::create_directory(path.c_str())) {
            const platform::Error error = platform::last_error();
            if (!is_directory(path.c_str())) {
                set_error_from_platform(path.c_str(), "cannot be made", error);
                return false;
            }
        }
        path[at] = '/';
    }
    return true;
}

}  // namespace fs

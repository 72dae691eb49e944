#include <engine/filesystem/access/search.h>
#include <engine/filesystem/startup.h>

#include "engine/filesystem/access/parts.h"
#include "engine/filesystem/c_interface/lists.h"

namespace {

using namespace fs::c;

/// The list of what `get(out)` tells.
template <typename Get>
bool list_sources(List& list, Get get) {
    if (!is_quiet([&] { get(list.sources); })) return false;
    for (const SFsSourceInfo& source : list.sources) list.add(source.path_name + source.file_name);
    return true;
}

}  // namespace

int enginefs_add_source(const char* path, uint32_t flags) { return enginefs_add_source_at(path, "", flags); }

int enginefs_add_source_at(const char* path, const char* prefix, uint32_t flags) {
    return status(path, [&] {
        return is_name(path, flags, source_flags) && is_new_name(prefix) &&
               fs::add_source_at(path, prefix, as_source_flags(flags));
    });
}

int enginefs_remove_source(const char* path) {
    return status(path, [&] { return is_name(path) && fs::rem_source(path); });
}

enginefs_list* enginefs_sources() {
    return make_list(nullptr, [](List& list) { return is_running() && list_sources(list, fs::get_sources); });
}

enginefs_list* enginefs_holders(const char* path, uint32_t flags) {
    return make_list(path, [&](List& list) {
        if (!is_name(path, flags)) return false;
        const std::string name = fs::with_cache_directory(path, as_open_flags(flags));
        return list_sources(list, [&](auto& out) { fs::find_holders(name.c_str(), out, as_open_flags(flags)); });
    });
}

int enginefs_source_at(const enginefs_list* list, uint64_t index, enginefs_source_info* out) {
    return put_item(list, &List::sources, index, out, [](const SFsSourceInfo& source) {
        return enginefs_source_info{.struct_size = 0,
                                    .kind = source.type,
                                    .flags = source.flags,
                                    .is_writable = source.writable,
                                    .is_protected = source.is_protected,
                                    .unlisted_directories = source.unlisted_directories};
    });
}

int enginefs_refresh(const char* path) {
    return status(
        path, [&] { return is_running() && is_quiet([&] { path != nullptr ? fs::refresh(path) : fs::refresh(); }); });
}

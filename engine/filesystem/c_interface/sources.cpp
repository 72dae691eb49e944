#include <engine/filesystem/access/search.h>
#include <engine/filesystem/startup.h>

#include "engine/filesystem/c_interface/call.h"
#include "engine/filesystem/c_interface/lists.h"

namespace {

using namespace fs::c;

/// The list of what `get(out)` tells, which stores a failure and answers nothing when it has no memory.
template <typename Get>
bool list_sources(List& list, Get get) {
    const fs::ErrorScope scope;
    get(list.sources);
    if (scope.has_error()) return false;
    for (const SFsSourceInfo& source : list.sources) list.add(source.path_name + source.file_name);
    return true;
}

}  // namespace

int enginefs_add_source(const char* path, uint32_t flags) { return enginefs_add_source_at(path, "", flags); }

int enginefs_add_source_at(const char* path, const char* prefix, uint32_t flags) {
    return status(path, [&] {
        return are_given({path}) && is_new_name(prefix) && are_known(flags, source_flags) &&
               fs::add_source_at(path, prefix, static_cast<FFSAddSourceFlags::ENUM>(flags));
    });
}

int enginefs_remove_source(const char* path) {
    return status(path, [&] { return are_given({path}) && fs::rem_source(path); });
}

enginefs_list* enginefs_sources() {
    return make_list(nullptr, [](List& list) { return list_sources(list, [](auto& out) { fs::get_sources(out); }); });
}

enginefs_list* enginefs_holders(const char* path) {
    return make_list(path, [&](List& list) {
        return are_given({path}) && list_sources(list, [&](auto& out) { fs::find_holders(path, out); });
    });
}

int enginefs_source_at(const enginefs_list* list, uint64_t index, enginefs_source_info* out) {
    return status(nullptr, [&] {
        const List* const texts = find(list);
        const SFsSourceInfo* const source = texts != nullptr ? item_at(texts->sources, index) : nullptr;
        return source != nullptr && put(out, {.struct_size = 0,
                                              .kind = source->type,
                                              .flags = source->flags,
                                              .writable = source->writable,
                                              .is_protected = source->is_protected,
                                              .unlisted_directories = source->unlisted_directories});
    });
}

int enginefs_refresh(const char* path) {
    return status(path, [&] {
        const fs::ErrorScope scope;
        path != nullptr ? fs::refresh(path) : fs::refresh();
        return !scope.has_error();
    });
}

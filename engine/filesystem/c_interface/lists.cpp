#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <engine/filesystem/access/search.h>
#include <engine/filesystem/sources/pack.h>
#include <engine/filesystem/startup.h>

#include "engine/filesystem/access/parts.h"
#include "engine/filesystem/c_interface/call.h"
#include "engine/filesystem/contract/name_list.h"
#include "engine/filesystem/contract/path_text.h"
#include "engine/filesystem/registry/registry.h"

// Sources, and whatever is answered as a list.

namespace fs::c {

/// Texts in one block, each with its zero byte, and what else is known of each where there is more.
struct List {
    std::string block;
    std::vector<std::size_t> starts;
    std::vector<SFsSourceInfo> sources;
    std::vector<SFsPackEntry> entries;

    void add(std::string_view text) {
        starts.push_back(block.size());
        block.append(text).push_back('\0');
    }
};

}  // namespace fs::c

namespace {

using namespace fs::c;
using Names = std::set<std::string>;

/// A handle to the list that `fill(list)` has filled; null, with the failure stored, when it is false or throws.
template <typename Fill>
enginefs_list* make_list(const char* path, Fill&& fill) noexcept {
    return fs::guarded<enginefs_list*>(path, nullptr, [&]() -> enginefs_list* {
        auto list = std::make_unique<List>();
        return fill(*list) ? give<enginefs_list>(std::move(list)) : nullptr;
    });
}

/// The item of this index; null, with the failure stored, when there is none.
template <typename Item>
const Item* item_at(const std::vector<Item>& items, std::uint64_t index) {
    if (index < items.size()) return &items[static_cast<std::size_t>(index)];
    return refuse_argument("The list has no such item."), nullptr;
}

/// Fills `out` with what `describe(item)` makes of the item of this index of one of the list's vectors.
template <typename Item, typename Struct, typename Describe>
int put_item(const enginefs_list* list, std::vector<Item> List::*items, std::uint64_t index, Struct* out,
             Describe describe) noexcept {
    return status_of(list, [&](const List& texts) {
        const Item* const item = item_at(texts.*items, index);
        return item != nullptr && put(out, describe(*item));
    });
}

/// The list of what `get(out)` tells.
template <typename Get>
bool list_sources(List& list, Get get) {
    if (!is_quiet([&] { get(list.sources); })) return false;
    for (const SFsSourceInfo& source : list.sources) list.add(source.path_name + source.file_name);
    return true;
}

void add_directories(Names& out, const fs::idir& below, const std::string& lead, bool recursive) {
    for (const fs::idir* child = below.first_child(); child != nullptr; child = child->next_sibling()) {
        const std::string name = lead + child->name();
        out.insert(name);
        if (recursive) add_directories(out, *child, name + "/", recursive);
    }
}

/// Adds what lies below `dir` in the index and in every source's tree, also of those that are not indexed. False when
/// none of them has it.
bool collect_directories(Names& out, std::string_view dir, bool recursive) {
    const std::string name(dir);
    const std::string lead = name.empty() ? "" : name + "/";
    bool is_found = name.empty();
    const auto add = [&](const fs::idir* found) {
        if (found != nullptr) add_directories(out, *found, lead, recursive), is_found = true;
    };
    const fs::registry::SharedGuard guard;
    add(fs::registry::state().index.find(name.c_str()));
    fs::registry::for_each_source([&](CFSSource& source) { add(fs::registry::find_directory(source, name.c_str())); });
    return is_found;
}

}  // namespace

int64_t enginefs_list_count(const enginefs_list* list) {
    const List* const texts = find(list);
    return texts != nullptr ? static_cast<int64_t>(texts->starts.size()) : -1;
}

const char* enginefs_list_at(const enginefs_list* list, uint64_t index) {
    const List* const texts = find(list);
    const std::size_t* const start = texts != nullptr ? item_at(texts->starts, index) : nullptr;
    return start != nullptr ? texts->block.data() + *start : nullptr;
}

const char* enginefs_list_block(const enginefs_list* list, uint64_t* size) {
    const List* const texts = find(list);
    if (size != nullptr) *size = texts != nullptr ? texts->block.size() : 0;
    return texts != nullptr ? texts->block.data() : nullptr;
}

int enginefs_list_free(enginefs_list* list) {
    return list == nullptr ? ENGINEFS_OK : status_of_end(list, [](List&) { return true; });
}

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

enginefs_list* enginefs_search(const char* dir, const char* mask, int recursive) {
    return make_list(dir, [&](List& list) {
        fs::NameList names;
        if (!is_running() || !is_quiet([&] { names.reset(fs::search(dir, mask, recursive != 0, false)); }))
            return false;
        for (const FS_NAME* name = names.get(); name != nullptr; name = name->next) list.add(name->name);
        return true;
    });
}

enginefs_list* enginefs_dirs(const char* dir, int recursive) {
    return make_list(dir, [&](List& list) {
        if (!is_name(dir)) return false;
        fs::NormalText wanted(dir, false);
        wanted.drop_trailing_slash();
        Names names;
        if (!collect_directories(names, wanted.view(), recursive != 0))
            return fs::refuse(EFSError::NOT_FOUND, dir, "No source has such a directory.");
        for (const std::string& name : names) list.add(name);
        return true;
    });
}

void enginefs_record_access(int on) { fs::record_access(on != 0); }

enginefs_list* enginefs_access_record() {
    return make_list(nullptr, [](List& list) {
        ztl::vector<fs::string> names;
        if (!is_quiet([&] { fs::get_access_record(names); })) return false;
        for (const fs::string& name : names) list.add(name);
        return true;
    });
}

enginefs_list* enginefs_pack_list(const char* native_path) {
    return make_list(native_path, [&](List& list) {
        if (!are_given({native_path}) || !fs::list_pack(native_path, list.entries)) return false;
        for (const SFsPackEntry& entry : list.entries) list.add(entry.name);
        return true;
    });
}

int enginefs_pack_entry_at(const enginefs_list* list, uint64_t index, enginefs_pack_entry* out) {
    return put_item(list, &List::entries, index, out, [](const SFsPackEntry& entry) {
        return enginefs_pack_entry{.struct_size = 0,
                                   .method = entry.method,
                                   .size = entry.size,
                                   .packed_size = entry.packed_size,
                                   .time = entry.time,
                                   .crc = entry.crc,
                                   .reserved = 0};
    });
}

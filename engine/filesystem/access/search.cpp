#include <engine/filesystem/access/search.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <map>
#include <span>
#include <utility>
#include <vector>

#include "engine/filesystem/access/parts.h"
#include "engine/filesystem/contract/disk_use_scope.h"

// What the sources list, and listing them anew.
//
// Duplicates are names held more than once. Within one source that is for the source to tell (its dump). Across sources a
// file of the same directory and name is an override, as intended; the same name under another directory most likely was
// meant to be one and misses its target.

namespace fs {

namespace {

constinit std::atomic<search_callback> current_callback{nullptr};

/// What a source answers. One that had no memory for its list says so and gives a shorter one or none; no list that lacks
/// names is handed on.
template <typename Ask>
NameList whole_list(CFSSource& source, Ask ask) {
    const ErrorScope scope;
    NameList list(ask(source));
    check_memory(scope);
    return list;
}

NameList all_names(CFSSource& source) {
    return whole_list(source, [](CFSSource& asked) { return asked.get_file_list(nullptr, nullptr, true); });
}

/// One list of all, in the order of the bytes of the names; of each name the first entry stays.
NameList sorted(std::span<NameList> lists) {
    std::vector<FS_NAME*> entries;
    for (const NameList& list : lists) {
        for (FS_NAME* entry = list.get(); entry != nullptr; entry = entry->next) entries.push_back(entry);
    }
    std::stable_sort(entries.begin(), entries.end(), [](const FS_NAME* first, const FS_NAME* second) {
        return std::strcmp(first->name, second->name) < 0;  // compares unsigned bytes
    });
    for (NameList& list : lists) static_cast<void>(list.release());
    FS_NAME* kept = nullptr;  // they are linked anew from the last to the first
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
        if (kept != nullptr && std::strcmp(kept->name, (*entry)->name) == 0) {
            FS_NAME* const rest = std::exchange(kept->next, nullptr);
            free_names(std::exchange(kept, rest));
        }
        (*entry)->next = kept;
        kept = *entry;
    }
    return NameList(kept);
}

/// Joins what every source answers; of equal names the earliest source's stays.
template <typename Ask>
FS_NAME* merge_answers(const char* asked, Ask ask) {
    return guarded<FS_NAME*>(asked, nullptr, [&] {
        const SharedGuard guard;
        std::vector<NameList> lists;
        registry::for_each_source([&](CFSSource& source) { lists.push_back(whole_list(source, ask)); });
        return sorted(lists).release();
    });
}

/// "" where the native name is too long for a path buffer.
fs::string native_name(CFSSource& source, const char* name) {
    fs::path native;
    source.full_path(native, lookup_name(name));
    fs::string text = full_name(native);
    return text.size() < path_capacity ? text : fs::string();
}

/// Reads the source anew that is mounted at this directory, or with file name at this path of a pack; the directory alone in
/// one that has it.
void refresh_if_concerned(CFSSource& source, std::string_view path, const fs::path& directory, const fs::path& file) {
    const fs::path& mounted = source.path();
    if (!mounted.Empty() && (mounted == directory || mounted == file)) return source.refresh();
    // The fallback and packs have no directory that could be read again.
    const bool is_full = is_native_directory_name(directory.PathNameView());
    const auto below = is_full ? registry::below_root(source, path) : path;
    if (!below) return;
    const std::string inner(*below);
    if (registry::find_directory(source, inner.c_str()) != nullptr) source.refresh_dir(inner.c_str());
}

using Lines = ztl::vector<fs::string>;

struct Held {
    fs::string path;  // within its source
    CFSSource* source;
};
using HeldByName = std::map<fs::string, std::vector<Held>>;

void collect_source(CFSSource& source, const char* ext, HeldByName& out) {
    const NameList names = all_names(source);
    for (const FS_NAME* held = names.get(); held != nullptr; held = held->next) {
        const std::string_view path(held->name);
        const std::string_view name = path.substr(path.rfind('/') + 1);  // all of it when there is no separator
        if (has_extension(name, ext)) out[fs::string(name)].push_back({fs::string(path), &source});
    }
}

void append_dump(CFSSource& source, const char* ext, Lines& out) {
    Lines lines;
    source.dump(lines, ext);
    for (fs::string& line : lines) {
        out.push_back(std::move(line) + " (duplicated resource in the same filesystem source)");
    }
}

/// All of `held` bear one name, in asking order. Lines are written when a later source holds it only under directories that
/// the earliest one does not know.
void append_misses(const std::vector<Held>& held, Lines& out) {
    const Held& first = held.front();
    int index = 0;
    for (auto later = held.begin(); later != held.end(); ++later) {
        if (later->source == first.source) continue;
        const bool overridden = std::any_of(held.begin(), later, [&](const Held& earlier) {
            return earlier.source != later->source && earlier.path == later->path;
        });
        if (overridden) continue;
        if (index == 0) out.push_back("0. " + fs::string(first.source->root_dir()) + first.path);
        out.push_back(std::to_string(++index) + ". " + later->source->root_dir() + later->path +
                      " (different path when overriding in other filesystem source)");
    }
}

}  // namespace

FS_NAME* search(const char* dir, const char* mask, bool recursive, bool indexed_only) {
    return guarded<FS_NAME*>(dir, nullptr, [&] {
        NormalText directory(dir, false);
        directory.drop_trailing_slash();
        const NormalText pattern(mask, false);
        return merge_answers(dir, [&](CFSSource& source) -> FS_NAME* {
            if (indexed_only && (source.flags() & FFSAddSourceFlags::INDEX_NAMES) == 0) return nullptr;
            return source.get_file_list(dir != nullptr ? directory.c_str() : nullptr,
                                        mask != nullptr ? pattern.c_str() : nullptr, recursive);
        });
    });
}

FS_NAME* search_substring(const char* text) {
    if (text == nullptr) return nullptr;
    return guarded<FS_NAME*>(text, nullptr, [&] {
        const NormalText wanted(text, false);
        return merge_answers(text, [&](CFSSource& source) { return source.search_substring(wanted.c_str()); });
    });
}

const fs::idir* search_dir(const char* dir) {
    if (dir == nullptr) return nullptr;
    return guarded<const fs::idir*>(dir, nullptr, [&] {
        const NormalText wanted(dir, false);
        const SharedGuard guard;
        return registry::state().index.find(wanted.c_str());
    });
}

void refresh() {
    const DiskUse use("listed", "all sources");
    guarded(nullptr, [] {
        const ExclusiveGuard guard;
        registry::for_each_source([](CFSSource& source) { source.refresh(); });
        registry::rebuild_index();
    });
}

void refresh(const char* path) {
    const DiskUse use("listed", path);
    guarded(path, [&] {
        NormalText wanted(path, false);
        wanted.drop_trailing_slash();
        if (wanted.empty()) return;
        const fs::path directory = directory_name(wanted.view(), true);
        const fs::path file = lookup_name(wanted.c_str());
        const ExclusiveGuard guard;
        registry::for_each_source(
            [&](CFSSource& source) { refresh_if_concerned(source, wanted.view(), directory, file); });
        registry::rebuild_index();
    });
}

void get_file_list(ztl::vector<fs::string>& out) {
    guarded(nullptr, [&] {
        ztl::vector<fs::string> all = out;
        const SharedGuard guard;
        registry::for_each_source([&](CFSSource& source) {
            NameList listed = all_names(source);
            const NameList names = sorted({&listed, 1});
            for (const FS_NAME* name = names.get(); name != nullptr; name = name->next) {
                all.push_back(native_name(source, name->name));
            }
        });
        out.swap(all);
    });
}

void set_search_callback(search_callback callback) { current_callback.store(callback, std::memory_order_release); }

search_callback get_search_callback() { return current_callback.load(std::memory_order_acquire); }

void find_duplicates(Lines& out, const char* ext) {
    guarded(nullptr, [&] {
        Lines lines = out;
        HeldByName held;
        const SharedGuard guard;
        registry::for_each_source([&](CFSSource& source) {
            append_dump(source, ext, lines);
            collect_source(source, ext, held);
        });
        for (const auto& [name, holders] : held) append_misses(holders, lines);
        out.swap(lines);
    });
}

}  // namespace fs

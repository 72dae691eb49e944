#include <engine/filesystem/access/search.h>

#include <atomic>

#include "engine/filesystem/access/parts.h"
#include "engine/filesystem/contract/disk_use.h"
#include "engine/filesystem/contract/path.h"

namespace fs {

namespace {

using registry::ExclusiveGuard;
using registry::SharedGuard;

constinit std::atomic<search_callback> current_callback{nullptr};

/// What a source answers. One that had no memory for its list says so and gives a shorter one or none; no list that lacks
/// names is handed on.
template <typename Ask>
NameList whole_list(CFSSource& source, Ask ask) {
    const ErrorScope scope;
    NameList list(ask(source));
    if (scope.has_error() && last_error().code == EFSError::OUT_OF_MEMORY) throw StoredFailure();
    return list;
}

/// Joins what every source answers; of equal names the earliest source's stays.
template <typename Ask>
FS_NAME* merge_answers(const char* asked, Ask ask) {
    return guarded<FS_NAME*>(asked, nullptr, [&] {
        const SharedGuard guard;
        NameList all;
        FS_NAME* last = nullptr;
        registry::for_each_source([&](CFSSource& source) {
            FS_NAME* const names = whole_list(source, ask).release();
            last == nullptr ? all.reset(names) : static_cast<void>(last->next = names);
            for (FS_NAME* name = names; name != nullptr; name = name->next) last = name;
        });
        return sorted(std::move(all)).release();
    });
}

/// "" where the native name is too long for a path buffer.
fs::string native_name(CFSSource& source, const char* name) {
    fs::path native;
    source.full_path(native, lookup_name(name));
    fs::string text = full_name(native);
    return text.size() < path_capacity ? text : fs::string();
}

/// Whether the source is mounted at `target`: a directory, or with file name the path of a pack.
bool is_mounted_at(CFSSource& source, const fs::path& directory, const fs::path& file) {
    return !source.path().Empty() && (source.path() == directory || source.path() == file);
}

void refresh_if_concerned(CFSSource& source, std::string_view path, const fs::path& directory, const fs::path& file) {
    if (is_mounted_at(source, directory, file)) {
        source.refresh();
        return;
    }
    // The fallback and packs have no directory that could be read again.
    const bool is_full = is_native_directory_name(directory.PathNameView());
    const auto below = is_full ? registry::below_root(source, path) : path;
    if (!below) return;
    const std::string inner(*below);
    if (registry::find_directory(source, inner.c_str()) != nullptr) source.refresh_dir(inner.c_str());
}

}  // namespace

FS_NAME* search(const char* dir, const char* mask, bool flag, bool indexed_only) {
    return guarded<FS_NAME*>(dir, nullptr, [&] {
        NormalText directory(dir, false);
        directory.drop_trailing_slash();
        const NormalText pattern(mask, false);
        return merge_answers(dir, [&](CFSSource& source) -> FS_NAME* {
            if (indexed_only && (source.flags() & FFSAddSourceFlags::INDEX_NAMES) == 0) return nullptr;
            return source.get_file_list(dir != nullptr ? directory.c_str() : nullptr,
                                        mask != nullptr ? pattern.c_str() : nullptr, flag);
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
            const auto ask = [](CFSSource& asked) { return asked.get_file_list(nullptr, nullptr, true); };
            const NameList names = sorted(whole_list(source, ask));
            for (const FS_NAME* name = names.get(); name != nullptr; name = name->next) {
                all.push_back(native_name(source, name->name));
            }
        });
        out.swap(all);
    });
}

void set_search_callback(search_callback callback) { current_callback.store(callback, std::memory_order_release); }

search_callback get_search_callback() { return current_callback.load(std::memory_order_acquire); }

}  // namespace fs

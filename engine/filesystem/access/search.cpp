#include <engine/filesystem/access/search.h>

#include <atomic>
#include <memory>

#include "engine/filesystem/access/sort_names.h"
#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/registry/registry.h"

namespace fs {

namespace {

struct SearchState {
    std::atomic<search_callback> callback{nullptr};
};
SearchState search_state;

struct FreeNames {
    void operator()(FS_NAME* names) const { free_names(names); }
};
using NameList = std::unique_ptr<FS_NAME, FreeNames>;

/// Joins what every source answers; of equal names the earliest source's stays.
template <typename Ask>
FS_NAME* merge_answers(Ask ask) {
    registry::State& state = registry::state();
    const registry::SharedHold hold(state);
    FS_NAME* merged = nullptr;
    registry::for_each_source(state, [&](CFSSource& source) { merged = merge_names(merged, sort_names(ask(source))); });
    return merged;
}

/// "" where the native name is too long for a path buffer.
fs::string native_name(CFSSource& source, const char* name) {
    const fs::path held(name, true);
    fs::path native;
    source.full_path(native, held);
    char text[path_capacity];
    native.FullName(text, sizeof(text));
    return text;
}

/// Whether the source is mounted at `target`: a directory, or with file name the path of a pack.
bool is_mounted_at(CFSSource& source, const fs::path& directory, const fs::path& file) {
    return !source.path().Empty() && (source.path() == directory || source.path() == file);
}

/// The part of `path` below the source's native root, or the path itself when it is not full; null when it lies
/// elsewhere.
const char* below_root(CFSSource& source, std::string_view path) {
    if (!is_full_path(path.data())) return path.data();
    const std::string_view root = source.root_dir();
    if (root.empty() || path.size() <= root.size()) return nullptr;
    for (std::size_t i = 0; i < root.size(); ++i) {
        if (fold(root[i]) != path[i]) return nullptr;
    }
    return path.data() + root.size();
}

void refresh_if_concerned(CFSSource& source, const NormalText& path, const fs::path& directory, const fs::path& file) {
    if (is_mounted_at(source, directory, file)) {
        source.refresh();
        return;
    }
    const char* const inner = below_root(source, path.view());
    if (inner != nullptr && registry::find_directory(source, inner) != nullptr) source.refresh_dir(inner);
}

}  // namespace

FS_NAME* search(const char* dir, const char* mask, bool flag, bool indexed_only) {
    NormalText directory(dir, false);
    directory.drop_trailing_slash();
    const NormalText pattern(mask, false);
    return merge_answers([&](CFSSource& source) -> FS_NAME* {
        if (indexed_only && (source.flags() & FFSAddSourceFlags::INDEX_NAMES) == 0) return nullptr;
        return source.get_file_list(dir != nullptr ? directory.c_str() : nullptr,
                                    mask != nullptr ? pattern.c_str() : nullptr, flag);
    });
}

FS_NAME* search_substring(const char* text) {
    if (text == nullptr) return nullptr;
    const NormalText wanted(text, false);
    return merge_answers([&](CFSSource& source) { return source.search_substring(wanted.c_str()); });
}

const fs::idir* search_dir(const char* dir) {
    if (dir == nullptr) return nullptr;
    const NormalText wanted(dir, false);
    registry::State& state = registry::state();
    const registry::SharedHold hold(state);
    return state.index.find(wanted.c_str());
}

void refresh() {
    registry::State& state = registry::state();
    const registry::ExclusiveHold hold(state);
    registry::for_each_source(state, [](CFSSource& source) { source.refresh(); });
    registry::rebuild_index(state);
}

void refresh(const char* path) {
    NormalText wanted(path, false);
    wanted.drop_trailing_slash();
    if (wanted.empty()) return;
    fs::path directory;
    directory.Set(wanted.c_str(), nullptr, true);
    const fs::path file(wanted.c_str(), true);
    registry::State& state = registry::state();
    const registry::ExclusiveHold hold(state);
    registry::for_each_source(state, [&](CFSSource& source) { refresh_if_concerned(source, wanted, directory, file); });
    registry::rebuild_index(state);
}

void get_file_list(ztl::vector<fs::string>& out) {
    registry::State& state = registry::state();
    const registry::SharedHold hold(state);
    try {
        for (const registry::Node* node = state.head; node != nullptr; node = node->next) {
            const NameList names(sort_names(node->source->get_file_list(nullptr, nullptr, true)));
            for (const FS_NAME* name = names.get(); name != nullptr; name = name->next) {
                out.push_back(native_name(*node->source, name->name));
            }
        }
    } catch (...) {
        set_error(EFSError::OUT_OF_MEMORY, nullptr, "There is no memory for the list of files.");
    }
}

void set_search_callback(search_callback callback) { search_state.callback.store(callback, std::memory_order_release); }

search_callback get_search_callback() { return search_state.callback.load(std::memory_order_acquire); }

}  // namespace fs

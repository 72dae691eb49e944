#include "engine/filesystem/sources/directory/state.h"

#include <algorithm>

#include "engine/filesystem/contract/normalize.h"
#include "engine/platform/directories.h"

namespace fs {

bool DirectoryState::enter(std::uint32_t dir, std::string_view spelled_name) {
    const std::string_view dir_text = table->dir_text(dir);
    if (native_root.length + dir_text.size() + spelled_name.size() > platform::max_path_bytes) return true;
    if (!include.empty()) {
        std::string full(dir_text);
        full += spelled_name;
        fold_text(full.data(), full.size());
        if (!std::binary_search(include.begin(), include.end(), full)) return true;
    }
    return table->add(dir, spelled_name, true) != FileTable::none;
}

bool DirectoryState::native_path(std::uint32_t file, NativePath& out) const {
    return build_native_path(native_root, table->spelled_dir(file), table->spelled_name(file), out);
}

bool DirectoryState::native_path(const fs::path& p, NativePath& out) const {
    return build_native_path(native_root, p.PathNameView(), p.FileNameView(), out);
}

fs::dir* DirectoryState::tree_node(std::string_view lower_dir, bool make) {
    if (!start.empty() && lower_dir.size() + 1 >= start.size() &&
        equal_folded(lower_dir.substr(0, start.size() - 1), std::string_view(start).substr(0, start.size() - 1)) &&
        (lower_dir.size() < start.size() || lower_dir[start.size() - 1] == '/')) {
        lower_dir.remove_prefix(std::min(lower_dir.size(), start.size()));
    }
    const std::string rest(lower_dir);
    return make ? tree.add_path(rest.c_str()) : tree.find(rest.c_str());
}

void DirectoryState::forget_directory(std::string_view lower_dir) {
    const fs::dir* node = tree_node(lower_dir, false);
    if (!node || !node->parent()) return;
    std::string path;
    for (const fs::idir* part = node; part->parent(); part = part->parent())
        path.insert(0, 1, '/').insert(0, part->name());
    tree.remove(path.c_str());
}

void DirectoryState::enter_created(const fs::path& p, const NativePath& made, bool installed) {
    fs::path lower(p);
    lower.Lowercase();
    char spelled[platform::path_buffer_size];
    if (!platform::resolve_case(made.text, spelled)) return;
    const std::size_t name_length = lower.FileNameView().size();
    const std::size_t dir_length = lower.PathNameView().size();
    const std::string_view full(spelled, made.length);
    const std::string_view name = full.substr(full.size() - name_length);
    std::string_view dir(lower.PathNameView());
    if (dir_length + name_length <= full.size()) dir = full.substr(full.size() - name_length - dir_length, dir_length);
    tree_node(lower.PathNameView(), true);
    const std::uint32_t known = table->find_exact(lower.PathNameView(), lower.FileNameView());
    if (known != FileTable::none) {
        if (table->spelled_name(known) == name && table->spelled_dir(known) == dir) return;
        table->remove(known);
    }
    table->add(table->intern_dir(dir), name, installed);
}

}  // namespace fs

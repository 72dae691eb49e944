#include "engine/filesystem/sources/directory/state.h"

#include <algorithm>
#include <new>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/path_text.h"
#include "engine/kernel/text.h"
#include "engine/platform/directories.h"

namespace fs {

std::unique_ptr<MountedNames> DirectoryState::no_names() const {
    auto made = std::make_unique<MountedNames>(native_root.text);
    if (start.empty()) return made;
    made->tree.set_name(lower_text(start.substr(0, start.size() - 1)).c_str());
    if (*made->tree.name() == '\0') throw std::bad_alloc();
    return made;
}

void MountedNames::note_too_long(std::string_view dir, std::string_view name) {
    unlisted.insert(lower_text(std::string(dir).append(name)) + "/");
    unlisted_error = {.failure = platform::Failure::PATH_TOO_LONG};
}

std::uint32_t DirectoryState::enter(MountedNames& to, std::uint32_t dir, std::string_view spelled_name) const {
    const std::string_view dir_text = to.table.dir_text(dir);
    if (!include.empty()) {
        const std::string full = lower_text(std::string(dir_text).append(spelled_name));
        if (!std::binary_search(include.begin(), include.end(), full)) return NameTable::none;
    }
    if (native_root.text.size() + dir_text.size() + spelled_name.size() <= platform::max_path_bytes)
        return to.table.add(dir, spelled_name, 1);
    to.note_too_long(dir_text, spelled_name);
    return NameTable::none;
}

std::uint32_t DirectoryState::find(const fs::path& p, bool whole) const {
    std::string_view dir = p.PathNameView();
    const Place place = place_of(native_root, dir);
    if (place == Place::OUTSIDE) return NameTable::none;
    if (place == Place::INSIDE || whole) return names->table.find_exact(dir, p.FileNameView());
    return names->table.find(dir, p.FileNameView());
}

std::uint32_t DirectoryState::locate_to_change(const fs::path& p, NativePath& out) const {
    const std::uint32_t exact = find(p, true);
    return with_path(exact != NameTable::none ? exact : find(p), out);
}

bool DirectoryState::place_for_new(Kind kind, const fs::path& p, NativePath& out) const {
    const bool is_file = kind == Kind::REGULAR;
    const bool fits = !(is_file ? p.EmptyFile() : p.EmptyPath()) && native_path(p, out);
    if (fits && !is_file) out.cut(out.length - p.FileNameView().size());
    if (fits && !climbs(p.PathNameView()) && is_creatable(out.below_root())) return true;
    return refuse(EFSError::INVALID_NAME, is_file ? p.FileName() : p.PathName(),
                  "The new name is empty, too long, leads out of the source or is one that not every system can hold.");
}

/// The directory as the tree counts it: below the start, whose own node is the root. False when it does not fit.
bool DirectoryState::tree_path(std::string_view dir, TreePath& out) const {
    const std::size_t length = start.empty() ? 0 : start.size() - 1;
    if (length != 0 && dir.size() >= length &&
        kernel::equal_folded(dir.substr(0, length), std::string_view(start).substr(0, length)) &&
        (dir.size() == length || dir[length] == '/')) {
        dir.remove_prefix(std::min(dir.size(), start.size()));
    }
    if (dir.size() >= sizeof out) return false;
    out[dir.copy(out, dir.size())] = '\0';
    return true;
}

fs::dir* DirectoryState::find_node(fs::dir& tree, std::string_view dir) const {
    TreePath path;
    return tree_path(dir, path) ? tree.find(path) : nullptr;
}

void DirectoryState::remove_node(std::string_view dir) {
    TreePath path;
    if (tree_path(dir, path) && path[0] != '\0') names->tree.remove(path);
}

fs::dir& DirectoryState::make_node(fs::dir& tree, std::string_view dir) const {
    TreePath path;
    fs::dir* const node = tree_path(dir, path) ? tree.add_path(path) : &tree;
    if (node == nullptr) throw std::bad_alloc();
    return *node;
}

}  // namespace fs

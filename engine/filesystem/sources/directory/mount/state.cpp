#include "engine/filesystem/sources/directory/mount/state.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "engine/filesystem/contract/error.h"
#include "engine/filesystem/contract/path.h"
#include "engine/kernel/text.h"
#include "engine/platform/directories.h"

namespace fs {

std::unique_ptr<MountedNames> DirectoryState::no_names() const {
    auto made = std::make_unique<MountedNames>(native_root.text);
    if (start.empty()) return made;
    made->tree.set_name(lower_text(start.substr(0, start.size() - 1)).c_str());
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

fs::dir* DirectoryState::find_node(MountedNames& in, std::string_view dir) const {
    TreePath path;
    return tree_path(dir, path) ? in.tree.find(path) : nullptr;
}

void DirectoryState::remove_node(std::string_view dir) {
    TreePath path;
    if (tree_path(dir, path) && path[0] != '\0') names->tree.remove(path);
}

fs::dir& DirectoryState::make_node(MountedNames& in, std::string_view dir) const {
    TreePath path;
    fs::dir* const node = tree_path(dir, path) ? in.tree.add_path(path) : &in.tree;
    if (node == nullptr) throw std::bad_alloc();
    return *node;
}

void replace_directory(DirectoryState& state, std::string_view dir, const MountedNames& read) {
    MountedNames& names = *state.names;
    NameTable& table = names.table;
    auto unlisted = names.unlisted;
    if (!read.unlisted.contains(dir)) unlisted.erase(std::string(dir));
    unlisted.insert(read.unlisted.begin(), read.unlisted.end());
    if (!read.unlisted.empty()) names.unlisted_error = read.unlisted_error;
    if (read.unlisted.contains(dir)) return names.unlisted.swap(unlisted);
    std::vector<std::uint32_t> gone;
    for (std::uint32_t file = table.first(); file != NameTable::none; file = table.next(file)) {
        if (table.dir(file) == dir) gone.push_back(file);
    }
    std::vector<std::uint32_t> added;
    added.reserve(read.table.size());
    try {
        for (std::uint32_t file = read.table.first(); file != NameTable::none; file = read.table.next(file)) {
            const std::uint32_t to = table.intern_dir(read.table.spelled_dir(file));
            added.push_back(table.add(to, read.table.spelled_name(file), read.table.value(file)));
        }
    } catch (...) {
        for (const std::uint32_t file : added) table.remove(file);
        throw;
    }
    for (const std::uint32_t file : gone) table.remove(file);
    ++state.reads;
    names.unlisted.swap(unlisted);
    table.compact();
}

bool NewEntry::enter(const NativePath& made, Spelling spelling) {
    NameTable& table = state_.names->table;
    NativePath spelled = made;
    if (!platform::resolve_case(made.text, spelled.text)) return refuse_by_disk(made.text, "cannot be looked for");
    spelled.length = std::strlen(spelled.text);  // short names of Windows are told in full
    const auto split_of = [](const NativePath& path) { return path.view().rfind('/') + 1; };
    if (spelling == Spelling::OF_CALLER) {
        spelled.cut(split_of(spelled));
        if (!spelled.append(made.view().substr(split_of(made))))
            return refuse(EFSError::INVALID_NAME, made.text, "The new name is too long.");
    }
    NativePath lower = spelled;
    fold_text(lower.text, lower.length);
    const std::size_t split = split_of(spelled) - spelled.root_length;
    const std::string_view dir = spelled.below_root().substr(0, split);
    const std::string_view name = spelled.below_root().substr(split);
    const std::string_view lower_dir = lower.below_root().substr(0, split);
    state_.make_node(*state_.names, lower_dir);
    known_ = table.find_exact(lower_dir, lower.below_root().substr(split));
    if (known_ != NameTable::none && table.spelled_name(known_) == name && table.spelled_dir(known_) == dir)
        return true;
    added_ = table.add(table.intern_dir(dir), name, 0);
    return true;
}

NewEntry::~NewEntry() {
    if (!is_kept_ && added_ != NameTable::none) state_.names->table.remove(added_);
}

void NewEntry::keep(bool installed, std::uint32_t renamed) {
    NameTable& table = state_.names->table;
    is_kept_ = true;
    table.set_value(added_ != NameTable::none ? added_ : known_, installed ? 1 : 0);
    if (renamed != NameTable::none && renamed != known_) table.remove(renamed);
    if (added_ != NameTable::none && known_ != NameTable::none) table.remove(known_);
    table.compact();
}

}  // namespace fs

#include <string>

#include <engine/filesystem/sources/directory.h>

#include "engine/filesystem/contract/error.h"
#include "engine/filesystem/contract/path.h"
#include "engine/filesystem/sources/directory/mount/state.h"
#include "engine/platform/directories.h"

namespace {

using fs::DirectoryState;
using fs::NameTable;
using fs::NativePath;

// Takes a link, and what was reached through it, out of table and tree.
void forget_link(DirectoryState& state, std::string_view link) {
    state.remove_node(link);
    NameTable& table = state.names->table;
    for (std::uint32_t file = table.first(), next = NameTable::none; file != NameTable::none; file = next) {
        next = table.next(file);
        const std::string_view dir = table.dir(file);
        const bool is_behind = dir.size() > link.size() && dir.starts_with(link) && dir[link.size()] == '/';
        const bool is_itself = dir.size() + table.name(file).size() == link.size() && link.starts_with(dir) &&
                               link.ends_with(table.name(file));
        if (is_behind || is_itself) table.remove(file);
    }
}

// Takes what was deleted out of table and tree. Asks for no memory, so that they always follow the disk.
void forget(DirectoryState& state, const char* path, const platform::DirectoryItem& item) {
    NativePath lower;
    if (!lower.append(path)) return;
    lower.root_length = state.native_root.text.size();
    fs::fold_text(lower.text, lower.length);
    const std::string_view name = lower.below_root();
    if (item.is_link) return forget_link(state, name);
    if (item.is_directory) return state.remove_node(name);
    const std::size_t split = name.rfind('/') + 1;
    const std::uint32_t file = state.names->table.find_exact(name.substr(0, split), name.substr(split));
    if (file != NameTable::none) state.names->table.remove(file);
}

}  // namespace

bool CWin32_dir::mkdir(const fs::path& p) {
    NativePath native;
    if (!state_->place_for_new(DirectoryState::Kind::DIRECTORY, p, native)) return false;
    return fs::guarded(native.text, false, [&] {
        if (!fs::create_directories(native.view())) return false;
        state_->make_node(*state_->names, fs::lower_text(native.below_root()));
        return true;
    });
}

void CWin32_dir::rem_dir(const fs::path& p) {
    NativePath native;
    const bool fits = state_->native_path(p, native);
    if (fits) native.cut(native.length - p.FileNameView().size());
    if (!fits || fs::climbs(p.PathNameView()) || native.below_root().find_first_not_of('/') == std::string_view::npos) {
        fs::refuse(EFSError::INVALID_NAME, p.PathName(),
                   "The directory is empty, leads out of the source or is too long.");
        return;
    }
    fs::guarded(native.text, [&] {
        platform::TreeRemoval removal;
        removal.removed = [&](const char* path, const platform::DirectoryItem& item) { forget(*state_, path, item); };
        if (!platform::remove_tree(native.text, removal)) {
            fs::refuse_by_disk(removal.left.c_str(), "cannot be removed");
        }
        state_->names->table.compact();
    });
}

bool CWin32_dir::rem_file(const fs::path& p) {
    if (p.EmptyFile() || fs::climbs(p.PathNameView())) {
        return fs::refuse(EFSError::INVALID_NAME, p.FileName(), "The name is empty or leads out of the source.");
    }
    NativePath native;
    const std::uint32_t file = state_->locate_to_change(p, native);
    if (file == NameTable::none) return false;
    if (!platform::remove_file(native.text)) return fs::refuse_by_disk(native.text, "cannot be deleted");
    state_->names->table.remove(file);
    state_->names->table.compact();
    return true;
}

bool CWin32_dir::rename_file(const fs::path& from, const fs::path& to) {
    NativePath native_from;
    NativePath native_to;
    const bool is_name = !from.EmptyFile() && !fs::climbs(from.PathNameView());
    const std::uint32_t file = is_name ? state_->locate_to_change(from, native_from) : NameTable::none;
    if (file == NameTable::none) {
        return fs::refuse(EFSError::NOT_FOUND, from.FileName(), "The source does not hold the file to rename.");
    }
    if (!state_->place_for_new(DirectoryState::Kind::REGULAR, to, native_to)) return false;
    return fs::guarded(native_from.text, false, [&] {
        if (!fs::prepare_rename(native_from.view(), native_to.text)) return false;
        fs::NewEntry entry(*state_);
        if (!entry.enter(native_to, fs::NewEntry::Spelling::OF_CALLER)) return false;
        if (!platform::rename_path(native_from.text, native_to.text)) {
            return fs::refuse_by_disk(native_from.text, "cannot be renamed");
        }
        entry.keep(state_->names->table.value(file) != 0, file);
        return true;
    });
}

#include <cstring>
#include <string>

#include <engine/filesystem/sources/directory.h>

#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/sources/directory/state.h"
#include "engine/platform/directories.h"

namespace {

using fs::DirectoryState;
using fs::FileTable;
using fs::NativePath;

// Removes the files of one directory, and with `below` those of every directory under it, from the table.
void forget_files(DirectoryState& state, std::string_view dir, bool below) {
    FileTable& table = *state.table;
    std::uint32_t next = FileTable::none;
    for (std::uint32_t file = table.first(); file != FileTable::none; file = next) {
        next = table.next(file);
        if (table.dir(file) == dir || (below && table.dir(file).starts_with(dir))) table.remove(file);
    }
    FileTable::compact(state.table);
}

// Deletes a native directory with everything in it, and forgets what was deleted.
class TreeRemover {
public:
    explicit TreeRemover(DirectoryState& state) : state_(state) {}

    void remove(const NativePath& root, std::string_view dir) {
        path_ = root;
        dir_offset_ = root.length - dir.size();
        remove_directory();
        FileTable::compact(state_.table);
    }

private:
    void remove_directory() {
        platform::DirectoryListing items;
        if (!platform::list_directory({.full = path_.text}, items)) return;
        const std::size_t length = path_.length;
        for (const platform::DirectoryItem& item : items.items()) {
            if (length + item.length + 1 > platform::max_path_bytes) continue;
            std::memcpy(path_.text + length, item.name, item.length);
            path_.length = length + item.length;
            path_.text[path_.length] = '\0';
            remove_item(item);
        }
        path_.length = length;
        path_.text[length] = '\0';
        if (platform::remove_directory(path_.text)) state_.forget_directory(lower());
    }

    void remove_item(const platform::DirectoryItem& item) {
        if (!item.is_directory) {
            if (!platform::remove_file(path_.text)) return;
            const std::string name = lower();
            const std::size_t split = name.rfind('/') + 1;
            const std::uint32_t file = state_.table->find_exact(name.substr(0, split), name.substr(split));
            if (file != FileTable::none) state_.table->remove(file);
            return;
        }
        if (item.is_link) {  // the link goes, and what was reached through it is out of reach
            if (!platform::remove_directory(path_.text)) return;
            state_.forget_directory(lower());
            forget_files(state_, lower() + '/', true);
            return;
        }
        path_.text[path_.length++] = '/';
        path_.text[path_.length] = '\0';
        remove_directory();
    }

    // The path as the table tells it.
    std::string lower() const {
        std::string text(path_.text + dir_offset_, path_.length - dir_offset_);
        fs::fold_text(text.data(), text.size());
        return text;
    }

    DirectoryState& state_;
    NativePath path_;
    std::size_t dir_offset_ = 0;
};

// A directory that may be removed: something below the root, or a full path into it.
bool is_removable(const DirectoryState& state, const fs::path& p, NativePath& native) {
    const std::string_view dir = p.PathNameView();
    if (dir.empty() || dir == "/" || fs::climbs(dir) || !build_native_path(state.native_root, dir, {}, native)) {
        return false;
    }
    return native.length > native.root_length && native.root_length == state.native_root.length;
}

bool is_on_disk(const char* path) { return platform::get_attributes(path).has_value(); }

}  // namespace

bool CWin32_dir::mkdir(const fs::path& p) {
    NativePath native;
    if (p.EmptyPath() || !build_native_path(state_->native_root, p.PathNameView(), {}, native)) {
        return fs::refuse(EFSError::INVALID_NAME, p.PathName(),
                          "The directory has no name, or its native path is too long.");
    }
    if (fs::climbs(p.PathNameView()) || !fs::is_creatable(native.view().substr(native.root_length))) {
        return fs::refuse(EFSError::INVALID_NAME, native.text,
                          "The directory leads out of the source or has a name that not every system can hold.");
    }
    if (!fs::create_directories(native.text)) return false;
    std::string lower(p.PathNameView());
    fs::fold_text(lower.data(), lower.size());
    state_->tree_node(lower, true);
    return true;
}

void CWin32_dir::rem_dir(const fs::path& p) {
    NativePath native;
    if (!is_removable(*state_, p, native)) {
        fs::refuse(EFSError::INVALID_NAME, p.PathName(),
                   "The directory is empty, leads out of the source or is too long.");
        return;
    }
    TreeRemover(*state_).remove(native, p.PathNameView());
}

bool CWin32_dir::rem_file(const fs::path& p) {
    if (p.EmptyFile() || fs::climbs(p.PathNameView())) {
        return fs::refuse(EFSError::INVALID_NAME, p.FileName(), "The name is empty or leads out of the source.");
    }
    const std::uint32_t file = state_->find(p);
    NativePath native;
    if (file == FileTable::none || !state_->native_path(file, native)) return false;
    if (!platform::remove_file(native.text)) return fs::refuse_by_disk(native.text, "cannot be deleted");
    state_->table->remove(file);
    FileTable::compact(state_->table);
    return true;
}

bool CWin32_dir::rename_file(const fs::path& from, const fs::path& to) {
    const std::uint32_t file = from.EmptyFile() ? FileTable::none : state_->find(from);
    NativePath native_from;
    NativePath native_to;
    if (file == FileTable::none || !state_->native_path(file, native_from)) {
        return fs::refuse(EFSError::NOT_FOUND, from.FileName(), "The source does not hold the file to rename.");
    }
    const bool fits = !to.EmptyFile() && state_->native_path(to, native_to);
    if (!fits || fs::climbs(from.PathNameView()) || fs::climbs(to.PathNameView()) ||
        !fs::is_creatable(native_to.view().substr(native_to.root_length))) {
        return fs::refuse(
            EFSError::INVALID_NAME, to.FileName(),
            "The new name is empty, too long, leads out of the source or is one that not every system can hold.");
    }
    if (!fs::equal_folded(native_from.view(), native_to.view()) && is_on_disk(native_to.text)) {
        return fs::refuse(EFSError::ALREADY_EXISTS, native_to.text, "There is a file of the new name.");
    }
    if (!fs::create_directories(native_to.text)) return false;
    if (!platform::rename_path(native_from.text, native_to.text)) {
        return fs::refuse_by_disk(native_from.text, "cannot be renamed");
    }
    const bool installed = state_->table->is_installed(file);
    state_->table->remove(file);
    state_->enter_created(to, native_to, installed);
    FileTable::compact(state_->table);
    return true;
}

void CWin32_dir::refresh_dir(const char* dir) {
    fs::path parsed;
    parsed.Set(dir, "", true);
    fs::dir* node = state_->tree_node(parsed.PathNameView(), false);
    if (!node) return;
    forget_files(*state_, parsed.PathNameView(), false);
    // The scan asks for the directory by its lower-case name, so its spelling is found first.
    NativePath native;
    if (!build_native_path(state_->native_root, parsed.PathNameView(), {}, native)) return;
    if (!platform::resolve_case(native.text, native.text)) return;
    const std::string spelled(native.text + native.root_length, native.length - native.root_length);
    if (!fs::scan_directory(*state_, spelled, node, false, nullptr)) {
        fs::refuse(EFSError::OUT_OF_MEMORY, native.text, "There is no memory for the names of the directory.");
    }
}

#include <string>

#include <engine/filesystem/sources/directory.h>

#include "engine/filesystem/contract/guarded.h"
#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/sources/directory/mount/state.h"
#include "engine/kernel/text.h"
#include "engine/platform/directories.h"

namespace {

using fs::DirectoryState;
using fs::NameTable;
using fs::NativePath;

// Deletes a native directory with everything in it, and forgets what was deleted. Nothing here asks for memory but the
// listings, so that table and tree always follow the disk.
class TreeRemover {
public:
    TreeRemover(DirectoryState& state, const NativePath& dir) : state_(state), path_(dir) {}

    /// The first thing that could not be removed is told.
    void remove() {
        if (path_.text[path_.length - 1] == '/') path_.cut(path_.length - 1);
        platform::is_link(path_.text) ? remove_link() : remove_directory();
        state_.names->table.compact();
    }

private:
    void remove_directory() {
        const std::size_t length = path_.length;
        if (!path_.append("/")) return fail_too_long();
        platform::DirectoryListing items;
        if (!platform::list_directory({.full = path_.text}, items)) fail("cannot be listed");
        for (const platform::DirectoryItem& item : items.items()) {
            path_.cut(length + 1);
            if (!path_.append({item.name, item.length})) {
                fail_too_long();
            } else if (item.is_link) {
                remove_link();
            } else if (item.is_directory) {
                remove_directory();
            } else {
                remove_file();
            }
        }
        path_.cut(length);
        if (!platform::remove_directory(path_.text)) return fail("cannot be removed");
        const NativePath lower = lower_path();
        state_.remove_node(lower.below_root());
    }

    void remove_file() {
        if (!platform::remove_file(path_.text)) return fail("cannot be removed");
        const NativePath lower = lower_path();
        const std::string_view name = lower.below_root();
        const std::size_t split = name.rfind('/') + 1;
        const std::uint32_t file = state_.names->table.find_exact(name.substr(0, split), name.substr(split));
        if (file != NameTable::none) state_.names->table.remove(file);
    }

    // The link goes, and what was reached through it is out of reach.
    void remove_link() {
        if (!platform::remove_directory(path_.text) && !platform::remove_file(path_.text)) {
            return fail("cannot be removed");
        }
        NativePath lower = lower_path();
        const std::string_view below = lower.below_root();
        state_.remove_node(below);
        NameTable& table = state_.names->table;
        for (std::uint32_t file = table.first(), next = NameTable::none; file != NameTable::none; file = next) {
            next = table.next(file);
            const std::string_view dir = table.dir(file);
            const bool is_behind = dir.size() > below.size() && dir.starts_with(below) && dir[below.size()] == '/';
            const bool is_itself = dir.size() + table.name(file).size() == below.size() && below.starts_with(dir) &&
                                   below.ends_with(table.name(file));
            if (is_behind || is_itself) table.remove(file);
        }
    }

    NativePath lower_path() const {
        NativePath lower = path_;
        fs::fold_text(lower.text, lower.length);
        return lower;
    }

    void fail(const char* what) {
        if (!has_failed_) fs::refuse_by_disk(path_.text, what);
        has_failed_ = true;
    }

    void fail_too_long() {
        if (!has_failed_) {
            fs::refuse(EFSError::INVALID_NAME, path_.text,
                       "The directory holds a name that is too long to be removed.");
        }
        has_failed_ = true;
    }

    DirectoryState& state_;
    NativePath path_;
    bool has_failed_ = false;
};

bool is_on_disk(const char* path) { return platform::get_attributes(path).has_value(); }

}  // namespace

bool CWin32_dir::mkdir(const fs::path& p) {
    NativePath native;
    if (p.EmptyPath() || !state_->native_path(p, native)) {
        return fs::refuse(EFSError::INVALID_NAME, p.PathName(),
                          "The directory has no name, leads out of the source, or its native path is too long.");
    }
    native.cut(native.length - p.FileNameView().size());
    if (fs::climbs(p.PathNameView()) || !fs::is_creatable(native.below_root())) {
        return fs::refuse(EFSError::INVALID_NAME, native.text,
                          "The directory leads out of the source or has a name that not every system can hold.");
    }
    return fs::guarded(native.text, false, [&] {
        if (!fs::create_directories(native.text)) return false;
        NativePath lower = native;
        fs::fold_text(lower.text, lower.length);
        state_->make_node(*state_->names, lower.below_root());
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
    fs::guarded(native.text, [&] { TreeRemover(*state_, native).remove(); });
}

bool CWin32_dir::rem_file(const fs::path& p) {
    if (p.EmptyFile() || fs::climbs(p.PathNameView())) {
        return fs::refuse(EFSError::INVALID_NAME, p.FileName(), "The name is empty or leads out of the source.");
    }
    const std::uint32_t file = state_->find_to_change(p);
    NativePath native;
    if (file == NameTable::none || !state_->native_path(file, native)) return false;
    if (!platform::remove_file(native.text)) return fs::refuse_by_disk(native.text, "cannot be deleted");
    state_->names->table.remove(file);
    state_->names->table.compact();
    return true;
}

bool CWin32_dir::rename_file(const fs::path& from, const fs::path& to) {
    const std::uint32_t file = from.EmptyFile() ? NameTable::none : state_->find_to_change(from);
    NativePath native_from;
    NativePath native_to;
    if (file == NameTable::none || !state_->native_path(file, native_from)) {
        return fs::refuse(EFSError::NOT_FOUND, from.FileName(), "The source does not hold the file to rename.");
    }
    const bool fits = !to.EmptyFile() && state_->native_path(to, native_to);
    if (!fits || fs::climbs(from.PathNameView()) || fs::climbs(to.PathNameView()) ||
        !fs::is_creatable(native_to.below_root())) {
        return fs::refuse(
            EFSError::INVALID_NAME, to.FileName(),
            "The new name is empty, too long, leads out of the source or is one that not every system can hold.");
    }
    if (!kernel::equal_folded(native_from.view(), native_to.view()) && is_on_disk(native_to.text)) {
        return fs::refuse(EFSError::ALREADY_EXISTS, native_to.text, "There is a file of the new name.");
    }
    return fs::guarded(native_from.text, false, [&] {
        if (!fs::create_directories(native_to.text)) return false;
        fs::NewEntry entry(*state_);
        if (!entry.enter(native_to, to.FileNameView().size(), fs::NewEntry::Spelling::OF_CALLER)) return false;
        if (!platform::rename_path(native_from.text, native_to.text)) {
            return fs::refuse_by_disk(native_from.text, "cannot be renamed");
        }
        entry.keep(state_->names->table.value(file) != 0, file);
        return true;
    });
}

#include <engine/filesystem/sources/directory.h>

#include <cstring>
#include <string>
#include <typeinfo>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/open_file.h"
#include "engine/filesystem/contract/path_text.h"
#include "engine/filesystem/handles/native_open.h"
#include "engine/filesystem/sources/directory/state.h"
#include "engine/platform/directories.h"

// Here the source opens, makes and removes files and directories; source.cpp has the rest.

namespace {

using fs::DirectoryState;
using fs::NameTable;
using fs::NativePath;
using Flags = FFSOpenFlags::FLAGS;

/// A file that is about to be made or renamed to: entered first, so that what can fail has failed before the disk is
/// changed, and taken out again unless the disk does its part.
class NewEntry {
public:
    enum class Spelling : std::uint8_t { OF_DISK, OF_CALLER };  // of the name, where the disk has one in another case

    explicit NewEntry(DirectoryState& state) : state_(state), table_(state.names->table) {}
    NewEntry(const NewEntry&) = delete;
    NewEntry& operator=(const NewEntry&) = delete;
    ~NewEntry() {
        if (!is_kept_ && added_ != NameTable::none) table_.remove(added_);
    }

    /// `made` is the native path; directories keep the disk's spelling. False, with the error set, when the disk cannot
    /// tell it. May throw std::bad_alloc.
    [[nodiscard]] bool enter(const NativePath& made, Spelling spelling) {
        NativePath spelled = made;
        if (!platform::resolve_case(made.text, spelled.text))
            return fs::refuse_by_disk(made.text, "cannot be looked for");
        spelled.length = std::strlen(spelled.text);  // short names of Windows are told in full
        const auto split_of = [](const NativePath& path) { return path.view().rfind('/') + 1; };
        if (spelling == Spelling::OF_CALLER) {
            spelled.cut(split_of(spelled));
            if (!spelled.append(made.view().substr(split_of(made))))
                return fs::refuse(EFSError::INVALID_NAME, made.text, "The new name is too long.");
        }
        const std::string lower = fs::lower_text(spelled.below_root());
        const std::size_t split = split_of(spelled) - spelled.root_length;
        const std::string_view dir = spelled.below_root().substr(0, split);
        const std::string_view name = spelled.below_root().substr(split);
        state_.make_node(state_.names->tree, lower.substr(0, split));
        known_ = table_.find_exact(lower);
        const bool serves = known_ != NameTable::none && table_.is_spelled(known_, spelled.below_root());
        if (!serves) added_ = table_.add(table_.intern_dir(dir), name, 0);
        return true;
    }
    /// The file was made: from now on the table answers with it alone, and no longer with `renamed`. Never throws.
    void keep(bool installed, std::uint32_t renamed = NameTable::none) {
        is_kept_ = true;
        table_.set_value(added_ != NameTable::none ? added_ : known_, installed ? 1 : 0);
        if (renamed != NameTable::none && renamed != known_) table_.remove(renamed);
        if (added_ != NameTable::none && known_ != NameTable::none) table_.remove(known_);
        table_.compact();
    }

private:
    DirectoryState& state_;
    NameTable& table_;
    std::uint32_t known_ = NameTable::none;  // a file of the same name that the table held before
    std::uint32_t added_ = NameTable::none;  // unless that one serves
    bool is_kept_ = false;
};

bool locate_entry(const DirectoryState& state, const fs::path& p, Flags flags, fs::LocatingSource::Located& out) {
    const std::uint32_t file = state.find(p, fs::has_any(flags, FFSOpenFlags::WHOLE_NAME));
    NativePath native;
    if (file == NameTable::none || !state.native_path(file, native)) return false;
    out.root = state.native_root.handle;
    out.root_length = native.root_length;
    std::memcpy(out.path, native.text, native.length + 1);
    return true;
}

SFsFile* open_entry(CFSSource* source, const fs::LocatingSource::Located& entry, EFSMode::TYPE mode, Flags flags) {
    char name[platform::path_buffer_size];
    const std::string_view spelled(entry.path + entry.root_length);
    fs::fold_text(name, spelled.copy(name, sizeof name));
    const auto* const root = static_cast<const platform::Root*>(entry.root.get());
    return fs::open_of_source(source, fs::path_at(entry.path, entry.root_length, root), mode, flags,
                              {name, spelled.size()});
}

/// Enters a new file, with the directories of its name, and keeps the entry when `make(native)` answers true.
template <typename Make>
void enter_new(DirectoryState& state, const fs::path& p, Make make) {
    NativePath native;
    if (!state.place_for_new(DirectoryState::Kind::REGULAR, p, native)) return;
    fs::guarded(native.text, [&] {
        NewEntry entry(state);
        if (fs::create_directories(native.view()) && entry.enter(native, NewEntry::Spelling::OF_DISK) && make(native))
            entry.keep(true);
    });
}

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
    const std::uint32_t file = state.names->table.find_exact(name);
    if (file != NameTable::none) state.names->table.remove(file);
}

}  // namespace

SFsFile* CWin32_dir::open_existing(const fs::path& p, EFSMode::TYPE mode, Flags flags) {
    Located entry;
    return locate_entry(*state_, p, flags, entry) ? open_entry(this, entry, mode, flags) : nullptr;
}

fs::LocatingSource::Answer CWin32_dir::locate(const fs::path& p, Flags flags, Located& out) {
    // A derived class may open in its own way, which is made for the lock.
    if (typeid(*this) != typeid(CWin32_dir)) return Answer::OPEN_READ;
    return locate_entry(*state_, p, flags, out) ? Answer::LOCATED : Answer::NOT_HELD;
}

SFsFile* CWin32_dir::open_located(const fs::path& /*p*/, Flags flags, const Located& found) {
    return open_entry(this, found, EFSMode::READ, flags);
}

SFsFile* CWin32_dir::open_read(const fs::path& p, Flags flags) { return open_existing(p, EFSMode::READ, flags); }
SFsFile* CWin32_dir::open_write(const fs::path& p, Flags flags) { return open_existing(p, EFSMode::WRITE, flags); }
SFsFile* CWin32_dir::open_append(const fs::path& p, Flags flags) { return open_existing(p, EFSMode::APPEND, flags); }
SFsFile* CWin32_dir::open_read_write(const fs::path& p, Flags flags) {
    return open_existing(p, EFSMode::READ_WRITE, flags);
}

SFsFile* CWin32_dir::create(const fs::path& p, EFSMode::TYPE mode, Flags flags) {
    SFsFile* file = nullptr;
    enter_new(*state_, p, [&](const NativePath& native) {
        const std::string name = fs::lower_text(native.below_root());
        const platform::PathAt path = native.at(state_->native_root);
        file = mode == EFSMode::WRITE ? fs::open_of_source(this, path, mode, flags | FFSOpenFlags::CREATE, name)
                                      : fs::create_for_change(this, path, flags & ~FFSOpenFlags::WHOLE_NAME, name);
        return file != nullptr && !fs::has_any(flags, FFSOpenFlags::REPLACE);  // which calls add_file
    });
    return file;
}

bool CWin32_dir::add_file(const fs::path& p, const std::function<bool()>& place) {
    bool is_placed = false;
    enter_new(*state_, p, [&](const NativePath&) { return is_placed = place(); });
    return is_placed;
}

SFsFile* CWin32_dir::create_write(const fs::path& p, Flags flags) { return create(p, EFSMode::WRITE, flags); }
SFsFile* CWin32_dir::create_read_write(const fs::path& p, Flags flags) { return create(p, EFSMode::READ_WRITE, flags); }

bool CWin32_dir::mkdir(const fs::path& p) {
    NativePath native;
    if (!state_->place_for_new(DirectoryState::Kind::DIRECTORY, p, native)) return false;
    return fs::guarded(native.text, false, [&] {
        fs::dir made;
        state_->make_node(made, fs::lower_text(native.below_root()));
        if (!fs::create_directories(native.view())) return false;
        state_->names->tree.take_over(made);
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
        if (!platform::remove_tree(native.text, removal)) fs::refuse_by_disk(removal.left.c_str(), "cannot be removed");
        state_->names->table.compact();
    });
}

bool CWin32_dir::rem_file(const fs::path& p) {
    if (p.EmptyFile() || fs::climbs(p.PathNameView()))
        return fs::refuse(EFSError::INVALID_NAME, p.FileName(), "The name is empty or leads out of the source.");
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
    if (file == NameTable::none)
        return fs::refuse(EFSError::NOT_FOUND, from.FileName(), "The source does not hold the file to rename.");
    if (!state_->place_for_new(DirectoryState::Kind::REGULAR, to, native_to)) return false;
    return fs::guarded(native_from.text, false, [&] {
        if (!fs::prepare_rename(native_from.view(), native_to.text)) return false;
        NewEntry entry(*state_);
        if (!entry.enter(native_to, NewEntry::Spelling::OF_CALLER)) return false;
        if (!platform::rename_path(native_from.text, native_to.text))
            return fs::refuse_by_disk(native_from.text, "cannot be renamed");
        entry.keep(state_->names->table.value(file) != 0, file);
        return true;
    });
}

#include <engine/filesystem/sources/directory.h>

#include <memory>
#include <optional>
#include <typeinfo>
#include <utility>

#include "engine/filesystem/contract/guarded.h"
#include "engine/filesystem/contract/native_path.h"
#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/contract/open_rules.h"
#include "engine/filesystem/handles/native_open.h"
#include "engine/filesystem/sources/directory/mount/state.h"

namespace {

using fs::NameTable;
using fs::NativePath;

/// Directory and name of a file in one buffer, for the handle.
struct EntryName {
    char text[platform::path_buffer_size];
    std::size_t length = 0;

    EntryName(const NameTable& table, std::uint32_t file) {
        const std::string_view dir = table.dir(file);
        const std::string_view name = table.name(file);
        if (dir.size() + name.size() > platform::max_path_bytes) return;
        length = dir.copy(text, dir.size());
        length += name.copy(text + length, name.size());
    }
    std::string_view view() const { return {text, length}; }
};

/// A file that the table holds, ready to be opened. It stays so when the tables change, and when the root is opened anew.
struct Entry {
    std::shared_ptr<const platform::Root> root;
    NativePath native;
    EntryName name;

    SFsFile* open(CFSSource* source, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) const {
        return fs::open_of_source(source, native.at(root.get()), mode, flags, name.view());
    }
};

std::optional<Entry> find_entry(const fs::DirectoryState& state, const fs::path& p, FFSOpenFlags::FLAGS flags) {
    const std::uint32_t file = state.find(p, fs::has_any(flags, FFSOpenFlags::WHOLE_NAME));
    if (file == NameTable::none) return std::nullopt;
    std::optional<Entry> entry({.root = state.native_root.handle, .native = {}, .name = {state.names->table, file}});
    return state.native_path(file, entry->native) ? entry : std::nullopt;
}

}  // namespace

SFsFile* CWin32_dir::open_existing(const fs::path& p, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) {
    const std::optional<Entry> entry = find_entry(*state_, p, flags);
    return entry ? entry->open(this, mode, flags) : nullptr;
}

/// A derived class may open in its own way, which is made for the lock.
fs::LocatingSource::Opening CWin32_dir::locate(const fs::path& p, FFSOpenFlags::FLAGS flags) {
    return fs::guarded(p.FileName(), Opening(), [&]() -> Opening {
        if (typeid(*this) != typeid(CWin32_dir)) return fs::already_open(open_read(p, flags));
        std::optional<Entry> entry = find_entry(*state_, p, flags);
        if (!entry) return {};
        return [this, entry = std::move(*entry), flags] { return entry.open(this, EFSMode::READ, flags); };
    });
}

SFsFile* CWin32_dir::open_read(const fs::path& p, FFSOpenFlags::FLAGS flags) {
    return open_existing(p, EFSMode::READ, flags);
}
SFsFile* CWin32_dir::open_write(const fs::path& p, FFSOpenFlags::FLAGS flags) {
    return open_existing(p, EFSMode::WRITE, flags);
}
SFsFile* CWin32_dir::open_append(const fs::path& p, FFSOpenFlags::FLAGS flags) {
    return open_existing(p, EFSMode::APPEND, flags);
}
SFsFile* CWin32_dir::open_read_write(const fs::path& p, FFSOpenFlags::FLAGS flags) {
    return open_existing(p, EFSMode::READ_WRITE, flags);
}

SFsFile* CWin32_dir::create(const fs::path& p, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) {
    NativePath native;
    if (!state_->place_for_file(p, native)) return nullptr;
    return fs::guarded(native.text, static_cast<SFsFile*>(nullptr), [&]() -> SFsFile* {
        const std::string name = fs::lower_text(native.below_root());
        if (!fs::create_directories(native.view())) return nullptr;
        fs::NewEntry entry(*state_);
        if (!entry.enter(native, p.FileNameView().size(), fs::NewEntry::Spelling::OF_DISK)) return nullptr;
        const platform::PathAt path = native.at(state_->native_root);
        const bool is_made_later = fs::has_any(flags, FFSOpenFlags::REPLACE);
        SFsFile* const file = mode == EFSMode::WRITE
                                  ? fs::open_of_source(this, path, mode, flags | FFSOpenFlags::CREATE, name)
                                  : fs::create_for_change(this, path, flags & ~FFSOpenFlags::WHOLE_NAME, name);
        if (file && !is_made_later) entry.keep(true);
        return file;
    });
}

bool CWin32_dir::add_file(const fs::path& p) {
    NativePath native;
    if (!state_->place_for_file(p, native)) return false;
    return fs::guarded(native.text, false, [&] {
        fs::NewEntry entry(*state_);
        if (!entry.enter(native, p.FileNameView().size(), fs::NewEntry::Spelling::OF_DISK)) return false;
        entry.keep(true);
        return true;
    });
}

SFsFile* CWin32_dir::create_write(const fs::path& p, FFSOpenFlags::FLAGS flags) {
    return create(p, EFSMode::WRITE, flags);
}
SFsFile* CWin32_dir::create_read_write(const fs::path& p, FFSOpenFlags::FLAGS flags) {
    return create(p, EFSMode::READ_WRITE, flags);
}

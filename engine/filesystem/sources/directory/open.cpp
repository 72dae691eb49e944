#include <engine/filesystem/sources/directory.h>

#include <memory>
#include <optional>
#include <typeinfo>
#include <utility>

#include "engine/filesystem/contract/file_ptr.h"
#include "engine/filesystem/contract/guarded.h"
#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/contract/open_rules.h"
#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/handles/native_open.h"
#include "engine/filesystem/sources/directory/mount/state.h"
#include "engine/platform/directories.h"

namespace {

using fs::NameTable;
using fs::NativePath;

SFsFile* open_path(CFSSource* source, const platform::PathAt& path, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags,
                   std::string_view name) {
    // The question came through the virtual file system already; asking it again would take its lock twice.
    return fs::open_native_at(source, path, mode, flags & ~FFSOpenFlags::THROUGH_VFS, name);
}

/// Directory and name of a file in one buffer, for the handle.
struct EntryName {
    char text[platform::path_buffer_size];
    std::size_t length = 0;

    EntryName(const NameTable& table, std::uint32_t file) {
        const std::string_view dir = table.dir(file);
        const std::string_view name = table.name(file);
        if (dir.size() + name.size() > platform::max_path_bytes) return;
        dir.copy(text, dir.size());
        name.copy(text + dir.size(), name.size());
        length = dir.size() + name.size();
    }
    std::string_view view() const { return {text, length}; }
};

SFsFile* refuse(const char* path, EFSError::TYPE code, const char* why) {
    fs::refuse(code, path, why);
    return nullptr;
}

/// A file that the table holds, ready to be opened. It stays so when the tables change, and when the root is opened anew.
struct Entry {
    std::shared_ptr<const platform::Root> root;
    NativePath native;
    EntryName name;
    EFSMode::TYPE mode;
    FFSOpenFlags::FLAGS flags;
};

std::optional<Entry> find_entry(const fs::DirectoryState& state, const fs::path& p, EFSMode::TYPE mode,
                                FFSOpenFlags::FLAGS flags) {
    const std::uint32_t file = state.find(p, fs::has_any(flags, FFSOpenFlags::WHOLE_NAME));
    if (file == NameTable::none) return std::nullopt;
    flags &= ~FFSOpenFlags::WHOLE_NAME;
    if (!fs::is_valid_open(mode, flags)) {
        refuse(p.FileName(), EFSError::INVALID_ARGUMENT, "Mode and flags of the open exclude each other.");
        return std::nullopt;
    }
    std::optional<Entry> entry({.root = state.native_root.handle,
                                .native = {},
                                .name = {state.names->table, file},
                                .mode = mode,
                                .flags = flags});
    if (state.native_path(file, entry->native)) return entry;
    refuse(p.FileName(), EFSError::INVALID_NAME, "The native path of the file is too long.");
    return std::nullopt;
}

SFsFile* open_entry(CFSSource* source, const Entry& entry) {
    const platform::PathAt path = entry.native.at(entry.root.get());
    return fs::guarded(path.full, static_cast<SFsFile*>(nullptr), [&] {
        if (entry.mode == EFSMode::READ || entry.mode == EFSMode::WRITE)
            return open_path(source, path, entry.mode, entry.flags, entry.name.view());
        return fs::open_for_change(source, path, entry.mode, entry.flags, entry.name.view());
    });
}

}  // namespace

SFsFile* CWin32_dir::open_existing(const fs::path& p, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) {
    const std::optional<Entry> entry = find_entry(*state_, p, mode, flags);
    return entry ? open_entry(this, *entry) : nullptr;
}

/// A derived class may open in its own way, which is made for the lock.
fs::LocatingSource::Opening CWin32_dir::locate(const fs::path& p, FFSOpenFlags::FLAGS flags) {
    return fs::guarded(p.FileName(), Opening(), [&]() -> Opening {
        if (typeid(*this) != typeid(CWin32_dir)) {
            const auto file = std::make_shared<fs::FilePtr>(open_read(p, flags));
            return *file ? Opening([file] { return file->release(); }) : Opening();
        }
        std::optional<Entry> entry = find_entry(*state_, p, EFSMode::READ, flags);
        return entry ? Opening([this, entry = std::move(*entry)] { return open_entry(this, entry); }) : Opening();
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
    if (p.EmptyFile() || !state_->native_path(p, native)) {
        return refuse(p.FileName(), EFSError::INVALID_NAME,
                      "There is no name to create, or it leads out of the source, or its native path is too long.");
    }
    if (fs::climbs(p.PathNameView()) || !fs::is_creatable(native.below_root())) {
        return refuse(native.text, EFSError::INVALID_NAME,
                      "The name leads out of the source or is one that not every system can hold.");
    }
    return fs::guarded(native.text, static_cast<SFsFile*>(nullptr), [&]() -> SFsFile* {
        std::string name(native.below_root());
        fs::fold_text(name.data(), name.size());
        if (!fs::create_directories(native.text)) return nullptr;
        fs::NewEntry entry(*state_);
        if (!entry.enter(native, p.FileNameView().size(), fs::NewEntry::Spelling::OF_DISK)) return nullptr;
        const platform::PathAt path = native.at(state_->native_root);
        const FFSOpenFlags::FLAGS plain = flags & ~FFSOpenFlags::WHOLE_NAME;
        SFsFile* const file = mode == EFSMode::WRITE ? open_path(this, path, mode, plain | FFSOpenFlags::CREATE, name)
                                                     : fs::create_for_change(this, path, plain, name);
        if (file) entry.keep(true);
        return file;
    });
}

SFsFile* CWin32_dir::create_write(const fs::path& p, FFSOpenFlags::FLAGS flags) {
    return create(p, EFSMode::WRITE, flags);
}
SFsFile* CWin32_dir::create_read_write(const fs::path& p, FFSOpenFlags::FLAGS flags) {
    return create(p, EFSMode::READ_WRITE, flags);
}

#include <engine/filesystem/sources/directory.h>

#include <cstring>
#include <typeinfo>

#include "engine/filesystem/contract/error.h"
#include "engine/filesystem/contract/file.h"
#include "engine/filesystem/contract/path.h"
#include "engine/filesystem/handles/native_open.h"
#include "engine/filesystem/sources/directory/mount/state.h"

namespace {

using fs::NameTable;
using fs::NativePath;

bool locate_entry(const fs::DirectoryState& state, const fs::path& p, FFSOpenFlags::FLAGS flags,
                  fs::LocatingSource::Located& out) {
    const std::uint32_t file = state.find(p, fs::has_any(flags, FFSOpenFlags::WHOLE_NAME));
    NativePath native;
    if (file == NameTable::none || !state.native_path(file, native)) return false;
    out.root = state.native_root.handle;
    out.root_length = native.root_length;
    std::memcpy(out.path, native.text, native.length + 1);
    return true;
}

SFsFile* open_entry(CFSSource* source, const fs::LocatingSource::Located& entry, EFSMode::TYPE mode,
                    FFSOpenFlags::FLAGS flags) {
    char name[platform::path_buffer_size];
    const std::string_view spelled(entry.path + entry.root_length);
    fs::fold_text(name, spelled.copy(name, sizeof name));
    const auto* const root = static_cast<const platform::Root*>(entry.root.get());
    return fs::open_of_source(source, fs::path_at(entry.path, entry.root_length, root), mode, flags,
                              {name, spelled.size()});
}

/// Enters a new file, with the directories of its name, and keeps the entry when `make(native)` answers true.
template <typename Make>
void enter_new(fs::DirectoryState& state, const fs::path& p, Make make) {
    NativePath native;
    if (!state.place_for_new(fs::DirectoryState::Kind::REGULAR, p, native)) return;
    fs::guarded(native.text, [&] {
        fs::NewEntry entry(state);
        if (fs::create_directories(native.view()) && entry.enter(native, fs::NewEntry::Spelling::OF_DISK) &&
            make(native))
            entry.keep(true);
    });
}

}  // namespace

SFsFile* CWin32_dir::open_existing(const fs::path& p, EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) {
    Located entry;
    return locate_entry(*state_, p, flags, entry) ? open_entry(this, entry, mode, flags) : nullptr;
}

fs::LocatingSource::Answer CWin32_dir::locate(const fs::path& p, FFSOpenFlags::FLAGS flags, Located& out) {
    // A derived class may open in its own way, which is made for the lock.
    if (typeid(*this) != typeid(CWin32_dir)) return Answer::OPEN_READ;
    return locate_entry(*state_, p, flags, out) ? Answer::LOCATED : Answer::NOT_HELD;
}

SFsFile* CWin32_dir::open_located(const fs::path& /*p*/, FFSOpenFlags::FLAGS flags, const Located& found) {
    return open_entry(this, found, EFSMode::READ, flags);
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

SFsFile* CWin32_dir::create_write(const fs::path& p, FFSOpenFlags::FLAGS flags) {
    return create(p, EFSMode::WRITE, flags);
}
SFsFile* CWin32_dir::create_read_write(const fs::path& p, FFSOpenFlags::FLAGS flags) {
    return create(p, EFSMode::READ_WRITE, flags);
}

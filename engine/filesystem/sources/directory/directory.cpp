#include <engine/filesystem/sources/directory.h>

#include <algorithm>
#include <cstring>

#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/sources/directory/listing_check.h"
#include "engine/filesystem/sources/directory/state.h"
#include "engine/filesystem/sources/listing/listing.h"
#include "engine/platform/clock.h"
#include "engine/platform/directories.h"

// Words: the *native root* is the directory on the disk that every relative directory is appended to. It is the root given
// to init, or its parent when the last component of the root leads every name; that component is then the *start*, where
// the scan begins. The *spelling* of a name is how the disk writes it; all else is lower case.
//
// The class is spread over files by what its operations do: directory.cpp mounts and answers, open.cpp opens and creates,
// change.cpp makes and removes, search.cpp lists.
//
// Invariant: each file of the table was seen on the disk, or made by this source, under the native path that its
// directory and spelling give; nothing asks the disk whether it is still there.

namespace {

bool has(FFSAddSourceFlags::ENUM flags, FFSAddSourceFlags::ENUM bit) {
    return (flags & bit) != FFSAddSourceFlags::NONE;
}

bool is_directory(const char* path) {
    const std::optional<platform::Attributes> attributes = platform::get_attributes(path);
    return attributes && attributes->is_directory;
}

bool choose_roots(fs::DirectoryState& state) {
    const bool parent = has(state.flags, FFSAddSourceFlags::MOUNT_PARENT);
    if (!fs::open_native_root(state.root.PathNameView(), state.spelling, parent, state.native_root, state.start)) {
        return false;
    }
    const std::string native(state.root.PathNameView().substr(0, state.native_root.length));
    state.native.Set(native.c_str(), state.root.FileName(), false);
    return state.table->set_root(state.native_root.view());
}

void name_tree(fs::DirectoryState& state) {
    std::string name = state.start.substr(0, state.start.size() - (state.start.empty() ? 0 : 1));
    fs::fold_text(name.data(), name.size());
    if (!name.empty()) state.tree.set_name(name.c_str());
}

/// Forgets all names. False without memory for the root's text.
bool start_over(fs::DirectoryState& state) {
    // The new table is had before the old one goes, so that there always is one.
    state.table = std::make_unique<fs::FileTable>();
    state.tree.clear();
    return state.table->set_root(state.native_root.view());
}

bool fill(fs::DirectoryState& state, fs::dir_listing* listing) {
    if (fs::fill_from_cache_service(state)) return true;
    name_tree(state);
    if (listing && !listing->is_empty() && !listing->is_stored()) return fs::replay_listing(state, *listing);
    if (listing && !listing->is_empty()) {
        // Checked only now: a mount that the service serves looks at no directory.
        fs::ListingCheck check(state.native_root, *listing);
        const bool replayed = fs::replay_listing(state, *listing, &check);
        if (check.is_current()) return replayed;
        if (!start_over(state)) return false;
        name_tree(state);
    }
    if (listing) listing->clear();
    const bool recursive = has(state.flags, FFSAddSourceFlags::RECURSIVE);
    return fs::scan_directory(state, state.start, &state.tree, recursive, listing);
}

}  // namespace

CWin32_dir::CWin32_dir(EFSSourceType::TYPE type, const char* const* include)
    : state_(std::make_unique<fs::DirectoryState>()) {
    state_->type = type;
    state_->table = std::make_unique<fs::FileTable>();
    for (; include && *include; ++include) {
        fs::string name;
        fs::path(*include, true).FullName(name);
        state_->include.push_back(std::move(name));
    }
    std::sort(state_->include.begin(), state_->include.end());
}

CWin32_dir::~CWin32_dir() = default;

void CWin32_dir::set_native_spelling(const char* root) {
    fs::path spelling;
    spelling.Set(root, "", false);
    state_->spelling = spelling.PathName();
}

bool CWin32_dir::init(const fs::path& root, FFSAddSourceFlags::ENUM flags, fs::dir_listing* listing) {
    fs::DirectoryState& state = *state_;
    const fs::path kept(root);  // `root` may be our own, which clear leaves alone and the next line writes
    clear();
    state.flags = flags;
    state.root = state.native = kept;
    state.is_protected = has(flags, FFSAddSourceFlags::PROTECTED);
    state.allow_write = !has(flags, FFSAddSourceFlags::MUST_EXIST);
    const char* text = state.root.PathName();
    if (state.root.Empty()) return fs::refuse(EFSError::INVALID_NAME, "", "The root of a directory source is empty.");
    if (!state.allow_write && (state.root.EmptyPath() || !is_directory(text))) {
        return fs::refuse(EFSError::NOT_FOUND, text, "The root of the source must exist and is not a directory.");
    }
    if (!choose_roots(state)) return fs::refuse(EFSError::INVALID_NAME, text, "The root of the source is too long.");
    const bool filled = fill(state, listing);
    state.table->settle();
    if (filled) return true;
    return fs::refuse(EFSError::OUT_OF_MEMORY, text, "There is no memory for the names of the source.");
}

void CWin32_dir::clear() {
    if (!start_over(*state_)) state_->native_root.length = 0;
}

const fs::path& CWin32_dir::path() { return state_->root; }
FFSAddSourceFlags::ENUM CWin32_dir::flags() { return state_->flags; }
EFSSourceType::TYPE CWin32_dir::type() { return state_->type; }
bool CWin32_dir::is_protected() { return state_->is_protected; }
bool CWin32_dir::writable() { return state_->allow_write && !state_->is_protected; }
fs::dir* CWin32_dir::dir_tree() { return &state_->tree; }
const char* CWin32_dir::root_dir() { return state_->native.PathName(); }

void CWin32_dir::refresh() { init(state_->root, state_->flags, nullptr); }

bool CWin32_dir::exists(const fs::path& p) { return state_->find(p) != fs::FileTable::none; }

void CWin32_dir::full_path(fs::path& out, const fs::path& p) {
    const std::uint32_t file = state_->find(p);
    fs::NativePath native;
    if (file == fs::FileTable::none || !state_->native_path(file, native)) {
        out = fs::path();
        return;
    }
    out = fs::path(native.text, true);
}

void CWin32_dir::root_path(fs::path& out, const fs::path& p) {
    const std::uint32_t file = state_->find(p);
    if (file == fs::FileTable::none) {
        out = fs::path();
        return;
    }
    const std::string dir(state_->table->dir(file));
    out.Set(dir.c_str(), std::string(state_->table->name(file)).c_str(), true);
    out.SetInstalled(state_->table->is_installed(file));
}

std::int64_t CWin32_dir::write_time(const fs::path& p) {
    const std::uint32_t file = state_->find(p);
    fs::NativePath native;
    if (file == fs::FileTable::none || !state_->native_path(file, native)) return -1;
    const std::optional<platform::Attributes> attributes = platform::get_attributes(native.at(state_->native_root));
    if (attributes) return platform::utc_to_local(attributes->write_time);
    fs::refuse_by_disk(native.text, "has no readable attributes");
    return -1;
}

bool CWin32_dir::set_write_time(const fs::path& p, std::int64_t time) {
    const std::uint32_t file = state_->find(p);
    fs::NativePath native;
    if (file == fs::FileTable::none || !state_->native_path(file, native)) return false;
    // The answer does not depend on the disk: a file that cannot be opened keeps its time, and this is true all the same.
    if (!platform::set_write_time(native.text, platform::local_to_utc(time))) {
        fs::refuse_by_disk(native.text, "keeps its time");
    }
    return true;
}

bool CWin32_dir::read_only(const fs::path& p) {
    const std::uint32_t file = state_->find(p);
    fs::NativePath native;
    if (file == fs::FileTable::none || !state_->native_path(file, native)) return false;
    const std::optional<platform::Attributes> attributes = platform::get_attributes(native.at(state_->native_root));
    return attributes && attributes->is_read_only;
}

bool CWin32_dir::set_read_only(const fs::path& p, bool on) {
    const std::uint32_t file = state_->find(p);
    fs::NativePath native;
    if (file == fs::FileTable::none || !state_->native_path(file, native)) return false;
    return platform::set_read_only(native.text, on) || fs::refuse_by_disk(native.text, "keeps its read-only attribute");
}

void CWin32_dir::mark_installed_all(bool on) {
    fs::FileTable& table = *state_->table;
    for (std::uint32_t file = table.first(); file != fs::FileTable::none; file = table.next(file)) {
        table.set_installed(file, on);
    }
}

void CWin32_dir::mark_installed(const fs::path& p, bool on) {
    const std::uint32_t file = state_->find(p);
    if (file != fs::FileTable::none) state_->table->set_installed(file, on);
}

int CWin32_dir::is_installed(const fs::path& p) {
    const std::uint32_t file = state_->find(p);
    if (file == fs::FileTable::none) return 0;
    return state_->table->is_installed(file) ? 2 : 1;
}

bool CWin32_dir::native_path(const fs::path& p, char* out, std::size_t capacity) {
    const std::uint32_t file = state_->find(p);
    fs::NativePath native;
    const bool fits = file != fs::FileTable::none ? state_->native_path(file, native) : state_->native_path(p, native);
    if (!fits || native.length >= capacity) return false;
    std::memcpy(out, native.text, native.length + 1);
    return true;
}

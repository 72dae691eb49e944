#include <engine/filesystem/sources/directory.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "engine/filesystem/contract/error.h"
#include "engine/filesystem/contract/file.h"
#include "engine/filesystem/contract/path.h"
#include "engine/filesystem/log/message.h"
#include "engine/filesystem/sources/directory/follow/follower.h"
#include "engine/filesystem/sources/directory/mount/cache_service.h"
#include "engine/filesystem/sources/directory/mount/recorded.h"
#include "engine/filesystem/sources/directory/mount/replay.h"
#include "engine/filesystem/sources/directory/mount/scan.h"
#include "engine/filesystem/sources/directory/mount/state.h"
#include "engine/platform/clock.h"
#include "engine/platform/directories.h"

// Here the source mounts and answers; open.cpp opens and creates, change.cpp makes and removes, search.cpp lists. What they
// share, and the words for it, are in mount/state.h.

namespace {

constexpr MessageSource log_source{"FileSystem", "engine/filesystem/win/win_files"};

std::unique_ptr<fs::MountedNames> read_names(const fs::DirectoryState& state, fs::dir_listing* listing) {
    std::unique_ptr<fs::MountedNames> names = state.no_names();
    if (fs::fill_from_cache_service(state, *names)) return names;
    if (listing && !listing->is_empty()) {
        if (fs::replay_listing(state, *names, *listing)) return names;
        names = state.no_names();
    }
    if (listing) listing->clear();
    const bool recursive = fs::has_any(state.flags, FFSAddSourceFlags::RECURSIVE);
    fs::scan_directory(state, *names, state.start, names->tree, recursive, listing);
    return names;
}

// That names may be missing is no failure of the mount, but nobody must take them for files that do not exist.
void tell_unlisted(const fs::DirectoryState& state, const fs::MountedNames& names) {
    if (names.unlisted.empty()) return;
    const std::string first = state.native_root.text + *names.unlisted.begin();
    fs::set_error_from_platform(first.c_str(), "could not be listed, so that names may be missing",
                                names.unlisted_error);
    log_message(log_source, Log::ELevel::WARN, __LINE__,
                "%u directories of source '%s' could not be listed; names may be missing. The first is '%s'.\n",
                static_cast<unsigned>(names.unlisted.size()), state.root.PathName(), first.c_str());
}

// Mounts anew in the settings that `state` was constructed with; of what cannot be listed the names of `before` are kept.
// False, with the error set and `state` as it was.
bool mount(fs::DirectoryState& state, const fs::path& root, FFSAddSourceFlags::ENUM flags, fs::dir_listing* listing,
           fs::MountedNames* before) {
    fs::DirectoryState fresh;
    fresh.type = state.type;
    fresh.flags = flags;
    fresh.root = root;
    fresh.spelling = state.spelling;
    fresh.include = state.include;
    fresh.reads = state.reads + 1;
    const std::string_view dir = fresh.root.PathNameView();
    if (root.Empty()) return fs::refuse(EFSError::INVALID_NAME, "", "The root of a directory source is empty.");
    if (fresh.root.Empty()) throw std::bad_alloc();
    if (fs::has_any(flags, FFSAddSourceFlags::MUST_EXIST) && (dir.empty() || !fs::is_native_directory(dir.data()))) {
        return fs::refuse(EFSError::NOT_FOUND, dir.data(), "The root of the source must exist and is not a directory.");
    }
    const bool parent = fs::has_any(flags, FFSAddSourceFlags::MOUNT_PARENT);
    if (!fs::open_native_root(dir, fresh.spelling, parent, fresh.native_root, fresh.start)) return false;
    fresh.native = fs::lower_text(fresh.native_root.text);
    fresh.names = read_names(fresh, listing);
    if (before) fs::keep_unlisted(fresh, *before, *fresh.names);
    tell_unlisted(fresh, *fresh.names);
    state = std::move(fresh);
    return true;
}

}  // namespace

CWin32_dir::CWin32_dir(EFSSourceType::TYPE type, const char* const* include)
    : state_(std::make_unique<fs::DirectoryState>()) {
    state_->type = type;
    state_->names = state_->no_names();
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
    return fs::guarded(root.PathName(), false, [&] { return mount(*state_, root, flags, listing, nullptr); });
}

void CWin32_dir::clear() {
    fs::guarded(state_->root.PathName(), [&] { state_->names = state_->no_names(); });
}

void CWin32_dir::refresh() {
    fs::guarded(state_->root.PathName(),
                [&] { mount(*state_, state_->root, state_->flags, nullptr, state_->names.get()); });
}

void CWin32_dir::refresh_dir(const char* dir) {
    fs::guarded(dir, [&] {
        fs::DirectoryState& state = *state_;
        char expanded[platform::path_buffer_size];
        const bool is_full = fs::is_full_path(dir) && platform::expand_short_names(dir, expanded);
        fs::path parsed;
        parsed.Set(is_full ? expanded : dir, "", true);
        std::string_view below = parsed.PathNameView();
        fs::NativePath native;
        if (fs::place_of(state.native_root, below) == fs::Place::OUTSIDE) return;
        fs::dir* const node = state.find_node(*state.names, below);
        if (!node || !fs::build_native_path(state.native_root, below, {}, native)) return;
        // The scan asks for the directory by its lower-case name, so its spelling is found first.
        const std::unique_ptr<fs::MountedNames> read = state.no_names();
        if (platform::resolve_case(native.text, native.text)) {
            fs::scan_directory(state, *read, native.below_root(), read->tree, false, nullptr);
        } else {
            read->unlisted.emplace(below);
            read->unlisted_error = platform::last_error();
        }
        fs::replace_directory(state, below, *read);
        tell_unlisted(state, *read);
    });
}

std::unique_ptr<fs::Follower> CWin32_dir::make_follower() {
    return std::make_unique<fs::DirectoryFollower>(*this, *state_);
}

std::function<void()> CWin32_dir::read_anew() {
    return [this] { refresh(); };
}

std::uint32_t CWin32_dir::unlisted_directories() { return static_cast<std::uint32_t>(state_->names->unlisted.size()); }

const fs::path& CWin32_dir::path() { return state_->root; }
FFSAddSourceFlags::ENUM CWin32_dir::flags() { return state_->flags; }
EFSSourceType::TYPE CWin32_dir::type() { return state_->type; }
bool CWin32_dir::is_protected() { return fs::has_any(state_->flags, FFSAddSourceFlags::PROTECTED); }
bool CWin32_dir::writable() {
    return !fs::has_any(state_->flags, FFSAddSourceFlags::PROTECTED | FFSAddSourceFlags::MUST_EXIST);
}
fs::dir* CWin32_dir::dir_tree() { return &state_->names->tree; }
const char* CWin32_dir::root_dir() { return state_->native.c_str(); }

bool CWin32_dir::exists(const fs::path& p) { return state_->find(p) != fs::NameTable::none; }
bool CWin32_dir::exists_whole(const fs::path& p) { return state_->find(p, true) != fs::NameTable::none; }

void CWin32_dir::full_path(fs::path& out, const fs::path& p) {
    fs::NativePath native;
    out = fs::path();
    if (state_->locate(p, native) != fs::NameTable::none) out = fs::path(native.text, true);
}

void CWin32_dir::root_path(fs::path& out, const fs::path& p) {
    const std::uint32_t file = state_->find(p);
    out = fs::path();
    if (file == fs::NameTable::none) return;
    fs::guarded(p.FileName(), [&] {
        const fs::NameTable& table = state_->names->table;
        const std::string_view dir = table.dir(file), name = table.name(file);
        const bool is_whole = p.IsLowercase() && p.PathNameView() == dir && p.FileNameView() == name;
        out = is_whole ? p : fs::path_of(dir, std::string(name).c_str(), true);
        out.SetInstalled(table.value(file) != 0);
    });
}

std::int64_t CWin32_dir::write_time(const fs::path& p) {
    fs::NativePath native;
    if (state_->locate(p, native) == fs::NameTable::none) return -1;
    const auto attributes = platform::get_attributes(native.at(state_->native_root));
    if (attributes) return platform::utc_to_local(attributes->write_time);
    fs::refuse_by_disk(native.text, "has no readable attributes");
    return -1;
}

bool CWin32_dir::set_write_time(const fs::path& p, std::int64_t time) {
    fs::NativePath native;
    if (state_->locate_to_change(p, native) == fs::NameTable::none) return false;
    // The answer does not depend on the disk: a file that cannot be opened keeps its time, and this is true all the same.
    if (!platform::set_write_time(native.text, platform::local_to_utc(time))) {
        fs::refuse_by_disk(native.text, "keeps its time");
    }
    return true;
}

bool CWin32_dir::read_only(const fs::path& p) {
    fs::NativePath native;
    if (state_->locate(p, native) == fs::NameTable::none) return false;
    const auto attributes = platform::get_attributes(native.at(state_->native_root));
    return attributes && attributes->is_read_only;
}

bool CWin32_dir::set_read_only(const fs::path& p, bool on) {
    fs::NativePath native;
    if (state_->locate_to_change(p, native) == fs::NameTable::none) return false;
    return platform::set_read_only(native.text, on) || fs::refuse_by_disk(native.text, "keeps its read-only attribute");
}

void CWin32_dir::mark_installed_all(bool on) {
    fs::NameTable& table = state_->names->table;
    for (std::uint32_t file = table.first(); file != fs::NameTable::none; file = table.next(file)) {
        table.set_value(file, on ? 1 : 0);
    }
}

void CWin32_dir::mark_installed(const fs::path& p, bool on) {
    const std::uint32_t file = state_->find(p);
    if (file != fs::NameTable::none) state_->names->table.set_value(file, on ? 1 : 0);
}

int CWin32_dir::is_installed(const fs::path& p) {
    const std::uint32_t file = state_->find(p);
    if (file == fs::NameTable::none) return 0;
    return state_->names->table.value(file) != 0 ? 2 : 1;
}

bool CWin32_dir::native_path(const fs::path& p, char* out, std::size_t capacity) {
    const std::uint32_t file = state_->find(p);
    fs::NativePath native;
    const bool fits = file != fs::NameTable::none ? state_->native_path(file, native) : state_->native_path(p, native);
    if (!fits || native.length >= capacity) return false;
    std::memcpy(out, native.text, native.length + 1);
    return true;
}

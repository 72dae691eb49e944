#include <engine/filesystem/sources/directory.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include <engine/filesystem/access/search.h>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/name_list.h"
#include "engine/filesystem/contract/open_file.h"
#include "engine/filesystem/contract/path_text.h"
#include "engine/filesystem/log/message.h"
#include "engine/filesystem/sources/directory/cache_service.h"
#include "engine/filesystem/sources/directory/follower.h"
#include "engine/filesystem/sources/directory/listing.h"
#include "engine/filesystem/sources/directory/scan.h"
#include "engine/filesystem/sources/directory/state.h"
#include "engine/platform/clock.h"
#include "engine/platform/directories.h"

// Here the source mounts, answers and lists; change.cpp opens, makes and removes. What they share, and the words for it, are
// in state.h.
//
// Lists come in the order of 65,536 buckets chosen by a hash of the name, and within a bucket in that of entry: callers
// see it, so it stays, though nothing is kept in buckets.

namespace {

using fs::DirectoryState;
using fs::MountedNames;
using fs::NameTable;
using fs::NativePath;

constexpr MessageSource log_source{"FileSystem", "engine/filesystem/win/win_files"};

std::unique_ptr<MountedNames> read_names(const DirectoryState& state, fs::dir_listing* listing) {
    std::unique_ptr<MountedNames> names = state.no_names();
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
void tell_unlisted(const DirectoryState& state, const MountedNames& names) {
    if (names.unlisted.empty()) return;
    const std::string first = state.native_root.text + *names.unlisted.begin();
    fs::set_error_from_platform(first.c_str(), "could not be listed, so that names may be missing",
                                names.unlisted_error);
    log_message(log_source, Log::ELevel::WARN, __LINE__,
                "%u directories of source '%s' could not be listed; names may be missing. The first is '%s'.\n",
                static_cast<unsigned>(names.unlisted.size()), state.root.PathName(), first.c_str());
}

// Takes over what `before` held in the directories that `to` could not list, and below them; they come last in the order
// of lookups.
void keep_unlisted(const DirectoryState& state, MountedNames& before, MountedNames& to) {
    if (to.unlisted.empty()) return;
    const NameTable& old = before.table;
    for (std::uint32_t file = old.first(); file != NameTable::none; file = old.next(file)) {
        if (!fs::is_below_any(to.unlisted, old.dir(file))) continue;
        if (to.table.find_exact(old.dir(file), old.name(file)) != NameTable::none) continue;
        to.table.add(to.table.intern_dir(old.spelled_dir(file)), old.spelled_name(file), old.value(file));
    }
    for (const std::string& dir : to.unlisted) {
        const fs::dir* const node = state.find_node(before.tree, dir);
        if (node != nullptr && !state.make_node(to.tree, dir).merge(*node)) throw std::bad_alloc();
    }
}

// Mounts anew in the settings that `state` was constructed with; of what cannot be listed the names of `before` are kept.
// False, with the error set and `state` as it was.
bool mount(DirectoryState& state, const fs::path& root, FFSAddSourceFlags::ENUM flags, fs::dir_listing* listing,
           MountedNames* before) {
    DirectoryState fresh;
    fresh.type = state.type;
    fresh.flags = flags;
    fresh.root = root;
    fresh.spelling = state.spelling;
    fresh.include = state.include;
    fresh.reads = state.reads + 1;
    const std::string_view dir = fresh.root.PathNameView();
    if (root.Empty()) return fs::refuse(EFSError::INVALID_NAME, "", "The root of a directory source is empty.");
    if (fresh.root.Empty()) throw std::bad_alloc();
    if (fs::has_any(flags, FFSAddSourceFlags::MUST_EXIST) && (dir.empty() || !fs::is_native_directory(dir.data())))
        return fs::refuse(EFSError::NOT_FOUND, dir.data(), "The root of the source must exist and is not a directory.");
    const bool parent = fs::has_any(flags, FFSAddSourceFlags::MOUNT_PARENT);
    if (!fs::open_native_root(dir, fresh.spelling, parent, fresh.native_root, fresh.start)) return false;
    fresh.native = fs::lower_text(fresh.native_root.text);
    fresh.names = read_names(fresh, listing);
    if (before) keep_unlisted(fresh, *before, *fresh.names);
    tell_unlisted(fresh, *fresh.names);
    state = std::move(fresh);
    return true;
}

// Puts the files of one directory, freshly read into `read`, in the place of those that the source held there; those below
// it stay. When it could not be listed the old ones stay too. May throw std::bad_alloc, and then nothing has changed.
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

std::uint32_t bucket_of(std::string_view name) {
    std::uint32_t hash = 0x100001;
    for (const char c : name) hash = hash * 33 ^ static_cast<std::uint32_t>(static_cast<signed char>(c));
    return hash & 0xFFFF;
}

// The wanted files in the order of the buckets.
template <class Wanted>
std::vector<std::uint32_t> collect(const NameTable& table, Wanted&& wanted) {
    std::vector<std::uint64_t> keys;
    for (std::uint32_t file = table.first(); file != NameTable::none; file = table.next(file)) {
        if (wanted(file)) keys.push_back(std::uint64_t{bucket_of(table.name(file))} << 32 | file);
    }
    std::sort(keys.begin(), keys.end());
    return {keys.begin(), keys.end()};  // without the buckets
}

// Puts each file at the front of a list, and tells the search callback. A list comes whole or not at all. Each name has
// room for `room` bytes; where that is not none, one that does not fit in it is left empty.
FS_NAME* list_of(const NameTable& table, const std::vector<std::uint32_t>& files, std::size_t room) {
    const fs::search_callback callback = fs::get_search_callback();
    fs::NameList head;
    for (const std::uint32_t file : files) {
        const std::string_view dir = table.dir(file);
        const std::string_view name = table.name(file);
        const bool fits = room == 0 || dir.size() + name.size() < room;
        fs::prepend(head, fits ? dir : "", fits ? name : "", room);
        if (callback) callback(std::string(dir).c_str(), std::string(name).c_str());
    }
    return head.release();
}

}  // namespace

CWin32_dir::CWin32_dir(EFSSourceType::TYPE type, const char* const* include)
    : state_(std::make_unique<DirectoryState>()) {
    state_->type = type;
    state_->names = state_->no_names();
    for (; include && *include; ++include) state_->include.push_back(fs::full_name(fs::lookup_name(*include)));
    std::sort(state_->include.begin(), state_->include.end());
}

CWin32_dir::~CWin32_dir() = default;

void CWin32_dir::set_native_spelling(const char* root) {
    fs::guarded(root, [&] { state_->spelling = fs::directory_name(root ? root : "", false).PathNameView(); });
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
    if (dir == nullptr) dir = "";
    fs::guarded(dir, [&] {
        DirectoryState& state = *state_;
        char expanded[platform::path_buffer_size];
        const bool is_full = fs::is_full_path(dir) && platform::expand_short_names(dir, expanded);
        const fs::path parsed = fs::directory_name(is_full ? expanded : dir, true);
        std::string_view below = parsed.PathNameView();
        NativePath native;
        if (fs::place_of(state.native_root, below) == fs::Place::OUTSIDE) return;
        const bool is_known = state.find_node(state.names->tree, below) != nullptr;
        if (!is_known || !fs::build_native_path(state.native_root, below, {}, native)) return;
        // The scan asks for the directory by its lower-case name, so its spelling is found first.
        const std::unique_ptr<MountedNames> read = state.no_names();
        if (platform::resolve_case(native.text, native.text)) {
            fs::scan_directory(state, *read, native.below_root(), read->tree, false, nullptr);
        } else {
            read->unlisted.emplace(below);
            read->unlisted_error = platform::last_error();
        }
        replace_directory(state, below, *read);
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

bool CWin32_dir::exists(const fs::path& p) { return state_->find(p) != NameTable::none; }
bool CWin32_dir::exists_whole(const fs::path& p) { return state_->find(p, true) != NameTable::none; }

void CWin32_dir::full_path(fs::path& out, const fs::path& p) {
    NativePath native;
    out = state_->locate(p, native) ? fs::path(native.text, true) : fs::path();
}

void CWin32_dir::root_path(fs::path& out, const fs::path& p) {
    const std::uint32_t file = state_->find(p);
    out = fs::path();
    if (file == NameTable::none) return;
    fs::guarded(p.FileName(), [&] {
        const NameTable& table = state_->names->table;
        const std::string_view dir = table.dir(file), name = table.name(file);
        const bool is_whole = p.IsLowercase() && p.PathNameView() == dir && p.FileNameView() == name;
        out = is_whole ? p : fs::path_of(dir, std::string(name).c_str(), true);
        out.SetInstalled(table.value(file) != 0);
    });
}

std::int64_t CWin32_dir::write_time(const fs::path& p) {
    NativePath native;
    if (!state_->locate(p, native)) return -1;
    const auto attributes = platform::get_attributes(native.at(state_->native_root));
    if (attributes) return platform::utc_to_local(attributes->write_time);
    fs::refuse_by_disk(native.text, "has no readable attributes");
    return -1;
}

bool CWin32_dir::set_write_time(const fs::path& p, std::int64_t time) {
    NativePath native;
    if (state_->locate_to_change(p, native) == NameTable::none) return false;
    // The answer does not depend on the disk: a file that cannot be opened keeps its time, and this is true all the same.
    if (!platform::set_write_time(native.text, platform::local_to_utc(time)))
        fs::refuse_by_disk(native.text, "keeps its time");
    return true;
}

bool CWin32_dir::read_only(const fs::path& p) {
    NativePath native;
    if (!state_->locate(p, native)) return false;
    const auto attributes = platform::get_attributes(native.at(state_->native_root));
    return attributes && attributes->is_read_only;
}

bool CWin32_dir::set_read_only(const fs::path& p, bool on) {
    NativePath native;
    if (state_->locate_to_change(p, native) == NameTable::none) return false;
    return platform::set_read_only(native.text, on) || fs::refuse_by_disk(native.text, "keeps its read-only attribute");
}

void CWin32_dir::mark_installed_all(bool on) {
    NameTable& table = state_->names->table;
    for (std::uint32_t file = table.first(); file != NameTable::none; file = table.next(file)) {
        table.set_value(file, on ? 1 : 0);
    }
}

void CWin32_dir::mark_installed(const fs::path& p, bool on) {
    const std::uint32_t file = state_->find(p);
    if (file != NameTable::none) state_->names->table.set_value(file, on ? 1 : 0);
}

int CWin32_dir::is_installed(const fs::path& p) {
    const std::uint32_t file = state_->find(p);
    if (file == NameTable::none) return 0;
    return state_->names->table.value(file) != 0 ? 2 : 1;
}

bool CWin32_dir::native_path(const fs::path& p, char* out, std::size_t capacity) {
    const std::uint32_t file = state_->find(p);
    NativePath native;
    const bool fits = file != NameTable::none ? state_->native_path(file, native) : state_->native_path(p, native);
    if (!fits || native.length >= capacity) return false;
    std::memcpy(out, native.text, native.length + 1);
    return true;
}

FS_NAME* CWin32_dir::get_file_list(const char* dir, const char* mask, bool recursive) {
    return fs::guarded(dir, static_cast<FS_NAME*>(nullptr), [&] {
        const NameTable& table = state_->names->table;
        const auto wanted = [&](std::uint32_t file) {
            return fs::directory_answers(table.dir(file), dir, recursive) && fs::name_matches(table.name(file), mask);
        };
        return list_of(table, collect(table, wanted), 0);
    });
}

FS_NAME* CWin32_dir::search_substring(const char* text) {
    if (!text || *text == '\0') return nullptr;
    return fs::guarded(text, static_cast<FS_NAME*>(nullptr), [&] {
        const NameTable& table = state_->names->table;
        const auto wanted = [&](std::uint32_t file) { return fs::directory_contains(table.dir(file), text); };
        return list_of(table, collect(table, wanted), fs::path_capacity);
    });
}

void CWin32_dir::dump(ztl::vector<fs::string>& lines, const char* ext) {
    // Each file of a name is told with all later ones, so the lines grow with the square of their number; a tree made to
    // exhaust memory that way stops here.
    constexpr std::size_t line_limit = 1'000'000;
    fs::guarded(root_dir(), [&] {
        const NameTable& table = state_->names->table;
        const auto wanted = [&](std::uint32_t file) {
            return table.next_of_name(file) != NameTable::none && fs::has_extension(table.name(file), ext);
        };
        ztl::vector<fs::string> found;
        for (const std::uint32_t first : collect(table, wanted)) {
            int index = 0;
            for (std::uint32_t file = first; file != NameTable::none && found.size() < line_limit;
                 file = table.next_of_name(file)) {
                found.push_back(std::to_string(index++) + ". " + root_dir() + table.path(file));
            }
        }
        lines.insert(lines.end(), std::make_move_iterator(found.begin()), std::make_move_iterator(found.end()));
    });
}

#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <engine/filesystem/contract/flags.h>
#include <engine/filesystem/contract/names.h>
#include <engine/filesystem/contract/path.h>

#include "engine/filesystem/sources/names/name_table.h"
#include "engine/filesystem/sources/paths.h"
#include "engine/platform/clock.h"
#include "engine/platform/error.h"

// The door of the directory source: what it holds. source.cpp mounts, answers and lists, change.cpp opens and changes; they
// answer from what is here. The names come from scan, listing (recorded) or cache_service, and a follower keeps them true
// while the source is watched; all stand over the table of names in sources/names/.
//
// Words: the *native root* is the directory on the disk that every relative directory is appended to. It is the root given
// to init, or its parent when the last component of the root leads every name; that component is then the *start*, where
// the scan begins. The *spelling* of a name is how the disk writes it; all else is lower case. A *listing* is what a scan
// found, written down.
//
// A mount asks in this order: the cache service of a companion module; a listing that was stored, which is replayed and
// checked against the disk meanwhile; the disk, which a scan reads while the next directories are listed ahead, and of which
// it records a listing to store.
//
// Invariant: each file of the table was seen on the disk, or made by this source, under the native path that its
// directory and spelling give; nothing asks the disk whether it is still there. What reads names anew builds them beside
// the old ones, which stay when it fails.

namespace fs {

/// A directory's time stamp counts in steps of up to two seconds on some file systems: a change within that time of the last
/// one may leave no trace.
inline constexpr std::int64_t stamp_step = 2 * platform::ticks_per_second;

/// Whether a scan passes over an item, or a directory on the way to it; `path` counts from where the scan begins.
inline bool is_hidden(std::string_view path) {
    return path.starts_with('#') || path.find("/#") != std::string_view::npos;
}

/// What a mount read: files, directories, and what it could not read. A file's value in the table is 1 when it is marked
/// as installed, else 0.
struct MountedNames {
    explicit MountedNames(std::string_view root) : table(root) {}

    NameTable table;
    fs::dir tree;  // its root stands for the start
    /// Directories that could not be listed (lower case, "" or ending in "/"), names that are too long for a native path
    /// among them, and why the latest.
    std::set<std::string, std::less<>> unlisted;
    platform::Error unlisted_error;
    /// Directories that links led to, by device and inode.
    std::set<std::pair<std::uint64_t, std::uint64_t>> linked;
    const std::int64_t begun = platform::now_utc();

    void note_too_long(std::string_view dir, std::string_view name);
};

/// What a directory source holds. Its methods throw std::bad_alloc unless they say otherwise.
struct DirectoryState {
    EFSSourceType::TYPE type = EFSSourceType::DIR;
    FFSAddSourceFlags::ENUM flags = FFSAddSourceFlags::NONE;
    fs::path root;                        // as given to init
    std::string native;                   // the directory that relative directories are appended to, in lower case
    std::string spelling;                 // how the disk spells the root, as start-up told; may be empty
    NativeRoot native_root;               // `native` as the disk spells it
    std::string start;                    // relative directory at which the scan begins, as the disk spells it
    std::vector<std::string> include;     // full names of the only files to show, sorted; empty: all
    std::unique_ptr<MountedNames> names;  // never null
    std::uint32_t reads = 0;              // how often names were read anew, in whole or in part

    /// No names yet; the tree's root bears the start's name.
    std::unique_ptr<MountedNames> no_names() const;
    /// Enters a file unless the include list leaves it out or its native path would be too long; NameTable::none then.
    std::uint32_t enter(MountedNames& to, std::uint32_t dir, std::string_view spelled_name) const;

    /// The file that the source holds under `p`, or NameTable::none. `whole`: only under exactly this name. Never throws;
    /// so the rest.
    std::uint32_t find(const fs::path& p, bool whole = false) const;
    /// The native path of the file that the source holds under `p`. False when there is none.
    bool locate(const fs::path& p, NativePath& out) const { return with_path(find(p), out) != NameTable::none; }
    /// As find, with the native path; the file of exactly this name where there is one.
    std::uint32_t locate_to_change(const fs::path& p, NativePath& out) const;
    bool native_path(std::uint32_t file, NativePath& out) const {
        const NameTable& table = names->table;
        return build_native_path(native_root, table.spelled_dir(file), table.spelled_name(file), out);
    }
    /// The native path under which `p` would be made. False when it leads out of the source or does not fit.
    bool native_path(const fs::path& p, NativePath& out) const {
        std::string_view dir = p.PathNameView();
        return place_of(native_root, dir) != Place::OUTSIDE &&
               build_native_path(native_root, dir, p.FileNameView(), out);
    }
    /// The same for a new file, or for a new directory, of which `out` is cut to. False, with the failure stored, where
    /// nothing may be made.
    enum class Kind : std::uint8_t { REGULAR, DIRECTORY };
    bool place_for_new(Kind kind, const fs::path& p, NativePath& out) const;

    /// The tree's node of a lower-case relative directory, with or without its last "/"; null when there is none.
    fs::dir* find_node(fs::dir& tree, std::string_view dir) const;
    /// The same, made when it is missing.
    fs::dir& make_node(fs::dir& tree, std::string_view dir) const;
    void remove_node(std::string_view dir);

private:
    using TreePath = char[path_capacity];
    bool tree_path(std::string_view dir, TreePath& out) const;
    std::uint32_t with_path(std::uint32_t file, NativePath& out) const {
        return file != NameTable::none && native_path(file, out) ? file : NameTable::none;
    }
};

}  // namespace fs

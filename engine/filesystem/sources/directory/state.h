#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <engine/filesystem/contract/flags.h>
#include <engine/filesystem/contract/names.h>
#include <engine/filesystem/contract/path.h>

#include "engine/filesystem/sources/directory/file_table.h"
#include "engine/filesystem/sources/directory/paths.h"

namespace fs {

class ListingCheck;
class dir_listing;

/// What a directory source holds.
struct DirectoryState {
    EFSSourceType::TYPE type = EFSSourceType::DIR;
    FFSAddSourceFlags::ENUM flags = FFSAddSourceFlags::NONE;
    bool is_protected = false;
    bool allow_write = true;
    fs::path root;                     // as given to init
    fs::path native;                   // the directory that relative directories are appended to, as given
    std::string spelling;              // how the disk spells the root, as start-up told; may be empty
    NativeRoot native_root;            // `native` as the disk spells it
    std::string start;                 // relative directory at which the scan begins, as the disk spells it
    std::vector<std::string> include;  // full names of the only files to show, sorted; empty: all
    std::unique_ptr<FileTable> table;  // never null
    fs::dir tree;                      // its root stands for `start`

    /// Enters a file unless the include list leaves it out or its native path would be too long. False without memory.
    [[nodiscard]] bool enter(std::uint32_t dir, std::string_view spelled_name);
    /// The file that the source holds under `p`, or FileTable::none.
    std::uint32_t find(const fs::path& p) const { return table->find(p.PathNameView(), p.FileNameView()); }
    [[nodiscard]] bool native_path(std::uint32_t file, NativePath& out) const;
    /// The native path under which `p` would be created.
    [[nodiscard]] bool native_path(const fs::path& p, NativePath& out) const;

    /// The tree's node of a relative directory (with or without its last "/"), made when `make`; null when there is none.
    fs::dir* tree_node(std::string_view lower_dir, bool make);
    /// Takes a directory that was deleted out of the tree, with those below it.
    void forget_directory(std::string_view lower_dir);
    /// Enters a file that was made just now under `p`. Its spelling is asked of the disk, which may have held parts of the
    /// path before. Without memory it stays unknown until the next refresh.
    void enter_created(const fs::path& p, const NativePath& made, bool installed);
};

/// Reads the directory `dir` (as the disk spells it), and those below it when `recursive`, into table and tree, under the
/// given node. Records into `listing` unless it is null. False when memory ran out.
[[nodiscard]] bool scan_directory(DirectoryState& state, std::string_view dir, fs::dir* node, bool recursive,
                                  dir_listing* listing);
/// Fills table and tree from a recorded listing. False when memory ran out, the listing is damaged, or a check found it
/// stale meanwhile; what was filled is then to be thrown away.
[[nodiscard]] bool replay_listing(DirectoryState& state, const dir_listing& listing,
                                  const ListingCheck* check = nullptr);
/// Fills the table from the cache service in a companion module. False, with an empty table, when it does not serve this
/// mount.
bool fill_from_cache_service(DirectoryState& state, const char* module = "FileSystemCache_x64");

}  // namespace fs

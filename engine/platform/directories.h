#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "engine/platform/files.h"

/// Directories, links and spellings; what the caller gives is looked for without regard to case.

namespace platform {

struct DirectoryItem {
    const char* name = "";  // as the disk spells it; owned by the listing
    std::uint16_t length = 0;
    bool is_directory = false;
    bool is_link = false;     // a symbolic link or a reparse point (what it leads to decides is_directory)
    bool is_offline = false;  // Windows: attribute 0x1000
};

/// The items of one directory in ascending order of their names folded to lower case (ties by bytes), without "." and
/// "..", without devices, pipes and sockets, without broken links and, on POSIX, without names that hold a backslash.
/// Made to be reused: memory is kept between uses.
class DirectoryListing {
public:
    DirectoryListing() = default;
    DirectoryListing(const DirectoryListing&) = delete;  // the items point into it
    DirectoryListing& operator=(const DirectoryListing&) = delete;
    const std::vector<DirectoryItem>& items() const { return items_; }
    void clear();
    /// Adds an item whose text is copied into the listing; used by the back ends. It has its name only after sort(). Both
    /// throw std::bad_alloc, after which only clear() may be called.
    void add(const char* name, std::size_t length, const DirectoryItem& kind);
    /// Puts the items in order when the directory has been read.
    void sort();

private:
    std::string text_;  // the names, each with a zero behind it
    std::vector<DirectoryItem> items_;
};

enum class Links : std::uint8_t {
    FOLLOWED,  // those that lead nowhere are passed over
    ALL,       // those too, as what is no directory; for removing them
};

/// Reads a directory. False when it cannot be opened, or one of its items not be read: last_error() says why
/// (NOT_FOUND only when it surely is not there), and `out` holds what could be read; nothing without memory.
bool list_directory(const PathAt& path, DirectoryListing& out, Links links = Links::FOLLOWED);
/// Looks at one thing of the disk as list_directory shows it, under exactly this spelling where the disk knows case. False
/// when it is not there or list_directory would pass it over (NOT_FOUND), or cannot be looked at. `name` receives its last
/// component as the disk spells it; path_buffer_size bytes. `out` has no name.
bool look_at(const char* path, DirectoryItem& out, char* name);
/// What each system supplies for it: adds the items in any order. May throw std::bad_alloc.
bool read_items(const PathAt& path, Links links, DirectoryListing& out);
/// For them: whether a look at an item failed because it is gone, or leads nowhere that this caller may go.
inline bool leads_nowhere(Failure failure) {
    return failure == Failure::NOT_FOUND || failure == Failure::ACCESS_DENIED;
}

/// Links are followed.
bool get_directory_id(const char* path, FileId& out);

/// When a directory last changed, 100 ns since 1601 (universal).
struct DirectoryTimes {
    std::int64_t written = 0;  // its list of names; programs may set it to any time
    std::int64_t changed = 0;  // anything about it, `written` too; nobody sets it. 0 where the file system has none
    bool operator==(const DirectoryTimes&) const = default;
};
/// Links are followed. False when it is no directory or cannot be asked.
bool get_directory_times(const PathAt& path, DirectoryTimes& out);

/// Makes one directory. False with Failure::ALREADY_EXISTS when something of that name (in any case) exists.
bool create_directory(const char* path);
/// Removes an empty directory, or a link to one (the link itself).
bool remove_directory(const char* path);

/// What remove_tree tells and asks. Paths are as the disk spells them.
struct TreeRemoval {
    /// Whether an item stays, with all that is below it. Empty: none does.
    std::function<bool(const DirectoryItem& item)> keeps;
    /// Told of everything that is gone: a file or a link, or a directory after what was in it.
    std::function<void(const char* path, const DirectoryItem& item)> removed;
    std::string left;  // the first thing that could not be removed; "" when nothing stays
};
/// Removes a directory with everything below it. Links go and what they lead to stays, also when `path` itself is one.
/// Goes on after a failure; false when anything stays, and last_error() is why the first of it does. Throws what the
/// functions throw.
bool remove_tree(const char* path, TreeRemoval& removal);
/// Whether the last component of `path` is itself a link.
bool is_link(const char* path);

/// Writes the path of what the link `path` leads to; one that is no link as resolve_case does. False when it leads nowhere
/// or the path does not fit. `out` holds path_buffer_size bytes.
bool resolve_link(const char* path, char* out);

/// Writes the spelling under which the disk holds `path` (components that do not exist keep the caller's). False when
/// it does not fit, or a directory on the way could not be read. `out` holds path_buffer_size bytes and may be `path`.
bool resolve_case(const char* path, char* out);

/// Writes `path` with the short names that Windows gives to long ones ("PROGRA~1") replaced by the long ones; all else
/// stays as it is. False when that does not fit. `out` as in resolve_case.
bool expand_short_names(const char* path, char* out);

}  // namespace platform

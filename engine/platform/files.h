#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include "engine/platform/error.h"

/// A host's record of one native read in flight: an OVERLAPPED on Windows. No other system has one.
struct SNativeOverlapped;

namespace platform {

/// A native path is at most this long, on both systems; a longer one is refused, never cut.
inline constexpr std::size_t max_path_bytes = 259;
inline constexpr std::size_t path_buffer_size = max_path_bytes + 1;

enum class Access : std::uint8_t { READ, WRITE, READ_WRITE };
/// What becomes of a file that is there, and whether one that is not is made.
enum class Disposition : std::uint8_t { OPEN, OPEN_OR_CREATE, TRUNCATE, TRUNCATE_OR_CREATE };
enum class Sharing : std::uint8_t { READ, NONE };  // what this open lets others do meanwhile
enum class Origin : std::uint32_t { BEGIN = 0, CURRENT = 1, END = 2 };

struct OpenOptions {
    Access access = Access::READ;
    Disposition disposition = Disposition::OPEN;
    Sharing sharing = Sharing::READ;
    bool write_through = false;
    bool unbuffered = false;  // bypass the system's cache where the file system can
    bool overlapped = false;  // reads only through read_overlapped and read_at
    bool at_end = false;      // begin at the end of the file; the open fails when the length cannot be told
    bool replaces = false;    // replace() or remove() will end it

    bool creates() const {
        return disposition == Disposition::OPEN_OR_CREATE || disposition == Disposition::TRUNCATE_OR_CREATE;
    }
    bool truncates() const {
        return disposition == Disposition::TRUNCATE || disposition == Disposition::TRUNCATE_OR_CREATE;
    }
    bool writes() const { return access != Access::READ || truncates(); }
};

/// What tells two files or directories apart.
struct FileId {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;  // 0: none
    bool operator==(const FileId&) const = default;
};

inline constexpr std::uint64_t all_ones = ~std::uint64_t{0};  // nothing moved, or not known

/// A directory kept open so that opening below it walks only the rest of the path. Movable; may be empty.
/// Where the system has no such thing (Windows) it is always empty and costs nothing.
class Root {
public:
    Root() = default;
    Root(Root&& other) noexcept : handle_(std::exchange(other.handle_, -1)) {}
    ~Root();

    /// Opens the directory at `path`, resolving its case as every seam call does. Empty on failure.
    static Root open(const char* path);
    bool valid() const { return handle_ != -1; }
    std::intptr_t native() const { return handle_; }

private:
    std::intptr_t handle_ = -1;
};

/// A path of the disk in two forms: `full` always, and optionally the part of `full` that lies below `root`.
/// When the way through `root` finds nothing, the full path is tried.
struct PathAt {
    const char* full = "";
    const Root* root = nullptr;
    const char* relative = nullptr;  // points into `full`; used only with a valid root
};

/// An open native file. Movable; closes on destruction. One thread at a time, except read_at, which any may call.
/// Only regular files open. Readers share with readers, a writer with nobody: in the process, and among the processes
/// of the machine where the file system knows locks.
class File {
public:
    File() = default;
    File(File&& other) noexcept : state_(std::exchange(other.state_, {})) {}
    File& operator=(File&& other) noexcept;
    ~File() { close(); }

    /// Opens or creates. An invalid File on failure; last_error() says why: NOT_FOUND only when the disk surely holds no
    /// such file. The content of a file that was there is emptied last, when nothing else can fail any more, and one
    /// that this call made is removed again when it fails.
    static File open(const PathAt& path, const OpenOptions& options);
    static File open(const char* path, const OpenOptions& options) { return open(PathAt{.full = path}, options); }

    bool valid() const { return state_.handle != -1; }
    /// False, with the failure recorded, when the system tells only now that something written was lost.
    bool close();

    /// Bytes moved, or all ones when nothing was moved because of a failure. Loops over the system's limits. Fewer than
    /// asked for: the file ends there, or last_error() says why no more was moved; for a write always the latter.
    std::uint64_t read(void* buffer, std::uint64_t size);
    std::uint64_t write(const void* buffer, std::uint64_t size);
    /// Reads at an absolute offset without moving the position.
    std::uint64_t read_at(void* buffer, std::uint64_t size, std::uint64_t offset) const;

    bool seek(std::int64_t offset, Origin origin);
    std::uint64_t tell() const;    // all ones on failure
    std::uint64_t length() const;  // all ones on failure
    bool set_end();                // truncates or extends at the position
    /// From now on every write goes to the end of the file in one step, wherever the position is and whoever else has the
    /// same open file (a forked process).
    bool append_only();
    bool sync();  // waits until what was written is on the disk
    /// Renames this open file, which was opened with `replaces` under the name `from`, onto `to` and closes it. It stays
    /// locked until it has the new name. When sync() came before, then whatever happens `to` is the old file or the new
    /// one. False, with both as they were and this file open, when `to` is read-only, open or no file.
    bool replace(const char* from, const char* to);
    /// Removes this open file in the same way.
    bool remove(const char* from);
    /// The last-write time and, with `all`, the others that the system has. Universal time, not below 0.
    bool set_times(std::int64_t time, bool all);

    /// Starts a read at the record's offset. 0 pending, 1 done, 2 failed (always where the system has no such record),
    /// 3 aborted. `transferred` holds the bytes moved when done at once.
    int read_overlapped(void* buffer, std::uint32_t size, std::uint32_t* transferred, SNativeOverlapped* overlapped);
    /// Cancels every native read in flight on this file, whoever started it.
    bool cancel();

    /// A C run-time descriptor over the same file, owned by the caller; this File must outlive it, since it keeps the
    /// sharing rules. -1 on failure.
    int duplicate_descriptor(bool for_writing) const;

    /// The system's handle as a number for log lines.
    std::intptr_t native() const { return state_.handle; }
    /// Alignment that unbuffered reads of this file need (offset, size and memory); 1 when buffered.
    std::uint32_t alignment() const { return state_.alignment; }

private:
    struct State {
        std::intptr_t handle = -1;
        FileId id;                   // in the table of open files (POSIX)
        std::uint64_t position = 0;  // where the next read or write goes
        std::uint32_t alignment = 1;
        std::uint32_t forks = 0;  // how many lay between the program's start and this process when it opened it (POSIX)
        bool exclusive = false;   // in that table
        bool overlapped = false;  // opened so (Windows)
        bool append = false;      // append_only
    };

    // What each system supplies. Each records its failure.

    /// Finds and opens, or creates, without touching the content; `created` says which. The handle is not valid when it
    /// failed, and then no new file is left behind.
    void open_unchanged(const PathAt& path, const OpenOptions& options, bool& created);
    bool close_handle();
    /// One call of the system, which moves up to `size` bytes. 0 at the end of the file, all ones on failure.
    std::uint64_t read_some(void* buffer, std::uint64_t size, std::uint64_t offset) const;
    std::uint64_t write_some(const void* buffer, std::uint64_t size, std::uint64_t offset);
    std::uint64_t ask_length() const;
    bool end_at(std::uint64_t position);
    bool flush();
    bool rename_open(const char* from, const char* to);
    bool remove_open(const char* from);

    State state_;
};

/// Whether an open file is the one that the path leads to.
bool leads_to(const char* path, const File& file);

/// Part of an open file as memory that the system fills when it is touched. Read-only; movable; may be empty. The file may
/// be closed meanwhile, but while it is open its sharing keeps this process's writers away.
class Mapping {
public:
    Mapping() = default;
    /// Empty on failure; last_error() says why. `size` is not 0, and the file has that many bytes at `offset`.
    Mapping(const File& file, std::uint64_t offset, std::uint64_t size);

    bool IsEmpty() const { return start_ == nullptr; }
    const void* Data() const { return static_cast<const char*>(start_.get()) + skip_; }
    /// Fetches every byte now. False, with last_error() set, when the file does not give them all (any more), where touching
    /// them would end the process, or when the system cannot tell.
    bool Populate() const;

private:
    struct Unmap {
        std::size_t length;
        void operator()(void* start) const;
    };
    std::unique_ptr<void, Unmap> start_;
    std::size_t skip_ = 0;  // bytes before the first one asked for, since systems map whole pages
};

/// Closes a descriptor of duplicate_descriptor that nobody took over.
void close_descriptor(int descriptor);

struct Attributes {
    bool is_directory = false;
    bool is_read_only = false;
    std::uint64_t size = 0;
    std::int64_t write_time = 0;  // 100 ns since 1601-01-01, universal time; so the next
    std::int64_t access_time = 0;
};

/// Of a file or directory, links followed. Devices, pipes and sockets have none.
std::optional<Attributes> get_attributes(const PathAt& path);
inline std::optional<Attributes> get_attributes(const char* path) { return get_attributes(PathAt{.full = path}); }

/// Sets or clears the read-only attribute.
bool set_read_only(const char* path, bool on);
/// Sets the last-write time only; refused on a read-only file and below 0, and 0 leaves it as it is. Universal time.
bool set_write_time(const char* path, std::int64_t time);
/// The same for creation, access and last-write time, where the system has them.
bool set_all_times(const char* path, std::int64_t time);

/// Deletes a file or a link; refused when read-only or open in this process.
bool remove_file(const char* path);
/// Renames a file or directory, replacing a file that is neither read-only nor open. A change of case alone works.
bool rename_path(const char* from, const char* to);
/// As rename_path onto an existing file, in one step that survives a crash: `to` is either the old or the new content.
/// False only while `to` is the old one.
bool replace_file(const char* from, const char* to);

/// Whether Windows could hold this name as one path component: none of < > : " | ? * / \, no control character, no
/// trailing dot or blank, no device name (CON, NUL, COM1 …), not empty.
bool is_valid_name(const char* name, std::size_t length);

}  // namespace platform

#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>

/// What a failed call of the seam means, the same on every system; and failures on order, so that tests reach what a
/// healthy disk never shows: a full disk, a file that vanishes between look-up and open, a damaged sector, a short write.
/// Those are always compiled in; while nothing is ordered a call of the seam pays one relaxed load and a branch that is
/// never taken.

namespace platform {

enum class Failure : std::uint8_t {
    NONE,
    NOT_FOUND,      // no such file, or a directory of its path is missing
    ACCESS_DENIED,  // the system refuses this caller
    IN_USE,         // sharing: someone holds the file in a way that excludes this use
    ALREADY_EXISTS,
    NOT_EMPTY,  // a directory that still holds something
    DISK_FULL,
    PATH_TOO_LONG,  // more than max_path_bytes
    NOT_REGULAR,    // a directory, device, pipe or socket where a file is wanted
    READ_ONLY,      // the file's own read-only attribute, or a read-only file system
    INVALID_NAME,   // a name that Windows could not hold, or an empty path
    INVALID_HANDLE,
    ABORTED,
    OUT_OF_MEMORY,
    TOO_MANY_FILES,  // the process or the system may open no more
    IO,              // the device failed to read or write
    OTHER,
};

struct Error {
    Failure failure = Failure::NONE;
    std::int32_t os_code = 0;  // errno or GetLastError, 0 when the seam itself refused
};

/// The calling thread's most recent failure of a seam call. A success leaves it alone.
Error last_error();
/// Records the calling thread's failure and answers false, so that a failing path is one line.
bool fail(Failure failure, std::int32_t os_code = 0);

/// For the back ends: a failure and the system's codes that mean it, of which the first stands for it.
struct Meaning {
    Failure failure;
    std::initializer_list<std::int32_t> codes;
};
/// What each system supplies: the one place that says what its codes mean to callers. OTHER is what is not there.
extern const std::span<const Meaning> system_codes;
Failure failure_of(std::int32_t os_code);
/// Records the failure that a code means, and answers false.
bool fail_os(std::int32_t os_code);

/// What fails on order; each says which calls pass it.
enum class FaultPoint : std::uint8_t {
    OPEN,              // File::open, Watcher::add
    READ,              // read, read_at, and making a Mapping
    WRITE,             // write
    LIST,              // list_directory; and, where the disk knows case, reading a directory to find a spelling
    STAT,              // get_attributes, get_directory_times, look_at
    REMOVE,            // remove_file, remove_directory, File::remove
    RENAME,            // rename_path, replace_file, File::replace
    CREATE_DIRECTORY,  // create_directory
    SET_END,           // set_end
    LENGTH,            // length, and every open that asks for it
    LOCK,              // every open, once the file is found: the lock against other processes
    TRUNCATE,          // every open that empties a file, as its last step
    SYNC,              // sync, and replace_file before it renames
    CHANGE,            // set_read_only, set_write_time, set_all_times
    DUPLICATE,         // duplicate_descriptor
    THREAD,            // start_thread
};
inline constexpr std::size_t fault_point_count = 16;

/// The `nth` call (1: the next) that passes `point` answers `failure`, and every later one too when `from_then_on`.
/// Failure::NONE makes a call at WRITE move only half of what it was asked, rounded down: a disk that is full half way.
/// One order at a time for each point; a new one replaces it.
void inject_fault(FaultPoint point, std::uint32_t nth, Failure failure, bool from_then_on);
/// Forgets all orders and their count.
void clear_faults();
/// How often an order has struck since clear_faults.
std::uint32_t fault_hits();

namespace faults_detail {
extern std::atomic<bool> is_ordered;  // something, since clear_faults
std::optional<Failure> strike(FaultPoint point);
}  // namespace faults_detail

/// For the back ends: what this call must answer, or nothing.
inline std::optional<Failure> fault_at(FaultPoint point) {
    if (!faults_detail::is_ordered.load(std::memory_order_relaxed)) [[likely]]
        return std::nullopt;
    return faults_detail::strike(point);
}
/// Whether a test has ordered this call to fail; the failure is recorded.
inline bool meets_fault(FaultPoint point) {
    const auto fault = fault_at(point);
    return fault && !fail(*fault);
}

}  // namespace platform

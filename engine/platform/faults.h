#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

#include "engine/platform/error.h"

/// Failures on order, so that tests reach what a healthy disk never shows: a full disk, a file that vanishes between
/// look-up and open, a damaged sector, a short write. Always compiled in; while nothing is ordered a call of the seam
/// pays one relaxed load and a branch that is never taken.

namespace platform {

/// What fails; each says which calls pass it.
enum class FaultPoint : std::uint8_t {
    OPEN,              // File::open
    READ,              // read, read_at, read_overlapped
    WRITE,             // write
    LIST,              // list_directory; and, where the disk knows case, reading a directory to find a spelling
    STAT,              // get_attributes, get_directory_times
    REMOVE,            // remove_file, remove_directory
    RENAME,            // rename_path, replace_file
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
/// Failure::NONE makes a call at READ or WRITE move only half of what it was asked, rounded down: a file that ends
/// early, or a disk that is full half way. One order at a time for each point; a new one replaces it.
void inject_fault(FaultPoint point, std::uint32_t nth, Failure failure, bool from_then_on);
/// Forgets all orders and their count.
void clear_faults();
/// How often an order has struck since clear_faults.
std::uint32_t fault_hits();

namespace faults_detail {
extern std::atomic<std::uint32_t> orders;  // how many points have an order
std::optional<Failure> strike(FaultPoint point);
}  // namespace faults_detail

/// For the back ends: what this call must answer, or nothing.
inline std::optional<Failure> fault_at(FaultPoint point) {
    if (faults_detail::orders.load(std::memory_order_relaxed) == 0) [[likely]]
        return std::nullopt;
    return faults_detail::strike(point);
}

}  // namespace platform

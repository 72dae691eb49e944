#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

#include "engine/platform/error.h"

/// Failures on order, so that tests reach what a healthy disk never shows: a full disk, a file that vanishes between
/// look-up and open, a damaged sector, a short write. Always compiled in; while nothing is ordered a call of the seam
/// pays one relaxed load and a branch that is never taken.

namespace platform {

enum class FaultPoint : std::uint8_t { OPEN, READ, WRITE, LIST, STAT, REMOVE, RENAME, CREATE_DIRECTORY, SET_END };
inline constexpr std::size_t fault_point_count = 9;

/// The `nth` call (1: the next) that passes `point` answers `failure`, and every later one too when `from_then_on`.
/// Failure::NONE at READ or WRITE is no failure: that call moves only half of what it was asked, rounded down. One
/// order at a time for each point; a new one replaces it.
void inject_fault(FaultPoint point, std::uint32_t nth, Failure failure, bool from_then_on);
/// Forgets all orders and sets the count of hits to zero.
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

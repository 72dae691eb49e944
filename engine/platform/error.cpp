// The thread's last failure, and failures on order.
#include "engine/platform/error.h"

#include <algorithm>
#include <array>

#include "engine/platform/threads.h"

namespace platform {
namespace {

constinit PerThread<Error, struct ThreadFailure> thread_error;

struct Order {
    std::uint32_t calls_left = 0;  // 0: no order
    Failure failure = Failure::NONE;
    bool from_then_on = false;
};

constinit Mutex lock;
constinit std::array<Order, fault_point_count> given ENGINE_GUARDED_BY(lock){};
constinit std::uint32_t hits ENGINE_GUARDED_BY(lock) = 0;

Order& order_of(FaultPoint point) ENGINE_REQUIRES(lock) { return given[static_cast<std::size_t>(point)]; }

}  // namespace

Error last_error() { return thread_error; }

bool fail(Failure failure, std::int32_t os_code) {
    thread_error = Error{.failure = failure, .os_code = os_code};
    return false;
}

Failure failure_of(std::int32_t os_code) {
    for (const auto& [failure, codes] : system_codes)
        if (std::ranges::find(codes, os_code) != codes.end()) return failure;
    return Failure::OTHER;
}

bool fail_os(std::int32_t os_code) { return fail(failure_of(os_code), os_code); }

namespace faults_detail {

constinit std::atomic<bool> is_ordered{false};

std::optional<Failure> strike(FaultPoint point) {
    const LockGuard guard(lock);
    Order& order = order_of(point);
    if (order.calls_left == 0 || --order.calls_left != 0) return std::nullopt;
    if (order.from_then_on) order.calls_left = 1;
    ++hits;
    return order.failure;
}

}  // namespace faults_detail

void inject_fault(FaultPoint point, std::uint32_t nth, Failure failure, bool from_then_on) {
    const LockGuard guard(lock);
    order_of(point) = Order{.calls_left = nth, .failure = failure, .from_then_on = from_then_on};
    faults_detail::is_ordered = true;
}

void clear_faults() {
    const LockGuard guard(lock);
    given = {};
    hits = 0;
    faults_detail::is_ordered = false;
}

std::uint32_t fault_hits() {
    const LockGuard guard(lock);
    return hits;
}

}  // namespace platform

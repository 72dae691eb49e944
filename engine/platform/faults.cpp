#include "engine/platform/faults.h"

#include <array>
#include <mutex>

namespace platform {
namespace {

struct Order {
    std::uint32_t calls_left = 0;  // 0: no order
    Failure failure = Failure::NONE;
    bool from_then_on = false;
};

struct Faults {
    std::mutex lock;  // guards what follows
    std::array<Order, fault_point_count> order{};
    std::uint32_t hits = 0;
};
Faults faults;

Order& order_of(FaultPoint point) { return faults.order[static_cast<std::size_t>(point)]; }

void forget(Order& order) {
    if (order.calls_left == 0) return;
    order = Order{};
    faults_detail::orders.fetch_sub(1, std::memory_order_relaxed);
}

}  // namespace

namespace faults_detail {

constinit std::atomic<std::uint32_t> orders{0};

std::optional<Failure> strike(FaultPoint point) {
    const std::lock_guard guard(faults.lock);
    Order& order = order_of(point);
    if (order.calls_left == 0) return std::nullopt;
    if (order.calls_left > 1) {
        --order.calls_left;
        return std::nullopt;
    }
    const Failure failure = order.failure;
    if (!order.from_then_on) forget(order);
    ++faults.hits;
    return failure;
}

}  // namespace faults_detail

void inject_fault(FaultPoint point, std::uint32_t nth, Failure failure, bool from_then_on) {
    const std::lock_guard guard(faults.lock);
    Order& order = order_of(point);
    forget(order);
    if (nth == 0) return;
    order = Order{.calls_left = nth, .failure = failure, .from_then_on = from_then_on};
    faults_detail::orders.fetch_add(1, std::memory_order_relaxed);
}

void clear_faults() {
    const std::lock_guard guard(faults.lock);
    for (Order& order : faults.order) forget(order);
    faults.hits = 0;
}

std::uint32_t fault_hits() {
    const std::lock_guard guard(faults.lock);
    return faults.hits;
}

}  // namespace platform

#include "engine/platform/faults.h"
#include "engine/platform/lock.h"

#include <array>
#include <mutex>

namespace platform {
namespace {

struct Order {
    std::uint32_t calls_left = 0;  // 0: no order
    Failure failure = Failure::NONE;
    bool from_then_on = false;
};

struct Point {
    Order order;
    std::uint32_t calls = 0;
};

struct Faults {
    Mutex lock;  // guards what follows
    std::array<Point, fault_point_count> points{};
    std::uint32_t hits = 0;
    bool counts_calls = false;
};

Faults& faults() {
    static Faults instance;
    return instance;
}

Point& at(FaultPoint point) { return faults().points[static_cast<std::size_t>(point)]; }

void update_orders() {
    std::uint32_t orders = faults().counts_calls ? 1 : 0;
    for (const Point& point : faults().points) orders += point.order.calls_left != 0 ? 1 : 0;
    faults_detail::orders.store(orders, std::memory_order_relaxed);
}

}  // namespace

namespace faults_detail {

constinit std::atomic<std::uint32_t> orders{0};

std::optional<Failure> strike(FaultPoint point) {
    const std::lock_guard guard(faults().lock);
    if (faults().counts_calls) ++at(point).calls;
    Order& order = at(point).order;
    if (order.calls_left == 0) return std::nullopt;
    if (order.calls_left > 1) {
        --order.calls_left;
        return std::nullopt;
    }
    const Failure failure = order.failure;
    if (!order.from_then_on) order = Order{};
    update_orders();
    ++faults().hits;
    return failure;
}

}  // namespace faults_detail

void inject_fault(FaultPoint point, std::uint32_t nth, Failure failure, bool from_then_on) {
    const std::lock_guard guard(faults().lock);
    at(point).order = Order{.calls_left = nth, .failure = failure, .from_then_on = from_then_on};
    update_orders();
}

void count_calls() {
    const std::lock_guard guard(faults().lock);
    for (Point& point : faults().points) point.calls = 0;
    faults().counts_calls = true;
    update_orders();
}

std::uint32_t calls_passing(FaultPoint point) {
    const std::lock_guard guard(faults().lock);
    return at(point).calls;
}

void clear_faults() {
    const std::lock_guard guard(faults().lock);
    faults().points = {};
    faults().hits = 0;
    faults().counts_calls = false;
    update_orders();
}

std::uint32_t fault_hits() {
    const std::lock_guard guard(faults().lock);
    return faults().hits;
}

}  // namespace platform

#include "engine/filesystem/handles/queue_slots.h"

#include <array>
#include <mutex>
#include <shared_mutex>

#include <engine/kernel/multithreading.h>

#include "engine/filesystem/handles/io_queue.h"
#include "engine/platform/never_destroyed.h"

namespace fs {
namespace {

struct QueueSlots {
    mt::CSlimLock lock;  // guards the slots
    std::array<std::shared_ptr<IOQueue>, 2> queues;
};

QueueSlots& slots() {
    static platform::NeverDestroyed<QueueSlots> instance;  // a handle closed late in the process still finds it
    return instance.value;
}

}  // namespace

void start_queues() {
    QueueSlots& all = slots();
    const std::lock_guard guard(all.lock);
    if (all.queues[0] == nullptr) all.queues[0] = IOQueue::Create("Main");
}

void stop_queues() {
    QueueSlots& all = slots();
    std::array<std::shared_ptr<IOQueue>, 2> stopped;
    {
        const std::lock_guard guard(all.lock);
        stopped.swap(all.queues);
    }
    for (const std::shared_ptr<IOQueue>& queue : stopped)
        if (queue != nullptr) queue->Stop();
}

std::shared_ptr<IOQueue> first_queue() {
    QueueSlots& all = slots();
    const std::shared_lock guard(all.lock);
    return all.queues[0];
}

}  // namespace fs

#include "engine/filesystem/handles/queue_slots.h"

#include <utility>

#include "engine/filesystem/contract/error.h"
#include "engine/filesystem/handles/io_queue.h"
#include "engine/platform/threads.h"

namespace fs {
namespace {

struct QueueSlot {
    platform::Mutex lock;
    bool is_started ENGINE_GUARDED_BY(lock) = false;
    std::shared_ptr<IOQueue> queue ENGINE_GUARDED_BY(lock);  // null until it could be made
};

QueueSlot& slot() {
    static platform::NeverDestroyed<QueueSlot> instance;  // a handle closed late in the process still finds it
    return instance.value;
}

}  // namespace

void start_queues() {
    QueueSlot& main = slot();
    const platform::LockGuard guard(main.lock);
    main.is_started = true;
    if (main.queue == nullptr) main.queue = IOQueue::Create("Main");
}

void stop_queues() {
    QueueSlot& main = slot();
    std::shared_ptr<IOQueue> stopped;
    {
        const platform::LockGuard guard(main.lock);
        main.is_started = false;
        stopped = std::exchange(main.queue, nullptr);
    }
    if (stopped != nullptr) stopped->Stop();
}

std::shared_ptr<IOQueue> take_queue() {
    QueueSlot& main = slot();
    const platform::LockGuard guard(main.lock);
    if (main.is_started && main.queue == nullptr) main.queue = IOQueue::Create("Main");
    if (main.is_started && main.queue == nullptr) throw StoredFailure();
    return main.queue;
}

}  // namespace fs

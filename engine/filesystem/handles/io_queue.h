#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>

#include <engine/kernel/multithreading.h>

#include "engine/filesystem/handles/request.h"
#include "engine/platform/threads.h"

/// Serves asynchronous reads: callers queue them with a priority, one worker issues each natively, waits for it and
/// completes its request. A higher priority is read first; equals in the order in which they came.
class IOQueue : public std::enable_shared_from_this<IOQueue> {
public:
    /// Starts the worker. Null, with the thread's failure set, without memory or a thread for it.
    static std::shared_ptr<IOQueue> Create();
    ~IOQueue();

    /// Queues the read that `request` is to serve. False, with the thread's failure set, when the queue has stopped or the
    /// request is on its way already. Throws std::bad_alloc, with nothing changed.
    bool Enqueue(QueuedFile& file, std::uint64_t offset, std::uint64_t size, void* buffer, Request& request,
                 std::int32_t priority);

    /// Cancels a request at whatever stage. Its callback has run when this returns, except in a callback of the worker.
    void Cancel(Request& request);

    /// Cancels what is queued for this file and waits for the read in hand, so that the file can be destroyed.
    void Abandon(const QueuedFile& file);

    /// The worker finishes the read in hand, tells every queued request that it is CANCELLED, and ends. Later calls do
    /// nothing.
    void Stop();

    /// Whether the caller is the worker, inside a callback: it cannot wait for a read of this queue.
    bool OnWorker() const;

private:
    IOQueue() = default;

    void Run();  // the worker
    static void Serve(Request& request);

    // With lock_ held.
    void TakeOut(Request& request);
    void WaitForWorker(std::unique_lock<platform::Mutex>& guard);

    platform::Mutex lock_;                 // guards all up to stopping_
    platform::ConditionVariable changed_;  // something is queued, the read in hand has ended, or the queue stops
    std::map<std::int32_t, RequestList, std::greater<>> waiting_;  // no list is empty; each request is referenced
    Request* in_hand_ = nullptr;                                   // the worker's, its callback included
    std::uint64_t ended_ = 0;                                      // how many reads the worker is done with
    bool stopping_ = false;

    std::shared_ptr<IOQueue> stopped_by_itself_;
    mt::CThread worker_;
};

namespace fs {

/// Starts the process's read queue, unless it runs already. When that fails it is tried again at the next asynchronous
/// open.
void start_queues();
/// Stops it; open asynchronous handles answer with failures from then on.
void stop_queues();
/// The queue that an asynchronous handle takes at opening; null before start_queues and after stop_queues. Throws
/// StoredFailure when it cannot be started.
std::shared_ptr<IOQueue> take_queue();

}  // namespace fs

#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include <engine/filesystem/contract/file.h>
#include <engine/kernel/multithreading.h>

class Request;
class Win32FileHandleAsync;
struct IOQueueBucket;

/// One read that waits for the worker.
struct IOQueueItem {
    Win32FileHandleAsync* file = nullptr;
    void* buffer = nullptr;
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
    Request* request = nullptr;  // one reference is held; may be null
    IOQueueBucket* bucket = nullptr;
    IOQueueItem* previous = nullptr;
    IOQueueItem* next = nullptr;
};

/// The waiting items of one priority, first come first served.
struct IOQueueBucket {
    std::int32_t priority = 0;
    IOQueueItem* head = nullptr;
    IOQueueItem* tail = nullptr;
};

/// Serves asynchronous reads: callers queue them with a priority, one worker issues each natively, waits for it and
/// completes its request. A higher priority is read first; equals in the order in which they came.
///
/// A request moves from QUEUED on only under lock_, so that a canceller and the worker never both own it.
class IOQueue : public std::enable_shared_from_this<IOQueue> {
public:
    /// Starts the worker, named "IO " and `name`. Null when memory or a thread cannot be had.
    static std::shared_ptr<IOQueue> Create(const char* name);
    ~IOQueue();

    /// Queues a read; `request` may be null. False when the queue has stopped, memory cannot be had, or the request is
    /// on its way already.
    bool Enqueue(Win32FileHandleAsync* file, std::uint64_t offset, std::uint64_t size, void* buffer,
                 SFsRequest* request, std::int32_t priority);

    /// Cancels a request at whatever stage; returns when it will not be touched by the worker any more.
    void Cancel(Win32FileHandleAsync* file, SFsRequest* request);

    /// Cancels what is queued for this file and waits for the read in hand, so that the file can be destroyed.
    void Abandon(Win32FileHandleAsync* file);

    /// The worker finishes the read in hand and ends; every queued request becomes CANCELLED. Later calls do nothing.
    void Stop();

    /// Whether the caller is the worker, inside a callback: it cannot wait for a read of this queue.
    bool OnWorker() const;

private:
    IOQueue() = default;

    static void Run(void* self);
    void Runtime(SNativeOverlapped* overlapped);
    bool TakeNext(IOQueueItem& item, EFSRequestState::TYPE& found);
    void Serve(const IOQueueItem& item, EFSRequestState::TYPE found, SNativeOverlapped* overlapped);
    void EndCancelled(IOQueueItem* items);

    // All of these are called with lock_ held.
    IOQueueItem* Reserve(std::int32_t priority);
    IOQueueItem* NewItem();
    void FreeItem(IOQueueItem* item);
    IOQueueBucket* BucketOf(std::int32_t priority);
    IOQueueItem* First();
    void Link(IOQueueItem* item);
    void Unlink(IOQueueItem* item);
    void EndReadInHand();
    template <class Wanted>
    IOQueueItem* CancelQueued(Wanted wanted);

    std::mutex lock_;  // guards all up to worker_sleeps_
    std::map<std::int32_t, IOQueueBucket, std::greater<>> buckets_;
    IOQueueBucket* last_bucket_ = nullptr;  // where the previous item went; the only one that may be empty
    std::vector<std::unique_ptr<IOQueueItem[]>> blocks_;
    IOQueueItem* free_ = nullptr;
    Win32FileHandleAsync* reading_ = nullptr;  // whose read the worker has in hand
    std::uint32_t read_waiters_ = 0;           // how many wait for reading_ to change
    bool stopping_ = false;
    bool worker_sleeps_ = false;

    mt::CEvent wake_{false};  // tells a sleeping worker that there is something to do
    mt::CSemaphore read_ended_{0, 0x7FFFFFFF};
    std::atomic<std::uint64_t> worker_id_{0};
    std::shared_ptr<IOQueue> stopped_by_itself_;
    mt::CThread worker_;
};

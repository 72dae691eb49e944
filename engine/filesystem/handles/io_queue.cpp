// The read queue: one worker, one native read at a time.
//
// What waits is kept by priority, each priority in its order of arrival, so that queueing, taking and cancelling cost
// the same at any depth. A request is claimed under lock_: it is either still linked here (and a canceller may unlink
// it) or in the worker's hand (and a canceller waits for its event). Events and callbacks are signalled without the
// lock, so that a callback may queue the next read. The worker never sleeps while something is linked, whatever was
// signalled before.

#include "engine/filesystem/handles/io_queue.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <new>
#include <string>

#include "engine/filesystem/handles/async_file.h"
#include "engine/filesystem/handles/request.h"
#include "engine/filesystem/log/message.h"
#include "engine/platform/files.h"

namespace {

constexpr MessageSource messages{"FileSystem", "engine/filesystem/ioqueue"};
constexpr std::size_t block_items = 256;
constexpr int highest_priority = 2;
constexpr std::uint64_t largest_native_read = 1u << 30;

enum ReadStatus : int { DONE = 1, ERROR_STATUS = 2, ABORTED = 3 };

int read_piece(const IOQueueItem& item, std::uint64_t done, std::uint32_t* transferred, SNativeOverlapped* overlapped) {
    platform::set_overlapped_offset(overlapped, item.offset + done);
    const auto size = static_cast<std::uint32_t>(std::min(item.size - done, largest_native_read));
    auto* const target = static_cast<char*>(item.buffer) + done;
    const int status = item.file->read_overlapped(target, size, transferred, overlapped);
    return status == 0 ? item.file->WaitOverlapped(overlapped, transferred) : status;
}

/// Reads the whole item; a file that ends early ends the read, one that ends before the offset fails it.
int read_item(const IOQueueItem& item, SNativeOverlapped* overlapped) {
    if (overlapped == nullptr || item.buffer == nullptr) return ERROR_STATUS;
    if (item.file->NeedsBounce(item.buffer, item.offset, item.size))
        return item.file->ReadBounced(item.buffer, item.offset, item.size) ? DONE : ERROR_STATUS;
    std::uint64_t done = 0;
    while (done < item.size) {
        std::uint32_t transferred = 0;
        const int status = read_piece(item, done, &transferred, overlapped);
        if (status != DONE) return status;
        if (transferred == 0) return done == 0 ? ERROR_STATUS : DONE;
        done += transferred;
    }
    return DONE;
}

void log_read_failure(const IOQueueItem& item) {
    char size[24];
    char offset[24];
    std::snprintf(size, sizeof size, "%" PRIu64, item.size);
    std::snprintf(offset, sizeof offset, "%" PRIu64, item.offset);
    const char* const path = item.file->NativePath();
    log_message(messages, Log::ELevel::ERRR, __LINE__,
                "IO_QUEUE_ERROR: read failed for file %s, memory %p, bytes %s (%X), offset %s (%X)\n", path,
                item.buffer, size, static_cast<unsigned>(item.size), offset, static_cast<unsigned>(item.offset));
}

void warn(const char* format, EFSRequestState::TYPE state) {
    log_message(messages, Log::ELevel::WARN, __LINE__, format, static_cast<int>(state));
}

void end_done(Request& request, std::uint64_t size) {
    const EFSRequestState::TYPE found = request.Finish(EFSRequestResult::SUCCESS, size);
    if (found == EFSRequestState::IN_PROGRESS) return request.Signal();
    if (found != EFSRequestState::FINISHED)
        return warn("IO_QUEUE_WARNING: cannot notify successful read: %d!\n", found);
    const EFSRequestResult::TYPE result = request.Result();
    if (result == EFSRequestResult::CANCELLED) return request.Signal();
    log_message(messages, Log::ELevel::WARN, __LINE__, "IO_QUEUE_WARNING: cannot notify successful read: %d, %d!\n",
                static_cast<int>(found), static_cast<int>(result));
}

/// A read that failed or was aborted. Whoever cancelled meanwhile waits for the event, so it is signalled in any case.
void end_failed(Request& request) {
    const EFSRequestState::TYPE found = request.Finish(EFSRequestResult::FAILED, 0);
    const bool cancelled = found == EFSRequestState::FINISHED && request.Result() == EFSRequestResult::CANCELLED;
    if (found == EFSRequestState::IN_PROGRESS || cancelled) return request.Signal();
    warn("IO_QUEUE_WARNING: cannot notify error during read: %d!\n", found);
}

}  // namespace

std::shared_ptr<IOQueue> IOQueue::Create(const char* name) {
    try {
        std::shared_ptr<IOQueue> queue(new IOQueue);
        const std::string thread_name = std::string("IO ") + name;
        if (queue->worker_.Start(thread_name.c_str(), &IOQueue::Run, queue.get(), highest_priority)) return queue;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    return nullptr;
}

IOQueue::~IOQueue() { Stop(); }

bool IOQueue::OnWorker() const { return worker_id_.load(std::memory_order_acquire) == mt::CThread::CurrentId(); }

bool IOQueue::Enqueue(Win32FileHandleAsync* file, std::uint64_t offset, std::uint64_t size, void* buffer,
                      SFsRequest* request, std::int32_t priority) {
    bool wake = false;
    {
        const std::lock_guard guard(lock_);
        if (stopping_) return false;
        IOQueueItem* const item = Reserve(priority);
        if (item == nullptr) return false;
        Request* const record = request != nullptr ? &Request::Of(request) : nullptr;
        if (record != nullptr && !record->BeginQueued()) {
            FreeItem(item);
            return false;
        }
        *item = IOQueueItem{
            .file = file, .buffer = buffer, .offset = offset, .size = size, .request = record, .bucket = item->bucket};
        if (record != nullptr) {
            record->AddReference();
            record->queued_item = item;
        }
        Link(item);
        wake = worker_sleeps_;
        worker_sleeps_ = false;
    }
    if (wake) wake_.Set();
    return true;
}

void IOQueue::Cancel(Win32FileHandleAsync* file, SFsRequest* request) {
    Request& record = Request::Of(request);
    EFSRequestState::TYPE found = EFSRequestState::IDLE;
    {
        const std::lock_guard guard(lock_);
        found = record.Cancel();
        if (found == EFSRequestState::QUEUED) {
            IOQueueItem* const item = record.queued_item;
            Unlink(item);
            FreeItem(item);
        }
    }
    if (found == EFSRequestState::QUEUED) {
        record.Signal();
        record.ReleaseReference();
    }
    if (found == EFSRequestState::IN_PROGRESS) {
        file->cancel_io();
        record.Wait(mt::FOREVER);
    }
}

void IOQueue::Abandon(Win32FileHandleAsync* file) {
    IOQueueItem* cancelled = nullptr;
    {
        const std::lock_guard guard(lock_);
        cancelled = CancelQueued([file](const IOQueueItem& item) { return item.file == file; });
    }
    EndCancelled(cancelled);
    while (!OnWorker()) {
        {
            const std::lock_guard guard(lock_);
            if (reading_ != file) return;
            ++read_waiters_;
        }
        read_ended_.Wait();
    }
}

void IOQueue::Stop() {
    IOQueueItem* cancelled = nullptr;
    {
        const std::lock_guard guard(lock_);
        stopping_ = true;
        worker_sleeps_ = false;
        cancelled = CancelQueued([](const IOQueueItem&) { return true; });
    }
    wake_.Set();
    EndCancelled(cancelled);
    // A callback that stops its own queue runs on the worker, which cannot wait for itself: it ends after the callback,
    // and the queue stays behind for it.
    if (OnWorker())
        stopped_by_itself_ = shared_from_this();
    else
        worker_.Join();
}

void IOQueue::Run(void* self) {
    auto& queue = *static_cast<IOQueue*>(self);
    queue.worker_id_.store(mt::CThread::CurrentId(), std::memory_order_release);
    SNativeOverlapped* const overlapped = platform::create_overlapped();
    queue.Runtime(overlapped);
    queue.worker_id_.store(0, std::memory_order_release);  // the system may give the number to another thread
    if (overlapped != nullptr) platform::destroy_overlapped(overlapped);
}

void IOQueue::Runtime(SNativeOverlapped* overlapped) {
    IOQueueItem item;
    EFSRequestState::TYPE found = EFSRequestState::IDLE;
    while (TakeNext(item, found)) Serve(item, found, overlapped);
}

/// Waits for an item and takes it. False when the queue stops.
bool IOQueue::TakeNext(IOQueueItem& item, EFSRequestState::TYPE& found) {
    for (;;) {
        {
            const std::lock_guard guard(lock_);
            EndReadInHand();
            if (stopping_) return false;
            if (IOQueueItem* const first = First(); first != nullptr) {
                Unlink(first);
                item = *first;
                FreeItem(first);
                found = item.request != nullptr ? item.request->BeginProgress() : EFSRequestState::IDLE;
                reading_ = item.file;
                return true;
            }
            worker_sleeps_ = true;
        }
        wake_.Wait();
    }
}

void IOQueue::Serve(const IOQueueItem& item, EFSRequestState::TYPE found, SNativeOverlapped* overlapped) {
    if (found != EFSRequestState::QUEUED) {
        log_message(messages, Log::ELevel::WARN, __LINE__,
                    "Resource is in state which forbids it to start async read: %d, asyncop: %p\n",
                    static_cast<int>(found), static_cast<void*>(item.request));
        if (item.request != nullptr) item.request->ReleaseReference();
        return;
    }
    const int status = read_item(item, overlapped);
    if (status == ERROR_STATUS) log_read_failure(item);
    if (status == ABORTED)
        log_message(messages, Log::ELevel::DEBG, __LINE__, "IO_QUEUE_CANCELLED: %p\n",
                    static_cast<void*>(item.request));
    if (status == DONE)
        end_done(*item.request, item.size);
    else
        end_failed(*item.request);
    item.request->ReleaseReference();
}

/// A free item that knows the bucket it will go to. Null without memory.
IOQueueItem* IOQueue::Reserve(std::int32_t priority) {
    try {
        IOQueueBucket* const bucket = BucketOf(priority);
        IOQueueItem* const item = NewItem();
        item->bucket = bucket;
        return item;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

IOQueueItem* IOQueue::NewItem() {
    if (free_ == nullptr) {
        blocks_.push_back(std::make_unique<IOQueueItem[]>(block_items));
        for (std::size_t i = 0; i < block_items; ++i) FreeItem(&blocks_.back()[i]);
    }
    IOQueueItem* const item = free_;
    free_ = item->next;
    return item;
}

void IOQueue::FreeItem(IOQueueItem* item) {
    item->next = free_;
    free_ = item;
}

IOQueueBucket* IOQueue::BucketOf(std::int32_t priority) {
    if (last_bucket_ != nullptr && last_bucket_->priority == priority) return last_bucket_;
    const auto place = buckets_.try_emplace(priority).first;
    IOQueueBucket* const bucket = &place->second;
    bucket->priority = priority;
    IOQueueBucket* const before = last_bucket_;
    last_bucket_ = bucket;
    if (before != nullptr && before->head == nullptr) buckets_.erase(before->priority);
    return bucket;
}

IOQueueItem* IOQueue::First() {
    for (auto& [priority, bucket] : buckets_)
        if (bucket.head != nullptr) return bucket.head;
    return nullptr;
}

void IOQueue::Link(IOQueueItem* item) {
    IOQueueBucket* const bucket = item->bucket;
    item->previous = bucket->tail;
    item->next = nullptr;
    (bucket->tail != nullptr ? bucket->tail->next : bucket->head) = item;
    bucket->tail = item;
}

void IOQueue::Unlink(IOQueueItem* item) {
    IOQueueBucket* const bucket = item->bucket;
    (item->previous != nullptr ? item->previous->next : bucket->head) = item->next;
    (item->next != nullptr ? item->next->previous : bucket->tail) = item->previous;
    if (item->request != nullptr) item->request->queued_item = nullptr;
    if (bucket->head == nullptr && bucket != last_bucket_) buckets_.erase(bucket->priority);
}

void IOQueue::EndReadInHand() {
    reading_ = nullptr;
    if (read_waiters_ != 0) read_ended_.Release(read_waiters_);
    read_waiters_ = 0;
}

/// Unlinks the wanted items and cancels their requests. The items, chained in their order, are for EndCancelled.
template <class Wanted>
IOQueueItem* IOQueue::CancelQueued(Wanted wanted) {
    IOQueueItem* first = nullptr;
    IOQueueItem** end = &first;
    for (auto place = buckets_.begin(); place != buckets_.end();) {
        IOQueueItem* item = place->second.head;
        ++place;  // the bucket goes with its last item
        while (item != nullptr) {
            IOQueueItem* const next = item->next;
            if (wanted(*item)) {
                Unlink(item);
                if (item->request != nullptr) item->request->Cancel();
                item->next = nullptr;
                *end = item;
                end = &item->next;
            }
            item = next;
        }
    }
    return first;
}

/// Tells the owners of cancelled requests, without the lock, since their callbacks may come back here.
void IOQueue::EndCancelled(IOQueueItem* items) {
    for (const IOQueueItem* item = items; item != nullptr; item = item->next) {
        if (item->request == nullptr) continue;
        item->request->Signal();
        item->request->ReleaseReference();
    }
    const std::lock_guard guard(lock_);
    while (items != nullptr) {
        IOQueueItem* const item = items;
        items = item->next;
        FreeItem(item);
    }
}

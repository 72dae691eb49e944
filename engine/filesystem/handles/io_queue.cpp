// The read queue: one worker, one native read at a time.
//
// What waits is kept by priority, each priority in its order of arrival; a request knows its place, so that cancelling
// costs the same at any depth. Under lock_ a read is either waiting, and whoever takes it out owns its request, or in the
// worker's hand, and whoever wants it ended waits for the worker. Events and callbacks are signalled without the lock.

#include "engine/filesystem/handles/io_queue.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <new>
#include <string>

#include "engine/filesystem/contract/guarded.h"
#include "engine/filesystem/handles/async_file.h"
#include "engine/filesystem/log/message.h"

namespace {

constexpr MessageSource messages{"FileSystem", "engine/filesystem/ioqueue"};
constexpr int highest_priority = 2;
constexpr std::size_t most_spare = 1024;
constexpr std::uint64_t largest_native_read = 1u << 30;

enum ReadStatus : int { PENDING = 0, DONE = 1, ERROR_STATUS = 2, ABORTED = 3 };

thread_local const IOQueue* queue_of_this_worker = nullptr;

void log_read_failure(const QueuedRead& read) {
    char size[24];
    char offset[24];
    std::snprintf(size, sizeof size, "%" PRIu64, read.size);
    std::snprintf(offset, sizeof offset, "%" PRIu64, read.offset);
    log_message(messages, Log::ELevel::ERRR, __LINE__,
                "IO_QUEUE_ERROR: read failed for file %s, memory %p, bytes %s (%X), offset %s (%X)\n",
                read.file->NativePath(), read.buffer, size, static_cast<unsigned>(read.size), offset,
                static_cast<unsigned>(read.offset));
}

}  // namespace

IOQueue::IOQueue() : overlapped_(platform::create_overlapped()) {
    if (overlapped_ == nullptr) throw std::bad_alloc();
}

std::shared_ptr<IOQueue> IOQueue::Create(const char* name) {
    return fs::guarded(nullptr, std::shared_ptr<IOQueue>(), [name] {
        std::shared_ptr<IOQueue> queue(new IOQueue);
        const std::string thread_name = std::string("IO ") + name;
        if (queue->worker_.Start(thread_name.c_str(), &IOQueue::Run, queue.get(), highest_priority)) return queue;
        fs::set_error(EFSError::OUT_OF_MEMORY, nullptr, "The system has no thread left for the read queue.");
        return std::shared_ptr<IOQueue>();
    });
}

IOQueue::~IOQueue() { Stop(); }

bool IOQueue::OnWorker() const { return queue_of_this_worker == this; }

bool IOQueue::Enqueue(const QueuedRead& read, SFsRequest* request, std::int32_t priority) {
    std::unique_lock guard(lock_);
    if (stopping_) return fs::refuse(EFSError::NOT_INITIALIZED, read.file->NativePath(), "The read queue has stopped.");
    if (spare_.empty()) spare_.emplace_back();
    Reads& reads = waiting_[priority];
    Request* const record = request != nullptr ? &Request::Of(request) : nullptr;
    if (record != nullptr && !record->BeginQueued()) {
        if (reads.empty()) waiting_.erase(priority);
        return fs::refuse(EFSError::IN_USE, read.file->NativePath(), "The request is on its way already.");
    }
    const auto place = spare_.begin();
    reads.splice(reads.end(), spare_, place);
    *place = read;
    place->request = record;
    if (record != nullptr) {
        record->AddReference();
        record->priority = priority;
        record->place = place;
    }
    guard.unlock();
    changed_.notify_all();
    return true;
}

void IOQueue::TakeOut(Reads& to, std::int32_t priority, Reads::iterator read) {
    const auto from = waiting_.find(priority);
    to.splice(to.end(), from->second, read);
    if (from->second.empty()) waiting_.erase(from);
}

/// Waits until the worker is done with the read in hand, its callback included, if that is one that `busy` means.
template <typename Busy>
void IOQueue::WaitForWorker(std::unique_lock<std::mutex>& guard, Busy busy) {
    if (OnWorker() || in_hand_.empty() || !busy(in_hand_.front())) return;
    changed_.wait(guard, [this, before = ended_] { return ended_ != before; });
}

void IOQueue::Cancel(Win32FileHandleAsync* file, SFsRequest* request) {
    Request& record = Request::Of(request);
    Reads cancelled;
    std::unique_lock guard(lock_);
    const EFSRequestState::TYPE found = record.Cancel();
    if (found == EFSRequestState::QUEUED) {
        TakeOut(cancelled, record.priority, record.place);
        guard.unlock();
        record.Signal();
        record.ReleaseReference();
        guard.lock();
        if (spare_.size() < most_spare) spare_.splice(spare_.end(), cancelled);
        return;
    }
    if (found == EFSRequestState::IN_PROGRESS) file->cancel_io();
    WaitForWorker(guard, [&record](const QueuedRead& read) { return read.request == &record; });
}

void IOQueue::Abandon(Win32FileHandleAsync* file) {
    Reads cancelled;
    std::unique_lock guard(lock_);
    for (auto place = waiting_.begin(); place != waiting_.end();) {
        Reads& reads = place->second;
        for (auto read = reads.begin(); read != reads.end();) {
            const auto next = std::next(read);
            if (read->file == file) {
                if (read->request != nullptr) read->request->Cancel();
                cancelled.splice(cancelled.end(), reads, read);
            }
            read = next;
        }
        place = reads.empty() ? waiting_.erase(place) : std::next(place);
    }
    guard.unlock();
    for (const QueuedRead& read : cancelled) {
        if (read.request == nullptr) continue;
        read.request->Signal();
        read.request->ReleaseReference();
    }
    guard.lock();
    WaitForWorker(guard, [file](const QueuedRead& read) { return read.file == file; });
}

void IOQueue::Stop() {
    {
        const std::lock_guard guard(lock_);
        stopping_ = true;
        changed_.notify_all();
    }
    // A callback that stops its own queue runs on the worker, which cannot wait for itself: it ends after the callback,
    // and the queue stays behind for it.
    if (OnWorker())
        stopped_by_itself_ = shared_from_this();
    else
        worker_.Join();
}

void IOQueue::Run(void* self) {
    auto& queue = *static_cast<IOQueue*>(self);
    queue_of_this_worker = &queue;
    queue.Runtime();
}

void IOQueue::Runtime() {
    std::unique_lock guard(lock_);
    for (;;) {
        changed_.wait(guard, [this] { return stopping_ || !waiting_.empty(); });
        if (waiting_.empty()) return;
        const auto first = waiting_.begin();
        TakeOut(in_hand_, first->first, first->second.begin());
        const QueuedRead& read = in_hand_.front();
        if (read.request != nullptr) read.request->BeginProgress(stopping_);
        guard.unlock();
        Serve(read);
        guard.lock();
        ++ended_;
        if (spare_.size() < most_spare)
            spare_.splice(spare_.end(), in_hand_);
        else
            in_hand_.clear();
        changed_.notify_all();
    }
}

void IOQueue::Serve(const QueuedRead& read) {
    Request* const request = read.request;
    if (request == nullptr) {
        log_message(messages, Log::ELevel::WARN, __LINE__,
                    "Resource is in state which forbids it to start async read: %d, asyncop: %p\n",
                    static_cast<int>(EFSRequestState::IDLE), static_cast<void*>(request));
        return;
    }
    if (request->State() == EFSRequestState::IN_PROGRESS) {
        const int status = ReadWhole(read);
        if (status == ERROR_STATUS) log_read_failure(read);
        if (status == ABORTED)
            log_message(messages, Log::ELevel::DEBG, __LINE__, "IO_QUEUE_CANCELLED: %p\n", static_cast<void*>(request));
        const std::lock_guard guard(lock_);
        request->EndProgress(status == DONE ? EFSRequestResult::SUCCESS : EFSRequestResult::FAILED, read.size);
    }
    request->Signal();
    request->ReleaseReference();
}

int IOQueue::ReadPiece(const QueuedRead& read, std::uint64_t done, std::uint32_t* transferred) {
    platform::set_overlapped_offset(overlapped_.get(), read.offset + done);
    const auto size = static_cast<std::uint32_t>(std::min(read.size - done, largest_native_read));
    auto* const target = static_cast<char*>(read.buffer) + done;
    const int status = read.file->read_overlapped(target, size, transferred, overlapped_.get());
    return status == PENDING ? read.file->WaitOverlapped(overlapped_.get(), transferred) : status;
}

/// A file that ends early ends the read; one that ends before the offset fails it.
int IOQueue::ReadWhole(const QueuedRead& read) {
    if (read.buffer == nullptr) return ERROR_STATUS;
    if (read.file->NeedsBounce(read.buffer, read.offset, read.size))
        return read.file->ReadBounced(read.buffer, read.offset, read.size) ? DONE : ERROR_STATUS;
    std::uint64_t done = 0;
    while (done < read.size) {
        std::uint32_t transferred = 0;
        const int status = ReadPiece(read, done, &transferred);
        if (status != DONE) return status;
        if (transferred == 0) return done == 0 ? ERROR_STATUS : DONE;
        done += transferred;
    }
    return DONE;
}

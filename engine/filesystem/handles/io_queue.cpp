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
#include <utility>

#include "engine/filesystem/contract/guarded.h"
#include "engine/filesystem/handles/async_file.h"
#include "engine/filesystem/log/message.h"
#include "engine/platform/per_thread.h"

namespace {

constexpr MessageSource messages{"FileSystem", "engine/filesystem/ioqueue"};
constexpr int highest_priority = 2;
constexpr std::uint64_t largest_native_read = 1u << 30;

enum ReadStatus : int { PENDING = 0, DONE = 1, ERROR_STATUS = 2, ABORTED = 3 };

constinit platform::PerThread<const IOQueue*, IOQueue> queue_of_this_worker;

void log_read_failure(const Request& request) {
    char size[24];
    char offset[24];
    std::snprintf(size, sizeof size, "%" PRIu64, request.size);
    std::snprintf(offset, sizeof offset, "%" PRIu64, request.offset);
    log_message(messages, Log::ELevel::ERRR, __LINE__,
                "IO_QUEUE_ERROR: read failed for file %s, memory %p, bytes %s (%X), offset %s (%X)\n",
                request.file->NativePath(), request.buffer, size, static_cast<unsigned>(request.size), offset,
                static_cast<unsigned>(request.offset));
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

bool IOQueue::Enqueue(Win32FileHandleAsync* file, std::uint64_t offset, std::uint64_t size, void* buffer,
                      Request& request, std::int32_t priority) {
    std::unique_lock guard(lock_);
    if (stopping_) return fs::refuse(EFSError::NOT_INITIALIZED, file->NativePath(), "The read queue has stopped.");
    if (!request.IsFree())
        return fs::refuse(EFSError::IN_USE, file->NativePath(), "The request is on its way already.");
    RequestList& requests = waiting_[priority];
    request.BeginQueued();
    request.AddReference();
    request.file = file;
    request.buffer = buffer;
    request.offset = offset;
    request.size = size;
    request.priority = priority;
    requests.splice(requests.end(), request.home);
    guard.unlock();
    changed_.notify_all();
    return true;
}

void IOQueue::TakeOut(Request& request) {
    const auto from = waiting_.find(request.priority);
    request.home.splice(request.home.end(), from->second, request.place);
    if (from->second.empty()) waiting_.erase(from);
}

/// Waits until the worker is done with the read in hand, its callback included, if that is one that `busy` means.
template <typename Busy>
void IOQueue::WaitForWorker(std::unique_lock<platform::Mutex>& guard, Busy busy) {
    if (OnWorker() || in_hand_ == nullptr || !busy(*in_hand_)) return;
    changed_.wait(guard, [this, before = ended_] { return ended_ != before; });
}

void IOQueue::Cancel(Win32FileHandleAsync* file, Request& request) {
    std::unique_lock guard(lock_);
    const EFSRequestState::TYPE found = request.Cancel();
    if (found == EFSRequestState::QUEUED) {
        TakeOut(request);
        guard.unlock();
        request.Signal();
        request.ReleaseReference();
        return;
    }
    if (found == EFSRequestState::IN_PROGRESS) file->cancel_io();
    WaitForWorker(guard, [&request](const Request& busy) { return &busy == &request; });
}

void IOQueue::Abandon(Win32FileHandleAsync* file) {
    std::unique_lock guard(lock_);
    Request* first = nullptr;
    Request** last = &first;
    for (auto place = waiting_.begin(); place != waiting_.end();) {
        RequestList& requests = place->second;
        for (auto at = requests.begin(); at != requests.end();) {
            Request& request = **at++;
            if (request.file != file) continue;
            request.home.splice(request.home.end(), requests, request.place);
            request.Cancel();
            request.next_cancelled = nullptr;
            *last = &request;
            last = &request.next_cancelled;
        }
        place = requests.empty() ? waiting_.erase(place) : std::next(place);
    }
    guard.unlock();
    while (first != nullptr) {
        Request* const request = std::exchange(first, first->next_cancelled);
        request->Signal();
        request->ReleaseReference();
    }
    guard.lock();
    WaitForWorker(guard, [file](const Request& busy) { return busy.file == file; });
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
        in_hand_ = waiting_.begin()->second.front();
        TakeOut(*in_hand_);
        in_hand_->BeginProgress(stopping_);
        guard.unlock();
        Serve(*in_hand_);
        guard.lock();
        std::exchange(in_hand_, nullptr)->ReleaseReference();
        ++ended_;
        changed_.notify_all();
    }
}

void IOQueue::Serve(Request& request) {
    if (request.State() == EFSRequestState::IN_PROGRESS) {
        const int status = ReadWhole(request);
        if (status == ERROR_STATUS) log_read_failure(request);
        if (status == ABORTED)
            log_message(messages, Log::ELevel::DEBG, __LINE__, "IO_QUEUE_CANCELLED: %p\n",
                        static_cast<void*>(&request));
        request.EndProgress(status == DONE ? EFSRequestResult::SUCCESS : EFSRequestResult::FAILED, request.size);
    }
    request.Signal();
}

void IOQueue::WarnOfReadWithoutRequest() {
    log_message(messages, Log::ELevel::WARN, __LINE__,
                "Resource is in state which forbids it to start async read: %d, asyncop: %p\n", 0,
                static_cast<void*>(nullptr));
}

int IOQueue::ReadPiece(const Request& request, std::uint64_t done, std::uint32_t* transferred) {
    platform::set_overlapped_offset(overlapped_.get(), request.offset + done);
    const auto size = static_cast<std::uint32_t>(std::min(request.size - done, largest_native_read));
    auto* const target = static_cast<char*>(request.buffer) + done;
    const int status = request.file->read_overlapped(target, size, transferred, overlapped_.get());
    return status == PENDING ? request.file->WaitOverlapped(overlapped_.get(), transferred) : status;
}

/// A file that ends early ends the read; one that ends before the offset fails it.
int IOQueue::ReadWhole(const Request& request) {
    if (request.buffer == nullptr) return ERROR_STATUS;
    if (request.file->NeedsBounce(request.buffer, request.offset, request.size))
        return request.file->ReadBounced(request.buffer, request.offset, request.size) ? DONE : ERROR_STATUS;
    std::uint64_t done = 0;
    while (done < request.size) {
        std::uint32_t transferred = 0;
        const int status = ReadPiece(request, done, &transferred);
        if (status == DONE && transferred != 0) {
            done += transferred;
            continue;
        }
        // Both systems call the end a failure.
        const bool is_at_end = done != 0 && request.offset + done >= request.file->length();
        if (status == ABORTED || !is_at_end) return status == ABORTED ? ABORTED : ERROR_STATUS;
        break;
    }
    return DONE;
}

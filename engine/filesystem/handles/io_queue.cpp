// The read queue: one worker, one native read at a time.
//
// What waits is kept by priority, each priority in its order of arrival; a request knows its place, so that cancelling
// costs the same at any depth. Under lock_ a read is either waiting, and whoever takes it out owns its request, or in the
// worker's hand, and whoever wants it ended waits for the worker. Events and callbacks are signalled without the lock.

#include "engine/filesystem/handles/io_queue.h"

#include <cinttypes>
#include <utility>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/handles/queued_file.h"
#include "engine/filesystem/log/message.h"
#include "engine/platform/threads.h"

namespace {

constexpr MessageSource messages{"FileSystem", "engine/filesystem/ioqueue"};
constexpr int highest_priority = 2;

constinit platform::PerThread<const IOQueue*, IOQueue> queue_of_this_worker;

void log_read_failure(const Request& request) {
    const std::uint64_t bytes = request.size;
    log_message(messages, Log::ELevel::ERRR, __LINE__,
                "IO_QUEUE_ERROR: read failed for file %s, memory %p, bytes %" PRIu64 " (%X), offset %" PRIu64 " (%X)\n",
                request.file->Path(), request.buffer, bytes, static_cast<unsigned>(bytes), request.offset,
                static_cast<unsigned>(request.offset));
}

}  // namespace

std::shared_ptr<IOQueue> IOQueue::Create() {
    return fs::guarded(nullptr, std::shared_ptr<IOQueue>(), [] {
        std::shared_ptr<IOQueue> queue(new IOQueue);
        const auto run = [](void* self) { static_cast<IOQueue*>(self)->Run(); };
        if (queue->worker_.Start("IO Main", run, queue.get(), highest_priority)) return queue;
        fs::set_error(EFSError::OUT_OF_MEMORY, nullptr, "The system has no thread left for the read queue.");
        return std::shared_ptr<IOQueue>();
    });
}

IOQueue::~IOQueue() { Stop(); }

bool IOQueue::OnWorker() const { return queue_of_this_worker == this; }

bool IOQueue::Enqueue(QueuedFile& file, std::uint64_t offset, std::uint64_t size, void* buffer, Request& request,
                      std::int32_t priority) {
    const char* const path = file.Path();
    std::unique_lock guard(lock_);
    if (stopping_) return fs::refuse(EFSError::NOT_INITIALIZED, path, "The read queue has stopped.");
    if (!request.IsFree()) return fs::refuse(EFSError::IN_USE, path, "The request is on its way already.");
    RequestList& requests = waiting_[priority];
    request.BeginQueued();
    request.AddRef();
    request.file = &file;
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

/// Waits until the worker is done with the read in hand, its callback included.
void IOQueue::WaitForWorker(std::unique_lock<platform::Mutex>& guard) {
    if (OnWorker()) return;
    changed_.wait(guard, [this, before = ended_] { return ended_ != before; });
}

void IOQueue::Cancel(Request& request) {
    std::unique_lock guard(lock_);
    const EFSRequestState::TYPE found = request.status.Cancel();
    if (found == EFSRequestState::QUEUED) {
        TakeOut(request);
        guard.unlock();
        request.Signal();
        request.Release();
        return;
    }
    if (found == EFSRequestState::IN_PROGRESS) request.file->file.cancel();
    if (in_hand_ == &request) WaitForWorker(guard);
}

void IOQueue::Abandon(const QueuedFile& file) {
    std::unique_lock guard(lock_);
    RequestList cancelled;
    for (auto place = waiting_.begin(); place != waiting_.end();) {
        RequestList& requests = place->second;
        for (auto at = requests.begin(); at != requests.end();) {
            Request& request = **at++;
            if (request.file != &file) continue;
            request.status.Cancel();
            cancelled.splice(cancelled.end(), requests, request.place);
        }
        place = requests.empty() ? waiting_.erase(place) : std::next(place);
    }
    guard.unlock();
    while (!cancelled.empty()) {
        Request& request = *cancelled.front();
        request.home.splice(request.home.end(), cancelled, request.place);
        request.Signal();
        request.Release();
    }
    guard.lock();
    if (in_hand_ != nullptr && in_hand_->file == &file) WaitForWorker(guard);
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

void IOQueue::Run() {
    queue_of_this_worker = this;
    std::unique_lock guard(lock_);
    for (;;) {
        changed_.wait(guard, [this] { return stopping_ || !waiting_.empty(); });
        if (waiting_.empty()) return;
        in_hand_ = waiting_.begin()->second.front();
        TakeOut(*in_hand_);
        if (stopping_)
            in_hand_->status.Cancel();
        else
            in_hand_->status.Set(EFSRequestState::IN_PROGRESS);
        guard.unlock();
        Serve(*in_hand_);
        guard.lock();
        std::exchange(in_hand_, nullptr)->Release();
        ++ended_;
        changed_.notify_all();
    }
}

void IOQueue::Serve(Request& request) {
    if (request.State() == EFSRequestState::IN_PROGRESS) {
        const auto status = request.file->Read(request.buffer, request.offset, request.size);
        if (status == QueuedFile::Status::FAILED) log_read_failure(request);
        if (status == QueuedFile::Status::ABORTED)
            log_message(messages, Log::ELevel::DEBG, __LINE__, "IO_QUEUE_CANCELLED: %p\n",
                        static_cast<void*>(&request));
        request.status.EndProgress(status == QueuedFile::Status::DONE ? EFSRequestResult::SUCCESS
                                                                      : EFSRequestResult::FAILED);
    }
    request.Signal();
}

namespace fs {
namespace {

/// The process's read queue.
struct QueueSlot {
    platform::Mutex lock;
    bool is_started ENGINE_GUARDED_BY(lock) = false;
    std::shared_ptr<IOQueue> queue ENGINE_GUARDED_BY(lock);  // null until it could be made

    void Fill() ENGINE_REQUIRES(lock) {
        if (is_started && queue == nullptr) queue = IOQueue::Create();
    }
};

// A handle closed late in the process still finds it.
QueueSlot& slot() { return platform::never_destroyed<QueueSlot>(); }

}  // namespace

void start_queues() {
    QueueSlot& main = slot();
    const platform::LockGuard guard(main.lock);
    main.is_started = true;
    main.Fill();
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
    main.Fill();
    if (main.is_started && main.queue == nullptr) throw StoredFailure();
    return main.queue;
}

}  // namespace fs

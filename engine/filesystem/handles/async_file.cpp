#include "engine/filesystem/handles/async_file.h"

#include <algorithm>
#include <new>
#include <utility>

#include "engine/filesystem/contract/disk_use_scope.h"
#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/handles/io_queue.h"
#include "engine/filesystem/handles/request.h"
#include "engine/filesystem/log/message.h"

namespace {

constexpr MessageSource messages{"FileSystem", "engine/filesystem/ioqueue"};

}  // namespace

Win32FileHandleAsync::Win32FileHandleAsync(CFSSource* owner, const char* native_path, std::shared_ptr<IOQueue> queue)
    : queue_(std::move(queue)), file_{.native_path = native_path}, own_request_(SFsRequest::Create(nullptr, nullptr)) {
    if (own_request_ == nullptr) throw std::bad_alloc();
    source = owner;
}

bool Win32FileHandleAsync::Attach(platform::File file) {
    file_.length = file.length();
    file_.file = std::move(file);
    return file_.length != fs::failed_size;
}

Win32FileHandleAsync::~Win32FileHandleAsync() {
    if (queue_ != nullptr) queue_->Abandon(file_);
    own_request_->Release();
}

std::uint64_t Win32FileHandleAsync::read(void* buffer, std::uint64_t size) {
    const fs::DiskUse use("read", file_.Path());
    const std::uint64_t left = position_ < file_.length ? file_.length - position_ : 0;
    const std::uint64_t wanted = std::min(size, left);
    if (wanted == 0) return 0;
    if (!ReadAndWait(buffer, wanted)) return fs::failed_size;
    position_ += wanted;
    return wanted;
}

bool Win32FileHandleAsync::ReadAndWait(void* buffer, std::uint64_t size) {
    bool is_read = false;
    if (queue_ != nullptr && queue_->OnWorker()) {  // in a callback the worker would wait for itself for ever
        is_read = file_.Read(buffer, position_, size) == QueuedFile::Status::DONE;
    } else {
        if (!Enqueue(position_, size, buffer, own_request_, 0)) return false;
        own_request_->Wait();
        is_read = own_request_->Result() == EFSRequestResult::SUCCESS;
    }
    return is_read || fs::refuse(EFSError::IO, file_.Path(), "The queued read failed or was cancelled.");
}

bool Win32FileHandleAsync::read_async(void* buffer, std::uint64_t offset, std::uint64_t size, SFsRequest* request,
                                      std::uint32_t priority) {
    if (request == nullptr && size != 0)  // nobody would hear of its end
        log_message(messages, Log::ELevel::WARN, __LINE__,
                    "Resource is in state which forbids it to start async read: %d, asyncop: %p\n", 0,
                    static_cast<void*>(nullptr));
    if (request == nullptr) return true;
    if (size != 0) return Enqueue(offset, size, buffer, request, static_cast<std::int32_t>(priority));
    Request& record = Request::Of(request);
    if (!record.IsFree()) return fs::refuse(EFSError::IN_USE, file_.Path(), "The request is on its way already.");
    record.FinishEmpty();
    record.Signal();
    return true;
}

bool Win32FileHandleAsync::Enqueue(std::uint64_t offset, std::uint64_t size, void* buffer, SFsRequest* request,
                                   std::int32_t priority) {
    if (queue_ == nullptr)
        return fs::refuse(EFSError::NOT_INITIALIZED, file_.Path(), "There was no read queue at opening.");
    return fs::guarded(file_.Path(), false,
                       [&] { return queue_->Enqueue(file_, offset, size, buffer, Request::Of(request), priority); });
}

std::uint64_t Win32FileHandleAsync::write(const void*, std::uint64_t) {
    return fs::fail(EFSError::UNSUPPORTED, "An asynchronous file is only read.", file_.Path());
}

// The position is stored whatever it is; the answer says whether it lies within the file, and a negative one, taken as
// an unsigned number, does not.
bool Win32FileHandleAsync::seek(std::int64_t offset, EFSSeek::TYPE origin) {
    const auto distance = static_cast<std::uint64_t>(offset);
    if (origin == EFSSeek::BEGIN) position_ = distance;
    if (origin == EFSSeek::CURRENT) position_ += distance;
    if (origin == EFSSeek::END) position_ = file_.length + distance;
    return (origin <= EFSSeek::END && position_ <= file_.length) ||
           fs::refuse(EFSError::INVALID_ARGUMENT, file_.Path(), "The position lies outside of the file.");
}

void Win32FileHandleAsync::cancel_async(SFsRequest* request) {
    if (request == nullptr) return;
    if (queue_ != nullptr)
        queue_->Cancel(Request::Of(request));
    else
        Request::Of(request).status.Cancel();
}

int Win32FileHandleAsync::read_overlapped(void* buffer, std::uint32_t size, std::uint32_t* transferred,
                                          SNativeOverlapped* overlapped) {
    if (overlapped == nullptr) return 2;
    std::uint32_t ignored = 0;
    return file_.file.read_overlapped(buffer, size, transferred != nullptr ? transferred : &ignored, overlapped);
}

#include "engine/filesystem/handles/async_file.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "engine/filesystem/contract/disk_use.h"
#include "engine/filesystem/contract/error.h"
#include "engine/filesystem/handles/io_queue.h"
#include "engine/filesystem/handles/request.h"
#include "engine/filesystem/log/message.h"

namespace {

constexpr MessageSource messages{"FileSystem", "engine/filesystem/ioqueue"};
constexpr std::uint64_t largest_bounce = 1u << 20;

constexpr std::uint64_t round_up(std::uint64_t size, std::uint64_t alignment) {
    return (size + alignment - 1) / alignment * alignment;
}

struct AlignedFree {
    std::align_val_t alignment;
    void operator()(char* memory) const { ::operator delete(memory, alignment); }
};

/// One piece by way of an aligned buffer; answers as File::read_at.
std::uint64_t read_bounced(const platform::File& file, char* bounce, void* buffer, std::uint64_t size,
                           std::uint64_t offset) {
    const std::uint64_t skip = offset % file.alignment();
    const std::uint64_t wanted = std::min(size, largest_bounce);
    const std::uint64_t got = file.read_at(bounce, round_up(skip + wanted, file.alignment()), offset - skip);
    if (got == fs::failed_size || got <= skip) return got == fs::failed_size ? fs::failed_size : 0;
    const std::uint64_t piece = std::min(got - skip, wanted);
    std::memcpy(buffer, bounce + skip, static_cast<std::size_t>(piece));
    return piece;
}

}  // namespace

Win32FileHandleAsync::Win32FileHandleAsync(CFSSource* owner, const char* native_path, std::shared_ptr<IOQueue> queue)
    : queue_(std::move(queue)), native_path_(native_path), own_request_(SFsRequest::Create(nullptr, nullptr)) {
    if (own_request_ == nullptr) throw std::bad_alloc();
    source = owner;
}

bool Win32FileHandleAsync::Attach(platform::File file) {
    length_ = file.length();
    file_ = std::move(file);
    return length_ != fs::failed_size;
}

Win32FileHandleAsync::~Win32FileHandleAsync() {
    if (queue_ != nullptr) queue_->Abandon(*this);
    own_request_->Release();
}

std::uint64_t Win32FileHandleAsync::read(void* buffer, std::uint64_t size) {
    const fs::DiskUse use("read", NativePath());
    const std::uint64_t left = position_ < length_ ? length_ - position_ : 0;
    const std::uint64_t wanted = std::min(size, left);
    if (wanted == 0) return 0;
    if (!ReadAndWait(buffer, wanted)) return fs::failed_size;
    position_ += wanted;
    return wanted;
}

bool Win32FileHandleAsync::ReadAndWait(void* buffer, std::uint64_t size) {
    bool is_read = false;
    if (queue_ != nullptr && queue_->OnWorker()) {  // in a callback the worker would wait for itself for ever
        is_read = ReadNow(buffer, position_, size) == Status::DONE;
    } else {
        if (!Enqueue(position_, size, buffer, own_request_, 0)) return false;
        own_request_->Wait();
        is_read = own_request_->Result() == EFSRequestResult::SUCCESS;
    }
    return is_read || fs::refuse(EFSError::IO, NativePath(), "The queued read failed or was cancelled.");
}

/// An unbuffered file takes only reads that are aligned as the system wants it; others go by way of a buffer that is.
Win32FileHandleAsync::Status Win32FileHandleAsync::ReadNow(void* buffer, std::uint64_t offset,
                                                           std::uint64_t size) const {
    if (buffer == nullptr) return Status::FAILED;
    const std::uint64_t unaligned = reinterpret_cast<std::uintptr_t>(buffer) | offset | size;
    const bool is_bounced = (unaligned & (file_.alignment() - 1)) != 0;
    // A piece may begin inside a block of the disk and end in another.
    const std::uint64_t room = round_up(std::min(size, largest_bounce), file_.alignment()) + file_.alignment();
    const std::align_val_t alignment{file_.alignment()};
    void* const memory = is_bounced ? ::operator new(room, alignment, std::nothrow) : nullptr;
    const std::unique_ptr<char, AlignedFree> bounce(static_cast<char*>(memory), AlignedFree{alignment});
    if (is_bounced && bounce == nullptr) return Status::FAILED;
    for (std::uint64_t done = 0; done < size;) {
        char* const to = static_cast<char*>(buffer) + done;
        const std::uint64_t got = is_bounced ? read_bounced(file_, bounce.get(), to, size - done, offset + done)
                                             : file_.read_at(to, size - done, offset + done);
        if (got == fs::failed_size || got == 0) {
            if (done != 0 && offset + done >= length_) break;
            const bool is_aborted = got != 0 && platform::last_error().failure == platform::Failure::ABORTED;
            return is_aborted ? Status::ABORTED : Status::FAILED;
        }
        done += got;
    }
    return Status::DONE;
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
    if (!record.IsFree()) return fs::refuse(EFSError::IN_USE, NativePath(), "The request is on its way already.");
    record.FinishEmpty();
    record.Signal();
    return true;
}

bool Win32FileHandleAsync::Enqueue(std::uint64_t offset, std::uint64_t size, void* buffer, SFsRequest* request,
                                   std::int32_t priority) {
    if (queue_ == nullptr)
        return fs::refuse(EFSError::NOT_INITIALIZED, NativePath(), "There was no read queue at opening.");
    return fs::guarded(NativePath(), false,
                       [&] { return queue_->Enqueue(*this, offset, size, buffer, Request::Of(request), priority); });
}

std::uint64_t Win32FileHandleAsync::write(const void*, std::uint64_t) {
    return fs::fail(EFSError::UNSUPPORTED, "An asynchronous file is only read.", NativePath());
}

// The position is stored whatever it is; the answer says whether it lies within the file, and a negative one, taken as
// an unsigned number, does not.
bool Win32FileHandleAsync::seek(std::int64_t offset, EFSSeek::TYPE origin) {
    if (origin > EFSSeek::END) return false;
    const auto distance = static_cast<std::uint64_t>(offset);
    if (origin == EFSSeek::BEGIN) position_ = distance;
    if (origin == EFSSeek::CURRENT) position_ += distance;
    if (origin == EFSSeek::END) position_ = length_ + distance;
    return position_ <= length_;
}

void Win32FileHandleAsync::cancel_async(SFsRequest* request) {
    if (request == nullptr) return;
    if (queue_ != nullptr)
        queue_->Cancel(Request::Of(request));
    else
        Request::Of(request).Cancel();
}

int Win32FileHandleAsync::read_overlapped(void* buffer, std::uint32_t size, std::uint32_t* transferred,
                                          SNativeOverlapped* overlapped) {
    if (overlapped == nullptr) return 2;
    std::uint32_t ignored = 0;
    return file_.read_overlapped(buffer, size, transferred != nullptr ? transferred : &ignored, overlapped);
}

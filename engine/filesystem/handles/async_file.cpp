#include "engine/filesystem/handles/async_file.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "engine/filesystem/contract/disk_use.h"
#include "engine/filesystem/contract/guarded.h"
#include "engine/filesystem/handles/io_queue.h"
#include "engine/filesystem/handles/request.h"

namespace {

constexpr std::uint64_t failed = ~std::uint64_t{0};
constexpr std::uint64_t largest_bounce = 1u << 20;

constexpr std::uint64_t round_up(std::uint64_t size, std::uint64_t alignment) {
    return (size + alignment - 1) / alignment * alignment;
}

struct AlignedFree {
    std::align_val_t alignment;
    void operator()(void* memory) const { ::operator delete(memory, alignment); }
};

}  // namespace

Win32FileHandleAsync::Win32FileHandleAsync(CFSSource* owner, const char* native_path, std::shared_ptr<IOQueue> queue)
    : queue_(std::move(queue)), native_path_(native_path), own_request_(SFsRequest::Create(nullptr, nullptr)) {
    if (own_request_ == nullptr) throw std::bad_alloc();
    source = owner;
}

bool Win32FileHandleAsync::Attach(platform::File file) {
    length_ = file.length();
    file_ = std::move(file);
    return length_ != failed;
}

Win32FileHandleAsync::~Win32FileHandleAsync() {
    if (queue_ != nullptr) queue_->Abandon(this);
    own_request_->Release();
}

std::uint64_t Win32FileHandleAsync::read(void* buffer, std::uint64_t size) {
    if (!file_.valid()) return failed;
    const fs::DiskUse use("read", NativePath());
    const std::uint64_t left = position_ < length_ ? length_ - position_ : 0;
    const std::uint64_t wanted = std::min(size, left);
    if (wanted == 0) return 0;
    const bool in_callback = queue_ != nullptr && queue_->OnWorker();
    if (!(in_callback ? ReadHere(buffer, wanted) : ReadThroughQueue(buffer, wanted))) return failed;
    position_ += wanted;
    return wanted;
}

bool Win32FileHandleAsync::ReadThroughQueue(void* buffer, std::uint64_t size) {
    if (!Enqueue(position_, size, buffer, own_request_, 0)) return false;
    own_request_->Wait();
    if (own_request_->Result() == EFSRequestResult::SUCCESS) return true;
    fs::set_error(EFSError::IO, NativePath(), "The queued read failed or was cancelled.");
    return false;
}

/// In a callback: the worker would wait for itself for ever.
bool Win32FileHandleAsync::ReadHere(void* buffer, std::uint64_t size) const {
    const bool bounced = NeedsBounce(buffer, position_, size);
    if (bounced ? ReadBounced(buffer, position_, size) : file_.read_at(buffer, size, position_) == size) return true;
    fs::set_error(EFSError::IO, NativePath(), "The read in a callback failed.");
    return false;
}

bool Win32FileHandleAsync::read_async(void* buffer, std::uint64_t offset, std::uint64_t size, SFsRequest* request,
                                      std::uint32_t priority) {
    if (request == nullptr) {
        if (size != 0) IOQueue::WarnOfReadWithoutRequest();
        return true;
    }
    if (size == 0) {
        Request& record = Request::Of(request);
        if (!record.IsFree()) return fs::refuse(EFSError::IN_USE, NativePath(), "The request is on its way already.");
        record.FinishEmpty();
        record.Signal();
        return true;
    }
    return Enqueue(offset, size, buffer, request, static_cast<std::int32_t>(priority));
}

bool Win32FileHandleAsync::Enqueue(std::uint64_t offset, std::uint64_t size, void* buffer, SFsRequest* request,
                                   std::int32_t priority) {
    if (queue_ == nullptr)
        return fs::refuse(EFSError::NOT_INITIALIZED, NativePath(), "There was no read queue at opening.");
    return fs::guarded(NativePath(), false,
                       [&] { return queue_->Enqueue(this, offset, size, buffer, Request::Of(request), priority); });
}

std::uint64_t Win32FileHandleAsync::write(const void*, std::uint64_t) {
    fs::set_error(EFSError::UNSUPPORTED, NativePath(), "An asynchronous file is only read.");
    return failed;
}

bool Win32FileHandleAsync::NeedsBounce(const void* buffer, std::uint64_t offset, std::uint64_t size) const {
    const std::uint64_t mask = file_.alignment() - 1;
    return ((reinterpret_cast<std::uintptr_t>(buffer) | offset | size) & mask) != 0;
}

bool Win32FileHandleAsync::ReadBounced(void* buffer, std::uint64_t offset, std::uint64_t size) const {
    const std::uint64_t alignment = file_.alignment();
    std::uint64_t skip = offset % alignment;
    const std::uint64_t room = round_up(skip + std::min(size, largest_bounce), alignment);
    const std::align_val_t wanted{static_cast<std::size_t>(alignment)};
    const std::unique_ptr<char, AlignedFree> bounce(static_cast<char*>(::operator new(room, wanted, std::nothrow)),
                                                    AlignedFree{wanted});
    if (bounce == nullptr) return false;
    for (std::uint64_t done = 0; done < size; skip = 0) {
        const std::uint64_t asked = std::min(room, round_up(skip + std::min(size - done, largest_bounce), alignment));
        const std::uint64_t got = file_.read_at(bounce.get(), asked, offset + done - skip);
        if (got == failed || got <= skip) return done != 0;
        const std::uint64_t piece = std::min(got - skip, size - done);
        std::memcpy(static_cast<char*>(buffer) + done, bounce.get() + skip, piece);
        done += piece;
        if (got < asked) return true;
    }
    return true;
}

// The position is stored whatever it is; the answer says whether it lies within the file, and a negative one, taken as
// an unsigned number, does not.
bool Win32FileHandleAsync::seek(std::int64_t offset, EFSSeek::TYPE origin) {
    if (!file_.valid() || origin > EFSSeek::END) return false;
    const auto distance = static_cast<std::uint64_t>(offset);
    if (origin == EFSSeek::BEGIN) position_ = distance;
    if (origin == EFSSeek::CURRENT) position_ += distance;
    if (origin == EFSSeek::END) position_ = length_ + distance;
    return position_ <= length_;
}

void Win32FileHandleAsync::cancel_async(SFsRequest* request) {
    if (request == nullptr) return;
    if (queue_ != nullptr)
        queue_->Cancel(this, Request::Of(request));
    else
        Request::Of(request).Cancel();
}

bool Win32FileHandleAsync::cancel_io() { return file_.valid() && file_.cancel(); }

int Win32FileHandleAsync::read_overlapped(void* buffer, std::uint32_t size, std::uint32_t* transferred,
                                          SNativeOverlapped* overlapped) {
    if (!file_.valid() || overlapped == nullptr) return 2;
    std::uint32_t ignored = 0;
    return file_.read_overlapped(buffer, size, transferred != nullptr ? transferred : &ignored, overlapped);
}

int Win32FileHandleAsync::WaitOverlapped(SNativeOverlapped* overlapped, std::uint32_t* transferred) {
    return platform::wait_overlapped(file_, overlapped, transferred);
}

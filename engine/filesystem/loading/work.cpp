#include "engine/filesystem/loading/work.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "engine/filesystem/access/parts.h"
#include "engine/filesystem/contract/disk_use_scope.h"
#include "engine/filesystem/contract/failure.h"
#include "engine/platform/process.h"

// A file below whole_limit is read by one call, which is what decoders do fastest; a longer one in steps, so that cancelling
// and loads that come before wait for one step and not for the whole.

namespace fs {

namespace {

constexpr std::uint64_t all = ~std::uint64_t{0};
constexpr std::uint64_t whole_limit = 8 << 20;
constexpr std::uint64_t step_bytes = 256 << 10;

}  // namespace

LoadWork::LoadWork(const SFsLoadWish& wish)
    : path_(with_cache_directory(wish.path, wish.flags)),
      flags_(wish.flags),
      offset_(wish.offset),
      asked_(wish.size == 0 ? all : wish.size),
      buffer_(wish.buffer),
      capacity_(wish.capacity) {}

LoadWork::~LoadWork() { DropBlock(); }

LoadWork::Step LoadWork::Next() noexcept {
    const DiskUse use(is_open_ ? "read" : "opened", path_.c_str());  // where there is no worker, the caller does it
    const Step step = guarded(path_.c_str(), Step::FAILED, [&] { return is_open_ ? Read() : Open(); });
    if (step == Step::FAILED) {
        const SFsError& error = last_error();
        NoteFailure(error.code, error.os_code, error.path, error.text.c_str());
    }
    return step;
}

LoadWork::Step LoadWork::Open() {
    file_ = open_pinned(path_.c_str(), flags_ | FFSOpenFlags::SEEKABLE, pin_);
    if (!file_ || !FindRange()) return Step::FAILED;
    is_open_ = true;
    if (needs_block_) block_bytes_ = std::max<std::uint64_t>(wanted_, 1);
    return Step::NEEDS_BLOCK;
}

/// What is asked for, as far as the file tells where it ends. A file that does not is read into a block that grows.
bool LoadWork::FindRange() {
    const std::uint64_t length = file_->length();
    grows_ = length == failed_size && asked_ == all;
    needs_block_ = buffer_ == nullptr || grows_;
    if (length == failed_size) {
        wanted_ = grows_ ? step_bytes : asked_;
    } else {
        const std::uint64_t left = length - std::min(offset_, length);
        if (offset_ > length || (asked_ != all && asked_ > left))
            return refuse(EFSError::INVALID_ARGUMENT, path_.c_str(),
                          "The file ends before the range that was asked for.");
        wanted_ = std::min(asked_, left);
    }
    if (!needs_block_ && wanted_ > capacity_) return RefuseSize();
    if (offset_ == 0) return true;
    const ErrorScope scope;
    const auto offset = static_cast<std::int64_t>(offset_);
    if (offset > 0 && file_->seek(offset, EFSSeek::BEGIN)) return true;
    return fail_unless_told(scope, EFSError::IO, path_.c_str(), "The file cannot be read from where it was asked for.");
}

bool LoadWork::RefuseSize() const {
    return refuse(EFSError::TOO_LARGE, path_.c_str(), "The buffer is smaller than what was to be loaded.");
}

void LoadWork::ResizeBlock(std::uint64_t size) {
    void* const block = size > SIZE_MAX ? nullptr : std::realloc(block_, static_cast<std::size_t>(size));
    if (block == nullptr) throw std::bad_alloc();
    block_ = block;
    block_bytes_ = size;
}

LoadWork::Step LoadWork::Read() {
    if (needs_block_ && block_ == nullptr) ResizeBlock(block_bytes_);
    if (grows_ && done_ == block_bytes_) ResizeBlock(block_bytes_ * 2);
    const std::uint64_t left = (grows_ ? block_bytes_ : wanted_) - done_;
    const std::uint64_t piece = wanted_ < whole_limit && !grows_ ? left : std::min(left, step_bytes);
    if (piece == 0) return Step::DONE;
    char* const place = static_cast<char*>(Data()) + done_;
    if (needs_block_ && piece >= step_bytes) platform::populate(place, static_cast<std::size_t>(piece));
    const ErrorScope scope;
    return CheckRead(piece, file_->read(place, piece), scope);
}

LoadWork::Step LoadWork::CheckRead(std::uint64_t asked, std::uint64_t got, const ErrorScope& scope) {
    const EFSError::TYPE told = scope.has_error() ? last_error().code : EFSError::NONE;
    if (got > asked || told == EFSError::IO || told == EFSError::BAD_FORMAT) {
        if (told == EFSError::NONE) set_error(EFSError::IO, path_.c_str(), "The file cannot be read.");
        return Step::FAILED;
    }
    done_ += got;
    if (grows_ && (got == asked || told == EFSError::NONE)) return got == asked ? Step::MORE : FinishGrown();
    if (got < asked) {
        if (told == EFSError::NONE) set_error(EFSError::IO, path_.c_str(), "The file ended before its length.");
        return Step::FAILED;
    }
    return done_ < wanted_ ? Step::MORE : Step::DONE;
}

LoadWork::Step LoadWork::FinishGrown() {
    if (buffer_ == nullptr) return Step::DONE;
    if (done_ > capacity_) return RefuseSize(), Step::FAILED;
    std::memcpy(buffer_, block_, static_cast<std::size_t>(done_));
    DropBlock();
    return Step::DONE;
}

void LoadWork::Close(EFSRequestResult::TYPE result) noexcept {
    file_.reset();
    pin_.Drop();
    if (result == EFSRequestResult::CANCELLED)
        NoteFailure(EFSError::CANCELLED, 0, path_, "The load was cancelled, or its source was removed.");
}

void LoadWork::DropBlock() noexcept { std::free(TakeBlock()); }

void* LoadWork::TakeBlock() noexcept {
    block_bytes_ = 0;
    return std::exchange(block_, nullptr);
}

void LoadWork::NoteFailure(EFSError::TYPE code, std::int32_t os_code, const fs::string& path,
                           const char* text) noexcept {
    failure_.code = code;
    failure_.os_code = os_code;
    try {
        failure_.path = path;
        failure_.text = text;
    } catch (const std::bad_alloc&) {  // the code tells the most
    }
}

}  // namespace fs

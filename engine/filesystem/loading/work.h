#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include <engine/filesystem/loading.h>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/open_file.h"
#include "engine/filesystem/registry/registry.h"

namespace fs {

/// What a load does, in steps: it opens its file, gets its block, and reads. One thread at a time, without a lock.
class LoadWork {
public:
    enum class Step {
        NEEDS_BLOCK,  // the file is open; the next step makes a block of BlockBytes()
        MORE,
        DONE,
        FAILED,  // Failure() says why
    };

    explicit LoadWork(const SFsLoadWish& wish);  // throws std::bad_alloc
    ~LoadWork();
    LoadWork(const LoadWork&) = delete;
    LoadWork& operator=(const LoadWork&) = delete;

    Step Next() noexcept;
    /// Closes the file. The block stays until it is taken.
    void Close(EFSRequestResult::TYPE result) noexcept;
    void* TakeBlock() noexcept;
    /// The open file; what takes it ends the load for its own purpose.
    SFsFile& File() const { return *file_; }
    FilePtr TakeFile() noexcept { return std::move(file_); }

    /// Bytes that the library's block has, or will have once it is made; 0 without one.
    std::uint64_t BlockBytes() const { return block_bytes_; }
    void* Data() const { return block_ != nullptr ? block_ : buffer_; }
    std::uint64_t Size() const { return done_; }
    const std::string& Path() const { return path_; }
    FFSOpenFlags::FLAGS Flags() const { return flags_; }
    bool IsOpen() const { return is_open_; }
    bool IsSourceGoing() const { return pin_.IsSourceGoing(); }
    bool UsesSource(const CFSSource& source) const { return pin_.Holds(source); }

    const SFsError& Failure() const { return failure_; }

private:
    Step Open();
    bool FindRange();
    Step Read();
    Step CheckRead(std::uint64_t asked, std::uint64_t got, const ErrorScope& scope);
    Step FinishGrown();
    void ResizeBlock(std::uint64_t size);
    bool RefuseSize() const;
    void DropBlock() noexcept;
    void NoteFailure(EFSError::TYPE code, std::int32_t os_code, const fs::string& path, const char* text) noexcept;

    const std::string path_;
    const FFSOpenFlags::FLAGS flags_;
    const std::uint64_t offset_;
    const std::uint64_t asked_;  // all ones: to the end
    void* const buffer_;         // the caller's, or null
    const std::uint64_t capacity_;

    registry::Pin pin_;
    FilePtr file_;  // behind its source's pin, since it is closed first
    bool is_open_ = false;
    bool needs_block_ = false;
    bool grows_ = false;  // the file does not tell its length: it is read until it ends, into a block that grows
    std::uint64_t wanted_ = 0;
    std::uint64_t done_ = 0;
    void* block_ = nullptr;
    std::uint64_t block_bytes_ = 0;
    SFsError failure_;
};

}  // namespace fs

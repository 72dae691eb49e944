#pragma once

#include <memory>
#include <string>

#include <engine/filesystem/contract/file.h>

#include "engine/platform/files.h"

class IOQueue;
class Request;

/// A native file whose reads go through the read queue.
///
/// The file and the buffers of its reads outlive their requests; closing it all the same cancels what is queued and
/// waits for the read in hand.
class Win32FileHandleAsync final : public SFsFile {
public:
    /// Throws std::bad_alloc.
    Win32FileHandleAsync(CFSSource* owner, const char* native_path, std::shared_ptr<IOQueue> queue);
    /// False when the length cannot be told.
    bool Attach(platform::File file);
    ~Win32FileHandleAsync() override;

    std::uint64_t read(void* buffer, std::uint64_t size) override;
    bool read_async(void* buffer, std::uint64_t offset, std::uint64_t size, SFsRequest* request,
                    std::uint32_t priority) override;
    std::uint64_t write(const void* buffer, std::uint64_t size) override;
    bool seek(std::int64_t offset, EFSSeek::TYPE origin) override;
    std::uint64_t length() override { return length_; }
    std::uint64_t tell() override { return position_; }
    void cancel_async(SFsRequest* request) override;
    bool cancel_io() override;
    int read_overlapped(void* buffer, std::uint32_t size, std::uint32_t* transferred,
                        SNativeOverlapped* overlapped) override;

    /// Waits for a read that read_overlapped left pending: 1 done, 2 failed, 3 aborted.
    int WaitOverlapped(SNativeOverlapped* overlapped, std::uint32_t* transferred);
    /// Whether an unbuffered file cannot take this read as it is, because it is not aligned as the system wants it.
    bool NeedsBounce(const void* buffer, std::uint64_t offset, std::uint64_t size) const;
    /// Does such a read by way of an aligned buffer. False when nothing of it could be read.
    bool ReadBounced(void* buffer, std::uint64_t offset, std::uint64_t size) const;
    const char* NativePath() const { return native_path_.c_str(); }

private:
    bool Enqueue(std::uint64_t offset, std::uint64_t size, void* buffer, SFsRequest* request, std::int32_t priority);
    bool ReadThroughQueue(void* buffer, std::uint64_t size);
    bool ReadHere(void* buffer, std::uint64_t size) const;

    const std::shared_ptr<IOQueue> queue_;  // null when the library was not started at opening
    platform::File file_;
    std::uint64_t position_ = 0;
    std::uint64_t length_ = 0;  // read once at opening
    const std::string native_path_;
    SFsRequest* const own_request_;
};

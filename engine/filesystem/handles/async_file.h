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
    /// Null, with the error set, when the request of its own cannot be had.
    static Win32FileHandleAsync* Create(CFSSource* owner, platform::File file, const char* native_path);
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
    Win32FileHandleAsync(CFSSource* owner, platform::File file, const char* native_path);
    bool ReadThroughQueue(void* buffer, std::uint64_t size);
    bool ReadHere(void* buffer, std::uint64_t size) const;

    const std::shared_ptr<IOQueue> queue_;  // null when none ran at opening
    platform::File file_;
    std::uint64_t position_ = 0;
    std::uint64_t length_ = 0;  // read once at opening
    SFsRequest* const own_request_;
    const std::string native_path_;
};

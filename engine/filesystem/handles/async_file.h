#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <engine/filesystem/contract/file.h>

#include "engine/platform/files.h"

class IOQueue;

/// A native file whose reads go through the read queue.
///
/// The file and the buffers of its reads outlive their requests; closing it all the same cancels what is queued and
/// waits for the read in hand.
class Win32FileHandleAsync final : public SFsFile {
public:
    /// `queue` is null when the library was not started. Throws std::bad_alloc.
    Win32FileHandleAsync(CFSSource* owner, const char* native_path, std::shared_ptr<IOQueue> queue);
    /// False when the length cannot be told. The other operations want a file that was attached.
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
    bool cancel_io() override { return file_.cancel(); }
    int read_overlapped(void* buffer, std::uint32_t size, std::uint32_t* transferred,
                        SNativeOverlapped* overlapped) override;

    // What the queue's worker needs.

    enum class Status : std::uint8_t { DONE, FAILED, ABORTED };
    /// Reads at once. A file that ends early ends the read; one that ends before the offset fails it.
    Status ReadNow(void* buffer, std::uint64_t offset, std::uint64_t size) const;
    const char* NativePath() const { return native_path_.c_str(); }

private:
    bool Enqueue(std::uint64_t offset, std::uint64_t size, void* buffer, SFsRequest* request, std::int32_t priority);
    bool ReadAndWait(void* buffer, std::uint64_t size);

    const std::shared_ptr<IOQueue> queue_;
    const std::string native_path_;
    platform::File file_;
    std::uint64_t length_ = 0;  // asked for once, at opening
    std::uint64_t position_ = 0;
    SFsRequest* const own_request_;
};

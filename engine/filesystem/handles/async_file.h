#pragma once

#include <cstdint>
#include <memory>

#include <engine/filesystem/contract/file.h>

#include "engine/filesystem/handles/queued_file.h"

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
    std::uint64_t length() override { return file_.length; }
    std::uint64_t tell() override { return position_; }
    void cancel_async(SFsRequest* request) override;
    bool cancel_io() override { return file_.file.cancel(); }
    int read_overlapped(void* buffer, std::uint32_t size, std::uint32_t* transferred,
                        SNativeOverlapped* overlapped) override;

private:
    bool Enqueue(std::uint64_t offset, std::uint64_t size, void* buffer, SFsRequest* request, std::int32_t priority);
    bool ReadAndWait(void* buffer, std::uint64_t size);

    const std::shared_ptr<IOQueue> queue_;
    QueuedFile file_;
    std::uint64_t position_ = 0;
    SFsRequest* const own_request_;
};

#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

#include "engine/filesystem/contract/open_file.h"
#include "engine/platform/threads.h"

class Win32FileHandle;

namespace container {

using fs::FilePtr;

/// Opens the file that reading `path` opens, for reading and writing in place, where a writable source holds it. Unlike
/// fs::open it never makes one.
FilePtr open_in_place(const char* path);

/// The open file under a multi-container: reads from any thread, writes collected behind its end. A failure leaves its
/// reason in last_error. Everything else that happens to the file's name leaves the open file as it is.
class File {
public:
    void Use(FilePtr file, bool writable);
    /// What is collected is dropped.
    void Close() { Use(nullptr, false); }

    bool IsOpen() const { return main_ != nullptr; }
    bool IsWritable() const { return writable_; }
    std::uint64_t Length() const;

    /// Exactly `size` bytes at `offset`, written or still collected.
    bool Read(void* buffer, std::uint64_t size, std::uint64_t offset) const;

    /// Where the next Append goes.
    std::uint64_t End() const { return flushed_ + pending_.size(); }
    /// Lets appending go on at this offset, where nothing is collected.
    void SetEnd(std::uint64_t end) { flushed_ = end; }
    /// Collects bytes behind the end, or appends nothing.
    bool Append(const void* data, std::uint64_t size);
    /// Writes at the end, where nothing is collected.
    bool AppendAtOnce(const void* data, std::uint64_t size);
    /// Writes what is collected.
    bool Flush();
    /// Cuts the file behind the end, where its source can.
    void CutAtEnd();
    /// Writes at once at an offset before the end.
    bool WriteAt(const void* data, std::uint64_t size, std::uint64_t offset);

private:
    FilePtr main_;
    Win32FileHandle* native_ = nullptr;  // main_ where it is a native file, which any number of threads read at once
    bool writable_ = false;
    std::uint64_t flushed_ = 0;              // offset of the first collected byte
    std::vector<unsigned char> pending_;     // collected bytes
    mutable platform::Mutex position_lock_;  // held while main_ is used, unless by read_at
};

}  // namespace container

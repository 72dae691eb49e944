#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <engine/filesystem/contract/file.h>

#include "engine/filesystem/contract/file_ptr.h"

namespace container {

using fs::FilePtr;

/// The open file under a multi-container: reads from any thread, writes collected at its end.
class File {
public:
    /// Opens for reading, or for reading and writing in place. Every write is with the disk before the next one starts,
    /// which the order of saving needs.
    bool Open(const char* path, bool writable);
    /// Makes the file empty.
    bool Create(const char* path);
    /// Writes to a native path, for a file that is put in another's place later.
    bool CreateNative(const char* path);
    /// Opens a file of the disk for reading and writing in place; unlike Open it never makes one.
    bool OpenNative(const char* path);
    void Close();

    bool IsOpen() const { return main_ != nullptr; }
    bool IsWritable() const { return main_ != nullptr && writable_; }
    std::uint64_t Length();

    /// Exactly `size` bytes at `offset`, written or still collected. False when they are not there.
    bool Read(void* buffer, std::uint64_t size, std::uint64_t offset) const;

    /// Where the next Append goes.
    std::uint64_t End() const { return flushed_ + pending_.size(); }
    /// Lets appending go on at this offset; what is collected is dropped.
    void SetEnd(std::uint64_t end);
    /// Collects bytes behind the end. False, with nothing appended, when what is collected cannot be written.
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
    FilePtr TakeReader() const;
    void GiveBack(FilePtr reader) const;

    std::string path_;
    FilePtr main_;
    bool writable_ = false;
    std::uint64_t flushed_ = 0;           // offset of the first collected byte
    std::vector<unsigned char> pending_;  // collected bytes
    mutable std::mutex readers_lock_;     // guards readers_, and main_ while it is read or written
    mutable std::vector<FilePtr> readers_;
};

}  // namespace container

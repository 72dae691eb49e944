#pragma once

#include <cstdint>

#include <engine/filesystem/streams/bfile.h>

#include "engine/filesystem/contract/failure.h"

namespace fs {

/// The native file that a zip is written to, almost always forward. A failed write loses nothing of what was written
/// before: it stays pending, and the next one tries again. What fails sets fs::last_error.
class ZipOutput {
public:
    ~ZipOutput() { close(); }
    /// Creates or empties the file.
    bool open(const char* native_path) { return stream_.open(native_path, EFSMode::WRITE, FFSOpenFlags::CREATE); }
    /// What was to be written there is undefined when this fails.
    bool write_at(std::uint64_t offset, const void* data, std::uint64_t size) {
        return stream_.seek(static_cast<std::int64_t>(offset), EFSSeek::BEGIN) && stream_.write(data, size) == size;
    }
    /// Hands everything to the system and cuts off what lies behind `size`: the rest of a failed write.
    bool finish(std::uint64_t size) {
        if (!stream_.seek(static_cast<std::int64_t>(size), EFSSeek::BEGIN)) return false;
        stream_.set_eof();
        return !stream_.failed();
    }
    /// What is not finished is given up, and whether it could be written does not matter.
    void close() {
        const ErrorKeeper keeper;
        stream_.close();
    }

private:
    bfile_win32 stream_;
};

}  // namespace fs

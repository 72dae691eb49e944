#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "engine/platform/files.h"

namespace fs {

/// A new native file that is written almost always forward: collects small writes and goes to the disk 64 KiB at a
/// time. A failed write loses nothing of what was written before: it stays in the buffer, and the next write tries again.
class ZipOutput {
public:
    /// Creates or empties the file. False, with fs::last_error set, on failure. May throw std::bad_alloc.
    bool open(const char* native_path);

    /// False, with fs::last_error set, when the disk fails; what was to be written there is then undefined.
    bool write_at(std::uint64_t offset, const void* data, std::size_t size);
    /// Hands everything to the system and cuts off what lies behind `size`: the rest of a failed write.
    bool finish(std::uint64_t size);
    void close() { file_.close(); }

private:
    static constexpr std::size_t capacity = 64 * 1024;

    bool flush();
    bool write_through(std::uint64_t offset, const void* data, std::size_t size);
    bool fail() const;

    std::string path_;
    platform::File file_;
    std::unique_ptr<std::uint8_t[]> buffer_;
    std::uint64_t start_ = 0;  // offset in the file of the buffer's first byte
    std::size_t used_ = 0;
    std::uint64_t end_ = 0;  // of what the file may hold
};

}  // namespace fs

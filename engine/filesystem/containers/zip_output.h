#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "engine/platform/files.h"

namespace fs {

/// A new native file that is written almost always forward: collects small writes and goes to the disk 64 KiB at a
/// time. After a failure of the disk every call answers false.
class ZipOutput {
public:
    /// Creates or empties the file. False on failure; platform::last_error() says why.
    bool open(const char* native_path);
    bool valid() const { return file_.valid(); }

    bool write_at(std::uint64_t offset, const void* data, std::size_t size);
    /// Hands everything to the system.
    bool flush();
    void close();

private:
    static constexpr std::size_t capacity = 64 * 1024;

    bool write_through(std::uint64_t offset, const void* data, std::size_t size);

    platform::File file_;
    std::unique_ptr<std::uint8_t[]> buffer_;
    std::uint64_t start_ = 0;  // offset in the file of the buffer's first byte
    std::size_t used_ = 0;
    std::uint64_t position_ = 0;  // the file's own
    bool good_ = false;
};

}  // namespace fs

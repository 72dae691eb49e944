#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "engine/platform/files.h"
#include "engine/platform/mapping.h"

namespace fs {

/// The bytes of one pack: an open file, which nobody else may open meanwhile, or a copy of it in memory.
/// Threads  reading from any number of threads at once, without a lock: every read names its own offset.
class PackStore {
public:
    static constexpr std::uint64_t failed = ~std::uint64_t{0};

    PackStore() = default;

    /// Opens `native_path` and tells the monitor of it; with `in_memory` reads it whole and closes it again. When there is
    /// no memory for that, the file stays open instead. False, with fs::last_error set, on failure.
    /// A pack that was written over in place is the file that `before` (may be null) has open, and shares it.
    bool open(const char* native_path, bool in_memory, const PackStore* before = nullptr);

    const std::string& path() const { return path_; }
    std::uint64_t length() const { return length_; }
    bool is_in_memory() const { return memory_ != nullptr; }
    /// Bytes read: less than `size` where the pack ends, or ended since it was opened. `failed`, with fs::last_error set,
    /// when the system fails.
    std::uint64_t read(std::uint64_t offset, void* buffer, std::uint64_t size) const;
    /// The bytes themselves when the pack is in memory and holds them all; else null.
    const std::uint8_t* view(std::uint64_t offset, std::uint64_t size) const;
    /// Bytes of a pack that is no copy in memory. Empty, with fs::last_error set, on failure.
    platform::Mapping map(std::uint64_t offset, std::uint64_t size) const;

private:
    bool load();

    std::shared_ptr<platform::File> file_;
    std::unique_ptr<std::uint8_t[]> memory_;
    std::uint64_t length_ = 0;
    std::string path_;
};

}  // namespace fs

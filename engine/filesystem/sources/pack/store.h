#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "engine/filesystem/sources/pack/origin.h"

namespace fs {

/// The bytes of one pack: where they come from, or a copy of them in memory.
/// Threads  reading from any number of threads at once, without a lock: every read names its own offset.
class PackStore {
public:
    static constexpr std::uint64_t failed = PackOrigin::failed;

    PackStore() = default;

    /// Takes the bytes from there, null where they could not be opened; messages call them by `path`. With `in_memory` they
    /// are read whole and let go; when there is no memory for that, they stay open instead. False, with fs::last_error set,
    /// on failure.
    bool open(std::string path, std::unique_ptr<PackOrigin> origin, bool in_memory);
    /// The same of the path of a mounted pack. A file that was written over in place is the one that `mounted` has open, and
    /// both share it.
    bool open_anew(const PackStore& mounted, bool in_memory);

    const std::string& path() const { return path_; }
    std::uint64_t length() const { return length_; }
    bool is_in_memory() const { return memory_ != nullptr; }
    bool is_remote() const { return origin_ && origin_->is_remote(); }
    /// Bytes read: less than `size` where the pack ends, or ended since it was opened. `failed`, with fs::last_error set,
    /// when the system or the host fails.
    std::uint64_t read(std::uint64_t offset, void* buffer, std::uint64_t size) const;
    /// The bytes themselves when the pack is in memory and holds them all; else null.
    const std::uint8_t* view(std::uint64_t offset, std::uint64_t size) const;
    /// Bytes of a pack that is neither a copy in memory nor remote. Empty, with fs::last_error set, on failure.
    platform::Mapping map(std::uint64_t offset, std::uint64_t size) const { return origin_->map(offset, size); }
    /// Tells a remote pack what of it will be read next.
    void prefetch(std::uint64_t offset, std::uint64_t size) const;

private:
    bool load();

    std::unique_ptr<PackOrigin> origin_;  // null for a copy in memory
    std::unique_ptr<std::uint8_t[]> memory_;
    std::uint64_t length_ = 0;
    std::string path_;
};

}  // namespace fs

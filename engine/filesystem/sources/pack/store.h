#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "engine/platform/files.h"

namespace fs {

class pack_reader;

/// The bytes of one pack: those of a file, those that a host reads, or a copy of either in memory.
/// Threads  reading from any number of threads at once, without a lock: every read names its own offset.
class PackStore {
public:
    static constexpr std::uint64_t failed = ~std::uint64_t{0};

    /// Opens a file, which nobody else may open meanwhile; the monitor is told of it. With `in_memory` it is read whole
    /// and closed; when there is no memory for that, it stays open instead. A file that is the one that `before` has
    /// open, since it was written over in place, is shared with it. False, with fs::last_error set, on failure.
    bool open_file(const char* path, bool in_memory, const PackStore* before = nullptr);
    /// The same of what a host reads; messages call it by `name`.
    bool open_reader(const char* name, std::shared_ptr<pack_reader> reader, bool in_memory);

    const std::string& path() const { return path_; }
    std::uint64_t length() const { return length_; }
    bool is_in_memory() const { return memory_ != nullptr; }
    /// Whether reading may take long, so that it is not done before it must be, and nothing can be mapped.
    bool is_remote() const { return reader_ != nullptr; }
    /// Bytes read: less than `size` where the pack ends, or ended since it was opened. `failed`, with fs::last_error
    /// set, when the system or the host fails.
    std::uint64_t read(std::uint64_t offset, void* buffer, std::uint64_t size) const;
    /// The bytes themselves when the pack is in memory and holds them all; else null.
    const std::uint8_t* view(std::uint64_t offset, std::uint64_t size) const;
    /// Bytes of a pack that is neither a copy in memory nor remote. Empty, with fs::last_error set, on failure.
    platform::Mapping map(std::uint64_t offset, std::uint64_t size) const;
    /// Tells a remote pack what of it will be read next.
    void prefetch(std::uint64_t offset, std::uint64_t size) const;

private:
    bool load(bool in_memory);
    std::uint64_t read_from_host(std::uint64_t offset, void* buffer, std::uint64_t size) const;
    std::uint64_t fail_for_host(const std::string& otherwise) const;

    // One of the three is set.
    std::shared_ptr<const platform::File> file_;
    std::shared_ptr<pack_reader> reader_;
    std::unique_ptr<std::uint8_t[]> memory_;
    std::uint64_t length_ = 0;
    std::string path_;
};

}  // namespace fs

#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "engine/filesystem/formats/zip.h"
#include "engine/filesystem/sources/pack/store.h"

namespace fs {

/// Goes through the central directory that a pack's last 22 bytes tell of, entry by entry, through one window that moves
/// forward: that costs a few large reads and no more memory than the window, whatever offsets and lengths claim.
/// Fails   by StoredFailure, whose reason says what the file is instead of a pack.
class DirectoryWalk {
public:
    explicit DirectoryWalk(const PackStore& store);

    /// As the pack counts them.
    std::uint32_t count() const { return end_.entries; }
    /// Goes to the next entry. False after the last one.
    bool next();
    const zip::CentralHeader& header() const { return header_; }
    /// As it stands in the pack; until the next call of next().
    std::string_view name() const { return name_; }

private:
    static constexpr std::uint64_t capacity = 64 * 1024;  // stays in the processor's nearer caches

    const std::uint8_t* take(std::uint32_t size);
    void load(std::uint32_t size);
    [[noreturn]] void fail() const;

    const PackStore& store_;
    std::vector<std::uint8_t> buffer_;
    const std::uint8_t* view_ = nullptr;
    std::uint64_t start_ = 0;  // offset in the pack of the window's first byte
    std::uint64_t filled_ = 0;
    std::uint64_t next_ = 0;
    std::uint64_t entry_ = 0;  // where the header begins that is read, or was last
    zip::EndRecord end_{};
    zip::CentralHeader header_{};
    std::string_view name_;
    std::uint32_t done_ = 0;
};

}  // namespace fs

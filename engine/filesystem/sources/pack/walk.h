#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "engine/filesystem/formats/zip.h"
#include "engine/filesystem/sources/pack/store.h"

namespace fs {

/// Goes through the central directory that a pack's last 22 bytes tell of, entry by entry, through one window that moves
/// forward: that costs a few large reads and no more memory than the window, whatever offsets and lengths claim.
class DirectoryWalk {
public:
    explicit DirectoryWalk(const PackStore& store) : store_(store) {}

    /// False, with fs::last_error set, when the file does not end as a pack does.
    bool begin();
    /// As the pack counts them.
    std::uint32_t count() const { return end_.entries; }
    std::uint32_t directory_size() const { return end_.directory_size; }

    /// Goes to the next entry. False after the last one, and when the directory is damaged.
    bool next();
    const zip::CentralHeader& header() const { return header_; }
    /// As it stands in the pack; until the next call of next().
    std::string_view name() const { return name_; }
    /// Whether every entry was seen; otherwise fs::last_error tells why not.
    bool is_whole() const { return done_ == count(); }

private:
    static constexpr std::uint64_t capacity = 64 * 1024;  // stays in the processor's nearer caches
    enum class Load : std::uint8_t { DONE, ENDS, FAILED };

    Load take(std::uint32_t size, const std::uint8_t*& bytes);
    Load load(std::uint32_t size);
    bool fail(Load reason) const;

    const PackStore& store_;
    std::vector<std::uint8_t> buffer_;
    const std::uint8_t* view_ = nullptr;
    std::uint64_t start_ = 0;  // offset in the pack of the window's first byte
    std::uint64_t filled_ = 0;
    std::uint64_t entry_ = 0;  // where the header begins that is read, or was last
    std::uint64_t next_ = 0;
    zip::EndRecord end_{};
    zip::CentralHeader header_{};
    std::string_view name_;
    std::uint32_t done_ = 0;
};

}  // namespace fs

#include "engine/filesystem/sources/pack/refusal.h"

#include <algorithm>
#include <string>
#include <vector>

#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/sources/pack/bytes.h"
#include "engine/filesystem/sources/pack/store.h"

namespace fs {

namespace {

constexpr std::uint32_t end_signature = 0x06054B50;
constexpr std::uint32_t zip64_locator_signature = 0x07064B50;
constexpr std::size_t end_record_size = 22;
constexpr std::size_t zip64_locator_size = 20;
constexpr std::uint32_t header_signature = 0x02014B50;
constexpr std::uint32_t most_entries = 0xFFFF;
constexpr std::size_t longest_comment = 0xFFFF;

enum class Ending { MISSING, PLAIN, WITH_COMMENT, ZIP64 };

/// What the file ends with, by the rules of zip files rather than of packs.
Ending find_ending(const PackStore& store) {
    const std::uint64_t size =
        std::min<std::uint64_t>(store.length(), zip64_locator_size + end_record_size + longest_comment);
    std::vector<std::uint8_t> tail(static_cast<std::size_t>(size));
    if (store.read(store.length() - size, tail.data(), size) != size) return Ending::MISSING;
    for (std::size_t at = tail.size() - std::min(tail.size(), end_record_size) + 1; at-- > 0;) {
        if (tail.size() - at < end_record_size || get_u32(&tail[at]) != end_signature) continue;
        if (at + end_record_size + get_u16(&tail[at + 20]) != tail.size()) continue;
        if (at + end_record_size != tail.size()) return Ending::WITH_COMMENT;
        const bool is_zip64 =
            at >= zip64_locator_size && get_u32(&tail[at - zip64_locator_size]) == zip64_locator_signature;
        return is_zip64 ? Ending::ZIP64 : Ending::PLAIN;
    }
    return Ending::MISSING;
}

/// Whether the directory lies right before the end record, as it does, while the record names another place.
bool has_bytes_in_front(const PackStore& store) {
    std::uint8_t end[end_record_size];
    std::uint8_t signature[4];
    const std::uint64_t length = store.length();
    if (store.read(length - end_record_size, end, end_record_size) != end_record_size) return false;
    const std::uint64_t size = get_u32(end + 12);
    if (size < sizeof signature || size > length - end_record_size) return false;
    const std::uint64_t start = length - end_record_size - size;
    return start > get_u32(end + 16) && store.read(start, signature, sizeof signature) == sizeof signature &&
           get_u32(signature) == header_signature;
}

bool refuse_zip64(const char* path) {
    set_error(EFSError::UNSUPPORTED, path, "The pack source refuses a zip64 file.");
    return false;
}

}  // namespace

bool refuse_short_pack(const char* path, std::uint64_t length) {
    set_error(EFSError::BAD_FORMAT, path,
              length < end_record_size ? "The pack source refuses a file of " + std::to_string(length) +
                                             " bytes: a pack ends in a record of 22 bytes."
                                       : std::string("The pack source cannot read the last 22 bytes of the pack."));
    return false;
}

bool refuse_long_names(const char* path) {
    set_error(EFSError::TOO_LARGE, path, "The pack source refuses a pack whose names need more than 4 GiB.");
    return false;
}

bool refuse_comment(const char* path) {
    set_error(EFSError::UNSUPPORTED, path, "The pack source refuses a zip file that has a comment.");
    return false;
}

bool refuse_miscounted(const PackStore& store, const char* path, std::uint32_t count) {
    if (count == 0 && find_ending(store) == Ending::WITH_COMMENT) {
        refuse_comment(path);
        return true;
    }
    if (count == most_entries && find_ending(store) == Ending::ZIP64) {
        refuse_zip64(path);
        return true;
    }
    return false;
}

bool refuse_pack(const PackStore& store, const char* path, std::uint32_t index, std::uint32_t count) {
    switch (find_ending(store)) {
        case Ending::WITH_COMMENT:
            return refuse_comment(path);
        case Ending::ZIP64:
            return refuse_zip64(path);
        case Ending::MISSING:
            set_error(EFSError::BAD_FORMAT, path,
                      "The pack source refuses a file that does not end in a zip file's end record.");
            return false;
        case Ending::PLAIN:
            break;
    }
    if (index == 0 && has_bytes_in_front(store)) {
        set_error(EFSError::UNSUPPORTED, path,
                  "The pack source refuses a zip file with bytes in front that its offsets do not count.");
        return false;
    }
    set_error(EFSError::BAD_FORMAT, path,
              "The pack source refuses a pack whose central directory is damaged at entry " +
                  std::to_string(index + 1) + " of " + std::to_string(count) + ".");
    return false;
}

}  // namespace fs

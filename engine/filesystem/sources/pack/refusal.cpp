#include "engine/filesystem/sources/pack/refusal.h"

#include <algorithm>
#include <string>
#include <vector>

#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/formats/zip.h"
#include "engine/filesystem/sources/pack/store.h"

namespace fs {

namespace {

enum class Ending { MISSING, PLAIN, WITH_COMMENT, ZIP64, UNREADABLE };

/// What the file ends with, by the rules of zip files rather than of packs.
Ending find_ending(const PackStore& store) {
    const std::uint64_t size =
        std::min<std::uint64_t>(store.length(), zip::zip64_locator_size + zip::end_record_size + zip::longest_text);
    std::vector<std::uint8_t> tail(static_cast<std::size_t>(size));
    const std::uint64_t got = store.read(store.length() - size, tail.data(), size);
    if (got != size) return got == PackStore::failed ? Ending::UNREADABLE : Ending::MISSING;
    for (std::size_t at = tail.size() - std::min<std::size_t>(tail.size(), zip::end_record_size) + 1; at-- > 0;) {
        if (tail.size() - at < zip::end_record_size || kernel::load_u32(&tail[at]) != zip::end_signature) continue;
        if (at + zip::end_record_size + kernel::load_u16(&tail[at + 20]) != tail.size()) continue;
        if (at + zip::end_record_size != tail.size()) return Ending::WITH_COMMENT;
        const bool is_zip64 = at >= zip::zip64_locator_size &&
                              kernel::load_u32(&tail[at - zip::zip64_locator_size]) == zip::zip64_locator_signature;
        return is_zip64 ? Ending::ZIP64 : Ending::PLAIN;
    }
    return Ending::MISSING;
}

/// Whether the directory lies right before the end record, as it does, while the record names another place.
bool has_bytes_in_front(const PackStore& store) {
    std::uint8_t bytes[zip::end_record_size];
    std::uint8_t signature[4];
    const std::uint64_t before_end = store.length() - sizeof bytes;
    if (store.read(before_end, bytes, sizeof bytes) != sizeof bytes) return false;
    const zip::EndRecord end = zip::read_end_record(bytes);
    if (end.directory_size < sizeof signature || end.directory_size > before_end) return false;
    const std::uint64_t start = before_end - end.directory_size;
    return start > end.directory_offset && store.read(start, signature, sizeof signature) == sizeof signature &&
           kernel::load_u32(signature) == zip::central_signature;
}

bool refuse_file(const PackStore& store, EFSError::TYPE code, const std::string& reason) {
    set_error(code, store.path().c_str(), "The pack source refuses a " + reason + ".");
    return false;
}

bool refuse_by_ending(const PackStore& store, Ending ending) {
    switch (ending) {
        case Ending::UNREADABLE:  // the store has told why
        case Ending::PLAIN:
            return false;
        case Ending::WITH_COMMENT:
            return refuse_file(store, EFSError::UNSUPPORTED, "zip file that has a comment");
        case Ending::ZIP64:
            return refuse_file(store, EFSError::UNSUPPORTED, "zip64 file");
        case Ending::MISSING:
            return refuse_file(store, EFSError::BAD_FORMAT, "file that does not end in a zip file's end record");
    }
    return false;
}

}  // namespace

bool refuse_short_pack(const PackStore& store) {
    return refuse_file(store, EFSError::BAD_FORMAT,
                       "file of " + std::to_string(store.length()) + " bytes: a pack ends in a record of 22 bytes");
}

bool refuse_long_names(const PackStore& store) {
    return refuse_file(store, EFSError::TOO_LARGE, "pack whose names need more than 4 GiB");
}

bool refuse_miscounted(const PackStore& store, std::uint32_t count) {
    if (count != 0 && count != zip::most_entries) return false;
    const Ending ending = find_ending(store);
    const bool refused = ending == Ending::UNREADABLE || ending == (count == 0 ? Ending::WITH_COMMENT : Ending::ZIP64);
    if (refused) refuse_by_ending(store, ending);
    return refused;
}

bool refuse_pack(const PackStore& store, std::uint32_t index, std::uint32_t count, std::uint64_t offset) {
    const Ending ending = find_ending(store);
    if (ending != Ending::PLAIN) return refuse_by_ending(store, ending);
    if (index == 0 && has_bytes_in_front(store))
        return refuse_file(store, EFSError::UNSUPPORTED, "zip file with bytes in front that its offsets do not count");
    if (offset + zip::end_record_size == store.length())
        return refuse_file(store, EFSError::BAD_FORMAT,
                           "pack whose end record counts " + std::to_string(count) +
                               " entries where its directory has " + std::to_string(index));
    return refuse_file(store, EFSError::BAD_FORMAT,
                       "pack whose central directory is damaged at entry " + std::to_string(index + 1) + " of " +
                           std::to_string(count));
}

}  // namespace fs

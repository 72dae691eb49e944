#include "engine/filesystem/sources/listing/listing_file.h"

#include <cstring>

#include "engine/kernel/checksum.h"

// The bytes are described in docs/formats.md. The checksum comes first of all checks that look at the content, so that
// what lies behind it is, but for malice, what was written.

namespace fs {

namespace {

constexpr unsigned char magic[4] = {'F', 'S', 'C', 'L'};
constexpr std::uint32_t version = 2;
constexpr std::size_t checked_from = 12;  // behind magic, version and checksum
constexpr std::size_t fixed_size = checked_from + 4 + 2;

void put(unsigned char*& out, std::uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) *out++ = static_cast<unsigned char>(value >> 8 * i);
}

std::uint32_t get(const unsigned char* bytes, int count) {
    std::uint32_t value = 0;
    for (int i = 0; i < count; ++i) value |= static_cast<std::uint32_t>(bytes[i]) << 8 * i;
    return value;
}

}  // namespace

bool encode_listing(const ListingKey& key, const dir_listing& listing, PodArray<unsigned char>& out) {
    const std::string_view path = key.source_path;
    const std::size_t size = fixed_size + path.size() + listing.bytes().size();
    unsigned char* const first = path.size() > 0xFFFF || !out.reserve(size) ? nullptr : out.extend(size);
    if (!first) return false;
    unsigned char* next = first;
    std::memcpy(next, magic, sizeof magic);
    next += sizeof magic;
    put(next, version, 4);
    put(next, 0, 4);
    put(next, key.flags, 4);
    put(next, path.size(), 2);
    path.copy(reinterpret_cast<char*>(next), path.size());
    next += path.size();
    if (!listing.is_empty()) std::memcpy(next, listing.bytes().data(), listing.bytes().size());
    unsigned char* checksum = first + checked_from - 4;
    put(checksum, kernel::crc32(0, first + checked_from, size - checked_from), 4);
    return true;
}

bool decode_listing(const ListingKey& key, const unsigned char* bytes, std::size_t size, dir_listing& out) {
    out.clear();
    if (size < fixed_size || std::memcmp(bytes, magic, sizeof magic) != 0 || get(bytes + 4, 4) != version) return false;
    if (get(bytes + 8, 4) != kernel::crc32(0, bytes + checked_from, size - checked_from)) return false;
    const std::size_t path_size = get(bytes + checked_from + 4, 2);
    if (path_size > size - fixed_size || get(bytes + checked_from, 4) != key.flags) return false;
    if (std::string_view(reinterpret_cast<const char*>(bytes + fixed_size), path_size) != key.source_path) return false;
    const std::size_t head = fixed_size + path_size;
    return out.assign(bytes + head, size - head);
}

}  // namespace fs

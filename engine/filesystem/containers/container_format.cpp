#include "engine/filesystem/containers/container_format.h"

#include <algorithm>

#include "engine/kernel/bytes.h"

namespace container {
namespace {

constexpr std::size_t checksum_place = commit_size - 4;

/// Nothing when the record is damaged.
std::optional<Commit> decode(const unsigned char* bytes) {
    if (load_u32(bytes + checksum_place) != checksum(bytes, checksum_place)) return std::nullopt;
    return Commit{.sequence = load_u64(bytes),
                  .index_offset = load_u64(bytes + 8),
                  .index_size = load_u64(bytes + 16),
                  .directory_size = load_u64(bytes + 24),
                  .directory_checksum = load_u32(bytes + 32)};
}

}  // namespace

std::uint32_t checksum(const void* data, std::size_t size) {
#if defined(FUZZING_BUILD_MODE_UNSAFE_FOR_PRODUCTION)
    // A fuzzer cannot guess checksums; without them it gets to what lies behind.
    static_cast<void>(data);
    static_cast<void>(size);
    return 0;
#else
    return kernel::crc32(0, data, size);
#endif
}

CommitBytes encode(const Commit& commit) {
    CommitBytes bytes{};
    store_u64(bytes.data(), commit.sequence);
    store_u64(bytes.data() + 8, commit.index_offset);
    store_u64(bytes.data() + 16, commit.index_size);
    store_u64(bytes.data() + 24, commit.directory_size);
    store_u32(bytes.data() + 32, commit.directory_checksum);
    store_u32(bytes.data() + checksum_place, checksum(bytes.data(), checksum_place));
    return bytes;
}

HeadBytes head_of(const Commit& commit) {
    HeadBytes head{};
    std::ranges::copy(magic, head.begin());
    std::ranges::copy(encode(commit), head.begin() + static_cast<std::ptrdiff_t>(commit.place()));
    return head;
}

bool Commit::is_inside(std::uint64_t file_length) const {
    return index_offset >= data_offset && index_offset <= file_length && index_size <= file_length - index_offset &&
           directory_size <= index_size;
}

std::optional<Commit> newest_commit(const HeadBytes& head) {
    if (!std::equal(magic.begin(), magic.end(), head.begin())) return std::nullopt;
    const std::optional<Commit> first = decode(head.data() + commit_offset);
    const std::optional<Commit> second = decode(head.data() + commit_offset + commit_size);
    if (!first || !second) return first ? first : second;
    return first->sequence > second->sequence ? first : second;
}

}  // namespace container

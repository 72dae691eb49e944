#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "engine/kernel/bytes.h"

// The bytes of a multi-container file. All numbers have their least significant byte first.
//
// A file is: magic, two commit records, then blobs and indexes in the order in which they were written. A commit record
// points to the index that counts; the two take turns, so that one of them is whole whatever happens to the other.

namespace container {

using kernel::load_u16;
using kernel::load_u32;
using kernel::load_u64;
using kernel::store_u16;
using kernel::store_u32;
using kernel::store_u64;

inline constexpr std::array<unsigned char, 8> magic = {0x89, 'E', 'H', 'M', 'C', '\r', '\n', 1};
inline constexpr std::uint64_t commit_offset = 64;  // the first of two
inline constexpr std::uint64_t commit_size = 64;
inline constexpr std::uint64_t data_offset = commit_offset + 2 * commit_size;

/// A container's part of the index: the ascending hashes of all blobs, then a row for each: offset, stored size, size and
/// checksum. A lookup so touches one place among the hashes and one among the rows.
inline constexpr std::uint64_t hash_size = 4;
inline constexpr std::uint64_t row_size = 8 + 4 + 4 + 4;
inline constexpr std::uint64_t entry_size = hash_size + row_size;
/// Bit of a row's offset: the blob is deflated (RFC 1950).
inline constexpr std::uint64_t deflated_bit = std::uint64_t{1} << 63;

/// CRC-32 as RFC 1952 has it.
std::uint32_t checksum(const void* data, std::size_t size);

/// Points to the index that counts.
struct Commit {
    std::uint64_t sequence = 0;
    std::uint64_t index_offset = 0;
    std::uint64_t index_size = 0;
    std::uint64_t directory_size = 0;  // the index's first bytes: names, counts and places of the parts
    std::uint32_t directory_checksum = 0;

    std::uint64_t end() const { return index_offset + index_size; }
    bool is_inside(std::uint64_t file_length) const;
    std::uint64_t place() const { return commit_offset + (sequence & 1) * commit_size; }
};

using CommitBytes = std::array<unsigned char, commit_size>;
CommitBytes encode(const Commit& commit);
/// A file's first bytes: the magic, and this record alone.
using HeadBytes = std::array<unsigned char, data_offset>;
HeadBytes head_of(const Commit& commit);
/// The newer one of the two records that are whole; nothing when both are damaged or the bytes are no
/// container's. When it points beyond the end, the file has lost bytes: what it points to was written before it.
std::optional<Commit> newest_commit(const HeadBytes& head);

}  // namespace container

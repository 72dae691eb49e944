#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <memory_resource>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "engine/kernel/bytes.h"

// The bytes of a multi-container file. All numbers have their least significant byte first.
//
// A file is: magic, two commit records, then blobs and indexes in the order in which they were written. A commit record
// points to the index that counts; the two take turns, so that one of them is whole whatever happens to the other.

namespace container {

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

/// Where a blob lies and what it is.
struct Entry {
    std::uint64_t offset = 0;
    std::uint32_t stored_size = 0;
    std::uint32_t size = 0;
    std::uint32_t checksum = 0;
    bool deflated = false;
};

struct Blob {
    std::uint32_t hash = 0;
    Entry entry;
};

/// One named container: its part of the saved index, used as it lies in memory (ascending hashes, then rows), and what has
/// changed since.
class Container {
public:
    Container() = default;
    Container(const unsigned char* bytes, std::uint32_t count, std::uint32_t checksum, std::uint64_t limit)
        : bytes_(bytes), count_(count), checksum_(checksum), limit_(limit) {}

    /// Whether the saved bytes have their checksum, the hashes ascend and every blob lies between the file's head and the
    /// limit. Checked on the first use, and the same from then on. The other operations need a container that is sound.
    bool IsSound() const;
    std::optional<Entry> Find(std::uint32_t hash) const;
    void Put(std::uint32_t hash, const Entry& entry) { changes_.insert_or_assign(hash, entry); }
    /// All blobs by ascending hash.
    std::vector<Blob> Blobs() const;

private:
    enum class Check : std::uint8_t { NOT_YET, SOUND, DAMAGED };

    bool CheckSaved() const;
    std::uint32_t SavedHash(std::uint32_t i) const { return kernel::load_u32(bytes_ + i * hash_size); }
    Entry SavedEntry(std::uint32_t i) const;
    std::optional<Entry> FindSaved(std::uint32_t hash) const;

    const unsigned char* bytes_ = nullptr;
    std::uint32_t count_ = 0;
    std::uint32_t checksum_ = 0;
    std::uint64_t limit_ = 0;
    mutable std::atomic<Check> check_{Check::NOT_YET};
    std::pmr::monotonic_buffer_resource memory_;                       // of changes_, which never gives anything back
    std::pmr::unordered_map<std::uint32_t, Entry> changes_{&memory_};  // an entry of offset 0 marks a removed blob
};

/// A container as an index holds it: its blobs by ascending hash.
struct Part {
    std::string_view name;
    std::vector<Blob> blobs;
};

/// An index as it lies in a file; its size stands in the commit.
using IndexBytes = std::unique_ptr<unsigned char[]>;
/// The index of parts by ascending name; fills in what the commit says of it.
IndexBytes encode(const std::vector<Part>& parts, Commit& commit);

/// All containers of a file.
class Index {
public:
    /// Takes over the bytes of a saved index. False when its directory is damaged.
    bool Load(IndexBytes bytes, const Commit& commit);
    /// Adds or replaces a blob, and makes its container when it is missing; an entry of offset 0 takes the blob away.
    void Put(std::string_view name, std::uint32_t hash, const Entry& entry);

    std::map<std::string, Container, std::less<>> containers;

private:
    IndexBytes bytes_;
};

}  // namespace container

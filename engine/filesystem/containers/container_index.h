#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <memory_resource>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "engine/filesystem/containers/container_format.h"

namespace container {

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

/// A container's part of a saved index, used as it lies in memory: ascending hashes, then rows.
class SavedPart {
public:
    SavedPart() = default;
    SavedPart(const unsigned char* bytes, std::uint32_t count, std::uint32_t checksum)
        : bytes_(bytes), count_(count), checksum_(checksum) {}

    std::uint32_t count() const { return count_; }
    std::uint64_t size() const { return count_ * entry_size; }
    Blob blob(std::uint32_t i) const;
    /// Whether the bytes have their checksum, the hashes ascend and every blob lies between the file's head and `limit`.
    bool is_sound(std::uint64_t limit) const;
    std::optional<Entry> find(std::uint32_t hash) const;

private:
    std::uint32_t hash(std::uint32_t i) const { return load_u32(bytes_ + i * hash_size); }

    const unsigned char* bytes_ = nullptr;
    std::uint32_t count_ = 0;
    std::uint32_t checksum_ = 0;
};

/// One named container: what was saved, and what has changed since.
class Container {
public:
    Container() = default;
    Container(const SavedPart& saved, std::uint64_t limit) : saved_(saved), limit_(limit) {}

    /// Checks the saved part on its first use; false when it is damaged, from then on always. The other operations need
    /// a container that is sound.
    bool IsSound() const;
    std::optional<Entry> Find(std::uint32_t hash) const;
    void Put(std::uint32_t hash, const Entry& entry) { changes_.insert_or_assign(hash, entry); }
    /// All blobs by ascending hash.
    std::vector<Blob> Blobs() const;

private:
    SavedPart saved_;
    std::uint64_t limit_ = 0;
    enum class Check : std::uint8_t { NOT_YET, SOUND, DAMAGED };
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

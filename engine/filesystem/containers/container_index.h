#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "engine/filesystem/containers/container_format.h"
#include "engine/filesystem/containers/hash_table.h"

namespace container {

/// Where a blob lies and what it is.
struct Entry {
    std::uint64_t offset = 0;
    std::uint32_t stored_size = 0;
    std::uint32_t size = 0;
    std::uint32_t checksum = 0;
    bool deflated = false;
};

/// A container's part of a saved index, used as it lies in memory: ascending hashes, then rows.
class SavedPart {
public:
    SavedPart() = default;
    SavedPart(const unsigned char* bytes, std::uint32_t count) : bytes_(bytes), count_(count) {}

    std::uint32_t count() const { return count_; }
    std::uint64_t size() const { return count_ * entry_size; }
    std::uint32_t hash(std::uint32_t i) const { return get_u32(bytes_ + i * hash_size); }
    Entry entry(std::uint32_t i) const;
    /// Whether the bytes have this checksum, the hashes ascend and every blob lies between the file's head and `limit`.
    bool is_sound(std::uint32_t checksum, std::uint64_t limit) const;
    /// Makes ready for find. Throws std::bad_alloc.
    void set_fences();
    std::optional<std::uint32_t> find(std::uint32_t hash) const;

private:
    const unsigned char* bytes_ = nullptr;
    std::uint32_t count_ = 0;
    // Every 16th hash: few enough to stay in the processor's caches while blobs stream through them.
    std::vector<std::uint32_t> fences_;
};

/// One named container: what was saved, and what has changed since.
class Container {
public:
    Container() = default;
    Container(SavedPart saved, std::uint32_t checksum, std::uint64_t limit)
        : saved_(std::move(saved)), checksum_(checksum), limit_(limit) {}

    /// Checks the saved part on its first use; false when it is damaged, from then on always. The other operations need
    /// a container that is sound.
    bool IsSound() const;
    std::optional<Entry> Find(std::uint32_t hash) const;
    void Put(std::uint32_t hash, const Entry& entry);
    void Remove(std::uint32_t hash);
    /// Calls `visit(hash, entry)` for every blob by ascending hash.
    template <class Visit>
    void ForEach(Visit&& visit) const;

private:
    enum Soundness : int { UNKNOWN, SOUND, DAMAGED };

    std::vector<HashTable<Entry>::Item> SortedChanges() const;

    mutable SavedPart saved_;  // changed by the first check alone, before soundness_ tells of it
    std::uint32_t checksum_ = 0;
    std::uint64_t limit_ = 0;
    mutable std::mutex check_lock_;  // held during the first check
    mutable std::atomic<int> soundness_{UNKNOWN};
    HashTable<Entry> changes_;  // an entry of offset 0 marks a removed blob
};

/// Makes the bytes of an index, container by container in the order of their names.
class IndexWriter {
public:
    void Begin(std::string_view name, std::uint64_t blobs);
    /// Of as many blobs as were announced, by ascending hash.
    void Add(std::uint32_t hash, const Entry& entry);
    /// The bytes, and the record that will point to them.
    std::vector<unsigned char> Finish(Commit& commit);

private:
    void EndPart();

    std::vector<unsigned char> directory_;
    std::vector<unsigned char> parts_;
    std::size_t part_ = 0;       // where the current one begins
    std::size_t next_hash_ = 0;  // both in parts_
    std::size_t next_row_ = 0;
};

/// All containers of a file.
class Index {
public:
    /// Takes over the bytes of a saved index. False when its directory is damaged.
    bool Load(std::unique_ptr<unsigned char[]> bytes, const Commit& commit);
    /// Writes all containers. False when the saved part of one is damaged: saving would give it a good checksum.
    bool Encode(IndexWriter& writer) const;

    const Container* Find(std::string_view name) const;
    Container& FindOrAdd(std::string_view name);
    bool Remove(std::string_view name);
    const std::map<std::string, std::unique_ptr<Container>, std::less<>>& all() const { return containers_; }

private:
    bool LoadDirectory(const Commit& commit);

    std::unique_ptr<unsigned char[]> bytes_;
    std::map<std::string, std::unique_ptr<Container>, std::less<>> containers_;
};

template <class Visit>
void Container::ForEach(Visit&& visit) const {
    const std::vector<HashTable<Entry>::Item> changes = SortedChanges();
    std::uint32_t saved = 0;
    const auto visit_saved_below = [&](std::uint64_t limit) {
        while (saved < saved_.count() && saved_.hash(saved) < limit) {
            visit(saved_.hash(saved), saved_.entry(saved));
            ++saved;
        }
    };
    for (const HashTable<Entry>::Item& change : changes) {
        visit_saved_below(change.key);
        if (saved < saved_.count() && saved_.hash(saved) == change.key) ++saved;
        if (change.value.offset != 0) visit(change.key, change.value);
    }
    visit_saved_below(std::uint64_t{1} << 32);
}

}  // namespace container

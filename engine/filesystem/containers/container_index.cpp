// Encoding and decoding of commit records and indexes, and looking up in what was decoded.
#include "engine/filesystem/containers/container_index.h"

#include <algorithm>
#include <utility>

#include "engine/kernel/bytes.h"

namespace container {
namespace {

constexpr std::size_t checksum_place = commit_size - 4;

// A directory record: name length (16 bits), name, blob count, checksum of the part. The parts follow the directory in
// the same order.
constexpr std::uint64_t record_tail = 4 + 4;

/// Nothing when the record is damaged.
std::optional<Commit> decode(const unsigned char* bytes) {
    if (kernel::load_u32(bytes + checksum_place) != checksum(bytes, checksum_place)) return std::nullopt;
    return Commit{.sequence = kernel::load_u64(bytes),
                  .index_offset = kernel::load_u64(bytes + 8),
                  .index_size = kernel::load_u64(bytes + 16),
                  .directory_size = kernel::load_u64(bytes + 24),
                  .directory_checksum = kernel::load_u32(bytes + 32)};
}

/// Deflate packs at most 1032 to 1: a size beyond that is a lie that would cost memory.
bool is_possible_size(const Entry& entry) {
    if (!entry.deflated) return entry.stored_size == entry.size;
    return entry.size <= std::uint64_t{1032} * entry.stored_size;
}

void store_row(unsigned char* row, const Entry& entry) {
    kernel::store_u64(row, entry.offset | (entry.deflated ? deflated_bit : 0));
    kernel::store_u32(row + 8, entry.stored_size);
    kernel::store_u32(row + 12, entry.size);
    kernel::store_u32(row + 16, entry.checksum);
}

/// Writes a part where there is room for it, and returns its checksum.
std::uint32_t store_part(unsigned char* out, const std::vector<Blob>& blobs) {
    unsigned char* hash = out;
    unsigned char* row = out + blobs.size() * hash_size;
    for (const Blob& blob : blobs) {
        kernel::store_u32(hash, blob.hash);
        store_row(row, blob.entry);
        hash += hash_size;
        row += row_size;
    }
    return checksum(out, blobs.size() * entry_size);
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
    kernel::store_u64(bytes.data(), commit.sequence);
    kernel::store_u64(bytes.data() + 8, commit.index_offset);
    kernel::store_u64(bytes.data() + 16, commit.index_size);
    kernel::store_u64(bytes.data() + 24, commit.directory_size);
    kernel::store_u32(bytes.data() + 32, commit.directory_checksum);
    kernel::store_u32(bytes.data() + checksum_place, checksum(bytes.data(), checksum_place));
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

Entry Container::SavedEntry(std::uint32_t i) const {
    const unsigned char* const row = bytes_ + count_ * hash_size + i * row_size;
    const std::uint64_t offset = kernel::load_u64(row);
    return {.offset = offset & ~deflated_bit,
            .stored_size = kernel::load_u32(row + 8),
            .size = kernel::load_u32(row + 12),
            .checksum = kernel::load_u32(row + 16),
            .deflated = (offset & deflated_bit) != 0};
}

/// Hashes are spread evenly as a rule, so that their value tells about where they stand: the search goes out from there in
/// steps that double. Uneven ones cost no more than twice a bisection.
std::optional<Entry> Container::FindSaved(std::uint32_t hash) const {
    std::uint32_t first = static_cast<std::uint32_t>(std::uint64_t{count_} * hash >> 32);
    std::uint32_t last = first;
    for (std::uint32_t step = 8; first > 0 && SavedHash(first) >= hash; step *= 2) first -= std::min(first, step);
    for (std::uint32_t step = 8; last < count_ && SavedHash(last) < hash; step *= 2)
        last += std::min(count_ - last, step);
    while (first < last) {
        const std::uint32_t middle = first + (last - first) / 2;
        SavedHash(middle) < hash ? first = middle + 1 : last = middle;
    }
    return first < count_ && SavedHash(first) == hash ? std::optional(SavedEntry(first)) : std::nullopt;
}

bool Container::CheckSaved() const {
    if (count_ == 0) return true;
    if (checksum(bytes_, count_ * entry_size) != checksum_) return false;
    for (std::uint32_t i = 0; i < count_; ++i) {
        if (i != 0 && SavedHash(i - 1) >= SavedHash(i)) return false;
        const Entry found = SavedEntry(i);
        if (found.offset < data_offset || found.offset > limit_ || found.stored_size > limit_ - found.offset)
            return false;
        if (!is_possible_size(found)) return false;
    }
    return true;
}

bool Container::IsSound() const {
    if (check_.load(std::memory_order_relaxed) == Check::NOT_YET)  // two threads may both find out, and find the same
        check_.store(CheckSaved() ? Check::SOUND : Check::DAMAGED, std::memory_order_relaxed);
    return check_.load(std::memory_order_relaxed) == Check::SOUND;
}

std::optional<Entry> Container::Find(std::uint32_t hash) const {
    if (!changes_.empty()) {
        if (const auto changed = changes_.find(hash); changed != changes_.end())
            return changed->second.offset != 0 ? std::optional(changed->second) : std::nullopt;
    }
    return FindSaved(hash);
}

std::vector<Blob> Container::Blobs() const {
    std::vector<Blob> all;
    all.reserve(count_ + changes_.size());
    for (std::uint32_t i = 0; i < count_; ++i)
        if (changes_.empty() || !changes_.contains(SavedHash(i))) all.push_back({SavedHash(i), SavedEntry(i)});
    const auto kept = static_cast<std::ptrdiff_t>(all.size());
    for (const auto& [hash, entry] : changes_)
        if (entry.offset != 0) all.push_back({hash, entry});
    std::ranges::sort(all.begin() + kept, all.end(), {}, &Blob::hash);
    std::ranges::inplace_merge(all, all.begin() + kept, {}, &Blob::hash);
    return all;
}

IndexBytes encode(const std::vector<Part>& parts, Commit& commit) {
    commit.directory_size = commit.index_size = 0;
    for (const Part& part : parts) {
        commit.directory_size += 2 + part.name.size() + record_tail;
        commit.index_size += part.blobs.size() * entry_size;
    }
    commit.index_size += commit.directory_size;
    IndexBytes bytes(new unsigned char[commit.index_size]);
    unsigned char* record = bytes.get();
    unsigned char* part_bytes = bytes.get() + commit.directory_size;
    for (const Part& part : parts) {
        kernel::store_u16(record, static_cast<std::uint16_t>(part.name.size()));
        part.name.copy(reinterpret_cast<char*>(record + 2), part.name.size());
        unsigned char* const tail = record + 2 + part.name.size();
        kernel::store_u32(tail, static_cast<std::uint32_t>(part.blobs.size()));
        kernel::store_u32(tail + 4, store_part(part_bytes, part.blobs));
        record = tail + record_tail;
        part_bytes += part.blobs.size() * entry_size;
    }
    commit.directory_checksum = checksum(bytes.get(), commit.directory_size);
    return bytes;
}

bool Index::Load(IndexBytes bytes, const Commit& commit) {
    bytes_ = std::move(bytes);
    containers.clear();
    if (checksum(bytes_.get(), commit.directory_size) != commit.directory_checksum) return false;
    const unsigned char* next = bytes_.get();
    std::uint64_t left = commit.directory_size;
    std::uint64_t part = commit.directory_size;
    while (left != 0) {
        if (left < 2) return false;
        const std::uint64_t length = kernel::load_u16(next);
        const std::uint64_t record_size = 2 + length + record_tail;
        if (left < record_size) return false;
        const unsigned char* const tail = next + 2 + length;
        const std::uint32_t count = kernel::load_u32(tail);
        const std::uint64_t part_size = count * entry_size;
        if (part_size > commit.index_size - part) return false;
        containers.try_emplace(std::string(reinterpret_cast<const char*>(next + 2), length), bytes_.get() + part, count,
                               kernel::load_u32(tail + 4), commit.index_offset);
        part += part_size;
        next += record_size;
        left -= record_size;
    }
    return true;
}

void Index::Put(std::string_view name, std::uint32_t hash, const Entry& entry) {
    auto place = containers.find(name);
    const bool is_new = place == containers.end();
    if (is_new) place = containers.try_emplace(std::string(name)).first;
    try {
        place->second.Put(hash, entry);
    } catch (...) {  // a container that the blob alone called for goes again
        if (is_new) containers.erase(place);
        throw;
    }
}

}  // namespace container

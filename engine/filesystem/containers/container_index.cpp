#include "engine/filesystem/containers/container_index.h"

#include <algorithm>
#include <utility>

namespace container {
namespace {

// A directory record: name length (16 bits), name, blob count, checksum of the part. The parts follow the directory in
// the same order.
constexpr std::uint64_t record_tail = 4 + 4;

/// Deflate packs at most 1032 to 1: a size beyond that is a lie that would cost memory.
bool is_possible_size(const Entry& entry) {
    if (!entry.deflated) return entry.stored_size == entry.size;
    return entry.size <= std::uint64_t{1032} * entry.stored_size;
}

void store_row(unsigned char* row, const Entry& entry) {
    store_u64(row, entry.offset | (entry.deflated ? deflated_bit : 0));
    store_u32(row + 8, entry.stored_size);
    store_u32(row + 12, entry.size);
    store_u32(row + 16, entry.checksum);
}

/// Writes a part where there is room for it, and returns its checksum.
std::uint32_t store_part(unsigned char* out, const std::vector<Blob>& blobs) {
    unsigned char* hash = out;
    unsigned char* row = out + blobs.size() * hash_size;
    for (const Blob& blob : blobs) {
        store_u32(hash, blob.hash);
        store_row(row, blob.entry);
        hash += hash_size;
        row += row_size;
    }
    return checksum(out, blobs.size() * entry_size);
}

}  // namespace

Blob SavedPart::blob(std::uint32_t i) const {
    const unsigned char* const row = bytes_ + count_ * hash_size + i * row_size;
    const std::uint64_t offset = load_u64(row);
    return {hash(i),
            {.offset = offset & ~deflated_bit,
             .stored_size = load_u32(row + 8),
             .size = load_u32(row + 12),
             .checksum = load_u32(row + 16),
             .deflated = (offset & deflated_bit) != 0}};
}

/// Hashes are spread evenly as a rule, so that their value tells about where they stand: the search goes out from there in
/// steps that double. Uneven ones cost no more than twice a bisection.
std::optional<Entry> SavedPart::find(std::uint32_t wanted) const {
    std::uint32_t first = static_cast<std::uint32_t>(std::uint64_t{count_} * wanted >> 32);
    std::uint32_t last = first;
    for (std::uint32_t step = 8; first > 0 && hash(first) >= wanted; step *= 2) first -= std::min(first, step);
    for (std::uint32_t step = 8; last < count_ && hash(last) < wanted; step *= 2) last += std::min(count_ - last, step);
    while (first < last) {
        const std::uint32_t middle = first + (last - first) / 2;
        hash(middle) < wanted ? first = middle + 1 : last = middle;
    }
    return first < count_ && hash(first) == wanted ? std::optional(blob(first).entry) : std::nullopt;
}

bool SavedPart::is_sound(std::uint64_t limit) const {
    if (count_ == 0) return true;
    if (checksum(bytes_, size()) != checksum_) return false;
    for (std::uint32_t i = 0; i < count_; ++i) {
        if (i != 0 && hash(i - 1) >= hash(i)) return false;
        const Entry found = blob(i).entry;
        if (found.offset < data_offset || found.offset > limit || found.stored_size > limit - found.offset)
            return false;
        if (!is_possible_size(found)) return false;
    }
    return true;
}

bool Container::IsSound() const {
    Check check = check_.load(std::memory_order_relaxed);
    if (check == Check::NOT_YET) {  // two threads may both find out, and find the same
        check = saved_.is_sound(limit_) ? Check::SOUND : Check::DAMAGED;
        check_.store(check, std::memory_order_relaxed);
    }
    return check == Check::SOUND;
}

std::optional<Entry> Container::Find(std::uint32_t hash) const {
    if (!changes_.empty()) {
        if (const auto changed = changes_.find(hash); changed != changes_.end())
            return changed->second.offset != 0 ? std::optional(changed->second) : std::nullopt;
    }
    return saved_.find(hash);
}

std::vector<Blob> Container::Blobs() const {
    std::vector<Blob> all;
    all.reserve(saved_.count() + changes_.size());
    for (std::uint32_t i = 0; i < saved_.count(); ++i) {
        const Blob saved = saved_.blob(i);
        if (changes_.empty() || !changes_.contains(saved.hash)) all.push_back(saved);
    }
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
        store_u16(record, static_cast<std::uint16_t>(part.name.size()));
        part.name.copy(reinterpret_cast<char*>(record + 2), part.name.size());
        unsigned char* const tail = record + 2 + part.name.size();
        store_u32(tail, static_cast<std::uint32_t>(part.blobs.size()));
        store_u32(tail + 4, store_part(part_bytes, part.blobs));
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
        const std::uint64_t length = load_u16(next);
        const std::uint64_t record_size = 2 + length + record_tail;
        if (left < record_size) return false;
        const unsigned char* const tail = next + 2 + length;
        const SavedPart saved(bytes_.get() + part, load_u32(tail), load_u32(tail + 4));
        if (saved.size() > commit.index_size - part) return false;
        containers.try_emplace(std::string(reinterpret_cast<const char*>(next + 2), length), saved,
                               commit.index_offset);
        part += saved.size();
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

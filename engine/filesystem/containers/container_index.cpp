#include "engine/filesystem/containers/container_index.h"

#include <immintrin.h>

#include <algorithm>
#include <mutex>

namespace container {
namespace {

// A directory record: name length (16 bits), name, blob count, checksum of the part. The parts follow the directory in
// the same order.
constexpr std::uint64_t record_tail = 4 + 4;

constexpr std::uint32_t fence_step = 16;

/// Walks the records of a directory; `ok` stays false once a record does not fit.
struct DirectoryReader {
    const unsigned char* next;
    const unsigned char* end;
    bool ok = true;

    std::uint64_t left() const { return static_cast<std::uint64_t>(end - next); }
    const unsigned char* take(std::uint64_t size) {
        if (!ok || left() < size) {
            ok = false;
            return nullptr;
        }
        next += size;
        return next - size;
    }
};

void put_row(unsigned char* row, const Entry& entry) {
    put_u64(row, entry.offset | (entry.deflated ? deflated_bit : 0));
    put_u32(row + 8, entry.stored_size);
    put_u32(row + 12, entry.size);
    put_u32(row + 16, entry.checksum);
}

/// Deflate packs at most 1032 to 1: a size beyond that is a lie that would cost memory.
bool is_possible_size(const Entry& entry) {
    if (!entry.deflated) return entry.stored_size == entry.size;
    return entry.size <= std::uint64_t{1032} * entry.stored_size;
}

/// The number of values in ascending order that are not above `wanted`. Hashes are spread evenly as a rule, so their
/// value tells about where they stand; from there the search goes in steps that double, and bisects the last one. Uneven
/// hashes so cost no more than twice a bisection.
std::uint32_t count_up_to(std::uint32_t wanted, std::uint32_t count, const std::uint32_t* values) {
    std::int64_t low = (std::uint64_t{count} * wanted >> 32) - 1;  // value <= wanted, or -1
    std::int64_t high = low + 1;                                   // value > wanted, or count
    for (std::int64_t step = 1; low >= 0 && values[low] > wanted; step *= 2) {
        high = low;
        low = std::max<std::int64_t>(low - step, -1);
    }
    for (std::int64_t step = 1; high < count && values[high] <= wanted; step *= 2) {
        low = high;
        high = std::min<std::int64_t>(high + step, count);
    }
    while (high - low > 1) {
        const std::int64_t middle = low + (high - low) / 2;
        (values[middle] <= wanted ? low : high) = middle;
    }
    return static_cast<std::uint32_t>(high);
}

void send_for(const unsigned char* first, std::size_t size) {
    constexpr std::size_t line_size = 64;
    for (std::size_t at = 0; at < size + line_size; at += line_size)
        _mm_prefetch(reinterpret_cast<const char*>(first + at), _MM_HINT_T0);
}

}  // namespace

Entry SavedPart::entry(std::uint32_t i) const {
    const unsigned char* const row = bytes_ + count_ * hash_size + i * row_size;
    const std::uint64_t offset = get_u64(row);
    return {.offset = offset & ~deflated_bit,
            .stored_size = get_u32(row + 8),
            .size = get_u32(row + 12),
            .checksum = get_u32(row + 16),
            .deflated = (offset & deflated_bit) != 0};
}

void SavedPart::set_fences() {
    fences_.reserve(count_ / fence_step + 1);
    for (std::uint64_t i = 0; i < count_; i += fence_step) fences_.push_back(hash(static_cast<std::uint32_t>(i)));
}

std::optional<std::uint32_t> SavedPart::find(std::uint32_t wanted) const {
    const auto fences = static_cast<std::uint32_t>(fences_.size());
    const std::uint32_t passed = count_up_to(wanted, fences, fences_.data());
    if (passed == 0) return std::nullopt;
    const std::uint32_t first = (passed - 1) * fence_step;
    const std::uint32_t size = std::min(fence_step, count_ - first);
    // Hashes and rows are sent for together, since neither is near to what was touched lately.
    send_for(bytes_ + first * hash_size, size * hash_size);
    send_for(bytes_ + count_ * hash_size + first * row_size, size * row_size);
    for (std::uint32_t i = first; i < first + size; ++i) {
        if (hash(i) == wanted) return i;
    }
    return std::nullopt;
}

bool SavedPart::is_sound(std::uint32_t wanted_checksum, std::uint64_t limit) const {
    if (count_ == 0) return true;
    if (checksum(bytes_, size()) != wanted_checksum) return false;
    for (std::uint32_t i = 0; i < count_; ++i) {
        if (i != 0 && hash(i - 1) >= hash(i)) return false;
        const Entry found = entry(i);
        if (found.offset < data_offset || found.offset > limit || found.stored_size > limit - found.offset)
            return false;
        if (!is_possible_size(found)) return false;
    }
    return true;
}

bool Container::IsSound() const {
    const int known = soundness_.load(std::memory_order_acquire);
    if (known != UNKNOWN) return known == SOUND;
    const std::lock_guard guard(check_lock_);
    if (soundness_.load(std::memory_order_relaxed) == UNKNOWN) {
        const bool sound = saved_.is_sound(checksum_, limit_);
        if (sound) saved_.set_fences();
        soundness_.store(sound ? SOUND : DAMAGED, std::memory_order_release);
    }
    return soundness_.load(std::memory_order_relaxed) == SOUND;
}

std::optional<Entry> Container::Find(std::uint32_t hash) const {
    if (const Entry* const changed = changes_.Find(hash); changed != nullptr)
        return changed->offset != 0 ? std::optional(*changed) : std::nullopt;
    const std::optional<std::uint32_t> saved = saved_.find(hash);
    return saved ? std::optional(saved_.entry(*saved)) : std::nullopt;
}

void Container::Put(std::uint32_t hash, const Entry& entry) { changes_.Set(hash, entry); }
void Container::Remove(std::uint32_t hash) { changes_.Set(hash, Entry{}); }

std::vector<HashTable<Entry>::Item> Container::SortedChanges() const {
    std::vector<HashTable<Entry>::Item> items = changes_.items();
    std::sort(items.begin(), items.end(), [](const auto& a, const auto& b) { return a.key < b.key; });
    return items;
}

void IndexWriter::Begin(std::string_view name, std::uint64_t blobs) {
    EndPart();
    const std::size_t start = directory_.size();
    directory_.resize(start + 2 + name.size() + record_tail);
    unsigned char* const record = directory_.data() + start;
    put_u16(record, static_cast<std::uint32_t>(name.size()));
    name.copy(reinterpret_cast<char*>(record + 2), name.size());
    put_u32(record + 2 + name.size(), static_cast<std::uint32_t>(blobs));
    part_ = next_hash_ = parts_.size();
    next_row_ = next_hash_ + blobs * hash_size;
    parts_.resize(part_ + blobs * entry_size);
}

void IndexWriter::Add(std::uint32_t hash, const Entry& entry) {
    put_u32(parts_.data() + next_hash_, hash);
    put_row(parts_.data() + next_row_, entry);
    next_hash_ += hash_size;
    next_row_ += row_size;
}

/// The record of the part that is done gets its checksum.
void IndexWriter::EndPart() {
    if (directory_.empty()) return;
    put_u32(directory_.data() + directory_.size() - 4, checksum(parts_.data() + part_, parts_.size() - part_));
}

std::vector<unsigned char> IndexWriter::Finish(Commit& commit) {
    EndPart();
    commit.directory_size = directory_.size();
    commit.directory_checksum = checksum(directory_.data(), directory_.size());
    commit.index_size = directory_.size() + parts_.size();
    directory_.insert(directory_.end(), parts_.begin(), parts_.end());
    return std::move(directory_);
}

bool Index::Load(std::unique_ptr<unsigned char[]> bytes, const Commit& commit) {
    bytes_ = std::move(bytes);
    containers_.clear();
    return checksum(bytes_.get(), commit.directory_size) == commit.directory_checksum && LoadDirectory(commit);
}

bool Index::LoadDirectory(const Commit& commit) {
    DirectoryReader reader{.next = bytes_.get(), .end = bytes_.get() + commit.directory_size};
    std::uint64_t part = commit.directory_size;
    while (reader.left() != 0) {
        const unsigned char* const head = reader.take(2);
        const std::uint32_t length = head != nullptr ? get_u16(head) : 0;
        const unsigned char* const name = reader.take(length);
        const unsigned char* const tail = reader.take(record_tail);
        if (!reader.ok) return false;
        const SavedPart saved(bytes_.get() + part, get_u32(tail));
        if (saved.size() > commit.index_size - part) return false;
        part += saved.size();
        containers_[std::string(reinterpret_cast<const char*>(name), length)] =
            std::make_unique<Container>(saved, get_u32(tail + 4), commit.index_offset);
    }
    return true;
}

bool Index::Encode(IndexWriter& writer) const {
    for (const auto& [name, container] : containers_) {
        if (!container->IsSound()) return false;
        std::uint64_t blobs = 0;
        container->ForEach([&blobs](std::uint32_t, const Entry&) { ++blobs; });
        writer.Begin(name, blobs);
        container->ForEach([&writer](std::uint32_t hash, const Entry& entry) { writer.Add(hash, entry); });
    }
    return true;
}

const Container* Index::Find(std::string_view name) const {
    const auto place = containers_.find(name);
    return place != containers_.end() ? place->second.get() : nullptr;
}

Container& Index::FindOrAdd(std::string_view name) {
    const auto place = containers_.find(name);
    if (place != containers_.end()) return *place->second;
    return *(containers_[std::string(name)] = std::make_unique<Container>());
}

bool Index::Remove(std::string_view name) {
    const auto place = containers_.find(name);
    if (place == containers_.end()) return false;
    containers_.erase(place);
    return true;
}

}  // namespace container

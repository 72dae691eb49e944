#include "engine/filesystem/containers/container_index.h"

#include <algorithm>

namespace container {
namespace {

// A directory record: name length (16 bits), name, blob count, checksum of the part. The parts follow the directory in
// the same order.
constexpr std::uint64_t record_tail = 4 + 4;

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

std::vector<unsigned char> encode_part(const Container& container, std::uint32_t& count) {
    std::uint64_t blobs = 0;
    container.ForEach([&blobs](std::uint32_t, const Entry&) { ++blobs; });
    std::vector<unsigned char> part(blobs * entry_size);
    unsigned char* hashes = part.data();
    unsigned char* rows = part.data() + blobs * hash_size;
    container.ForEach([&](std::uint32_t hash, const Entry& entry) {
        put_u32(hashes, hash);
        put_row(rows, entry);
        hashes += hash_size;
        rows += row_size;
    });
    count = static_cast<std::uint32_t>(blobs);
    return part;
}

void append_record(std::vector<unsigned char>& directory, const std::string& name, std::uint32_t count,
                   std::uint32_t part_checksum) {
    const std::size_t start = directory.size();
    directory.resize(start + 2 + name.size() + record_tail);
    unsigned char* const record = directory.data() + start;
    put_u16(record, static_cast<std::uint32_t>(name.size()));
    std::memcpy(record + 2, name.data(), name.size());
    put_u32(record + 2 + name.size(), count);
    put_u32(record + 2 + name.size() + 4, part_checksum);
}

/// Deflate packs at most 1032 to 1: a size beyond that is a lie that would cost memory.
bool is_possible_size(const Entry& entry) {
    if (!entry.deflated) return entry.stored_size == entry.size;
    return entry.size <= std::uint64_t{1032} * entry.stored_size;
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

/// Bisection. Hashes are spread evenly as a rule, so the first two looks bracket the place that their value suggests.
std::optional<std::uint32_t> SavedPart::find(std::uint32_t wanted) const {
    constexpr std::uint64_t reach = 64;
    std::uint64_t low = 0;
    std::uint64_t high = count_;
    const std::uint64_t guess = high * wanted >> 32;
    if (guess > reach && hash(static_cast<std::uint32_t>(guess - reach)) <= wanted) low = guess - reach;
    if (guess + reach < high && hash(static_cast<std::uint32_t>(guess + reach)) > wanted) high = guess + reach;
    while (low < high) {
        const std::uint64_t middle = low + (high - low) / 2;
        const std::uint32_t found = hash(static_cast<std::uint32_t>(middle));
        if (found == wanted) return static_cast<std::uint32_t>(middle);
        (found < wanted ? low : high) = found < wanted ? middle + 1 : middle;
    }
    return std::nullopt;
}

bool SavedPart::is_sound(std::uint64_t limit) const {
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
    int state = soundness_.load(std::memory_order_acquire);
    if (state == 0) {
        const bool sound = checksum(saved_.bytes(), saved_.size()) == checksum_ && saved_.is_sound(limit_);
        state = saved_.count() == 0 || sound ? 1 : 2;
        soundness_.store(state, std::memory_order_release);
    }
    return state == 1;
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

std::optional<std::vector<unsigned char>> Index::Encode(Commit& commit) const {
    std::vector<unsigned char> directory;
    std::vector<std::vector<unsigned char>> parts;
    std::uint64_t size = 0;
    for (const auto& [name, container] : containers_) {
        if (!container->IsSound()) return std::nullopt;
        std::uint32_t count = 0;
        parts.push_back(encode_part(*container, count));
        append_record(directory, name, count, checksum(parts.back().data(), parts.back().size()));
        size += parts.back().size();
    }
    commit.directory_size = directory.size();
    commit.directory_checksum = checksum(directory.data(), directory.size());
    commit.index_size = directory.size() + size;
    directory.reserve(commit.index_size);
    for (const std::vector<unsigned char>& part : parts) directory.insert(directory.end(), part.begin(), part.end());
    return directory;
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

// An archive of blobs in the caller's memory. The entries lie in it one after another in the order of their adding;
// taking one out moves everything behind it down, so that there is never a gap.

#include <engine/filesystem/sources/memory_archive.h>

#include <algorithm>
#include <cstring>
#include <list>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "engine/filesystem/contract/guarded.h"
#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/formats/inflate.h"
#include "engine/platform/lock.h"

namespace fs {

namespace {

struct Entry {
    std::string name;
    std::uint64_t offset;
    std::uint64_t size;
    std::uint64_t unzipped_length;
};

std::string key_of(const char* name) {
    std::string key = name ? name : "";
    fold_text(key.data(), key.size());
    return key;
}

}  // namespace

struct ZippedDataArchive::State {
    platform::Mutex lock;  // guards everything below
    std::list<Entry> entries;
    std::unordered_map<std::string_view, std::list<Entry>::iterator> by_name;  // keys are the entries' own names
    std::vector<std::string> ignored;
    std::uint8_t* base = nullptr;
    std::uint64_t capacity = 0;
    std::uint64_t used = 0;

    bool bound() const { return base != nullptr && capacity != 0; }
    bool ignores(const std::string& key) const {
        return std::find(ignored.begin(), ignored.end(), key) != ignored.end();
    }
    Entry* find(const std::string& key) {
        const auto found = by_name.find(key);
        return found == by_name.end() ? nullptr : &*found->second;
    }
    Entry* find_visible(const std::string& key) { return ignores(key) ? nullptr : find(key); }
    void reset() {
        by_name.clear();
        entries.clear();
    }
    void record(std::string key, std::uint64_t size, std::uint64_t unzipped_length);
    void close_gap(const Entry& entry);
};

/// An ignored name may be held already: the new bytes then take its place.
void ZippedDataArchive::State::record(std::string key, std::uint64_t size, std::uint64_t unzipped_length) {
    if (Entry* held = find(key)) {
        held->offset = used;
        held->size = size;
        held->unzipped_length = unzipped_length;
        return;
    }
    entries.push_back({std::move(key), used, size, unzipped_length});
    try {
        by_name.emplace(entries.back().name, std::prev(entries.end()));
    } catch (const std::bad_alloc&) {
        entries.pop_back();
        throw;
    }
}

void ZippedDataArchive::State::close_gap(const Entry& entry) {
    const std::uint64_t end = entry.offset + entry.size;
    std::memmove(base + entry.offset, base + end, static_cast<std::size_t>(capacity - end));
    for (Entry& other : entries) {
        if (other.offset > entry.offset) other.offset -= entry.size;
    }
    used -= entry.size;
}

ZippedDataArchive::ZippedDataArchive() : state_(std::make_unique<State>()) {}
ZippedDataArchive::~ZippedDataArchive() = default;

bool ZippedDataArchive::BindArchiveToMemory(void* memory, std::uint64_t capacity) {
    const std::lock_guard guard(state_->lock);
    if (!memory || state_->bound()) return false;
    state_->base = static_cast<std::uint8_t*>(memory);
    state_->capacity = capacity;
    return true;
}

bool ZippedDataArchive::UnbindArchiveFromMemory() {
    const std::lock_guard guard(state_->lock);
    if (!state_->bound()) return false;
    state_->reset();
    state_->base = nullptr;
    state_->capacity = 0;
    return true;
}

bool ZippedDataArchive::IsMemoryBound() {
    const std::lock_guard guard(state_->lock);
    return state_->bound();
}

void ZippedDataArchive::ResetEntryMap() {
    const std::lock_guard guard(state_->lock);
    state_->reset();
}

bool ZippedDataArchive::AddEntry(const char* name, const void* data, std::uint64_t size,
                                 std::uint64_t unzipped_length) {
    return guarded(name, false, [&] {
        const std::lock_guard guard(state_->lock);
        State& state = *state_;
        if (!state.bound() || (!data && size != 0)) return false;
        // Never to the last byte; and a new binding may be smaller than what was used of the old one.
        if (state.used >= state.capacity || size >= state.capacity - state.used) return false;
        std::string key = key_of(name);
        if (state.find_visible(key)) return false;
        state.record(std::move(key), size, unzipped_length);
        if (size != 0) std::memcpy(state.base + state.used, data, static_cast<std::size_t>(size));
        state.used += size;
        return true;
    });
}

bool ZippedDataArchive::GetEntry(const char* name, const void** data, std::uint64_t* size) {
    return guarded(name, false, [&] {
        const std::lock_guard guard(state_->lock);
        const Entry* entry = state_->find_visible(key_of(name));
        if (!entry) return false;
        if (data) *data = state_->base + entry->offset;
        if (size) *size = entry->size;
        return true;
    });
}

std::uint64_t ZippedDataArchive::GetEntryUnzippedLength(const char* name) {
    return guarded(name, std::uint64_t{0}, [&] {
        const std::lock_guard guard(state_->lock);
        const Entry* entry = state_->find(key_of(name));
        return entry ? entry->unzipped_length : 0;
    });
}

bool ZippedDataArchive::ReadEntryAsZippedData(const char* name, void* buffer, std::uint64_t capacity,
                                              std::uint32_t* length) {
    if (length) *length = 0;
    return guarded(name, false, [&] {
        const std::lock_guard guard(state_->lock);
        const Entry* entry = state_->find_visible(key_of(name));
        if (!entry) return false;
        std::size_t got = 0;
        if (!inflate_zlib_stream(state_->base + entry->offset, static_cast<std::size_t>(entry->size), buffer,
                                 static_cast<std::size_t>(capacity), got))
            return false;
        if (length) *length = static_cast<std::uint32_t>(got);
        return true;
    });
}

bool ZippedDataArchive::RemoveEntry(const char* name) {
    return guarded(name, false, [&] {
        const std::lock_guard guard(state_->lock);
        const auto found = state_->by_name.find(key_of(name));
        if (found == state_->by_name.end()) return false;
        const auto entry = found->second;
        state_->by_name.erase(found);
        state_->close_gap(*entry);
        state_->entries.erase(entry);
        return true;
    });
}

bool ZippedDataArchive::EntryExists(const char* name) { return GetEntry(name, nullptr, nullptr); }

void ZippedDataArchive::GetAllFilenames(ztl::list<fs::string>& names) {
    guarded("", [&] {
        const std::lock_guard guard(state_->lock);
        ztl::list<fs::string> held;
        for (const Entry& entry : state_->entries) held.push_back(entry.name);
        names = std::move(held);
    });
}

void ZippedDataArchive::AddIgnoredFile(const char* name) {
    guarded(name, [&] {
        const std::lock_guard guard(state_->lock);
        std::string key = key_of(name);
        if (!state_->ignores(key)) state_->ignored.push_back(std::move(key));
    });
}

void ZippedDataArchive::RemoveIgnoredFile(const char* name) {
    guarded(name, [&] {
        const std::lock_guard guard(state_->lock);
        std::erase(state_->ignored, key_of(name));
    });
}

bool ZippedDataArchive::IsIgnoredFile(const char* name) {
    return guarded(name, false, [&] {
        const std::lock_guard guard(state_->lock);
        return state_->ignores(key_of(name));
    });
}

}  // namespace fs

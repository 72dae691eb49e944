// An archive of blobs in the caller's memory. The entries lie in it one after another in the order of their adding;
// taking one out moves everything behind it down, so that there is never a gap.

#include <engine/filesystem/sources/memory_archive.h>

#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "engine/filesystem/contract/guarded.h"
#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/formats/deflate.h"
#include "engine/platform/lock.h"

namespace fs {

namespace {

struct Entry {
    std::uint64_t order;  // of adding, among all entries
    std::uint64_t offset;
    std::uint64_t size;
    std::uint64_t unzipped_length;
};

std::string key_of(const char* name) { return lower_text(name ? name : ""); }

}  // namespace

struct ZippedDataArchive::State {
    platform::Mutex lock;  // guards everything below
    std::unordered_map<std::string, Entry> entries;
    std::uint64_t added = 0;
    std::set<std::string> ignored;
    std::uint8_t* base = nullptr;
    std::uint64_t capacity = 0;
    std::uint64_t used = 0;

    bool bound() const { return base != nullptr && capacity != 0; }
    Entry* find(const std::string& key) {
        const auto found = entries.find(key);
        return found == entries.end() ? nullptr : &found->second;
    }
    Entry* find_visible(const std::string& key) { return ignored.contains(key) ? nullptr : find(key); }
    /// What `work(key)` answers, with the lock held; `failure`, with the failure stored, without memory.
    template <class Result, class Work>
    Result locked(const char* name, Result failure, Work work) {
        return guarded(name, failure, [&] {
            const std::lock_guard guard(lock);
            return work(key_of(name));
        });
    }
    void close_gap(const Entry& gone);
};

void ZippedDataArchive::State::close_gap(const Entry& gone) {
    const std::uint64_t end = gone.offset + gone.size;
    std::memmove(base + gone.offset, base + end, static_cast<std::size_t>(capacity - end));
    for (auto& [name, entry] : entries) {
        if (entry.offset > gone.offset) entry.offset -= gone.size;
    }
    used -= gone.size;
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
    state_->entries.clear();
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
    state_->entries.clear();
}

bool ZippedDataArchive::AddEntry(const char* name, const void* data, std::uint64_t size,
                                 std::uint64_t unzipped_length) {
    State& state = *state_;
    return state.locked(name, false, [&](std::string key) {
        if (!state.bound() || (!data && size != 0)) return false;
        // Never to the last byte; and a new binding may be smaller than what was used of the old one.
        if (state.used >= state.capacity || size >= state.capacity - state.used) return false;
        if (state.find_visible(key)) return false;
        // An ignored name may be held already: the new bytes then take its place.
        Entry& entry = state.entries.try_emplace(std::move(key), Entry{state.added, 0, 0, 0}).first->second;
        entry = {.order = entry.order, .offset = state.used, .size = size, .unzipped_length = unzipped_length};
        ++state.added;
        if (size != 0) std::memcpy(state.base + state.used, data, static_cast<std::size_t>(size));
        state.used += size;
        return true;
    });
}

bool ZippedDataArchive::GetEntry(const char* name, const void** data, std::uint64_t* size) {
    return state_->locked(name, false, [&](const std::string& key) {
        const Entry* const entry = state_->find_visible(key);
        if (!entry) return false;
        if (data) *data = state_->base + entry->offset;
        if (size) *size = entry->size;
        return true;
    });
}

std::uint64_t ZippedDataArchive::GetEntryUnzippedLength(const char* name) {
    return state_->locked(name, std::uint64_t{0}, [&](const std::string& key) {
        const Entry* const entry = state_->find(key);
        return entry ? entry->unzipped_length : 0;
    });
}

bool ZippedDataArchive::ReadEntryAsZippedData(const char* name, void* buffer, std::uint64_t capacity,
                                              std::uint32_t* length) {
    if (length) *length = 0;
    return state_->locked(name, false, [&](const std::string& key) {
        const Entry* const entry = state_->find_visible(key);
        std::size_t got = 0;
        if (!entry || !inflate_zlib_stream(state_->base + entry->offset, static_cast<std::size_t>(entry->size), buffer,
                                           static_cast<std::size_t>(capacity), got))
            return false;
        if (length) *length = static_cast<std::uint32_t>(got);
        return true;
    });
}

bool ZippedDataArchive::RemoveEntry(const char* name) {
    return state_->locked(name, false, [&](const std::string& key) {
        const auto found = state_->entries.extract(key);
        if (found.empty()) return false;
        state_->close_gap(found.mapped());
        return true;
    });
}

bool ZippedDataArchive::EntryExists(const char* name) { return GetEntry(name, nullptr, nullptr); }

void ZippedDataArchive::GetAllFilenames(ztl::list<fs::string>& names) {
    state_->locked("", false, [&](const std::string&) {
        std::map<std::uint64_t, std::string_view> in_order;
        for (const auto& [name, entry] : state_->entries) in_order.emplace(entry.order, name);
        ztl::list<fs::string> held;
        for (const auto& [order, name] : in_order) held.emplace_back(name);
        names = std::move(held);
        return true;
    });
}

void ZippedDataArchive::AddIgnoredFile(const char* name) {
    state_->locked(name, false, [&](std::string key) { return state_->ignored.insert(std::move(key)).second; });
}

void ZippedDataArchive::RemoveIgnoredFile(const char* name) {
    state_->locked(name, std::size_t{0}, [&](const std::string& key) { return state_->ignored.erase(key); });
}

bool ZippedDataArchive::IsIgnoredFile(const char* name) {
    return state_->locked(name, false, [&](const std::string& key) { return state_->ignored.contains(key); });
}

}  // namespace fs

// An archive of blobs in the caller's memory, the source over it, and the one archive that the process may have. The entries
// lie in the memory one after another in the order of their adding; taking one out moves everything behind it down, so that
// there is never a gap.

#include <engine/filesystem/sources/memory_archive.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include <engine/filesystem/streams/memory.h>

#include "engine/filesystem/contract/error.h"
#include "engine/filesystem/contract/name_list.h"
#include "engine/filesystem/contract/path.h"
#include "engine/filesystem/formats/deflate.h"
#include "engine/filesystem/log/message.h"
#include "engine/filesystem/registry/registry.h"
#include "engine/filesystem/sources/startup.h"
#include "engine/platform/threads.h"

namespace fs {

namespace {

struct Entry {
    std::uint64_t order;  // of adding, among all entries
    std::uint64_t offset;
    std::uint64_t size;
    std::uint64_t unzipped_length;
};

constexpr MessageSource messages{"FileSystem", "engine/filesystem/memory_archive"};
constexpr std::uint64_t best_ratio = 1032;  // deflate makes no more than this of a byte: a longer length is a lie

SFsFile* refuse_entry(const fs::path& p) {
    constexpr const char* reason = "The entry of the memory archive does not decompress into its recorded length.";
    set_error(EFSError::BAD_FORMAT, p.FileName(), reason);
    log_message(messages, Log::ELevel::ERRR, __LINE__, "'%s': %s\n", p.FileName(), reason);
    return nullptr;
}

SFsFile* refuse_memory(const fs::path& p) {
    set_error(EFSError::OUT_OF_MEMORY, p.FileName(), "There is no memory for the entry of the memory archive.");
    return nullptr;
}

/// There is one server archive at most. Asking for it takes no lock: a source may ask while it is being asked itself.
struct ServerArchive {
    platform::Mutex making;                            // taken before the registry's lock
    std::atomic<ZippedDataArchive*> archive{nullptr};  // owned
};

ServerArchive& state() { return platform::never_destroyed<ServerArchive>(); }

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
            return work(lower_text(name ? name : ""));
        });
    }
    void close_gap(const Entry& gone) {
        const std::uint64_t end = gone.offset + gone.size;
        std::memmove(base + gone.offset, base + end, static_cast<std::size_t>(capacity - end));
        for (auto& [name, entry] : entries) {
            if (entry.offset > gone.offset) entry.offset -= gone.size;
        }
        used -= gone.size;
    }
};

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

CMemZip_dir::CMemZip_dir(ZippedDataArchive* archive, EFSSourceType::TYPE type) : archive_(archive), type_(type) {}
CMemZip_dir::~CMemZip_dir() = default;

bool CMemZip_dir::init(const fs::path& /*root*/, FFSAddSourceFlags::ENUM /*flags*/, fs::dir_listing* /*listing*/) {
    return true;
}

EFSSourceType::TYPE CMemZip_dir::type() { return type_; }
bool CMemZip_dir::exists(const fs::path& p) { return archive_ && archive_->EntryExists(p.FileName()); }
bool CMemZip_dir::exists_whole(const fs::path& p) { return p.PathNameView().empty() && exists(p); }
void CMemZip_dir::full_path(fs::path& out, const fs::path& p) { ReadOnlySource::root_path(out, p); }
void CMemZip_dir::root_path(fs::path& out, const fs::path& /*p*/) { out.Release(); }

SFsFile* CMemZip_dir::open_read(const fs::path& p, FFSOpenFlags::FLAGS flags) {
    std::uint64_t packed_size = 0;
    if ((flags & FFSOpenFlags::WHOLE_NAME) != 0 && !p.PathNameView().empty()) return nullptr;
    if (!archive_ || !archive_->GetEntry(p.FileName(), nullptr, &packed_size)) return nullptr;
    const std::uint64_t size = archive_->GetEntryUnzippedLength(p.FileName());
    if (size / best_ratio > packed_size) return refuse_entry(p);
    // Zeros: a recorded length that is too large must not show what lay in the memory before.
    void* buffer = std::calloc(std::max<std::size_t>(1, static_cast<std::size_t>(size)), 1);
    if (!buffer) return refuse_memory(p);
    std::uint32_t length = 0;
    if (!archive_->ReadEntryAsZippedData(p.FileName(), buffer, size, &length)) {
        std::free(buffer);
        return refuse_entry(p);
    }
    FileInMemory* file = FileInMemory::create(buffer, size);
    if (!file) return refuse_memory(p);
    file->source = this;
    file->name = joined_name(p.PathNameView(), p.FileNameView());
    return file;
}

ZippedDataArchive* create_server_archive(void* memory, std::uint64_t capacity) {
    return guarded<ZippedDataArchive*>(nullptr, nullptr, [&] {
        if (ZippedDataArchive* const made = get_server_archive()) return made;
        const platform::LockGuard guard(state().making);
        if (ZippedDataArchive* const made = get_server_archive()) return made;
        auto archive = std::make_unique<ZippedDataArchive>();
        if (memory) archive->BindArchiveToMemory(memory, capacity);
        if (registry::add(std::make_unique<CMemZip_dir>(archive.get()), FFSAddSourceFlags::INDEX_NAMES))
            state().archive.store(archive.release(), std::memory_order_release);
        return get_server_archive();
    });
}

ZippedDataArchive* get_server_archive() { return state().archive.load(std::memory_order_acquire); }

void destroy_server_archive() { delete state().archive.exchange(nullptr); }

}  // namespace fs

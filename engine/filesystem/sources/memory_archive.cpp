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
#include <new>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include <engine/filesystem/streams/memory.h>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/name_list.h"
#include "engine/filesystem/contract/open_file.h"
#include "engine/filesystem/contract/path_text.h"
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

bool refuse_name(const char* name) {
    return refuse(EFSError::NOT_FOUND, name, "The archive holds no entry of this name.");
}

/// There is one server archive at most. Asking for it takes no lock: a source may ask while it is being asked itself.
struct ServerArchive {
    platform::Mutex making;                            // guards `owner`; taken before the registry's lock
    std::shared_ptr<ZippedDataArchive> owner;          // with the source, which may still be asked when this lets go
    std::atomic<ZippedDataArchive*> archive{nullptr};  // the same
};

ServerArchive& server() { return platform::never_destroyed<ServerArchive>(); }

class ServerSource final : public CMemZip_dir {
public:
    explicit ServerSource(std::shared_ptr<ZippedDataArchive> archive)
        : CMemZip_dir(archive.get()), archive_(std::move(archive)) {}

private:
    const std::shared_ptr<ZippedDataArchive> archive_;
};

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
            const platform::LockGuard guard(lock);
            return work(lower_text(name ? name : ""));
        });
    }
    bool inflate(const Entry& entry, void* buffer, std::uint64_t room, std::size_t& length) const {
        return inflate_zlib_stream(base + entry.offset, static_cast<std::size_t>(entry.size), buffer,
                                   static_cast<std::size_t>(room), length);
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
    const platform::LockGuard guard(state_->lock);
    if (!memory || state_->bound())
        return refuse(EFSError::INVALID_ARGUMENT, "", "There is no memory, or some is bound.");
    state_->base = static_cast<std::uint8_t*>(memory);
    state_->capacity = capacity;
    return true;
}

bool ZippedDataArchive::UnbindArchiveFromMemory() {
    const platform::LockGuard guard(state_->lock);
    if (!state_->bound()) return refuse(EFSError::INVALID_ARGUMENT, "", "No memory is bound to the archive.");
    state_->entries.clear();
    state_->base = nullptr;
    state_->capacity = 0;
    return true;
}

bool ZippedDataArchive::IsMemoryBound() {
    const platform::LockGuard guard(state_->lock);
    return state_->bound();
}

void ZippedDataArchive::ResetEntryMap() {
    const platform::LockGuard guard(state_->lock);
    state_->entries.clear();
}

bool ZippedDataArchive::AddEntry(const char* name, const void* data, std::uint64_t size,
                                 std::uint64_t unzipped_length) {
    State& state = *state_;
    return state.locked(name, false, [&](std::string key) {
        if (!state.bound() || (!data && size != 0))
            return refuse(EFSError::INVALID_ARGUMENT, name, "No memory is bound, or there are no bytes to add.");
        // Never to the last byte; and a new binding may be smaller than what was used of the old one.
        if (state.used >= state.capacity || size >= state.capacity - state.used)
            return refuse(EFSError::TOO_LARGE, name, "The entry does not fit into what is left of the memory.");
        if (state.find_visible(key))
            return refuse(EFSError::ALREADY_EXISTS, name, "The archive holds the name already.");
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
        if (!entry) return refuse_name(name);
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
        if (!entry) return refuse_name(name);
        std::size_t got = 0;
        if (!state_->inflate(*entry, buffer, capacity, got))
            return refuse(EFSError::BAD_FORMAT, name, "The entry is damaged, or longer than the buffer.");
        if (length) *length = static_cast<std::uint32_t>(got);
        return true;
    });
}

bool ZippedDataArchive::RemoveEntry(const char* name) {
    return state_->locked(name, false, [&](const std::string& key) {
        const auto found = state_->entries.extract(key);
        if (found.empty()) return refuse_name(name);
        state_->close_gap(found.mapped());
        return true;
    });
}

bool ZippedDataArchive::EntryExists(const char* name) {
    return state_->locked(name, false, [&](const std::string& key) { return state_->find_visible(key) != nullptr; });
}

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
    if (!archive_ || (has_any(flags, FFSOpenFlags::WHOLE_NAME) && !p.EmptyPath())) return nullptr;
    ZippedDataArchive::State& state = *archive_->state_;
    std::unique_ptr<FileInMemory> file;
    bool is_damaged = false;
    const bool is_read = state.locked(p.FileName(), false, [&](const std::string& key) {
        const Entry* const entry = state.find_visible(key);
        if (!entry) return false;
        const auto size = static_cast<std::size_t>(entry->unzipped_length);
        is_damaged = size / best_ratio > entry->size;
        if (is_damaged) return false;
        // Zeros: a recorded length that is too large must not show what lay in the memory before.
        void* const buffer = std::calloc(std::max<std::size_t>(1, size), 1);
        if (buffer) file.reset(FileInMemory::create(buffer, size));
        if (!file) throw std::bad_alloc();
        std::size_t got = 0;
        is_damaged = !state.inflate(*entry, buffer, size, got);
        return !is_damaged;
    });
    if (is_damaged) return refuse_entry(p);
    if (!is_read) return nullptr;
    file->source = this;
    file->name = joined_name(p.PathNameView(), p.FileNameView());
    return file.release();
}

ZippedDataArchive* create_server_archive(void* memory, std::uint64_t capacity) {
    return guarded<ZippedDataArchive*>(nullptr, nullptr, [&] {
        if (ZippedDataArchive* const made = get_server_archive()) return made;
        const platform::LockGuard guard(server().making);
        if (ZippedDataArchive* const made = get_server_archive()) return made;
        auto archive = std::make_shared<ZippedDataArchive>();
        if (memory) archive->BindArchiveToMemory(memory, capacity);
        if (registry::add(std::make_unique<ServerSource>(archive), FFSAddSourceFlags::INDEX_NAMES)) {
            server().archive.store(archive.get(), std::memory_order_release);
            server().owner = std::move(archive);
        }
        return get_server_archive();
    });
}

ZippedDataArchive* get_server_archive() { return server().archive.load(std::memory_order_acquire); }

void destroy_server_archive() {
    const platform::LockGuard guard(server().making);
    server().archive.store(nullptr, std::memory_order_release);
    server().owner.reset();
}

}  // namespace fs

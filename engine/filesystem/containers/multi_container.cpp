#include <engine/filesystem/containers/multi_container.h>

#include <cinttypes>
#include <cstdio>
#include <limits>
#include <mutex>
#include <new>
#include <shared_mutex>
#include <utility>

#include <zlib.h>

#include <engine/filesystem/access/open.h>

#include "engine/filesystem/containers/multi_container_state.h"
#include "engine/filesystem/contract/set_error.h"

using container::Entry;

namespace {

constexpr std::uint64_t largest_blob = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint64_t largest_deflated = largest_blob / 2;  // zlib's sizes are 32 bits wide on Windows
constexpr std::size_t longest_name = std::numeric_limits<std::uint16_t>::max();

/// The blob deflated, or nothing when that would not be smaller.
std::vector<unsigned char> deflated(const void* data, std::uint64_t size) {
    uLongf packed_size = compressBound(static_cast<uLong>(size));
    std::vector<unsigned char> packed(packed_size);
    const auto* const bytes = static_cast<const unsigned char*>(data);
    const int result = compress2(packed.data(), &packed_size, bytes, static_cast<uLong>(size), Z_DEFAULT_COMPRESSION);
    packed.resize(result == Z_OK && packed_size < size ? packed_size : 0);
    return packed;
}

/// As the command-line tool writes and takes it.
std::string hash_text(std::uint32_t hash) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08" PRIx32, hash);
    return text;
}

}  // namespace

CFileHashMultiContainer::CFileHashMultiContainer() : state_(std::make_unique<State>()) {}
CFileHashMultiContainer::~CFileHashMultiContainer() = default;

bool CFileHashMultiContainer::Open(const char* path, bool writable) try {
    const std::lock_guard guard(state_->lock);
    state_->Close();
    state_->path = path != nullptr ? path : "";
    // Asked first, because opening for writing would create a file in some sources.
    if (!fs::exists(path)) return state_->Fail(EFSError::NOT_FOUND, "There is no such multi-container file.");
    if (state_->file.Open(state_->path.c_str(), writable) && state_->Load()) return true;
    state_->Close();
    return false;
} catch (const std::bad_alloc&) {
    state_->Close();
    return state_->FailWithoutMemory();
}

bool CFileHashMultiContainer::Create(const char* path) try {
    const std::lock_guard guard(state_->lock);
    state_->Close();
    state_->path = path != nullptr ? path : "";
    if (state_->file.Create(state_->path.c_str()) && state_->Initialise()) return true;
    state_->Close();
    return false;
} catch (const std::bad_alloc&) {
    state_->Close();
    return state_->FailWithoutMemory();
}

void CFileHashMultiContainer::Close() {
    const std::lock_guard guard(state_->lock);
    state_->Close();
}

bool CFileHashMultiContainer::IsOpen() const {
    const std::shared_lock guard(state_->lock);
    return state_->file.IsOpen();
}

bool CFileHashMultiContainer::Put(const char* name, std::uint32_t hash, const void* data, std::uint64_t size,
                                  bool deflate) try {
    const std::string_view wanted = name != nullptr ? name : "";
    if (size > largest_blob || wanted.size() > longest_name || (data == nullptr && size != 0))
        return state_->Fail(EFSError::INVALID_ARGUMENT, "A blob is too large, its container's name too long, or null.");
    std::vector<unsigned char> packed;
    if (deflate && size <= largest_deflated) packed = deflated(data, size);
    const void* const stored = packed.empty() ? data : packed.data();
    const std::uint64_t stored_size = packed.empty() ? size : packed.size();
    const Entry entry{.stored_size = static_cast<std::uint32_t>(stored_size),
                      .size = static_cast<std::uint32_t>(size),
                      .checksum = container::checksum(stored, stored_size),
                      .deflated = !packed.empty()};
    const std::lock_guard guard(state_->lock);
    return state_->Put(wanted, hash, entry, stored);
} catch (const std::bad_alloc&) {
    return state_->FailWithoutMemory();
}

bool CFileHashMultiContainer::Remove(const char* name, std::uint32_t hash) try {
    const std::lock_guard guard(state_->lock);
    if (!state_->IsWritable() || !state_->FindBlob(name, hash)) return false;
    state_->index.FindOrAdd(name != nullptr ? name : "").Remove(hash);
    state_->changed = true;
    return true;
} catch (const std::bad_alloc&) {
    return state_->FailWithoutMemory();
}

bool CFileHashMultiContainer::RemoveContainer(const char* name) {
    const std::lock_guard guard(state_->lock);
    if (!state_->IsWritable()) return false;
    if (!state_->index.Remove(name != nullptr ? name : ""))
        return state_->Fail(EFSError::NOT_FOUND, "The multi-container has no container of this name.");
    state_->changed = true;
    return true;
}

bool CFileHashMultiContainer::Exists(const char* name, std::uint32_t hash) const {
    std::uint64_t size = 0;
    return GetSize(name, hash, size);
}

bool CFileHashMultiContainer::GetSize(const char* name, std::uint32_t hash, std::uint64_t& size) const try {
    const std::shared_lock guard(state_->lock);
    const std::optional<Entry> entry = state_->FindBlob(name, hash);
    size = entry ? entry->size : 0;
    return entry.has_value();
} catch (const std::bad_alloc&) {
    return state_->FailWithoutMemory();
}

bool CFileHashMultiContainer::Fetch(const char* name, std::uint32_t hash, ztl::vector<unsigned char>& out) const try {
    out.clear();
    const std::shared_lock guard(state_->lock);
    const std::optional<Entry> entry = state_->FindBlob(name, hash);
    if (!entry) return false;
    out.resize(entry->size);
    if (state_->ReadBlob(*entry, out.data())) return true;
    out.clear();
    return false;
} catch (const std::bad_alloc&) {
    out.clear();
    return state_->FailWithoutMemory();
}

bool CFileHashMultiContainer::Fetch(const char* name, std::uint32_t hash, void* buffer, std::uint64_t capacity,
                                    std::uint64_t& size) const try {
    size = 0;
    const std::shared_lock guard(state_->lock);
    const std::optional<Entry> entry = state_->FindBlob(name, hash);
    if (!entry) return false;
    size = entry->size;
    if (capacity < entry->size || (buffer == nullptr && entry->size != 0))
        return state_->Fail(EFSError::INVALID_ARGUMENT, "The buffer is too small for the blob, or null.");
    return state_->ReadBlob(*entry, static_cast<unsigned char*>(buffer));
} catch (const std::bad_alloc&) {
    return state_->FailWithoutMemory();
}

void CFileHashMultiContainer::ListContainers(ztl::vector<fs::string>& out) const try {
    out.clear();
    const std::shared_lock guard(state_->lock);
    for (const auto& [name, found] : state_->index.all()) out.push_back(name);
} catch (const std::bad_alloc&) {
    out.clear();
    state_->FailWithoutMemory();
}

bool CFileHashMultiContainer::ListBlobs(const char* name, ztl::vector<SBlobInfo>& out) const try {
    out.clear();
    const std::shared_lock guard(state_->lock);
    const container::Container* const found = state_->FindSound(name);
    if (found == nullptr) return false;
    found->ForEach([&out](std::uint32_t hash, const Entry& entry) {
        out.push_back({.hash = hash, .size = entry.size, .stored_size = entry.stored_size, .deflated = entry.deflated});
    });
    return true;
} catch (const std::bad_alloc&) {
    return state_->FailWithoutMemory();
}

bool CFileHashMultiContainer::GetStats(SMultiContainerStats& stats) const try {
    stats = {};
    const std::shared_lock guard(state_->lock);
    if (!state_->file.IsOpen()) return state_->Fail(EFSError::INVALID_ARGUMENT, "No multi-container file is open.");
    return state_->CountLive(stats);
} catch (const std::bad_alloc&) {
    return state_->FailWithoutMemory();
}

bool CFileHashMultiContainer::Save() try {
    const std::lock_guard guard(state_->lock);
    if (!state_->file.IsOpen()) return state_->Fail(EFSError::INVALID_ARGUMENT, "No multi-container file is open.");
    return state_->Save();
} catch (const std::bad_alloc&) {
    return state_->FailWithoutMemory();
}

bool CFileHashMultiContainer::Verify(ztl::vector<fs::string>& report) const try {
    const std::shared_lock guard(state_->lock);
    if (!state_->file.IsOpen()) return state_->Fail(EFSError::INVALID_ARGUMENT, "No multi-container file is open.");
    const std::size_t before = report.size();
    ztl::vector<unsigned char> blob;
    for (const auto& [name, found] : state_->index.all()) {
        if (!found->IsSound()) {
            report.push_back("container \"" + name + "\": its index is damaged");
            continue;
        }
        found->ForEach([&, &container = name](std::uint32_t hash, const Entry& entry) {
            blob.resize(entry.size);
            if (state_->ReadBlob(entry, blob.data())) return;
            report.push_back("container \"" + container + "\", blob " + hash_text(hash) + ": " + fs::last_error().text);
        });
    }
    return report.size() == before;
} catch (const std::bad_alloc&) {
    return state_->FailWithoutMemory();
}

#include <engine/filesystem/containers/multi_container.h>

#include <limits>
#include <new>
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

}  // namespace

CFileHashMultiContainer::CFileHashMultiContainer() : state_(std::make_unique<State>()) {}
CFileHashMultiContainer::~CFileHashMultiContainer() = default;

bool CFileHashMultiContainer::Open(const char* path, bool writable) {
    const mt::CExclusiveHold hold(state_->lock);
    state_->path = path != nullptr ? path : "";
    // Asked first, because opening for writing would create a file in some sources.
    if (!fs::exists(path)) return state_->Fail(EFSError::NOT_FOUND, "There is no such multi-container file.");
    if (state_->file.Open(path, writable) && state_->Load()) return true;
    state_->file.Close();
    return false;
}

bool CFileHashMultiContainer::Create(const char* path) {
    const mt::CExclusiveHold hold(state_->lock);
    state_->path = path != nullptr ? path : "";
    state_->index = container::Index();
    state_->changed = false;
    if (state_->file.Create(state_->path.c_str()) && state_->Initialise()) return true;
    state_->file.Close();
    return false;
}

void CFileHashMultiContainer::Close() {
    const mt::CExclusiveHold hold(state_->lock);
    state_->file.Close();
    state_->index = container::Index();
}

bool CFileHashMultiContainer::IsOpen() const {
    const mt::CSharedHold hold(state_->lock);
    return state_->file.IsOpen();
}

bool CFileHashMultiContainer::Put(const char* name, std::uint32_t hash, const void* data, std::uint64_t size,
                                  bool deflate) {
    const std::string_view wanted = name != nullptr ? name : "";
    if (size > largest_blob || wanted.size() > longest_name || (data == nullptr && size != 0))
        return state_->Fail(EFSError::INVALID_ARGUMENT, "A blob is too large, its container's name too long, or null.");
    std::vector<unsigned char> packed;
    if (deflate && size <= largest_deflated) packed = deflated(data, size);
    const void* const stored = packed.empty() ? data : packed.data();
    const std::uint64_t stored_size = packed.empty() ? size : packed.size();
    Entry entry{.stored_size = static_cast<std::uint32_t>(stored_size),
                .size = static_cast<std::uint32_t>(size),
                .checksum = container::checksum(stored, stored_size),
                .deflated = !packed.empty()};
    const mt::CExclusiveHold hold(state_->lock);
    if (!state_->file.IsOpen() || !state_->file.IsWritable())
        return state_->Fail(EFSError::READ_ONLY, "The multi-container is not open for writing.");
    container::Container& target = state_->index.FindOrAdd(wanted);
    if (!target.IsSound()) return state_->Fail(EFSError::BAD_FORMAT, "The index of the container is damaged.");
    entry.offset = state_->file.End();
    if (!state_->file.Append(stored, stored_size)) return false;
    target.Put(hash, entry);
    state_->changed = true;
    return true;
}

bool CFileHashMultiContainer::Remove(const char* name, std::uint32_t hash) {
    const mt::CExclusiveHold hold(state_->lock);
    if (!state_->file.IsWritable())
        return state_->Fail(EFSError::READ_ONLY, "The multi-container is not open for writing.");
    if (!state_->FindBlob(name, hash)) return false;
    state_->index.FindOrAdd(name != nullptr ? name : "").Remove(hash);
    state_->changed = true;
    return true;
}

bool CFileHashMultiContainer::RemoveContainer(const char* name) {
    const mt::CExclusiveHold hold(state_->lock);
    if (!state_->file.IsOpen() || !state_->file.IsWritable())
        return state_->Fail(EFSError::READ_ONLY, "The multi-container is not open for writing.");
    if (!state_->index.Remove(name != nullptr ? name : ""))
        return state_->Fail(EFSError::NOT_FOUND, "The multi-container has no container of this name.");
    state_->changed = true;
    return true;
}

bool CFileHashMultiContainer::Exists(const char* name, std::uint32_t hash) const {
    std::uint64_t size = 0;
    return GetSize(name, hash, size);
}

bool CFileHashMultiContainer::GetSize(const char* name, std::uint32_t hash, std::uint64_t& size) const {
    const mt::CSharedHold hold(state_->lock);
    const std::optional<Entry> entry = state_->FindBlob(name, hash);
    size = entry ? entry->size : 0;
    return entry.has_value();
}

bool CFileHashMultiContainer::Fetch(const char* name, std::uint32_t hash, ztl::vector<unsigned char>& out) const {
    out.clear();
    const mt::CSharedHold hold(state_->lock);
    const std::optional<Entry> entry = state_->FindBlob(name, hash);
    if (!entry) return false;
    try {
        out.resize(entry->size);
    } catch (const std::bad_alloc&) {
        return state_->Fail(EFSError::OUT_OF_MEMORY, "No memory for a blob.");
    }
    if (state_->ReadBlob(*entry, out.data())) return true;
    out.clear();
    return false;
}

bool CFileHashMultiContainer::Fetch(const char* name, std::uint32_t hash, void* buffer, std::uint64_t capacity,
                                    std::uint64_t& size) const {
    size = 0;
    const mt::CSharedHold hold(state_->lock);
    const std::optional<Entry> entry = state_->FindBlob(name, hash);
    if (!entry) return false;
    size = entry->size;
    if (capacity < entry->size)
        return state_->Fail(EFSError::INVALID_ARGUMENT, "The buffer is too small for the blob.");
    return state_->ReadBlob(*entry, static_cast<unsigned char*>(buffer));
}

void CFileHashMultiContainer::ListContainers(ztl::vector<fs::string>& out) const {
    out.clear();
    const mt::CSharedHold hold(state_->lock);
    for (const auto& [name, found] : state_->index.all()) out.push_back(name);
}

bool CFileHashMultiContainer::ListBlobs(const char* name, ztl::vector<SBlobInfo>& out) const {
    out.clear();
    const mt::CSharedHold hold(state_->lock);
    const container::Container* const found = state_->FindSound(name);
    if (found == nullptr) return false;
    found->ForEach([&out](std::uint32_t hash, const Entry& entry) {
        out.push_back({.hash = hash, .size = entry.size, .stored_size = entry.stored_size, .deflated = entry.deflated});
    });
    return true;
}

bool CFileHashMultiContainer::GetStats(SMultiContainerStats& stats) const {
    stats = {};
    const mt::CSharedHold hold(state_->lock);
    if (!state_->file.IsOpen()) return state_->Fail(EFSError::INVALID_ARGUMENT, "No multi-container file is open.");
    for (const auto& [name, found] : state_->index.all()) {
        if (state_->FindSound(name.c_str()) == nullptr) return false;
        ++stats.containers;
        found->ForEach([&stats](std::uint32_t, const Entry& entry) {
            ++stats.blobs;
            stats.live_bytes += entry.stored_size;
        });
    }
    const std::uint64_t needed = container::data_offset + stats.live_bytes + state_->commit.index_size;
    const std::uint64_t end = state_->file.End();
    stats.wasted_bytes = end > needed ? end - needed : 0;
    return true;
}

bool CFileHashMultiContainer::Save() {
    const mt::CExclusiveHold hold(state_->lock);
    if (!state_->file.IsOpen()) return state_->Fail(EFSError::INVALID_ARGUMENT, "No multi-container file is open.");
    return state_->Save();
}

bool CFileHashMultiContainer::Verify(ztl::vector<fs::string>& report) const {
    const mt::CSharedHold hold(state_->lock);
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
            report.push_back("container \"" + container + "\", blob " + std::to_string(hash) + ": " +
                             fs::last_error().text);
        });
    }
    return report.size() == before;
}

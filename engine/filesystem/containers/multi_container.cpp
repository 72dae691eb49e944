// The exported multi-container: arguments are checked here, and every call holds the lock and is a boundary.
#include <engine/filesystem/containers/multi_container.h>

#include <limits>
#include <mutex>
#include <new>
#include <shared_mutex>
#include <utility>

#include <zlib.h>

#include <engine/kernel/multithreading.h>

#include "engine/filesystem/containers/multi_file.h"
#include "engine/filesystem/contract/failure.h"
#include "engine/platform/text.h"

using container::Blob;
using container::Entry;
using container::MultiFile;

struct CFileHashMultiContainer::State {
    bool is_open() const { return file != nullptr && file->IsOpen(); }  // compacting may have closed it

    mt::CSlimLock lock;  // guards `file`: fetching and listing hold it shared
    std::unique_ptr<MultiFile> file;
};

namespace {

constexpr std::uint64_t largest_blob = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint64_t largest_deflated = largest_blob / 2;  // zlib's sizes are 32 bits wide on Windows
constexpr std::size_t longest_name = std::numeric_limits<std::uint16_t>::max();

using Shared = std::shared_lock<mt::CSlimLock>;
using Exclusive = std::lock_guard<mt::CSlimLock>;

/// What `work(state)` answers under the lock; false when the object itself could not be made for want of memory.
template <class Guard, class State, class Work>
bool with_lock(State* state, const Work& work) {
    return fs::guarded("", false, [&] {
        if (state == nullptr) throw std::bad_alloc();
        const Guard guard(state->lock);
        return work(*state);
    });
}

/// The same for what needs an open file, which gets that.
template <class Guard, class State, class Work>
bool with_file(State* state, const Work& work) {
    return with_lock<Guard>(state, [&](State& locked) {
        return locked.is_open() ? work(*locked.file)
                                : fs::refuse(EFSError::INVALID_ARGUMENT, "", "No multi-container file is open.");
    });
}

template <class State, class Work>
bool change(State* state, const Work& work) {
    return with_file<Exclusive>(state, [&](MultiFile& file) { return file.CheckWritable() && work(file); });
}

/// Puts what `make` opens in the place of what was open.
template <class State, class Make>
bool open_by(State* state, const Make& make) {
    return with_lock<Exclusive>(state, [&](State& locked) {
        locked.file.reset();
        locked.file = make();
        return locked.file != nullptr;
    });
}

/// What `work(file, entry)` answers for a blob.
template <class State, class Work>
bool with_blob(State* state, std::string_view name, std::uint32_t hash, const Work& work) {
    return with_file<Shared>(state, [&](const MultiFile& file) {
        const std::optional<Entry> entry = file.FindBlob(name, hash);
        return entry && work(file, *entry);
    });
}

const char* text_of(const char* text) { return text != nullptr ? text : ""; }

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

CFileHashMultiContainer::CFileHashMultiContainer() : state_(new (std::nothrow) State) {}
CFileHashMultiContainer::~CFileHashMultiContainer() = default;

bool CFileHashMultiContainer::Open(const char* path, bool writable) {
    return open_by(state_.get(), [&] { return MultiFile::Open(text_of(path), writable); });
}

bool CFileHashMultiContainer::Create(const char* path) {
    return open_by(state_.get(), [&] { return MultiFile::Create(text_of(path)); });
}

void CFileHashMultiContainer::Close() {
    with_lock<Exclusive>(state_.get(), [](State& state) { return state.file.reset(), true; });
}

bool CFileHashMultiContainer::IsOpen() const {
    return with_lock<Shared>(state_.get(), [](const State& state) { return state.is_open(); });
}

bool CFileHashMultiContainer::Put(const char* name, std::uint32_t hash, const void* data, std::uint64_t size,
                                  bool deflate) {
    return fs::guarded(name, false, [&] {
        const std::string_view wanted = text_of(name);
        if (size > largest_blob || wanted.size() > longest_name || (data == nullptr && size != 0))
            return fs::refuse(EFSError::INVALID_ARGUMENT, name,
                              "A blob is too large, its container's name too long, or null.");
        std::vector<unsigned char> packed;
        if (deflate && size <= largest_deflated) packed = deflated(data, size);
        const void* const stored = packed.empty() ? data : packed.data();
        const std::uint64_t stored_size = packed.empty() ? size : packed.size();
        const Entry entry{.stored_size = static_cast<std::uint32_t>(stored_size),
                          .size = static_cast<std::uint32_t>(size),
                          .checksum = container::checksum(stored, stored_size),
                          .deflated = !packed.empty()};
        return change(state_.get(), [&](MultiFile& file) { return file.Put(wanted, hash, entry, stored); });
    });
}

bool CFileHashMultiContainer::Remove(const char* name, std::uint32_t hash) {
    return change(state_.get(), [&](MultiFile& file) { return file.Remove(text_of(name), hash); });
}

bool CFileHashMultiContainer::RemoveContainer(const char* name) {
    return change(state_.get(), [&](MultiFile& file) { return file.RemoveContainer(text_of(name)); });
}

bool CFileHashMultiContainer::Exists(const char* name, std::uint32_t hash) const {
    std::uint64_t size = 0;
    return GetSize(name, hash, size);
}

bool CFileHashMultiContainer::GetSize(const char* name, std::uint32_t hash, std::uint64_t& size) const {
    size = 0;
    return with_blob(state_.get(), text_of(name), hash, [&](const MultiFile&, const Entry& entry) {
        size = entry.size;
        return true;
    });
}

bool CFileHashMultiContainer::Fetch(const char* name, std::uint32_t hash, ztl::vector<unsigned char>& out) const {
    out.clear();
    const bool is_whole = with_blob(state_.get(), text_of(name), hash, [&](const MultiFile& file, const Entry& entry) {
        out.resize(entry.size);
        return file.ReadBlob(entry, out.data());
    });
    if (!is_whole) out.clear();
    return is_whole;
}

bool CFileHashMultiContainer::Fetch(const char* name, std::uint32_t hash, void* buffer, std::uint64_t capacity,
                                    std::uint64_t& size) const {
    size = 0;
    return with_blob(state_.get(), text_of(name), hash, [&](const MultiFile& file, const Entry& entry) {
        size = entry.size;
        if (capacity < entry.size || (buffer == nullptr && entry.size != 0))
            return file.Fail(EFSError::INVALID_ARGUMENT, "The buffer is too small for the blob, or null.");
        return file.ReadBlob(entry, static_cast<unsigned char*>(buffer));
    });
}

void CFileHashMultiContainer::ListContainers(ztl::vector<fs::string>& out) const {
    out.clear();
    const bool is_listed = with_lock<Shared>(state_.get(), [&](const State& state) {
        if (!state.is_open()) return true;
        for (const auto& named : state.file->index().containers) out.push_back(named.first);
        return true;
    });
    if (!is_listed) out.clear();
}

bool CFileHashMultiContainer::ListBlobs(const char* name, ztl::vector<SBlobInfo>& out) const {
    out.clear();
    return with_file<Shared>(state_.get(), [&](const MultiFile& file) {
        const container::Container* const found = file.FindSound(text_of(name));
        if (found == nullptr) return false;
        const std::vector<Blob> blobs = found->Blobs();
        out.reserve(blobs.size());
        for (const auto& [hash, entry] : blobs) out.push_back({hash, entry.size, entry.stored_size, entry.deflated});
        return true;
    });
}

bool CFileHashMultiContainer::GetStats(SMultiContainerStats& stats) const {
    stats = {};
    return with_file<Shared>(state_.get(), [&](const MultiFile& file) { return file.Count(stats); });
}

bool CFileHashMultiContainer::Save() {
    return with_file<Exclusive>(state_.get(), [](MultiFile& file) { return file.Save(); });
}

bool CFileHashMultiContainer::Compact() { return Compact(nullptr, nullptr); }

bool CFileHashMultiContainer::Compact(bool (*progress)(std::uint64_t done, std::uint64_t total, void* user),
                                      void* user) {
    return change(state_.get(), [=](MultiFile& file) {
        return file.Compact([=](std::uint64_t done, std::uint64_t total) {
            return progress == nullptr || progress(done, total, user);
        });
    });
}

bool CFileHashMultiContainer::Verify(ztl::vector<fs::string>& report) const {
    return with_file<Shared>(state_.get(), [&](const MultiFile& file) {
        const std::size_t before = report.size();
        ztl::vector<unsigned char> bytes;
        for (const auto& [name, found] : file.index().containers) {
            if (!found.IsSound()) {
                report.push_back("container \"" + name + "\": its index is damaged");
                continue;
            }
            for (const auto& [hash, entry] : found.Blobs()) {
                bytes.resize(entry.size);
                if (file.ReadBlob(entry, bytes.data())) continue;
                char written[16];  // as the command-line tool writes and takes it
                platform::BoundedText(written).add_hex(hash, 8);
                report.push_back("container \"" + name + "\", blob " + written + ": " + fs::last_error().text);
            }
        }
        return report.size() == before;
    });
}

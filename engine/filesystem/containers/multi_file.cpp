// How a multi-container file is read and saved.
//
// Nothing that a commit record points to is ever written over: blobs and indexes go behind the committed end, and the
// record of the new state goes into the place of the older of the two. The writes reach the disk in their order, so a
// file cut off anywhere still has the record before, whole, and everything that it points to.
//
// Compacting writes the live blobs, in the order in which they lie, without what lies between them. They go into a new
// file, NAME.new, which takes the old one's place when it is whole and on the disk.

#include "engine/filesystem/containers/multi_file.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include <engine/filesystem/access/manage.h>
#include <engine/filesystem/access/open.h>
#include <engine/filesystem/handles.h>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/formats/deflate.h"
#include "engine/platform/files.h"

namespace container {
namespace {

constexpr std::uint64_t window_size = 256u << 10;  // read and written from the processor's cache

/// Copies blobs to the end of a file, and says in them where they lie then. What one read fetches is closed up in memory
/// and written at once; `go_on` hears how many bytes were, and may stop it.
bool move_blobs(std::vector<Part>& parts, const File& from, File& to, const std::function<bool(std::uint64_t)>& go_on) {
    std::vector<Entry*> order;
    for (Part& part : parts)
        for (Blob& blob : part.blobs) order.push_back(&blob.entry);
    std::ranges::sort(order, {}, &Entry::offset);
    std::vector<unsigned char> window(window_size);
    std::uint64_t start = 0;  // where in `from` the window begins
    std::uint64_t held = 0;
    std::uint64_t kept = 0;  // bytes at its front that wait for being written
    for (Entry* const blob : order) {
        const std::uint64_t target = to.End() + kept;
        for (std::uint64_t done = 0; done < blob->stored_size;) {
            const std::uint64_t next = blob->offset + done;
            if (next < start + kept || next - start >= held) {
                if (!to.AppendAtOnce(window.data(), kept) || !go_on(to.End() - data_offset)) return false;
                kept = 0;
                start = next;
                held = std::min(window_size, from.End() - start);
                if (!from.Read(window.data(), held, start)) return false;
            }
            const std::uint64_t size = std::min(start + held - next, blob->stored_size - done);
            std::memmove(window.data() + kept, window.data() + (next - start), size);
            kept += size;
            done += size;
        }
        blob->offset = target;
    }
    return to.AppendAtOnce(window.data(), kept) && go_on(to.End() - data_offset);
}

/// Removes a file that we made, unless it was put in its place.
struct Partial {
    ~Partial() {
        if (is_ours) platform::remove_file(path.c_str());
    }
    const std::string path;
    bool is_ours = false;
};

FilePtr open_at(const char* native, FFSOpenFlags::FLAGS flags) {
    return FilePtr(fs::open_native(nullptr, native, EFSMode::READ_WRITE, flags));
}

/// Writes an index behind all else, and says in the commit where it lies. The bytes; null when that fails.
IndexBytes append_index(File& file, const std::vector<Part>& parts, Commit& commit) {
    commit.index_offset = file.End();
    IndexBytes bytes = encode(parts, commit);
    return file.AppendAtOnce(bytes.get(), commit.index_size) ? std::move(bytes) : nullptr;
}

}  // namespace

bool MultiFile::Fail(EFSError::TYPE code, const char* text) const { return fs::refuse(code, path_.c_str(), text); }

/// Blobs that were written and never saved would only take space.
MultiFile::~MultiFile() {
    if (file_.End() == commit_.end() || is_record_in_doubt_ || !file_.IsWritable()) return;
    const fs::ErrorKeeper keeper;
    fs::guarded(path_.c_str(), [this] {
        file_.SetEnd(commit_.end());
        file_.CutAtEnd();
    });
}

std::unique_ptr<MultiFile> MultiFile::Open(const char* path, bool writable) {
    std::unique_ptr<MultiFile> opened(new MultiFile(path));
    FilePtr file = writable ? open_in_place(path) : FilePtr(fs::open(path, EFSMode::READ));
    if (file == nullptr) return nullptr;
    opened->file_.Use(std::move(file), writable);
    return opened->Load() ? std::move(opened) : nullptr;
}

/// `newest` is nothing when the file is no container or both its records are damaged; false when it cannot be read.
bool MultiFile::ReadHead(std::optional<Commit>& newest) const {
    HeadBytes head;
    const std::uint64_t length = file_.Length();
    if (length == ~std::uint64_t{0}) return Fail(EFSError::IO, "The length of the multi-container is not known.");
    if (length < head.size()) return true;
    if (!file_.Read(head.data(), head.size(), 0)) return false;
    newest = newest_commit(head);
    return true;
}

bool MultiFile::Load() {
    std::optional<Commit> newest;
    if (!ReadHead(newest)) return false;
    if (!newest) return Fail(EFSError::BAD_FORMAT, "The file is no multi-container, or both its records are damaged.");
    if (!newest->is_inside(file_.Length())) return Fail(EFSError::BAD_FORMAT, "The multi-container has lost its end.");
    IndexBytes bytes(new unsigned char[newest->index_size]);
    if (!file_.Read(bytes.get(), newest->index_size, newest->index_offset)) return false;
    if (!index_.Load(std::move(bytes), *newest))
        return Fail(EFSError::BAD_FORMAT, "The multi-container's directory is damaged.");
    commit_ = *newest;
    file_.SetEnd(commit_.end());
    return true;
}

std::unique_ptr<MultiFile> MultiFile::Create(const char* path) {
    std::unique_ptr<MultiFile> made(new MultiFile(path));  // first, so that no file is made for want of memory
    const bool is_new = !fs::exists(path);
    constexpr auto flags = FFSOpenFlags::CREATE | FFSOpenFlags::WRITE_THROUGH;
    FilePtr file = is_new ? FilePtr(fs::open(path, EFSMode::READ_WRITE, flags)) : open_in_place(path);
    if (file == nullptr) return nullptr;
    made->file_.Use(std::move(file), true);
    if (made->Empty()) return made;
    made.reset();
    const fs::ErrorKeeper keeper;
    if (is_new) fs::rem_file(path);
    return nullptr;
}

/// Makes an open file an empty container. Where it is one already a single record does it, so that it stays as it was
/// until then.
bool MultiFile::Empty() {
    std::optional<Commit> newest;
    if (!ReadHead(newest)) return false;
    const Commit empty{.sequence = newest ? newest->sequence + 1 : 1,
                       .index_offset = data_offset,
                       .directory_checksum = checksum(nullptr, 0)};
    if (newest ? !WriteRecord(empty) : !file_.WriteAt(head_of(empty).data(), data_offset, 0)) return false;
    commit_ = empty;
    file_.SetEnd(data_offset);
    file_.CutAtEnd();
    return true;
}

bool MultiFile::WriteRecord(const Commit& commit) {
    const CommitBytes record = encode(commit);
    return file_.WriteAt(record.data(), record.size(), commit.place());
}

bool MultiFile::CheckWritable() const {
    return file_.IsWritable() || Fail(EFSError::READ_ONLY, "The multi-container is not open for writing.");
}

const Container* MultiFile::FindSound(std::string_view name) const {
    const auto found = index_.containers.find(name);
    if (found == index_.containers.end())
        return Fail(EFSError::NOT_FOUND, "The multi-container has no container of this name."), nullptr;
    if (!found->second.IsSound()) return Fail(EFSError::BAD_FORMAT, "The index of the container is damaged."), nullptr;
    return &found->second;
}

std::optional<Entry> MultiFile::FindBlob(std::string_view name, std::uint32_t hash) const {
    const Container* const found = FindSound(name);
    if (found == nullptr) return std::nullopt;
    std::optional<Entry> entry = found->Find(hash);
    if (!entry) Fail(EFSError::NOT_FOUND, "The container has no blob of this hash.");
    return entry;
}

bool MultiFile::ReadBlob(const Entry& entry, unsigned char* out) const {
    const std::unique_ptr<unsigned char[]> packed(entry.deflated ? new unsigned char[entry.stored_size] : nullptr);
    unsigned char* const stored = entry.deflated ? packed.get() : out;
    if (!file_.Read(stored, entry.stored_size, entry.offset)) return false;
    if (checksum(stored, entry.stored_size) != entry.checksum)
        return Fail(EFSError::BAD_FORMAT, "A blob's checksum is wrong.");
    if (!entry.deflated) return true;
    std::size_t size = 0;
    const bool is_good = fs::inflate_zlib_stream(stored, entry.stored_size, out, entry.size, size);
    return (is_good && size == entry.size) || Fail(EFSError::BAD_FORMAT, "A deflated blob cannot be decoded.");
}

bool MultiFile::Count(SMultiContainerStats& stats) const {
    const std::optional<std::vector<Part>> parts = Parts();
    if (!parts) return false;
    stats = {.containers = parts->size()};
    for (const Part& part : *parts) {
        stats.blobs += part.blobs.size();
        for (const Blob& blob : part.blobs) stats.live_bytes += blob.entry.stored_size;
    }
    const std::uint64_t needed = data_offset + stats.live_bytes + commit_.index_size;
    // Behind the end may lie what a save that was stopped has left.
    const std::uint64_t length = file_.Length();
    const std::uint64_t end = length != ~std::uint64_t{0} ? std::max(file_.End(), length) : file_.End();
    stats.wasted_bytes = end > needed ? end - needed : 0;
    return true;
}

bool MultiFile::Put(std::string_view name, std::uint32_t hash, Entry entry, const void* stored) {
    const auto known = index_.containers.find(name);
    if (known != index_.containers.end() && !known->second.IsSound())
        return Fail(EFSError::BAD_FORMAT, "The index of the container is damaged.");
    if (!file_.Append(stored, entry.stored_size)) return false;
    entry.offset = file_.End() - entry.stored_size;
    index_.Put(name, hash, entry);
    is_changed_ = true;
    return true;
}

bool MultiFile::Remove(std::string_view name, std::uint32_t hash) {
    if (!FindBlob(name, hash)) return false;
    index_.Put(name, hash, {});
    is_changed_ = true;
    return true;
}

bool MultiFile::RemoveContainer(std::string_view name) {
    const auto found = index_.containers.find(name);
    if (found == index_.containers.end())
        return Fail(EFSError::NOT_FOUND, "The multi-container has no container of this name.");
    index_.containers.erase(found);
    is_changed_ = true;
    return true;
}

/// Saving a damaged container would give it a good checksum.
std::optional<std::vector<Part>> MultiFile::Parts() const {
    std::vector<Part> parts;
    parts.reserve(index_.containers.size());
    for (const auto& [name, container] : index_.containers) {
        if (!container.IsSound())
            return Fail(EFSError::BAD_FORMAT, "A container of the file is damaged."), std::nullopt;
        parts.push_back({name, container.Blobs()});
    }
    return parts;
}

bool MultiFile::Save() {
    if (!is_changed_) return true;
    const std::optional<std::vector<Part>> parts = Parts();
    Commit next{.sequence = commit_.sequence + 1};
    if (!parts || !file_.Flush() || append_index(file_, *parts, next) == nullptr) return false;
    // From here on the end lies behind the index, as the record may say although its writing fails.
    is_record_in_doubt_ = true;
    if (!WriteRecord(next)) return false;
    commit_ = next;
    is_changed_ = is_record_in_doubt_ = false;
    return true;
}

bool MultiFile::Compact(const Hear& hear) {
    SMultiContainerStats stats;
    if (!Save() || !Count(stats)) return false;
    // Also where blobs share bytes, as no file of ours has them: each would get its own.
    if (stats.wasted_bytes == 0) return true;
    fs::string native;
    if (!fs::native_path(path_.c_str(), native)) return false;
    if (platform::File::open(native.c_str(), {}).valid())  // ours could not be opened a second time
        return Fail(EFSError::IN_USE, "Another file has taken the place of the multi-container.");
    if (platform::last_error().failure != platform::Failure::IN_USE)
        return fs::refuse_by_disk(native.c_str(), "cannot be compacted");
    std::optional<std::vector<Part>> parts = Parts();
    if (!parts) return false;
    Partial partial{.path = native + ".new"};
    // Nobody sees this file before it takes its place, and that waits for the disk.
    FilePtr made = open_at(partial.path.c_str(), FFSOpenFlags::CREATE);
    if (made == nullptr) return false;
    partial.is_ours = true;
    File fresh;
    fresh.Use(std::move(made), true);
    fresh.SetEnd(data_offset);
    Commit commit{.sequence = commit_.sequence + 1};
    // A blob that has rotted keeps its checksum, so moving gives it no second life.
    const auto go_on = [&](std::uint64_t done) {
        return hear(done, stats.live_bytes) ||
               Fail(EFSError::CANCELLED, "Compacting was stopped; the multi-container is as it was saved.");
    };
    if (!move_blobs(*parts, file_, fresh, go_on)) return false;
    IndexBytes bytes = append_index(fresh, *parts, commit);
    if (bytes == nullptr || !fresh.WriteAt(head_of(commit).data(), data_offset, 0)) return false;
    Index index;
    index.Load(std::move(bytes), commit);
    const std::uint64_t end = fresh.End();
    fresh.Close();
    if (!Replace(native.c_str(), partial.path.c_str(), end)) return false;
    partial.is_ours = false;
    index_ = std::move(index);
    commit_ = commit;
    return IsOpen();
}

/// Puts a finished file in the place of ours and goes on with it; when that fails, with the old one. Ours is closed
/// meanwhile, so nothing here throws.
bool MultiFile::Replace(const char* native, const char* partial, std::uint64_t new_end) {
    const std::uint64_t old_end = file_.End();
    file_.Close();
    const bool is_replaced = platform::replace_file(partial, native);
    const platform::Error error = platform::last_error();
    if (FilePtr file = open_at(native, FFSOpenFlags::WRITE_THROUGH); file != nullptr) {
        file_.Use(std::move(file), true);
        file_.SetEnd(is_replaced ? new_end : old_end);
    }
    if (!is_replaced) fs::set_error_from_platform(native, "cannot be replaced", error);
    return is_replaced;
}

}  // namespace container

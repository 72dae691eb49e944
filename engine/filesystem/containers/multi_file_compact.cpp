// Compacting: the live blobs, in the order in which they lie, without what lies between them. They go into a new file,
// NAME.new, which takes the old one's place when it is whole and on the disk.

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <engine/filesystem/access/open.h>
#include <engine/filesystem/handles.h>

#include "engine/filesystem/containers/multi_file.h"
#include "engine/filesystem/contract/error.h"
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

}  // namespace

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
    Partial partial{.path = native + ".new"};
    // Nobody sees this file before it takes its place, and that waits for the disk.
    FilePtr made = open_at(partial.path.c_str(), FFSOpenFlags::CREATE);
    if (!parts || made == nullptr) return false;
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

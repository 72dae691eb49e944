// Compacting: the live blobs, in the order in which they lie, without what lies between them. They go into a new file,
// NAME.new, which takes the old one's place when it is whole and on the disk.

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include <engine/filesystem/handles.h>

#include "engine/filesystem/containers/multi_file.h"
#include "engine/filesystem/contract/set_error.h"
#include "engine/platform/files.h"

namespace container {
namespace {

constexpr std::uint64_t piece_size = 256u << 10;  // read and written from the processor's cache
constexpr std::uint64_t largest_gap = 32u << 10;  // reading over it costs less than one more call

std::string beside(const std::string& native) { return native + ".new"; }

/// Copies blobs to the end of a file, and says in them where they lie then.
class Mover {
public:
    Mover(const File& from, File& to) : from_(from), to_(to), buffer_(piece_size) {}

    bool Move(std::vector<Part>& parts) {
        for (Part& part : parts)
            for (Blob& blob : part.blobs) order_.push_back(&blob.entry);
        std::ranges::sort(order_, {}, &Entry::offset);
        for (std::size_t first = 0; first < order_.size();) {
            const std::size_t last = SpanEnd(first);
            if (!(last == first ? MoveLarge(*order_[first]) : MoveSpan(first, last))) return false;
            first = std::max(last, first + 1);
        }
        return true;
    }

private:
    /// The blobs from `first` on that one read fetches; `first` itself when it does not even fetch that one.
    std::size_t SpanEnd(std::size_t first) const {
        const std::uint64_t start = order_[first]->offset;
        std::uint64_t end = start;
        std::size_t last = first;
        for (; last < order_.size(); ++last) {
            const Entry& next = *order_[last];
            if (next.offset < end || next.offset - end > largest_gap) break;
            if (next.offset - start > piece_size || next.stored_size > piece_size - (next.offset - start)) break;
            end = next.offset + next.stored_size;
        }
        return last;
    }

    bool MoveSpan(std::size_t first, std::size_t last) {
        const std::uint64_t start = order_[first]->offset;
        const std::uint64_t end = order_[last - 1]->offset + order_[last - 1]->stored_size;
        if (!from_.Read(buffer_.data(), end - start, start)) return false;
        std::uint64_t kept = 0;
        for (std::size_t i = first; i < last; ++i) {
            Entry& blob = *order_[i];
            const std::uint64_t place = blob.offset - start;
            if (place != kept) std::copy_n(buffer_.data() + place, blob.stored_size, buffer_.data() + kept);
            blob.offset = to_.End() + kept;
            kept += blob.stored_size;
        }
        return to_.AppendAtOnce(buffer_.data(), kept);
    }

    bool MoveLarge(Entry& blob) {
        const std::uint64_t target = to_.End();
        for (std::uint64_t done = 0; done < blob.stored_size;) {
            const std::uint64_t size = std::min(piece_size, blob.stored_size - done);
            if (!from_.Read(buffer_.data(), size, blob.offset + done)) return false;
            if (!to_.AppendAtOnce(buffer_.data(), size)) return false;
            done += size;
        }
        blob.offset = target;
        return true;
    }

    const File& from_;
    File& to_;
    std::vector<unsigned char> buffer_;
    std::vector<Entry*> order_;
};

}  // namespace

MultiFile::Remover::~Remover() {
    if (!path_.empty()) platform::remove_file(path_.c_str());
}

std::unique_ptr<MultiFile> MultiFile::CreateBeside(const char* path, const std::string& native) {
    std::unique_ptr<MultiFile> made(new MultiFile(path));
    made->native_ = native;
    std::string partial = beside(native);
    // Nobody sees this file before it takes its place, and that waits for the disk.
    FilePtr file(fs::open_native(nullptr, partial.c_str(), EFSMode::READ_WRITE, FFSOpenFlags::CREATE));
    if (file == nullptr) return nullptr;
    made->partial_ = std::move(partial);
    made->file_.Use(std::move(file), true);
    return made->Empty() ? std::move(made) : nullptr;
}

bool MultiFile::MoveInto(MultiFile& target) const {
    std::optional<std::vector<Part>> parts = Parts();
    // A blob that has rotted keeps its checksum, so moving gives it no second life.
    if (!parts || !Mover(file_, target.file_).Move(*parts)) return false;
    IndexBytes bytes = target.WriteIndex(*parts);
    return bytes != nullptr && target.index_.Load(std::move(bytes), target.commit_);
}

bool MultiFile::ReopenNative(std::uint64_t end) {
    FilePtr file(fs::open_native(nullptr, native_.c_str(), EFSMode::READ_WRITE, FFSOpenFlags::WRITE_THROUGH));
    if (file == nullptr) return false;
    file_.Use(std::move(file), true);
    file_.SetEnd(end);
    return true;
}

bool compact(std::unique_ptr<MultiFile>& file) {
    MultiFile& old = *file;
    SMultiContainerStats stats;
    if (!old.Save() || !old.Count(stats)) return false;
    // Also where blobs share bytes, as no file of ours has them: each would get its own.
    if (stats.wasted_bytes == 0) return true;
    const char* const native = old.native_.c_str();
    if (old.native_.empty())
        return old.Fail(EFSError::UNSUPPORTED, "Only a multi-container on the disk can be compacted.");
    if (platform::File::open(native, {}).valid())  // ours could not be opened a second time
        return old.Fail(EFSError::IN_USE, "Another file has taken the place of the multi-container.");
    if (platform::last_error().failure != platform::Failure::IN_USE)
        return fs::refuse_by_disk(native, "cannot be compacted");
    std::unique_ptr<MultiFile> fresh = MultiFile::CreateBeside(old.path_.c_str(), old.native_);
    if (fresh == nullptr || !old.MoveInto(*fresh)) return false;
    const std::uint64_t old_end = old.file_.End();
    const std::uint64_t end = fresh->file_.End();
    const std::string partial = beside(old.native_);  // nothing may throw while both files are closed
    fresh->file_.Close();
    old.file_.Close();
    if (!platform::replace_file(partial.c_str(), native)) {
        fs::refuse_by_disk(native, "cannot be replaced");
        if (!old.ReopenNative(old_end)) file.reset();
        return false;
    }
    fresh->partial_.Keep();
    file = fresh->ReopenNative(end) ? std::move(fresh) : nullptr;
    return file != nullptr;
}

}  // namespace container

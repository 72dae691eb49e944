// Compacting: the live blobs, in the order in which they lie, without what lies between them.
//
// Over the disk they go into a new file, which takes the old one's place when it is whole and on the disk. Where no file
// can be made beside the old one, they are moved twice within it, behind its end and from there to its front; each move
// writes only over what no commit record points to, and ends as a save does.

#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include <engine/filesystem/access/open.h>

#include "engine/filesystem/containers/multi_container_state.h"
#include "engine/filesystem/contract/set_error.h"
#include "engine/platform/files.h"

using container::Entry;

namespace {

constexpr std::uint64_t piece_size = 256u << 10;  // read and written from the processor's cache
constexpr std::uint64_t largest_gap = 32u << 10;  // reading over it costs less than one more call

using Blob = container::HashTable<Entry>::Item;

/// Copies blobs to the end of a file, and says in them where they lie then.
class Mover {
public:
    Mover(const container::File& from, container::File& to) : from_(from), to_(to), buffer_(piece_size) {}

    bool Move(std::vector<Blob>& blobs) {
        for (Blob& blob : blobs) order_.push_back(&blob.value);
        std::sort(order_.begin(), order_.end(), [](const Entry* a, const Entry* b) { return a->offset < b->offset; });
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
            if (place != kept) std::memmove(buffer_.data() + kept, buffer_.data() + place, blob.stored_size);
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

    const container::File& from_;
    container::File& to_;
    std::vector<unsigned char> buffer_;
    std::vector<Entry*> order_;
};

/// The native path of the open file; "" when it is not a file of the disk.
std::string native_path(const std::string& path, std::uint64_t length) {
    const std::string native = fs::full_path(path.c_str());
    const std::optional<platform::Attributes> attributes = platform::get_attributes(native.c_str());
    return attributes && !attributes->is_directory && attributes->size == length ? native : std::string();
}

}  // namespace

bool CFileHashMultiContainer::State::MoveInto(State& target) const {
    std::vector<Blob> blobs;
    std::vector<std::size_t> counts;
    for (const auto& [name, found] : index.all()) {
        if (!found->IsSound()) return Fail(EFSError::BAD_FORMAT, "A container of the file is damaged.");
        const std::size_t before = blobs.size();
        found->ForEach([&](std::uint32_t hash, const Entry& entry) { blobs.push_back({hash, entry}); });
        counts.push_back(blobs.size() - before);
    }
    // A blob that has rotted keeps its checksum, so moving gives it no second life.
    if (!Mover(file, target.file).Move(blobs)) return Fail(EFSError::IO, "A blob cannot be moved.");
    container::IndexWriter writer;
    const Blob* next = blobs.data();
    std::size_t number = 0;
    for (const auto& named : index.all()) {
        writer.Begin(named.first, counts[number]);
        for (const Blob* const end = next + counts[number++]; next != end; ++next) writer.Add(next->key, next->value);
    }
    return target.WriteIndex(writer);
}

bool CFileHashMultiContainer::State::CountLive(SMultiContainerStats& stats) const {
    for (const auto& [name, found] : index.all()) {
        if (FindSound(name.c_str()) == nullptr) return false;
        ++stats.containers;
        found->ForEach([&stats](std::uint32_t, const Entry& entry) {
            ++stats.blobs;
            stats.live_bytes += entry.stored_size;
        });
    }
    const std::uint64_t needed = container::data_offset + stats.live_bytes + commit.index_size;
    const std::uint64_t end = file.End();
    stats.wasted_bytes = end > needed ? end - needed : 0;
    return true;
}

bool CFileHashMultiContainer::State::CompactInPlace() {
    for (const std::uint64_t target : {file.End(), container::data_offset}) {
        file.SetEnd(target);
        if (!MoveInto(*this)) {
            file.SetEnd(commit.end());
            return false;
        }
        if (!Load()) {
            Close();
            return false;
        }
    }
    // Where the source cannot cut its files, what is behind the end is written over by what comes next.
    file.CutAtEnd();
    return true;
}

bool CFileHashMultiContainer::State::CompactInto(State& fresh, const std::string& native) {
    const std::string beside = native + ".new";
    const bool whole = fresh.Initialise() && MoveInto(fresh);
    fresh.file.Close();
    if (!whole) {
        platform::remove_file(beside.c_str());
        return false;
    }
    file.Close();
    const bool replaced = platform::replace_file(beside.c_str(), native.c_str());
    if (!replaced) {
        fs::set_error_from_platform(native.c_str(), "cannot be replaced", platform::last_error());
        platform::remove_file(beside.c_str());
    }
    // Not by its virtual name: where that open fails, an empty file may be made in the place of the old one.
    if (file.OpenNative(native.c_str()) && Load()) return replaced;
    Close();
    return false;
}

bool CFileHashMultiContainer::Compact() try {
    const std::lock_guard guard(state_->lock);
    SMultiContainerStats stats;
    if (!state_->IsWritable() || !state_->Save() || !state_->CountLive(stats)) return false;
    // Also where blobs share bytes, as no file of ours has them: each would get its own.
    if (stats.wasted_bytes == 0) return true;
    const std::string native = native_path(state_->path, state_->file.Length());
    State fresh;
    fresh.path = state_->path;
    if (native.empty() || !fresh.file.CreateNative((native + ".new").c_str())) return state_->CompactInPlace();
    return state_->CompactInto(fresh, native);
} catch (const std::bad_alloc&) {
    return state_->FailWithoutMemory();
}

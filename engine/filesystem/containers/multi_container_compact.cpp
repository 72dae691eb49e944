#include <algorithm>
#include <string>
#include <vector>

#include <engine/filesystem/access/open.h>

#include "engine/filesystem/containers/multi_container_state.h"
#include "engine/filesystem/contract/set_error.h"
#include "engine/platform/files.h"

using container::Entry;

namespace {

constexpr std::uint64_t longest_run = 4u << 20;  // bytes copied at a time

/// A live blob on its way: where it lies, and the container and hash under which it is known.
struct Move {
    Entry entry;
    container::Container* target;
    std::uint32_t hash;
};

/// Blobs that lie one behind the other are copied in one piece.
std::size_t run_end(const std::vector<Move>& moves, std::size_t first) {
    std::uint64_t end = moves[first].entry.offset + moves[first].entry.stored_size;
    std::size_t last = first + 1;
    while (last < moves.size() && moves[last].entry.offset == end &&
           end + moves[last].entry.stored_size - moves[first].entry.offset <= longest_run)
        end += moves[last++].entry.stored_size;
    return last;
}

bool copy_run(const container::File& from, container::File& to, std::vector<Move>& moves, std::size_t first,
              std::size_t last, std::vector<unsigned char>& buffer) {
    const std::uint64_t start = moves[first].entry.offset;
    const Entry& end = moves[last - 1].entry;
    buffer.resize(end.offset + end.stored_size - start);
    const std::uint64_t target = to.End();
    if (!from.Read(buffer.data(), buffer.size(), start) || !to.Append(buffer.data(), buffer.size())) return false;
    for (std::size_t i = first; i < last; ++i) {
        Move& move = moves[i];
        const unsigned char* const bytes = buffer.data() + (move.entry.offset - start);
        // A blob that has rotted is not given a second life.
        if (container::checksum(bytes, move.entry.stored_size) != move.entry.checksum) return false;
        move.entry.offset = move.entry.offset - start + target;
        move.target->Put(move.hash, move.entry);
    }
    return true;
}

}  // namespace

bool CFileHashMultiContainer::State::CompactInto(container::File& target, container::Index& moved) const {
    std::vector<Move> moves;
    for (const auto& [name, found] : index.all()) {
        if (!found->IsSound()) return Fail(EFSError::BAD_FORMAT, "A container of the file is damaged.");
        container::Container& same = moved.FindOrAdd(name);
        found->ForEach([&](std::uint32_t hash, const Entry& entry) { moves.push_back({entry, &same, hash}); });
    }
    std::sort(moves.begin(), moves.end(), [](const Move& a, const Move& b) { return a.entry.offset < b.entry.offset; });
    std::vector<unsigned char> buffer;
    for (std::size_t first = 0; first < moves.size();) {
        const std::size_t last = run_end(moves, first);
        if (!copy_run(file, target, moves, first, last, buffer))
            return Fail(EFSError::IO, "A blob cannot be moved: it is damaged, or the disk refuses.");
        first = last;
    }
    return true;
}

bool CFileHashMultiContainer::Compact() {
    const mt::CExclusiveHold hold(state_->lock);
    if (!state_->file.IsOpen() || !state_->file.IsWritable())
        return state_->Fail(EFSError::READ_ONLY, "The multi-container is not open for writing.");
    if (!state_->Save()) return false;
    const std::string native = fs::full_path(state_->path.c_str());
    const std::string beside = native + ".new";
    State fresh;
    fresh.path = state_->path;
    bool whole = !native.empty() && fresh.file.CreateNative(beside.c_str()) && fresh.Initialise() &&
                 state_->CompactInto(fresh.file, fresh.index);
    fresh.changed = true;
    whole = whole && fresh.Save();
    fresh.file.Close();
    if (!whole) {
        if (!native.empty()) platform::remove_file(beside.c_str());
        return native.empty() ? state_->Fail(EFSError::UNSUPPORTED, "Its source has no place on the disk.") : false;
    }
    state_->file.Close();
    const bool replaced = platform::replace_file(beside.c_str(), native.c_str());
    if (!replaced) {
        fs::set_error_from_platform(native.c_str(), "cannot be replaced", platform::last_error());
        platform::remove_file(beside.c_str());
    }
    state_->index = container::Index();
    return state_->file.Open(state_->path.c_str(), true) && state_->Load() && replaced;
}

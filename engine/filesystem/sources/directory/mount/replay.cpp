#include "engine/filesystem/sources/directory/mount/replay.h"

#include "engine/filesystem/sources/directory/mount/recorded.h"
#include "engine/platform/directories.h"

namespace fs {

namespace {

/// Whether a directory still has the times that were recorded.
bool is_current(const NativeRoot& root, std::string_view dir, const platform::DirectoryTimes& recorded) {
    NativePath path;
    platform::DirectoryTimes times;
    return recorded != dir_listing::untrusted_times && build_native_path(root, dir, {}, path) &&
           platform::get_directory_times(path.at(root), times) && times == recorded;
}

}  // namespace

bool replay_listing(const DirectoryState& state, MountedNames& to, const dir_listing& listing, Checking checking) {
    constexpr std::size_t mean_name = 16;
    to.table.reserve(listing.bytes().size() / mean_name, listing.bytes().size());
    ListingReader reader(listing);
    std::string_view text;
    platform::DirectoryTimes times;
    while (!reader.at_end()) {
        if (!reader.read_directory(text, times)) return false;
        if (checking == Checking::ON_DISK && !is_current(state.native_root, text, times)) return false;
        const std::uint32_t dir = to.table.intern_dir(text);
        while (reader.at_file()) {
            if (!reader.read_file(text)) return false;
            state.enter(to, dir, text);
        }
        state.make_node(to, to.table.dir_text(dir));
    }
    return true;
}

}  // namespace fs

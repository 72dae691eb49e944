#include <algorithm>
#include <cstring>

#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/sources/directory/state.h"
#include "engine/filesystem/sources/listing/listing.h"
#include "engine/platform/clock.h"
#include "engine/platform/directories.h"

// A scan reads one native directory after the other, each into the same listing, and enters what it finds: files into the
// table, directories into the tree. A directory's subdirectories wait on one stack of names until its files are in,
// because the order of entry is the order in which look-ups find them.

namespace fs {

namespace {

// A directory's time stamp counts in steps of up to two seconds on some file systems: a change within that time of the
// last one may leave no trace.
constexpr std::int64_t stamp_step = 20'000'000;

class Scan {
public:
    Scan(DirectoryState& state, bool recursive, dir_listing* listing)
        : state_(state), recursive_(recursive), listing_(listing) {}

    bool run(std::string_view dir, fs::dir* node) {
        if (!build_native_path(state_.native_root, dir, {}, path_)) return true;
        return scan(node);
    }

private:
    struct Chained {
        std::size_t length;  // of the path of an ancestor
        platform::DirectoryId id;
        bool is_known;
    };

    std::string_view dir() const { return path_.view().substr(path_.root_length); }

    bool scan(fs::dir* node);
    bool enter_items(std::uint32_t dir_number);
    bool enter_subdirectories(std::size_t first, fs::dir* node);
    bool enter_subdirectory(const char* name, bool is_link, fs::dir* node);
    bool is_on_chain();
    void record_directory();

    DirectoryState& state_;
    bool recursive_;
    dir_listing* listing_;
    NativePath path_;  // of the directory being scanned; ends in "/"
    platform::DirectoryListing items_;
    PodArray<char> waiting_;      // subdirectories: "L" or "D" (link or not), name, NUL
    std::vector<Chained> chain_;  // the directories from the root to this one
};

// The time is taken before the directory is read, so that a change meanwhile makes it look old.
void Scan::record_directory() {
    platform::DirectoryTimes times;
    if (!platform::get_directory_times(path_.at(state_.native_root), times) ||
        times.written > platform::now_utc() - stamp_step) {
        times = dir_listing::untrusted_times;
    }
    listing_->add_directory(dir(), times);
}

bool Scan::scan(fs::dir* node) {
    if (listing_) record_directory();
    // What could be read is used: a directory that cannot be listed, or not to its end, is no error. But a record of it
    // would make a passing failure last.
    const bool listed = platform::list_directory(path_.at(state_.native_root), items_);
    if (!listed && listing_) listing_->spoil();
    const std::uint32_t dir_number = state_.table->intern_dir(dir());
    const std::size_t first_waiting = waiting_.size();
    if (dir_number == DirectoryNames::none || !enter_items(dir_number)) return false;
    if (waiting_.size() == first_waiting) return true;
    chain_.push_back({path_.length, {}, false});
    const bool entered = enter_subdirectories(first_waiting, node);
    chain_.pop_back();
    waiting_.resize_down(first_waiting);
    return entered;
}

bool Scan::enter_items(std::uint32_t dir_number) {
    for (const platform::DirectoryItem& item : items_.items()) state_.table->expect({item.name, item.length});
    for (const platform::DirectoryItem& item : items_.items()) {
        if (item.name[0] == '#' || item.is_offline) continue;
        if (!item.is_directory) {
            if (!state_.enter(dir_number, {item.name, item.length})) return false;
            if (listing_) listing_->add_file({item.name, item.length});
        } else if (recursive_) {
            char* waiting = waiting_.extend(item.length + std::size_t{2});
            if (!waiting) return false;
            waiting[0] = item.is_link ? 'L' : 'D';
            std::memcpy(waiting + 1, item.name, item.length);
            waiting[1 + item.length] = '\0';
        }
    }
    return true;
}

bool Scan::enter_subdirectories(std::size_t first, fs::dir* node) {
    const std::size_t end = waiting_.size();
    for (std::size_t at = first; at < end;) {
        const char* name = waiting_.data() + at;
        at += std::strlen(name) + 1;
        if (!enter_subdirectory(name + 1, *name == 'L', node)) return false;
    }
    return true;
}

bool Scan::enter_subdirectory(const char* name, bool is_link, fs::dir* node) {
    const std::size_t before = path_.length;
    const std::size_t length = std::strlen(name);
    if (before + length + 1 > platform::max_path_bytes) return true;
    std::memcpy(path_.text + before, name, length);
    std::memcpy(path_.text + before + length, "/", 2);
    path_.length = before + length + 1;
    bool entered = true;
    if (!is_link || !is_on_chain()) {
        char lower[platform::path_buffer_size];
        std::memcpy(lower, name, length);
        fold_text(lower, length);
        fs::dir* child = node->add_child(lower, length);
        entered = child != nullptr && scan(child);
    }
    path_.length = before;
    path_.text[before] = '\0';
    return entered;
}

// Whether the directory at path_ is one of those that lead to it. Identities are asked for only where links make it
// possible.
bool Scan::is_on_chain() {
    platform::DirectoryId id;
    if (!platform::get_directory_id(path_.text, id)) return true;
    return std::any_of(chain_.begin(), chain_.end(), [&](Chained& ancestor) {
        if (!ancestor.is_known) {
            const std::string path(path_.text, ancestor.length);
            ancestor.is_known = platform::get_directory_id(path.empty() ? "." : path.c_str(), ancestor.id);
        }
        return ancestor.is_known && ancestor.id == id;
    });
}

bool replay_files(DirectoryState& state, ListingReader& reader, std::uint32_t count, std::uint32_t dir_number) {
    std::string_view name;
    ListingReader ahead = reader;
    for (std::uint32_t i = 0; i < count; ++i) {
        if (!ahead.read_file(name)) return false;
        state.table->expect(name);
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        if (!reader.read_file(name) || !state.enter(dir_number, name)) return false;
    }
    return true;
}

}  // namespace

bool scan_directory(DirectoryState& state, std::string_view dir, fs::dir* node, bool recursive, dir_listing* listing) {
    return Scan(state, recursive, listing).run(dir, node);
}

bool is_current(const DirectoryState& state, const dir_listing& listing) {
    ListingReader reader(listing);
    ListingReader::Directory directory;
    while (!reader.at_end()) {
        NativePath path;
        platform::DirectoryTimes times;
        if (!reader.read_directory(directory) || !reader.skip_files(directory.files)) return false;
        if (directory.times == dir_listing::untrusted_times) return false;
        if (!build_native_path(state.native_root, directory.dir, {}, path)) return false;
        if (!platform::get_directory_times(path.at(state.native_root), times) || times != directory.times) return false;
    }
    return true;
}

bool replay_listing(DirectoryState& state, const dir_listing& listing) {
    ListingReader reader(listing);
    ListingReader::Directory directory;
    while (!reader.at_end()) {
        if (!reader.read_directory(directory)) return false;
        const std::uint32_t dir_number = state.table->intern_dir(directory.dir);
        if (dir_number == DirectoryNames::none) return false;
        std::string lower(directory.dir);
        fold_text(lower.data(), lower.size());
        if (!state.tree_node(lower, true)) return false;
        if (!replay_files(state, reader, directory.files, dir_number)) return false;
    }
    return true;
}

}  // namespace fs

#include <algorithm>
#include <cstring>

#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/sources/directory/listing_ahead.h"
#include "engine/filesystem/sources/directory/listing_check.h"
#include "engine/filesystem/sources/directory/state.h"
#include "engine/filesystem/sources/listing/listing.h"
#include "engine/platform/directories.h"

// A scan takes one native directory after the other and enters what it finds: files into the table, directories into the
// tree. A directory's subdirectories wait on one stack of names until its files are in, because the order of entry is the
// order in which look-ups find them. While names are entered the next directories are listed already.

namespace fs {

namespace {

class Scan {
public:
    Scan(DirectoryState& state, bool recursive, dir_listing* listing)
        : state_(state), recursive_(recursive), listing_(listing), ahead_(state.native_root, listing != nullptr) {}

    bool run(std::string_view dir, fs::dir* node) {
        if (!build_native_path(state_.native_root, dir, {}, path_)) return true;
        return scan(node, ahead_.list_now(path_));
    }

private:
    struct Chained {
        std::size_t length;  // of the path of an ancestor
        platform::DirectoryId id;
        bool is_known;
    };

    std::string_view dir() const { return path_.view().substr(path_.root_length); }

    bool scan(fs::dir* node, const ListingAhead::Listed& listed);
    bool enter_items(const platform::DirectoryListing& listing, std::uint32_t dir_number);
    bool add_waiting(const platform::DirectoryItem& item);
    bool enter_subdirectories(std::size_t first, fs::dir* node);
    bool enter_subdirectory(const char* name, bool is_link, fs::dir* node);
    bool is_on_chain();

    DirectoryState& state_;
    bool recursive_;
    dir_listing* listing_;
    NativePath path_;  // of the directory being scanned; ends in "/"
    ListingAhead ahead_;
    PodArray<char> waiting_;      // subdirectories: "L" or "D" (link or not), name, NUL
    std::vector<Chained> chain_;  // the directories from the root to this one
};

bool Scan::scan(fs::dir* node, const ListingAhead::Listed& listed) {
    if (listing_) listing_->add_directory(dir(), listed.times);
    // What could be read is used: a directory that cannot be listed, or not to its end, is no error. But a record of it
    // would make a passing failure last.
    if (listing_ && !listed.is_complete) listing_->spoil();
    const std::uint32_t dir_number = state_.table->intern_dir(dir());
    const std::size_t first_waiting = waiting_.size();
    if (dir_number == DirectoryNames::none || !enter_items(listed.items, dir_number)) return false;
    if (waiting_.size() == first_waiting) return true;
    if (!ahead_.release_expected()) return false;
    chain_.push_back({path_.length, {}, false});
    const bool entered = enter_subdirectories(first_waiting, node);
    chain_.pop_back();
    waiting_.resize_down(first_waiting);
    return entered;
}

bool Scan::enter_items(const platform::DirectoryListing& listing, std::uint32_t dir_number) {
    for (const platform::DirectoryItem& item : listing.items()) state_.table->expect({item.name, item.length});
    for (const platform::DirectoryItem& item : listing.items()) {
        if (item.name[0] == '#' || item.is_offline) continue;
        if (!item.is_directory) {
            if (!state_.enter(dir_number, {item.name, item.length})) return false;
            if (listing_) listing_->add_file({item.name, item.length});
        } else if (recursive_ && !add_waiting(item)) {
            return false;
        }
    }
    return true;
}

bool Scan::add_waiting(const platform::DirectoryItem& item) {
    char* const waiting = waiting_.extend(item.length + std::size_t{2});
    if (!waiting) return false;
    waiting[0] = item.is_link ? 'L' : 'D';
    std::memcpy(waiting + 1, item.name, item.length);
    waiting[1 + item.length] = '\0';
    return ahead_.expect(path_, {item.name, item.length}, item.is_link);
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
    if (before + length + 1 > platform::max_path_bytes) {
        ahead_.skip();
        return true;
    }
    std::memcpy(path_.text + before, name, length);
    std::memcpy(path_.text + before + length, "/", 2);
    path_.length = before + length + 1;
    bool entered = true;
    if (is_link && is_on_chain()) {
        ahead_.skip();
    } else {
        char lower[platform::path_buffer_size];
        std::memcpy(lower, name, length);
        fold_text(lower, length);
        fs::dir* child = node->add_child(lower, length);
        entered = child != nullptr && scan(child, ahead_.next(path_));
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

bool replay_listing(DirectoryState& state, const dir_listing& listing, const ListingCheck* check) {
    state.table->reserve(listing.files(), listing.bytes().size());
    ListingReader reader(listing);
    ListingReader::Directory directory;
    while (!reader.at_end()) {
        if (check && check->is_stale()) return false;
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

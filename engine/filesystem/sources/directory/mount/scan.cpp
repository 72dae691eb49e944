#include "engine/filesystem/sources/directory/mount/scan.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

#include "engine/filesystem/contract/path.h"
#include "engine/filesystem/sources/directory/mount/ahead.h"
#include "engine/filesystem/sources/directory/mount/recorded.h"
#include "engine/platform/directories.h"

// A scan takes one native directory after the other and enters what it finds: files into the table, directories into the
// tree. Subdirectories wait until the files of their directory are in, because the order of entry is the order in which
// lookups find them. While names are entered the next directories are listed already.

namespace fs {

namespace {

class Scan {
public:
    Scan(const DirectoryState& state, MountedNames& to, bool recursive, dir_listing* listing, ScanGuide* guide)
        : state_(state),
          to_(to),
          recursive_(recursive),
          listing_(listing),
          guide_(guide),
          ahead_(state.native_root, listing != nullptr, guide == nullptr) {}

    void enter(ListingAhead::Directory& directory, fs::dir& node);

private:
    struct Chained {
        const char* path;  // of an ancestor
        std::optional<platform::FileId> id;
    };

    void note_unlisted(std::string_view dir, const platform::Error& error);
    void enter_files(const platform::DirectoryListing& listing, std::uint32_t dir_number);
    void enter_next_below(const ListingAhead::Directory& parent, fs::dir& node);
    bool follows(const char* link);
    bool is_on_chain(const platform::FileId& id);

    const DirectoryState& state_;
    MountedNames& to_;
    bool recursive_;
    dir_listing* listing_;
    ScanGuide* guide_;
    ListingAhead ahead_;
    std::vector<Chained> chain_;  // the directories from the root to the one that is being entered
    std::size_t links_on_chain_ = 0;
};

void Scan::enter(ListingAhead::Directory& directory, fs::dir& node) {
    const std::string_view below_root = std::string_view(directory.path).substr(state_.native_root.text.size());
    if (guide_ && !guide_->enters(below_root, directory.is_link)) return;
    ahead_.list(directory);
    if (listing_) listing_->add_directory(below_root, directory.times);
    if (!directory.is_complete) note_unlisted(below_root, directory.error);
    enter_files(directory.items, to_.table.intern_dir(below_root));
    std::size_t left = recursive_ ? ahead_.add(directory) : 0;
    directory.items.clear();
    chain_.push_back({directory.path.c_str(), std::nullopt});
    for (; left > 0; --left) enter_next_below(directory, node);
    chain_.pop_back();
}

// A record of what could not be listed would make a passing failure last.
void Scan::note_unlisted(std::string_view dir, const platform::Error& error) {
    if (listing_) listing_->spoil();
    if (error.failure == platform::Failure::NOT_FOUND) return;
    if (guide_) guide_->cannot_list(dir, error);
    to_.unlisted.insert(lower_text(dir));
    to_.unlisted_error = error;
}

void Scan::enter_files(const platform::DirectoryListing& listing, std::uint32_t dir_number) {
    for (const platform::DirectoryItem& item : listing.items()) {
        if (item.is_directory || is_passed_over(item)) continue;
        state_.enter(to_, dir_number, {item.name, item.length});
        if (listing_) listing_->add_file({item.name, item.length});
    }
}

void Scan::enter_next_below(const ListingAhead::Directory& parent, fs::dir& node) {
    const ListingAhead::DirectoryPtr taken = ahead_.take_next();
    ListingAhead::Directory& next = *taken;
    if (next.path.size() > platform::max_path_bytes) {
        const std::string_view below = std::string_view(next.path).substr(state_.native_root.text.size());
        to_.note_too_long(below.substr(0, below.size() - 1), "");
        if (listing_) listing_->spoil();
        return;
    }
    if (next.is_link && !follows(next.path.c_str())) return;
    const std::string name = lower_text(std::string_view(next.path).substr(parent.path.size()));
    fs::dir* const child = node.add_child(name.data(), name.size() - 1);
    if (child == nullptr) throw std::bad_alloc();
    links_on_chain_ += next.is_link ? 1 : 0;
    enter(next, *child);
    links_on_chain_ -= next.is_link ? 1 : 0;
}

// Whether a link is entered. Identities are asked for only where links make it necessary.
bool Scan::follows(const char* link) {
    platform::FileId id;
    if (!platform::get_directory_id(link, id) || is_on_chain(id)) return false;
    const bool is_new = to_.linked.insert({id.device, id.inode}).second;
    return is_new || links_on_chain_ == 0;
}

bool Scan::is_on_chain(const platform::FileId& id) {
    return std::any_of(chain_.begin(), chain_.end(), [&](Chained& ancestor) {
        platform::FileId found;
        if (!ancestor.id && platform::get_directory_id(*ancestor.path == '\0' ? "." : ancestor.path, found)) {
            ancestor.id = found;
        }
        return ancestor.id == id;
    });
}

}  // namespace

bool is_below_any(const std::set<std::string, std::less<>>& dirs, std::string_view dir) {
    for (;;) {
        if (dirs.contains(dir)) return true;
        if (dir.empty()) return false;
        dir = parent_directory(dir);
    }
}

void scan_directory(const DirectoryState& state, MountedNames& to, std::string_view dir, fs::dir& node, bool recursive,
                    dir_listing* listing, ScanGuide* guide) {
    NativePath path;
    if (!build_native_path(state.native_root, dir, {}, path)) return;
    ListingAhead::Directory directory;
    directory.path = path.view();
    Scan(state, to, recursive, listing, guide).enter(directory, node);
}

void keep_unlisted(const DirectoryState& state, MountedNames& before, MountedNames& to) {
    if (to.unlisted.empty()) return;
    const NameTable& old = before.table;
    for (std::uint32_t file = old.first(); file != NameTable::none; file = old.next(file)) {
        if (!is_below_any(to.unlisted, old.dir(file))) continue;
        if (to.table.find_exact(old.dir(file), old.name(file)) != NameTable::none) continue;
        to.table.add(to.table.intern_dir(old.spelled_dir(file)), old.spelled_name(file), old.value(file));
    }
    for (const std::string& dir : to.unlisted) {
        const fs::dir* const node = state.find_node(before, dir);
        if (node != nullptr) state.make_node(to, dir).merge(*node);
    }
}

}  // namespace fs

#include "engine/filesystem/sources/directory/mount/scan.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/sources/directory/mount/ahead.h"
#include "engine/filesystem/sources/directory/mount/recorded.h"
#include "engine/platform/directories.h"

// A scan takes one native directory after the other and enters what it finds: files into the table, directories into the
// tree. A directory's subdirectories wait on one stack of names until its files are in, because the order of entry is the
// order in which lookups find them. While names are entered the next directories are listed already.

namespace fs {

namespace {

class Scan {
public:
    Scan(const DirectoryState& state, MountedNames& to, bool recursive, dir_listing* listing)
        : state_(state),
          to_(to),
          recursive_(recursive),
          listing_(listing),
          ahead_(state.native_root, listing != nullptr) {}

    void run(std::string_view dir, fs::dir& node) {
        if (build_native_path(state_.native_root, dir, {}, path_)) scan(node, ahead_.list_now(path_));
    }

private:
    struct Waiting {  // a subdirectory of the path
        std::string name;
        bool is_link;
    };
    struct Chained {
        std::size_t length;  // of the path of an ancestor
        std::optional<platform::DirectoryId> id;
    };

    void scan(fs::dir& node, const ListingAhead::Listed& listed);
    void note_unlisted(const platform::Error& error);
    void enter_items(const platform::DirectoryListing& listing, std::uint32_t dir_number);
    void enter_subdirectory(std::string_view name, bool is_link, fs::dir& node);
    bool follows();
    bool is_on_chain(const platform::DirectoryId& id);

    const DirectoryState& state_;
    MountedNames& to_;
    bool recursive_;
    dir_listing* listing_;
    NativePath path_;  // of the directory being scanned; ends in "/"
    ListingAhead ahead_;
    std::vector<Waiting> waiting_;
    std::vector<Chained> chain_;  // the directories from the root to this one
    std::size_t links_on_chain_ = 0;
    std::set<std::pair<std::uint64_t, std::uint64_t>> linked_;  // directories that links led to
};

void Scan::scan(fs::dir& node, const ListingAhead::Listed& listed) {
    if (listing_) listing_->add_directory(path_.below_root(), listed.times);
    if (!listed.is_complete) note_unlisted(listed.error);
    const std::uint32_t dir_number = to_.table.intern_dir(path_.below_root());
    const std::size_t first_waiting = waiting_.size();
    enter_items(listed.items, dir_number);
    if (waiting_.size() == first_waiting) return;
    ahead_.start_prefetching();
    chain_.push_back({path_.length, std::nullopt});
    const std::size_t end = waiting_.size();
    for (std::size_t at = first_waiting; at < end; ++at) {
        const Waiting next = std::move(waiting_[at]);  // what is below it waits behind the others
        enter_subdirectory(next.name, next.is_link, node);
    }
    chain_.pop_back();
    waiting_.erase(waiting_.begin() + static_cast<std::ptrdiff_t>(first_waiting), waiting_.end());
}

// A record of what could not be listed would make a passing failure last.
void Scan::note_unlisted(const platform::Error& error) {
    if (listing_) listing_->spoil();
    if (error.failure == platform::Failure::NOT_FOUND) return;
    to_.unlisted.insert(lower_text(path_.below_root()));
    to_.unlisted_error = error;
}

void Scan::enter_items(const platform::DirectoryListing& listing, std::uint32_t dir_number) {
    for (const platform::DirectoryItem& item : listing.items()) {
        if (item.name[0] == '#' || item.is_offline) continue;
        if (!item.is_directory) {
            state_.enter(to_, dir_number, {item.name, item.length});
            if (listing_) listing_->add_file({item.name, item.length});
        } else if (recursive_) {
            waiting_.push_back({{item.name, item.length}, item.is_link});
            ahead_.prefetch(path_, {item.name, item.length}, item.is_link);
        }
    }
}

void Scan::enter_subdirectory(std::string_view name, bool is_link, fs::dir& node) {
    const std::size_t before = path_.length;
    if (!path_.append(name) || !path_.append("/")) {
        ahead_.skip();
        path_.cut(before);
        to_.note_too_long(path_.below_root(), name);
        if (listing_) listing_->spoil();
    } else if (is_link && !follows()) {
        ahead_.skip();
    } else {
        const std::string lower = lower_text(name);
        fs::dir* const child = node.add_child(lower.data(), lower.size());
        if (child == nullptr) throw std::bad_alloc();
        links_on_chain_ += is_link ? 1 : 0;
        scan(*child, ahead_.next(path_));
        links_on_chain_ -= is_link ? 1 : 0;
    }
    path_.cut(before);
}

// Whether the link at path_ is entered. Identities are asked for only where links make it necessary.
bool Scan::follows() {
    platform::DirectoryId id;
    if (!platform::get_directory_id(path_.text, id) || is_on_chain(id)) return false;
    const bool is_new = linked_.insert({id.device, id.inode}).second;
    return is_new || links_on_chain_ == 0;
}

bool Scan::is_on_chain(const platform::DirectoryId& id) {
    return std::any_of(chain_.begin(), chain_.end(), [&](Chained& ancestor) {
        if (!ancestor.id) {
            const std::string path(path_.text, ancestor.length);
            platform::DirectoryId found;
            if (platform::get_directory_id(path.empty() ? "." : path.c_str(), found)) ancestor.id = found;
        }
        return ancestor.id == id;
    });
}

/// Whether `dir` is one of `dirs` or lies below one.
bool is_below_any(const std::set<std::string, std::less<>>& dirs, std::string_view dir) {
    for (;;) {
        if (dirs.contains(dir)) return true;
        if (dir.empty()) return false;
        const std::size_t separator = dir.substr(0, dir.size() - 1).rfind('/');
        dir = dir.substr(0, separator == std::string_view::npos ? 0 : separator + 1);
    }
}

}  // namespace

void scan_directory(const DirectoryState& state, MountedNames& to, std::string_view dir, fs::dir& node, bool recursive,
                    dir_listing* listing) {
    Scan(state, to, recursive, listing).run(dir, node);
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

#include <new>

#include "engine/platform/directories.h"
#include "engine/platform/fail.h"

namespace platform {
namespace {

class TreeRemover {
public:
    TreeRemover(const char* path, TreeRemoval& removal) : path_(path), removal_(removal) {}

    bool run() {
        while (path_.size() > 1 && path_.back() == '/') path_.pop_back();
        removal_.left.clear();
        const DirectoryItem root{.is_directory = true, .is_link = is_link(path_.c_str())};
        remove(root);
        return removal_.left.empty() || fail(why_left_.failure, why_left_.os_code);
    }

private:
    /// Answers whether nothing stays.
    bool remove(const DirectoryItem& item) {
        if (item.is_directory && !item.is_link && !remove_content()) return false;
        if (!(item.is_directory ? remove_directory(path_.c_str()) : remove_file(path_.c_str()))) return leave();
        if (removal_.removed) removal_.removed(path_.c_str(), item);
        return true;
    }

    bool remove_content() {
        DirectoryListing listing;
        bool is_empty = list_directory({.full = path_.c_str()}, listing, Links::ALL) || leave();
        const std::size_t length = path_.size();
        for (const DirectoryItem& item : listing.items()) {
            if (removal_.keeps && removal_.keeps(item)) continue;
            path_.append(path_.back() == '/' ? "" : "/").append(item.name, item.length);
            is_empty = remove(item) && is_empty;
            path_.resize(length);
        }
        return is_empty;
    }

    bool leave() {
        if (!removal_.left.empty()) return false;
        why_left_ = last_error();
        removal_.left = path_;
        return false;
    }

    std::string path_;
    TreeRemoval& removal_;
    Error why_left_;
};

}  // namespace

bool remove_tree(const char* path, TreeRemoval& removal) { return TreeRemover(path, removal).run(); }

}  // namespace platform

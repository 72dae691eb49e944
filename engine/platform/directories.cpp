// Listing in order and removing whole trees: what is the same on every system.
#include "engine/platform/directories.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "engine/platform/text.h"

namespace platform {
namespace {

constexpr std::size_t key_bytes = 8;  // names are compared by that many folded bytes at a time

std::uint64_t load_big_endian(const char* text) {
    const auto* b = reinterpret_cast<const unsigned char*>(text);
    return std::uint64_t{b[0]} << 56 | std::uint64_t{b[1]} << 48 | std::uint64_t{b[2]} << 40 |
           std::uint64_t{b[3]} << 32 | std::uint64_t{b[4]} << 24 | std::uint64_t{b[5]} << 16 |
           std::uint64_t{b[6]} << 8 | std::uint64_t{b[7]};
}

/// The eight folded bytes from `name + skip`, most significant first, zero beyond the end. Reads up to eight bytes
/// past the name, which sort() keeps readable.
std::uint64_t key_of(const DirectoryItem& item, std::size_t skip) {
    if (skip >= item.length) return 0;
    std::uint64_t word = load_big_endian(item.name + skip);
    const std::size_t left = item.length - skip;
    if (left < key_bytes) word &= ~std::uint64_t{0} << (8 * (key_bytes - left));
    return fold_word(word);
}

/// No name holds a zero byte, so the zeros beyond an end put the shorter name first.
bool goes_before(const DirectoryItem& a, const DirectoryItem& b) {
    const std::size_t end = std::max(a.length, b.length);
    for (std::size_t at = 0; at < end; at += key_bytes) {
        const std::uint64_t key_a = key_of(a, at);
        const std::uint64_t key_b = key_of(b, at);
        if (key_a != key_b) return key_a < key_b;
    }
    return std::memcmp(a.name, b.name, a.length) < 0;
}

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

void DirectoryListing::add(const char* name, std::size_t length, const DirectoryItem& kind) {
    text_.append(name, length).push_back('\0');
    items_.emplace_back(kind).length = static_cast<std::uint16_t>(length);
}

void DirectoryListing::clear() {
    items_.clear();
    text_.clear();
}

void DirectoryListing::sort() {
    text_.append(key_bytes, '\0');
    const char* name = text_.data();
    for (DirectoryItem& item : items_) {
        item.name = name;
        name += item.length + 1;
    }
    if (!std::is_sorted(items_.begin(), items_.end(), goes_before))
        std::sort(items_.begin(), items_.end(), goes_before);
}

bool list_directory(const PathAt& path, DirectoryListing& out, Links links) try {
    out.clear();
    if (meets_fault(FaultPoint::LIST)) return false;
    const bool is_complete = read_items(path, links, out);
    out.sort();
    return is_complete;
} catch (const std::bad_alloc&) {
    out.clear();  // an item that has no name yet would lead from a root to the whole disk
    return fail(Failure::OUT_OF_MEMORY);
}

bool remove_tree(const char* path, TreeRemoval& removal) { return TreeRemover(path, removal).run(); }

}  // namespace platform

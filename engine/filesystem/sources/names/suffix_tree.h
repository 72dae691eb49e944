#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "engine/filesystem/sources/names/hash_index.h"

namespace fs {

/// The directories of files that all bear one name, kept so that the first file whose directory matches is found without
/// asking each: a radix tree over the directories read backwards. Files are numbers that grow in the order of insertion.
/// Walking down by a query passes every directory that is a suffix of it; whatever lies below the end of the query has the
/// query as its suffix; the answer is the least number of both.
///
/// `characters` is the text that the directories' offsets count in; it may have moved and grown between calls.
class SuffixTree {
public:
    static constexpr std::uint32_t none = 0xFFFFFFFFu;

    SuffixTree() : nodes_(1) {}

    /// Adds the directory at `offset` for the file `number`, which is larger than every number before it. May throw
    /// std::bad_alloc, and then changes nothing.
    void insert(const char* characters, std::uint32_t offset, std::size_t length, std::uint32_t number) {
        // One leaf and one split at most, so that nothing below can fail half way.
        if (nodes_.capacity() - nodes_.size() < 2) nodes_.reserve(nodes_.size() * 2 + 2);
        children_.make_room(2);
        std::uint32_t node = 0;
        nodes_[0].least = std::min(nodes_[0].least, number);
        while (length > 0) {
            const auto end = static_cast<std::uint32_t>(offset + length);
            std::uint32_t child = find_child(node, characters[end - 1]);
            if (child == none) child = add_leaf(characters, node, end, length);
            const std::size_t common =
                common_length(characters + nodes_[child].text_end, nodes_[child].length, {characters + offset, length});
            if (common < nodes_[child].length) child = split(characters, child, common);
            nodes_[child].least = std::min(nodes_[child].least, number);
            node = child;
            length -= common;
        }
        nodes_[node].is_shared = nodes_[node].exact != none;
        nodes_[node].exact = std::min(nodes_[node].exact, number);
    }
    /// The least number whose directory is a suffix of `dir`, or has it as a suffix. Empty directories match nothing.
    std::uint32_t find(const char* characters, std::string_view dir) const {
        std::uint32_t best = none;
        for (std::uint32_t node = 0; !dir.empty();) {
            const std::uint32_t child = find_child(node, dir.back());
            if (child == none) return best;
            const Node& next = nodes_[child];
            const std::size_t common = common_length(characters + next.text_end, next.length, dir);
            if (common == dir.size()) return std::min(best, next.least);
            if (common < next.length) return best;
            best = std::min(best, next.exact);
            node = child;
            dir.remove_suffix(common);
        }
        return none;
    }
    /// The least number of exactly this directory.
    std::uint32_t find_exact(const char* characters, std::string_view dir) const {
        const std::uint32_t node = find_node(characters, dir);
        return node == none ? none : nodes_[node].exact;
    }
    /// Takes `number` away from its directory. `heir()` answers the next number of the same directory, or none; it is
    /// asked only when there may be one.
    template <class Heir>
    void remove(const char* characters, std::string_view dir, std::uint32_t number, Heir&& heir) {
        const std::uint32_t node = find_node(characters, dir);
        if (node == none || nodes_[node].exact != number) return;
        nodes_[node].exact = nodes_[node].is_shared ? heir() : none;
        update_least(node);
    }
    /// Whether several numbers may bear exactly this directory.
    bool is_shared(const char* characters, std::string_view dir) const {
        const std::uint32_t node = find_node(characters, dir);
        return node != none && nodes_[node].is_shared;
    }
    std::size_t bytes() const { return nodes_.capacity() * sizeof(Node) + children_.bytes(); }

private:
    struct Node {
        std::uint32_t text_end = 0;  // its characters lie before this offset and are read backwards from it
        std::uint16_t length = 0;
        char first = 0;
        bool is_shared = false;      // several numbers bear the directory that ends here
        std::uint32_t exact = none;  // least number of the directory that ends here
        std::uint32_t least = none;  // least number here and below
        std::uint32_t parent = none;
        std::uint32_t first_child = none;
        std::uint32_t next_sibling = none;
    };

    /// How many characters before `text_end` equal the end of `rest`, at most `length`.
    static std::size_t common_length(const char* text_end, std::size_t length, std::string_view rest) {
        const std::size_t limit = std::min(length, rest.size());
        std::size_t common = 0;
        while (common < limit && *(text_end - 1 - common) == rest[rest.size() - 1 - common]) ++common;
        return common;
    }

    static std::uint64_t hash_of_child(std::uint32_t parent, char first) {
        return (std::uint64_t{parent} << 8 | static_cast<unsigned char>(first)) * 0x9E3779B97F4A7C15u;
    }
    std::size_t child_slot(std::uint32_t parent, char first) const {
        return children_.find(hash_of_child(parent, first), [&](std::uint32_t child) {
            return nodes_[child].parent == parent && nodes_[child].first == first;
        });
    }
    std::uint32_t find_child(std::uint32_t parent, char first) const {
        const std::size_t slot = child_slot(parent, first);
        return slot == HashIndex::npos ? none : children_.value(slot);
    }
    std::uint32_t add_leaf(const char* characters, std::uint32_t parent, std::uint32_t text_end, std::size_t length) {
        const auto leaf = static_cast<std::uint32_t>(nodes_.size());
        nodes_.push_back({.text_end = text_end,
                          .length = static_cast<std::uint16_t>(length),
                          .first = characters[text_end - 1],
                          .parent = parent,
                          .next_sibling = nodes_[parent].first_child});
        nodes_[parent].first_child = leaf;
        children_.insert(hash_of_child(parent, nodes_[leaf].first), leaf);
        return leaf;
    }
    /// Puts a node above `child` that takes the first `length` of its characters.
    std::uint32_t split(const char* characters, std::uint32_t child, std::size_t length) {
        const auto upper = static_cast<std::uint32_t>(nodes_.size());
        Node above = nodes_[child];
        std::uint32_t* link = &nodes_[above.parent].first_child;
        while (*link != child) link = &nodes_[*link].next_sibling;
        *link = upper;
        children_.set(child_slot(above.parent, above.first), upper);
        Node& below = nodes_[child];
        below.text_end -= static_cast<std::uint32_t>(length);
        below.length = static_cast<std::uint16_t>(below.length - length);
        below.first = characters[below.text_end - 1];
        below.parent = upper;
        below.next_sibling = none;
        above.length = static_cast<std::uint16_t>(length);
        above.is_shared = false;
        above.exact = none;
        above.first_child = child;
        nodes_.push_back(above);
        children_.insert(hash_of_child(upper, nodes_[child].first), child);
        return upper;
    }
    std::uint32_t find_node(const char* characters, std::string_view dir) const {
        std::uint32_t node = 0;
        while (!dir.empty()) {
            node = find_child(node, dir.back());
            if (node == none) return none;
            const Node& next = nodes_[node];
            if (common_length(characters + next.text_end, next.length, dir) < next.length) return none;
            dir.remove_suffix(next.length);
        }
        return node;
    }
    void update_least(std::uint32_t node) {
        for (; node != none; node = nodes_[node].parent) {
            std::uint32_t least = nodes_[node].exact;
            for (std::uint32_t child = nodes_[node].first_child; child != none; child = nodes_[child].next_sibling) {
                least = std::min(least, nodes_[child].least);
            }
            nodes_[node].least = least;
        }
    }

    std::vector<Node> nodes_;  // the first is the root
    HashIndex children_;       // by parent and first character
};

}  // namespace fs

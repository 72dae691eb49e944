#pragma once

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
    void insert(const char* characters, std::uint32_t offset, std::size_t length, std::uint32_t number);
    /// The least number whose directory is a suffix of `dir`, or has it as a suffix. Empty directories match nothing.
    std::uint32_t find(const char* characters, std::string_view dir) const;
    /// The least number of exactly this directory.
    std::uint32_t find_exact(const char* characters, std::string_view dir) const;
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

    std::size_t child_slot(std::uint32_t parent, char first) const;
    std::uint32_t find_child(std::uint32_t parent, char first) const {
        const std::size_t slot = child_slot(parent, first);
        return slot == HashIndex::npos ? none : children_.value(slot);
    }
    std::uint32_t add_leaf(const char* characters, std::uint32_t parent, std::uint32_t text_end, std::size_t length);
    std::uint32_t split(const char* characters, std::uint32_t child, std::size_t length);
    std::uint32_t find_node(const char* characters, std::string_view dir) const;
    void update_least(std::uint32_t node);

    std::vector<Node> nodes_;  // the first is the root
    HashIndex children_;       // by parent and first character
};

}  // namespace fs

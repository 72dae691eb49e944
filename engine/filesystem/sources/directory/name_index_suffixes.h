#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "engine/filesystem/sources/directory/file_table_array.h"

namespace fs {

/// The directories of files that all bear one name, kept so that the first file whose directory matches is found
/// without asking each: a radix tree over the directories read backwards. A file is known by its number in the table,
/// and numbers grow in the order of insertion. Walking down by a query passes every directory that is a suffix of it;
/// whatever lies below the end of the query has the query as its suffix; the answer is the least number of both.
class SuffixTree {
public:
    static constexpr std::uint32_t none = 0xFFFFFFFFu;

    /// `text` holds the directories' characters; offsets into it stay good when it grows.
    explicit SuffixTree(const PodArray<char>& text) : text_(&text) {}

    /// Adds the directory at `offset` for the file `number`, which is larger than every number before it.
    [[nodiscard]] bool insert(std::uint32_t offset, std::size_t length, std::uint32_t number);
    /// The least number whose directory is a suffix of `dir`, or has it as a suffix.
    std::uint32_t find(std::string_view dir) const;
    /// The least number of exactly this directory.
    std::uint32_t find_exact(std::string_view dir) const;
    /// Whether more than one number was inserted for exactly this directory.
    bool is_shared(std::string_view dir) const;
    /// Takes `number` away from its directory; `heir` is the next number of the same directory, or none.
    void remove(std::string_view dir, std::uint32_t number, std::uint32_t heir);
    /// Gives each number the one that `renumbered` answers for it; their order stays.
    template <class Renumbered>
    void renumber(Renumbered&& renumbered) {
        for (Node& node : nodes_) {
            if (node.exact != none) node.exact = renumbered(node.exact);
            if (node.least != none) node.least = renumbered(node.least);
        }
    }
    std::size_t bytes() const { return nodes_.bytes() + slots_.bytes(); }

private:
    struct Node {
        std::uint32_t text_end;  // its characters lie before this offset and are read backwards from it
        std::uint16_t length;
        char first;
        bool is_shared;       // several numbers bear the directory that ends here
        std::uint32_t exact;  // least number of the directory that ends here
        std::uint32_t least;  // least number here and below
        std::uint32_t parent;
        std::uint32_t first_child;
        std::uint32_t next_sibling;
    };

    bool prepare();
    std::uint32_t add_node(std::uint32_t parent, std::uint32_t text_end, std::size_t length);
    std::uint32_t split(std::uint32_t child, std::size_t length);
    std::uint32_t find_child(std::uint32_t parent, char first) const;
    std::size_t slot_of(std::uint32_t parent, char first) const;
    bool grow_slots();
    std::size_t common_length(const Node& node, std::string_view rest) const;
    std::uint32_t find_node(std::string_view dir) const;

    const PodArray<char>* text_;
    PodArray<Node> nodes_;           // the first is the root
    PodArray<std::uint32_t> slots_;  // nodes by parent and first character, open addressing
};

}  // namespace fs

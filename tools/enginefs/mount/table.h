#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

/// The names of a mounted view, as inodes: numbers from 1, the root, upwards. It never changes once it is made; one that
/// takes its place keeps the numbers of what is there still, and gives none of them to another name.
///
/// Names    one name for each, without regard to the case of ASCII letters; listed as they were given.
/// Threads  any number at once.
class Table {
public:
    static constexpr std::uint64_t root = 1;

    /// What is known of a file.
    struct Facts {
        std::uint32_t source = 0;   // its place in asking order; of a directory too
        std::uint32_t version = 0;  // another number for what may be other bytes
        std::uint64_t size = 0;
        std::int64_t time = 0;    // of its last change, in ns since 1970
        bool is_decoded = false;  // its bytes must be unpacked, so that a seek costs
    };

    struct Item {
        std::string path;  // "/" between names, and at the end of a directory's
        Facts facts;
    };

    struct Node {
        std::uint32_t inode = 0;
        std::uint32_t parent = 0;               // an index of nodes
        std::uint32_t first = 0, count = 0;     // of its children
        std::uint32_t name_at = 0, key_at = 0;  // a key is a name in lower case
        std::uint16_t name_size = 0;
        bool is_directory = false;
        Facts facts{};
    };

    /// Of a file and a directory of one name the one from the first source is kept; hidden() tells of the other.
    explicit Table(std::vector<Item> items, const Table* before = nullptr);

    /// Null for a number that no name has.
    const Node* find(std::uint64_t inode) const;
    /// The inode of a name in a directory, in any case; 0 when there is none.
    std::uint64_t lookup(std::uint64_t directory, std::string_view name) const;
    /// The inode of a directory's child, counted from 0; 0 behind the last.
    std::uint64_t child(std::uint64_t directory, std::uint64_t index) const;
    /// The child behind this one in the same directory; 0 behind the last.
    std::uint64_t next(std::uint64_t inode) const;
    std::uint64_t parent(std::uint64_t inode) const;
    /// The inode of a whole name, in any case; 0 when there is none.
    std::uint64_t lookup_path(std::string_view path) const;

    std::string_view name(const Node& node) const { return {texts_.data() + node.name_at, node.name_size}; }
    /// The whole name of a file or a directory.
    std::string path(std::uint64_t inode) const;

    std::span<const Node> nodes() const { return nodes_; }  // the root first
    std::time_t made() const { return made_; }
    std::size_t files() const;
    std::uint64_t bytes() const;  // of all files
    /// The paths that were left out, those of directories with "/" at the end.
    const std::set<std::string>& hidden() const { return hidden_; }

private:
    using Known = std::unordered_map<std::string, std::uint32_t>;  // indices of nodes, by paths in lower case

    std::uint32_t add(Known& known, std::string_view path, bool is_directory, const Item& item, const Table* before);
    std::uint32_t add_text(std::string_view text);
    void sort_children();
    std::size_t place_of(const Node& directory, std::string_view key) const;
    std::string_view key(const Node& node) const { return {texts_.data() + node.key_at, node.name_size}; }

    const std::time_t made_;
    std::vector<Node> nodes_;
    std::vector<std::uint32_t> children_;  // indices of nodes: by directory, and there by key
    std::vector<std::uint32_t> by_inode_;  // indices of nodes; `none` for one that is gone
    std::string texts_;                    // names and keys
    std::set<std::string> hidden_;
};

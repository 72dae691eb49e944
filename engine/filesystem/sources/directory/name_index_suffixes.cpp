#include "engine/filesystem/sources/directory/name_index_suffixes.h"

#include <algorithm>
#include <cstring>

namespace fs {

namespace {

constexpr std::size_t first_slots = 32;

std::size_t mix(std::uint32_t parent, char first) {
    const std::uint64_t key = static_cast<std::uint64_t>(parent) << 8 | static_cast<unsigned char>(first);
    return static_cast<std::size_t>((key * 0x9E3779B97F4A7C15u) >> 24);
}

}  // namespace

bool SuffixTree::prepare() {
    if (nodes_.size() != 0) return true;
    std::uint32_t* slots = slots_.extend(first_slots);
    if (!slots) return false;
    std::fill_n(slots, first_slots, none);
    return nodes_.push({0, 0, 0, false, none, none, none, none, none});
}

// The slot that holds the child, or the empty one where it would be put.
std::size_t SuffixTree::slot_of(std::uint32_t parent, char first) const {
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t slot = mix(parent, first) & mask;; slot = (slot + 1) & mask) {
        const std::uint32_t node = slots_[slot];
        if (node == none || (nodes_[node].parent == parent && nodes_[node].first == first)) return slot;
    }
}

std::uint32_t SuffixTree::find_child(std::uint32_t parent, char first) const { return slots_[slot_of(parent, first)]; }

bool SuffixTree::grow_slots() {
    if (nodes_.size() * 2 < slots_.size()) return true;
    const std::size_t count = slots_.size() * 2;
    PodArray<std::uint32_t> grown;
    if (!grown.reserve(count)) return false;
    std::fill_n(grown.extend(count), count, none);
    slots_ = std::move(grown);
    for (std::uint32_t node = 1; node < nodes_.size(); ++node) {
        slots_[slot_of(nodes_[node].parent, nodes_[node].first)] = node;
    }
    return true;
}

// A new last child; none when memory cannot be had.
std::uint32_t SuffixTree::add_node(std::uint32_t parent, std::uint32_t text_end, std::size_t length) {
    const auto node = static_cast<std::uint32_t>(nodes_.size());
    const char first = (*text_)[text_end - 1];
    if (!grow_slots()) return none;
    if (!nodes_.push({text_end, static_cast<std::uint16_t>(length), first, false, none, none, parent, none,
                      nodes_[parent].first_child})) {
        return none;
    }
    nodes_[parent].first_child = node;
    slots_[slot_of(parent, first)] = node;
    return node;
}

// Puts a node above `child` that takes the first `length` of its characters.
std::uint32_t SuffixTree::split(std::uint32_t child, std::size_t length) {
    if (!grow_slots()) return none;
    const auto upper = static_cast<std::uint32_t>(nodes_.size());
    const Node old = nodes_[child];
    if (!nodes_.push({old.text_end, static_cast<std::uint16_t>(length), old.first, false, none, old.least, old.parent,
                      child, old.next_sibling})) {
        return none;
    }
    slots_[slot_of(old.parent, old.first)] = upper;
    std::uint32_t* link = &nodes_[old.parent].first_child;
    while (*link != child) link = &nodes_[*link].next_sibling;
    *link = upper;
    Node& lower = nodes_[child];
    lower.text_end = old.text_end - static_cast<std::uint32_t>(length);
    lower.length = static_cast<std::uint16_t>(old.length - length);
    lower.first = (*text_)[lower.text_end - 1];
    lower.parent = upper;
    lower.next_sibling = none;
    slots_[slot_of(upper, lower.first)] = child;
    return upper;
}

// How many characters of the node's text equal the end of `rest`.
std::size_t SuffixTree::common_length(const Node& node, std::string_view rest) const {
    const std::size_t limit = std::min<std::size_t>(node.length, rest.size());
    const char* text = text_->data() + node.text_end;
    const char* query = rest.data() + rest.size();
    if (std::memcmp(text - limit, query - limit, limit) == 0) return limit;
    std::size_t common = 0;
    while (text[-1 - static_cast<std::ptrdiff_t>(common)] == query[-1 - static_cast<std::ptrdiff_t>(common)]) ++common;
    return common;
}

bool SuffixTree::insert(std::uint32_t offset, std::size_t length, std::uint32_t number) {
    if (!prepare()) return false;
    std::uint32_t node = 0;
    nodes_[0].least = std::min(nodes_[0].least, number);
    while (length > 0) {
        const char* dir = text_->data() + offset;
        std::uint32_t child = find_child(node, dir[length - 1]);
        if (child == none) {
            child = add_node(node, offset + static_cast<std::uint32_t>(length), length);
            if (child == none) return false;
        }
        const std::size_t common = common_length(nodes_[child], {dir, length});
        if (common < nodes_[child].length) child = split(child, common);
        if (child == none) return false;
        nodes_[child].least = std::min(nodes_[child].least, number);
        node = child;
        length -= common;
    }
    nodes_[node].is_shared = nodes_[node].exact != none;
    nodes_[node].exact = std::min(nodes_[node].exact, number);
    return true;
}

std::uint32_t SuffixTree::find(std::string_view dir) const {
    if (nodes_.size() == 0) return none;
    std::uint32_t best = none;
    std::uint32_t node = 0;
    while (!dir.empty()) {
        best = std::min(best, nodes_[node].exact);
        const std::uint32_t child = find_child(node, dir.back());
        if (child == none) return best;
        const std::size_t common = common_length(nodes_[child], dir);
        if (common == dir.size()) return std::min(best, nodes_[child].least);
        if (common < nodes_[child].length) return best;
        node = child;
        dir.remove_suffix(common);
    }
    return std::min(best, nodes_[node].least);
}

std::uint32_t SuffixTree::find_node(std::string_view dir) const {
    if (nodes_.size() == 0) return none;
    std::uint32_t node = 0;
    while (!dir.empty()) {
        node = find_child(node, dir.back());
        if (node == none || common_length(nodes_[node], dir) < nodes_[node].length) return none;
        dir.remove_suffix(nodes_[node].length);
    }
    return node;
}

std::uint32_t SuffixTree::find_exact(std::string_view dir) const {
    const std::uint32_t node = find_node(dir);
    return node == none ? none : nodes_[node].exact;
}

bool SuffixTree::is_shared(std::string_view dir) const {
    const std::uint32_t node = find_node(dir);
    return node != none && nodes_[node].is_shared;
}

void SuffixTree::remove(std::string_view dir, std::uint32_t number, std::uint32_t heir) {
    std::uint32_t node = find_node(dir);
    if (node == none || nodes_[node].exact != number) return;
    nodes_[node].exact = heir;
    for (; node != none; node = nodes_[node].parent) {
        std::uint32_t least = nodes_[node].exact;
        for (std::uint32_t child = nodes_[node].first_child; child != none; child = nodes_[child].next_sibling) {
            least = std::min(least, nodes_[child].least);
        }
        nodes_[node].least = least;
    }
}

}  // namespace fs

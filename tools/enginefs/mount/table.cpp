#include "mount/table.h"

#include <algorithm>
#include <tuple>

#include "names.h"

// A directory's children lie behind one another, in the order of their keys: a listing is a range, and a lookup a binary
// search.

namespace {

constexpr std::uint32_t none = ~std::uint32_t{0};

}  // namespace

Table::Table(std::vector<Item> items, const Table* before) : made_(std::time(nullptr)) {
    by_inode_.resize(before != nullptr ? before->by_inode_.size() : root + 1, none);
    by_inode_[root] = 0;
    nodes_.reserve(items.size() + 1);
    nodes_.push_back({.inode = root, .is_directory = true});
    Known known{{"", 0}};
    known.reserve(items.size() + 1);
    std::ranges::stable_sort(items, {}, [](const Item& item) { return item.facts.source; });
    for (const Item& item : items) {
        const bool is_directory = item.path.empty() || item.path.ends_with('/');
        const std::string_view path(item.path.data(), item.path.size() - (item.path.ends_with('/') ? 1 : 0));
        add(known, path, is_directory, item, before);
    }
    sort_children();
    texts_.shrink_to_fit();
}

/// The node of a path, with all that it lies in. `none`, and a word in hidden(), where an earlier source has a directory for
/// a file, or a file for a directory.
std::uint32_t Table::add(Known& known, std::string_view path, bool is_directory, const Item& item,
                         const Table* before) {
    const std::string key = lower_case(std::string(path));
    if (const auto found = known.find(key); found != known.end()) {
        if (nodes_[found->second].is_directory == is_directory) return found->second;
        hidden_.insert(std::string(path) + (is_directory ? "/" : ""));
        return none;
    }
    const std::size_t slash = path.rfind('/'), start = slash + 1;  // 0 where there is none
    const std::uint32_t parent = start == 0 ? 0 : add(known, path.substr(0, slash), true, item, before);
    if (parent == none) return none;
    const std::string_view name = path.substr(start), name_key = std::string_view(key).substr(start);
    std::uint64_t inode = before != nullptr ? before->lookup(nodes_[parent].inode, name) : 0;
    if (inode == 0 || before->find(inode)->is_directory != is_directory) {
        inode = by_inode_.size();
        by_inode_.push_back(none);
    }
    const auto index = static_cast<std::uint32_t>(nodes_.size());
    Node node{.inode = static_cast<std::uint32_t>(inode),
              .parent = parent,
              .name_at = add_text(name),
              .name_size = static_cast<std::uint16_t>(name.size()),
              .is_directory = is_directory,
              .facts = is_directory ? Facts{.source = item.facts.source} : item.facts};
    node.key_at = name_key == name ? node.name_at : add_text(name_key);
    nodes_.push_back(node);
    by_inode_[inode] = index;
    known.emplace(key, index);
    return index;
}

std::uint32_t Table::add_text(std::string_view text) {
    texts_ += text;
    return static_cast<std::uint32_t>(texts_.size() - text.size());
}

void Table::sort_children() {
    for (std::uint32_t at = 1; at < nodes_.size(); ++at) children_.push_back(at);
    std::ranges::sort(children_, {},
                      [this](std::uint32_t at) { return std::tuple(nodes_[at].parent, key(nodes_[at])); });
    for (std::uint32_t place = 0; place < children_.size(); ++place) {
        Node& directory = nodes_[nodes_[children_[place]].parent];
        if (directory.count++ == 0) directory.first = place;
    }
}

const Table::Node* Table::find(std::uint64_t inode) const {
    return inode < by_inode_.size() && by_inode_[inode] != none ? &nodes_[by_inode_[inode]] : nullptr;
}

/// Of a directory's children the first whose key is not less.
std::size_t Table::place_of(const Node& directory, std::string_view wanted) const {
    const std::span<const std::uint32_t> children = std::span(children_).subspan(directory.first, directory.count);
    const auto found = std::ranges::lower_bound(children, wanted, {}, [this](auto at) { return key(nodes_[at]); });
    return static_cast<std::size_t>(found - children.begin());
}

std::uint64_t Table::lookup(std::uint64_t directory, std::string_view name) const {
    const Node* const node = find(directory);
    if (node == nullptr) return 0;
    const std::string wanted = lower_case(std::string(name));
    const std::uint64_t inode = child(directory, place_of(*node, wanted));
    return inode != 0 && key(*find(inode)) == wanted ? inode : 0;
}

std::uint64_t Table::next(std::uint64_t inode) const {
    const Node* const node = find(inode);
    if (node == nullptr) return 0;
    const Node& directory = nodes_[node->parent];
    return child(directory.inode, place_of(directory, key(*node)) + 1);
}

std::uint64_t Table::child(std::uint64_t directory, std::uint64_t index) const {
    const Node* const node = find(directory);
    return node != nullptr && index < node->count ? nodes_[children_[node->first + index]].inode : 0;
}

std::uint64_t Table::parent(std::uint64_t inode) const {
    const Node* const node = find(inode);
    return node != nullptr ? nodes_[node->parent].inode : 0;
}

std::uint64_t Table::lookup_path(std::string_view path) const {
    std::uint64_t inode = root;
    for (std::size_t at = 0; inode != 0 && at < path.size();) {
        const std::size_t end = std::min(path.find('/', at), path.size());
        inode = lookup(inode, path.substr(at, end - at));
        at = end + 1;
    }
    return inode;
}

std::string Table::path(std::uint64_t inode) const {
    std::string path;
    for (const Node* node = find(inode); node != nullptr && node != &nodes_[0]; node = &nodes_[node->parent])
        path.insert(0, path.empty() ? std::string(name(*node)) : std::string(name(*node)) + "/");
    return path;
}

std::size_t Table::files() const {
    return static_cast<std::size_t>(std::ranges::count(nodes_, false, &Node::is_directory));
}

std::uint64_t Table::bytes() const {
    std::uint64_t sum = 0;
    for (const Node& node : nodes_) sum += node.facts.size;
    return sum;
}

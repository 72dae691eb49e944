#include "mount/table.h"

#include <algorithm>
#include <compare>
#include <span>

// A directory's children lie behind one another, in the order of their folded names: a listing is a range, and a lookup
// a binary search.

namespace {

constexpr std::uint32_t none = ~std::uint32_t{0};

char folded(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

/// Below, at or above 0, as memcmp.
int compare_folded(std::string_view a, std::string_view b) {
    const std::weak_ordering order = std::lexicographical_compare_three_way(
        a.begin(), a.end(), b.begin(), b.end(), [](char left, char right) -> std::weak_ordering {
            return static_cast<unsigned char>(folded(left)) <=> static_cast<unsigned char>(folded(right));
        });
    if (std::is_eq(order)) return 0;
    return std::is_lt(order) ? -1 : 1;
}

/// Where the name that begins at `at` ends.
std::size_t end_of_name(std::string_view path, std::size_t at) { return std::min(path.find('/', at), path.size()); }

}  // namespace

/// Goes from the root downwards; what lies in a directory is a run of the sorted items.
class Table::Builder {
public:
    Builder(Table& table, std::vector<Item>& items, const Table* before)
        : table_(table), items_(items), before_(before) {}

    void build() {
        const auto is_before = [](const Item& a, const Item& b) {
            const int order = compare_folded(a.path, b.path);
            return order != 0 ? order < 0 : a.source < b.source;
        };
        if (!std::is_sorted(items_.begin(), items_.end(), is_before))
            std::sort(items_.begin(), items_.end(), is_before);
        table_.by_inode_.resize(before_ != nullptr ? before_->by_inode_.size() : root + 1, none);
        table_.by_inode_[root] = 0;
        table_.nodes_.push_back({.inode = root, .is_directory = true});
        below_.push_back({items_, 0});
        for (std::size_t at = 0; at < table_.nodes_.size(); ++at)
            if (table_.nodes_[at].is_directory) fill(static_cast<std::uint32_t>(at));
    }

private:
    /// What is below a directory, and where its names begin in the paths.
    struct Run {
        std::span<const Item> items;
        std::size_t at;
    };
    struct Child {
        const Item* first;  // of the first source
        Run run;            // empty for a file
        std::string_view name;
    };

    /// Takes the next child off a run.
    static Child take(Run& run) {
        const std::string& path = run.items.front().path;
        const std::size_t end = end_of_name(path, run.at);
        const std::string_view with_slash = std::string_view(path).substr(0, end + 1);
        std::size_t count = 1;
        while (count < run.items.size() &&
               compare_folded(std::string_view(run.items[count].path).substr(0, end + 1), with_slash) == 0)
            ++count;
        const std::span<const Item> own = run.items.first(count);
        run.items = run.items.subspan(count);
        const Item& first = *std::ranges::min_element(own, {}, &Item::source);
        const bool is_directory = end < path.size();
        return {.first = &first,
                .run = {is_directory ? own : std::span<const Item>(), end + 1},
                .name = std::string_view(first.path).substr(run.at, end - run.at)};
    }

    /// The children of a run in the order of their names, each name once.
    std::vector<Child> children_of(Run run) {
        std::vector<Child> children;
        while (!run.items.empty()) {
            if (run.items.front().path.size() == run.at)  // the directory itself
                run.items = run.items.subspan(1);
            else
                children.push_back(take(run));
        }
        std::sort(children.begin(), children.end(), [](const Child& a, const Child& b) {
            const int order = compare_folded(a.name, b.name);
            return order != 0 ? order < 0 : a.first->source < b.first->source;
        });
        const auto is_hidden = [this](const Child& kept, const Child& other) {
            if (compare_folded(kept.name, other.name) != 0) return false;
            const std::size_t end = static_cast<std::size_t>(other.name.data() - other.first->path.data()) +
                                    other.name.size() + (other.run.items.empty() ? 0 : 1);
            table_.hidden_.push_back(other.first->path.substr(0, end));
            return true;
        };
        children.erase(std::unique(children.begin(), children.end(), is_hidden), children.end());
        return children;
    }

    /// The number of a child that is about to be added.
    std::uint32_t inode_of(std::uint32_t directory, std::string_view name, bool is_directory) {
        if (before_ != nullptr) {
            const std::uint64_t known = before_->lookup(table_.nodes_[directory].inode, name);
            if (known != 0 && before_->find(known)->is_directory == is_directory)
                return static_cast<std::uint32_t>(known);
        }
        table_.by_inode_.push_back(none);
        return static_cast<std::uint32_t>(table_.by_inode_.size() - 1);
    }

    void fill(std::uint32_t directory) {
        const std::vector<Child> children = children_of(below_[directory]);
        below_[directory] = {};
        table_.nodes_[directory].first = static_cast<std::uint32_t>(table_.nodes_.size());
        table_.nodes_[directory].count = static_cast<std::uint32_t>(children.size());
        for (const Child& child : children) {
            const Item& item = *child.first;
            const bool is_directory = !child.run.items.empty();
            const std::uint32_t inode = inode_of(directory, child.name, is_directory);
            table_.by_inode_[inode] = static_cast<std::uint32_t>(table_.nodes_.size());
            table_.nodes_.push_back({.inode = inode,
                                     .parent = directory,
                                     .source = item.source,
                                     .name_at = static_cast<std::uint32_t>(table_.names_.size()),
                                     .name_size = static_cast<std::uint16_t>(child.name.size()),
                                     .is_directory = is_directory,
                                     .is_decoded = !is_directory && item.is_decoded,
                                     .size = is_directory ? 0 : item.size,
                                     .time = is_directory ? 0 : item.time});
            table_.names_.append(child.name);
            below_.push_back(child.run);
        }
    }

    Table& table_;
    std::vector<Item>& items_;
    const Table* const before_;
    std::vector<Run> below_;  // of each node
};

Table::Table(std::vector<Item> items, const Table* before) : made_(std::time(nullptr)) {
    Builder(*this, items, before).build();
    nodes_.shrink_to_fit();
    names_.shrink_to_fit();
}

const Table::Node* Table::find(std::uint64_t inode) const {
    return inode < by_inode_.size() && by_inode_[inode] != none ? &nodes_[by_inode_[inode]] : nullptr;
}

std::uint64_t Table::lookup(std::uint64_t directory, std::string_view name) const {
    const Node* const node = find(directory);
    if (node == nullptr) return 0;
    const std::span<const Node> children = std::span(nodes_).subspan(node->first, node->count);
    const auto found = std::ranges::lower_bound(
        children, name, [](std::string_view a, std::string_view b) { return compare_folded(a, b) < 0; },
        [this](const Node& child) { return this->name(child); });
    if (found == children.end() || compare_folded(this->name(*found), name) != 0) return 0;
    return found->inode;
}

std::uint64_t Table::child(std::uint64_t directory, std::uint64_t index) const {
    const Node* const node = find(directory);
    return node != nullptr && index < node->count ? nodes_[node->first + index].inode : 0;
}

std::uint64_t Table::parent(std::uint64_t inode) const {
    const Node* const node = find(inode);
    return node != nullptr ? nodes_[node->parent].inode : 0;
}

std::uint64_t Table::lookup_path(std::string_view path) const {
    std::uint64_t inode = root;
    for (std::size_t at = 0; inode != 0 && at < path.size();) {
        const std::size_t end = end_of_name(path, at);
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
    for (const Node& node : nodes_) sum += node.size;
    return sum;
}

// A tree of directories. Children keep the order in which they were added, and an index finds them by name. Nothing here
// recurses: the depth of a tree comes from names that outsiders choose.
#include <engine/filesystem/contract/names.h>

#include <algorithm>
#include <iterator>
#include <list>
#include <map>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/path_text.h"
#include "engine/filesystem/log/message.h"
#include "engine/platform/threads.h"

namespace fs {

struct dir::State {
    using Children = std::list<dir>;
    using Index = std::multimap<std::string_view, Children::iterator>;  // by the children's own names

    std::string name;
    dir* parent = nullptr;
    Index::iterator place;  // in the parent's index
    Children children;
    Index index;

    /// That of a directory, which has one of its own from its first child or name on.
    static const State& of(const dir& node) {
        static const platform::NeverDestroyed<State> none;
        return node.state_ != nullptr ? *node.state_ : none.value;
    }
    dir* find(std::string_view child) const {
        const auto found = index.find(child);
        return found != index.end() ? &*found->second : nullptr;
    }
};

namespace {

/// Takes the first component off `rest`; runs of "/" count as one. Empty when none is left.
std::string_view take_component(std::string_view& rest) {
    rest.remove_prefix(std::min(rest.find_first_not_of('/'), rest.size()));
    const std::string_view component = rest.substr(0, rest.find('/'));
    rest.remove_prefix(component.size());
    return component;
}

/// Goes from `node` along `path`, by `step` from each directory to the next; null where a step is.
template <typename Step>
dir* walk(dir* node, const char* path, Step step) {
    std::string_view rest = view_of(path);
    for (std::string_view name = take_component(rest); node != nullptr && !name.empty(); name = take_component(rest)) {
        node = step(*node, name);
    }
    return node;
}

}  // namespace

dir::dir() = default;
dir::~dir() { clear(); }

const char* dir::name() const { return State::of(*this).name.c_str(); }
const idir* dir::parent() const { return State::of(*this).parent; }

const idir* dir::first_child() const {
    const State::Children& children = State::of(*this).children;
    return !children.empty() ? &children.front() : nullptr;
}

const idir* dir::next_sibling() const {
    if (parent() == nullptr) return nullptr;
    const auto next = std::next(state_->place->second);
    return next != state_->parent->state_->children.end() ? &*next : nullptr;
}

void dir::set_name(const char* name) {
    guarded(name, [&] {
        if (state_ == nullptr) state_ = std::make_unique<State>();
        std::string wanted(view_of(name));
        if (state_->parent == nullptr) return state_->name.swap(wanted);
        State::Index& index = state_->parent->state_->index;
        auto entry = index.extract(state_->place);  // its key is the old name
        state_->name.swap(wanted);
        entry.key() = state_->name;
        state_->place = index.insert(std::move(entry));
    });
}

dir* dir::add_path(const char* path) {
    return walk(this, path, [](dir& node, std::string_view name) { return node.add_child(name.data(), name.size()); });
}

dir* dir::find(const char* path) {
    return walk(this, path, [](dir& node, std::string_view name) { return State::of(node).find(name); });
}

dir* dir::add_child(const char* name, std::size_t length) {
    return guarded(nullptr, static_cast<dir*>(nullptr), [&] {
        const std::string_view wanted(name, length);
        if (state_ == nullptr) state_ = std::make_unique<State>();
        if (dir* const known = state_->find(wanted)) return known;
        State::Children made(1);
        made.front().state_ = std::make_unique<State>();
        State& child = *made.front().state_;
        child.name = wanted;
        child.parent = this;
        child.place = state_->index.emplace(child.name, made.begin());
        state_->children.splice(state_->children.end(), made);
        return &state_->children.back();
    });
}

void dir::remove(const char* path) {
    dir* const node = find(path);
    if (node == nullptr || node == this) return;
    const State::Index::iterator place = node->state_->place;
    State& parent = *node->state_->parent->state_;
    const State::Children::iterator child = place->second;
    parent.index.erase(place);
    parent.children.erase(child);
}

void dir::clear() {
    if (state_ == nullptr) return;
    state_->index.clear();
    // Each node's children join the list before the node itself goes, so that its destructor finds none.
    State::Children pending;
    pending.swap(state_->children);
    for (; !pending.empty(); pending.pop_front()) pending.splice(pending.end(), pending.front().state_->children);
}

bool dir::merge(const dir& other) {
    for (const dir* node = this; node != nullptr; node = State::of(*node).parent) {
        if (node == &other) return true;  // a tree merged into a part of itself would never end
    }
    return guarded(nullptr, false, [&] {
        dir copy;
        std::vector<std::pair<const dir*, dir*>> pending = {{&other, &copy}};
        while (!pending.empty()) {
            const auto [from, to] = pending.back();
            pending.pop_back();
            for (const dir& child : State::of(*from).children) {
                dir* const made = to->add_child(child.name(), child.state_->name.size());
                if (made == nullptr) return false;
                pending.emplace_back(&child, made);
            }
        }
        take_over(copy);
        return true;
    });
}

void dir::take_over(dir& other) {
    if (other.state_ == nullptr) return;
    if (state_ == nullptr) {
        state_ = std::move(other.state_);
        for (dir& child : state_->children) child.state_->parent = this;
        return;
    }
    if (state_->name.empty() && state_->parent == nullptr) state_->name.swap(other.state_->name);
    // A child that is new here moves over with all that is below it; of one that is known its own children are looked
    // at, until the foreign tree is bare.
    dir* to = this;
    dir* from = &other;
    while (true) {
        State& source = *from->state_;
        if (source.children.empty()) {
            if (from == &other) return;
            from = source.parent;
            to = to->state_->parent;
            from->state_->index.erase(source.place);
            from->state_->children.pop_front();  // it is always the first child that is looked at
            continue;
        }
        dir& child = source.children.front();
        State& moved = *child.state_;
        if (dir* const known = to->state_->find(moved.name)) {
            to = known;
            from = &child;
            continue;
        }
        auto entry = source.index.extract(moved.place);
        State& target = *to->state_;
        target.children.splice(target.children.end(), source.children, source.children.begin());
        moved.place = target.index.insert(std::move(entry));
        moved.parent = to;
    }
}

}  // namespace fs

namespace {

constexpr MessageSource log_source{"FileSystem", "engine/filesystem/filesystem"};

constexpr std::size_t deepest_indent = 100;  // deeper lines stand where this one does

/// One level of the walk: where it stands, and the names that it has met at this level.
struct Level {
    const fs::idir* next;
    std::unordered_set<std::string_view> met;
};

void log_directory(const fs::idir& directory, std::size_t depth, bool met_before) {
    const int blanks = static_cast<int>(std::min(depth, deepest_indent) * 2);
    log_message(log_source, Log::ELevel::INFO, __LINE__, "%*s%s%s\n", blanks, "", directory.name(),
                met_before ? " (duplicated resource in the same filesystem source)" : "");
}

/// Levels are kept by hand: a tree may be deeper than a stack of calls.
void dump_below(const fs::idir& root, std::size_t depth) {
    std::vector<Level> levels;
    levels.push_back({.next = root.first_child(), .met = {}});
    while (!levels.empty()) {
        Level& level = levels.back();
        if (level.next == nullptr) {
            levels.pop_back();
            continue;
        }
        const fs::idir& directory = *level.next;
        level.next = directory.next_sibling();
        log_directory(directory, depth + levels.size(), !level.met.insert(directory.name()).second);
        levels.push_back({.next = directory.first_child(), .met = {}});
    }
}

}  // namespace

void DumpDirectories(const fs::idir* dir, int depth) {
    if (dir == nullptr || !is_logged(log_source, Log::ELevel::INFO)) return;
    const std::size_t indent = depth > 0 ? static_cast<std::size_t>(depth) : 0;
    log_directory(*dir, indent, false);
    fs::guarded(dir->name(), [&] { dump_below(*dir, indent); });
}

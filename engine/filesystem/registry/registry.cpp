#include "engine/filesystem/registry/registry.h"

#include <new>
#include <string_view>

// The list of sources and the index of their directories, under one reader-writer lock.
//
// Asking order: sources stand in ascending order of their type. Among equals the newest is asked first, unless it was
// added with AFTER_SAME_TYPE. The fallback, when there is one, stands behind all of them as the end marker: walks that
// compare, insert or remove end there, walks that ask questions do not.
//
// Everything here is called with the lock held. Sources take no lock of their own; they rely on this one.

namespace fs::registry {

namespace {

thread_local int holds = 0;

Node* insertion_point(const State& state, EFSSourceType::TYPE type, bool after_equals) {
    Node* node = state.head;
    while (node != nullptr && node != state.end_marker && node->source->type() < type) node = node->next;
    if (!after_equals) return node;
    while (node != nullptr && node != state.end_marker && node->source->type() == type) node = node->next;
    return node;
}

/// Links a new node before `next`, at the tail when that is null.
Node* link_before(State& state, CFSSource& source, Node* next) {
    auto* const node = new (std::nothrow) Node{.source = &source};
    if (node == nullptr) return nullptr;
    node->next = next;
    node->previous = next != nullptr ? next->previous : state.tail;
    (node->previous != nullptr ? node->previous->next : state.head) = node;
    (next != nullptr ? next->previous : state.tail) = node;
    ++state.count;
    return node;
}

bool has_name(const fs::dir& directory) { return directory.name()[0] != '\0'; }

/// What leads every name of a source that was mounted with its parent: its tree's own name. "" for all others.
std::string_view leading_directory(CFSSource& source, const fs::dir& tree) {
    return (source.flags() & FFSAddSourceFlags::MOUNT_PARENT) != 0 ? tree.name() : "";
}

void merge_tree(State& state, CFSSource& source) {
    const fs::dir* const tree = source.dir_tree();
    if (tree == nullptr) return;
    if (!has_name(state.index)) state.index.set_name(tree->name());
    fs::dir* const place = state.index.add_path(leading_directory(source, *tree).data());
    if (place != nullptr) place->merge(*tree);
}

}  // namespace

State& state() {
    alignas(State) static std::byte storage[sizeof(State)];
    static State* const instance = new (storage) State;
    return *instance;
}

bool this_thread_holds_lock() { return holds != 0; }

HoldCount::HoldCount() { ++holds; }
HoldCount::~HoldCount() { --holds; }

bool insert(State& state, CFSSource& source, FFSAddSourceFlags::ENUM flags) {
    const bool after_equals = (flags & FFSAddSourceFlags::AFTER_SAME_TYPE) != 0;
    Node* const next = insertion_point(state, source.type(), after_equals);
    if (link_before(state, source, next) == nullptr) return false;
    if ((flags & FFSAddSourceFlags::INDEX_NAMES) != 0) merge_tree(state, source);
    return true;
}

Node* append(State& state, CFSSource& source) { return link_before(state, source, nullptr); }

Node* find(const State& state, const fs::path& path) {
    for (Node* node = state.head; node != nullptr && node != state.end_marker; node = node->next) {
        if (node->source->path() == path) return node;
    }
    return nullptr;
}

CFSSource* unlink(State& state, Node* node) {
    CFSSource* const source = node->source;
    (node->previous != nullptr ? node->previous->next : state.head) = node->next;
    (node->next != nullptr ? node->next->previous : state.tail) = node->previous;
    if (state.end_marker == node) state.end_marker = nullptr;
    --state.count;
    delete node;
    return source;
}

void index_source(State& state, CFSSource& source) {
    if ((source.flags() & FFSAddSourceFlags::INDEX_NAMES) != 0) merge_tree(state, source);
}

void empty_index(State& state) {
    state.index.clear();
    state.index.set_name(nullptr);
}

void rebuild_index(State& state) {
    empty_index(state);
    for_each_source(state, [&](CFSSource& source) { index_source(state, source); });
}

void destroy_all(State& state) {
    for (Node* node = state.head; node != nullptr; node = node->next) {
        delete node->source;
        node->source = nullptr;
    }
    for (Node* node = state.head; node != nullptr;) {
        Node* const next = node->next;
        delete node;
        node = next;
    }
    state.head = state.tail = state.end_marker = nullptr;
    state.count = 0;
    empty_index(state);
}

fs::dir* find_directory(CFSSource& source, const char* dir) {
    fs::dir* const tree = source.dir_tree();
    if (tree == nullptr) return nullptr;
    const std::string_view lead = leading_directory(source, *tree);
    if (!std::string_view(dir).starts_with(lead)) return nullptr;
    dir += lead.size();
    if (!lead.empty() && *dir != '\0' && *dir != '/') return nullptr;
    return tree->find(dir);
}

const char* type_name(EFSSourceType::TYPE type) {
    switch (type) {
        case EFSSourceType::PLS:
            return "TYPE_PLS";
        case EFSSourceType::PACK:
            return "TYPE_PACK";
        case EFSSourceType::SPECIAL:
            return "TYPE_SPECIAL";
        case EFSSourceType::DIR:
            return "TYPE_DIR";
    }
    return "";
}

}  // namespace fs::registry

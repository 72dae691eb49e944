#include "engine/filesystem/registry/registry.h"

#include <algorithm>
#include <new>
#include <utility>

#include "engine/filesystem/contract/guarded.h"
#include "engine/platform/never_destroyed.h"
#include "engine/platform/per_thread.h"

// The list of sources and the index of their directories, under one reader-writer lock.
//
// Asking order: sources stand in ascending order of their type. Among equals the newest is asked first, unless it was
// added with AFTER_SAME_TYPE. The fallback, when there is one, is asked after all of them: walks that compare, insert
// or remove leave it out, walks that ask questions do not.
//
// Sources take no lock of their own; they rely on this one.

namespace fs::registry {

namespace {

constinit platform::PerThread<int, struct RegistryLocks> locks_held;  // by this thread, in any form

/// What leads every name of a source that was mounted with its parent: its tree's own name. "" for all others.
std::string_view leading_directory(CFSSource& source, const fs::dir& tree) {
    return (source.flags() & FFSAddSourceFlags::MOUNT_PARENT) != 0 ? tree.name() : "";
}

/// Adds the source's tree to `out`, which takes the tree's name when it has none.
void merge_tree(CFSSource& source, fs::dir& out) {
    const fs::dir* const tree = source.dir_tree();
    if (tree == nullptr) return;
    if (out.name()[0] == '\0') out.set_name(tree->name());
    fs::dir* const place = out.add_path(leading_directory(source, *tree).data());
    if (place == nullptr || !place->merge(*tree)) throw std::bad_alloc();
}

bool is_indexed(CFSSource& source) { return (source.flags() & FFSAddSourceFlags::INDEX_NAMES) != 0; }

/// The index as it is without `skipped`.
void build_index(const State& state, const CFSSource* skipped, fs::dir& out) {
    for_each_source(state, [&](CFSSource& source) {
        if (&source != skipped && is_indexed(source)) merge_tree(source, out);
    });
}

void replace_index(State& state, fs::dir& with) {
    state.index.clear();
    state.index.set_name(nullptr);
    state.index.take_over(with);
}

auto insertion_point(State& state, EFSSourceType::TYPE type, bool after_equals) {
    return std::find_if(state.sources.begin(), state.sources.end(), [&](const std::unique_ptr<CFSSource>& source) {
        return after_equals ? source->type() > type : source->type() >= type;
    });
}

}  // namespace

State& state() {
    static platform::NeverDestroyed<State> instance;
    return instance.value;
}

bool this_thread_holds_lock() { return locks_held != 0; }

SharedGuard::SharedGuard(State& state) : state_(state) {
    if (++locks_held == 1) state_.lock.lock_shared();
}

SharedGuard::~SharedGuard() {
    if (--locks_held == 0) state_.lock.unlock_shared();
}

ExclusiveGuard::ExclusiveGuard(State& state) : state_(state) {
    if (locks_held != 0) {
        set_error(EFSError::INVALID_ARGUMENT, nullptr,
                  "A source or callback that is being asked may not change sources or names.");
        throw StoredFailure();
    }
    state_.lock.lock();
    ++locks_held;
}

ExclusiveGuard::~ExclusiveGuard() {
    --locks_held;
    state_.lock.unlock();
}

CFSSource* find(const State& state, const fs::path& path) {
    for (const auto& source : state.sources) {
        if (source->path() == path) return source.get();
    }
    return nullptr;
}

void insert(State& state, std::unique_ptr<CFSSource> source, FFSAddSourceFlags::ENUM flags) {
    fs::dir names;
    if ((flags & FFSAddSourceFlags::INDEX_NAMES) != 0) merge_tree(*source, names);
    const bool after_equals = (flags & FFSAddSourceFlags::AFTER_SAME_TYPE) != 0;
    const auto place = insertion_point(state, source->type(), after_equals);
    state.sources.insert(place, std::move(source));
    state.index.take_over(names);
}

void append_root(State& state, std::unique_ptr<CFSSource> root, std::unique_ptr<CFSSource> fallback) {
    fs::dir names;
    if (is_indexed(*root)) merge_tree(*root, names);
    state.sources.reserve(state.sources.size() + 2);
    // A second start puts the first one's fallback among the sources.
    if (state.fallback != nullptr) state.sources.push_back(std::move(state.fallback));
    state.sources.push_back(std::move(root));
    state.fallback = std::move(fallback);
    state.index.take_over(names);
}

std::unique_ptr<CFSSource> remove(State& state, const CFSSource* source) {
    const auto place = std::find_if(state.sources.begin(), state.sources.end(),
                                    [&](const auto& held) { return held.get() == source; });
    if (place == state.sources.end()) return nullptr;
    fs::dir index;
    build_index(state, source, index);
    std::unique_ptr<CFSSource> removed = std::move(*place);
    state.sources.erase(place);
    replace_index(state, index);
    return removed;
}

void rebuild_index(State& state) {
    fs::dir index;
    build_index(state, nullptr, index);
    replace_index(state, index);
}

void destroy_all(State& state) {
    std::vector<std::unique_ptr<CFSSource>> sources;
    std::unique_ptr<CFSSource> fallback;
    {
        const ExclusiveGuard guard(state);
        sources = std::exchange(state.sources, {});
        fallback = std::move(state.fallback);
        state.index.clear();
        state.index.set_name(nullptr);
    }
    for (const auto& source : sources) wait_for_pins(*source);
    if (fallback != nullptr) wait_for_pins(*fallback);
}

std::vector<std::string> indexed_directories(const State& state, std::string_view dir) {
    std::vector<std::string> found;
    const std::string top(dir.substr(0, dir.size() - (dir.ends_with('/') ? 1 : 0)));
    if (top.empty() || const_cast<State&>(state).index.find(top.c_str()) == nullptr) return found;
    found.push_back(top);
    for (std::size_t at = 0; at < found.size(); ++at) {
        const fs::dir* const parent = const_cast<State&>(state).index.find(found[at].c_str());
        for (const fs::idir* child = parent->first_child(); child != nullptr; child = child->next_sibling()) {
            found.push_back(found[at] + '/' + child->name());
        }
    }
    return found;
}

void forget_directories(State& state, const std::vector<std::string>& directories) {
    for (auto dir = directories.rbegin(); dir != directories.rend(); ++dir) {
        const auto has_it = [&](CFSSource& source) {
            return is_indexed(source) && find_directory(source, dir->c_str()) != nullptr;
        };
        const fs::dir* const node = state.index.find(dir->c_str());
        if (node != nullptr && node->first_child() == nullptr && first_source(state, has_it) == nullptr) {
            state.index.remove(dir->c_str());
        }
    }
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

#include "engine/filesystem/registry/registry.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <mutex>
#include <new>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/open_file.h"
#include "engine/filesystem/contract/path_text.h"
#include "engine/kernel/text.h"
#include "engine/platform/threads.h"

// The list of sources and the index of their directories, under one reader-writer lock.
//
// Asking order: sources stand in ascending order of their type; what was added with BEFORE_PACKS stands between memory
// archives and packs. Among equals the newest is asked first, unless it was added with AFTER_SAME_TYPE. The fallback, when
// there is one, is asked after all of them: walks that compare, insert or remove leave it out, walks that ask questions do
// not.
//
// Sources take no lock of their own; they rely on this one.

namespace fs::registry {

namespace {

constinit platform::PerThread<int, struct RegistryLocks> locks_held;  // by this thread, in any form
constinit platform::PerThread<int, UnlockedAsking> unlocked_asks;     // on this thread's stack

/// What leads every name of a source that was mounted with its parent: its tree's own name. "" for all others.
std::string_view leading_directory(CFSSource& source, const fs::dir& tree) {
    return has_any(source.flags(), FFSAddSourceFlags::MOUNT_PARENT) ? tree.name() : "";
}

/// Adds the source's tree to `out`, which takes the tree's name when it has none.
void merge_tree(CFSSource& source, fs::dir& out) {
    const fs::dir* const tree = source.dir_tree();
    if (tree == nullptr) return;
    if (out.name()[0] == '\0') out.set_name(tree->name());
    fs::dir* const place = out.add_path(leading_directory(source, *tree).data());
    if (place == nullptr || !place->merge(*tree)) throw std::bad_alloc();
}

bool is_indexed(CFSSource& source) { return has_any(source.flags(), FFSAddSourceFlags::INDEX_NAMES); }

int rank_of(EFSSourceType::TYPE type, FFSAddSourceFlags::ENUM flags) {
    constexpr int overlay = 2 * EFSSourceType::PACK - 1;
    return has_any(flags, FFSAddSourceFlags::BEFORE_PACKS) ? overlay : 2 * static_cast<int>(type);
}

using Place = std::vector<std::unique_ptr<CFSSource>>::iterator;

/// Where a source goes: before its equals, or behind them with AFTER_SAME_TYPE.
Place first_behind(EFSSourceType::TYPE type, FFSAddSourceFlags::ENUM flags) {
    const int rank = rank_of(type, flags) + (has_any(flags, FFSAddSourceFlags::AFTER_SAME_TYPE) ? 1 : 0);
    auto& sources = state().sources;
    return std::find_if(sources.begin(), sources.end(),
                        [&](const auto& held) { return rank_of(held->type(), held->flags()) >= rank; });
}

void insert_at(Place place, std::unique_ptr<CFSSource> source, FFSAddSourceFlags::ENUM flags) {
    auto& creators = state().creators;
    creators.reserve(creators.size() + 1);
    CFSSource* const inserted = state().sources.insert(place, std::move(source))->get();
    if (has_any(flags, FFSAddSourceFlags::WRITE_HERE)) creators.push_back(inserted);
}

/// The index as it is without `skipped`.
void build_index(const CFSSource* skipped, fs::dir& out) {
    for_each_source([&](CFSSource& source) {
        if (&source != skipped && is_indexed(source)) merge_tree(source, out);
    });
}

void replace_index(fs::dir& with) {
    fs::dir& index = state().index;
    index.clear();
    index.set_name(nullptr);
    index.take_over(with);
}

/// A count stays from the first pin of its source until the source is removed, so that pinning allocates once.
struct Table {
    platform::Mutex lock;  // guards counts; a leaf
    platform::ConditionVariable dropped;
    std::map<const CFSSource*, PinCount> counts;
    std::atomic<RemovalHook> hook{nullptr};
};

Table& table() { return platform::never_destroyed<Table>(); }

/// Waits until nobody has a pin on a source that was taken out of the list. Without the registry's lock, since who has
/// the pin may ask for it.
void wait_for_pins(CFSSource& source) {
    Table& pins = table();
    std::unique_lock guard(pins.lock);
    const auto place = pins.counts.find(&source);
    if (place == pins.counts.end()) return;
    place->second.going.store(true, std::memory_order_release);
    guard.unlock();
    if (const RemovalHook hook = pins.hook.load(std::memory_order_acquire); hook != nullptr) hook(source);
    guard.lock();
    pins.dropped.wait(guard, [&] { return place->second.pins == 0; });
    pins.counts.erase(place);
}

}  // namespace

State& state() { return platform::never_destroyed<State>(); }

bool this_thread_holds_lock() { return locks_held != 0 || unlocked_asks != 0; }

UnlockedAsking::UnlockedAsking() { ++unlocked_asks; }
UnlockedAsking::~UnlockedAsking() { --unlocked_asks; }

SharedGuard::SharedGuard() {
    if (++locks_held == 1) state().lock.lock_shared();
}

SharedGuard::~SharedGuard() {
    if (--locks_held == 0) state().lock.unlock_shared();
}

ExclusiveGuard::ExclusiveGuard() {
    if (this_thread_holds_lock()) {
        set_error(EFSError::INVALID_ARGUMENT, nullptr,
                  "A source or callback that is being asked may not change sources or names.");
        throw StoredFailure();
    }
    state().lock.lock();
    ++locks_held;
}

ExclusiveGuard::~ExclusiveGuard() {
    --locks_held;
    state().lock.unlock();
}

Pin::Pin(CFSSource& source) {
    Table& pins = table();
    const std::lock_guard guard(pins.lock);
    count_ = &*pins.counts.try_emplace(&source).first;
    ++count_->second.pins;
}

Pin& Pin::operator=(Pin&& other) noexcept {
    if (this == &other) return *this;
    Drop();
    count_ = std::exchange(other.count_, nullptr);
    return *this;
}

void Pin::Drop() noexcept {
    if (count_ == nullptr) return;
    Table& pins = table();
    const std::lock_guard guard(pins.lock);
    if (--count_->second.pins == 0 && count_->second.going.load(std::memory_order_relaxed)) pins.dropped.notify_all();
    count_ = nullptr;
}

void set_removal_hook(RemovalHook hook) { table().hook.store(hook, std::memory_order_release); }

CFSSource* find(const fs::path& path) {
    for (const auto& source : state().sources) {
        if (source->path() == path) return source.get();
    }
    return nullptr;
}

void insert(std::unique_ptr<CFSSource> source, FFSAddSourceFlags::ENUM flags) {
    fs::dir names;
    if (has_any(flags, FFSAddSourceFlags::INDEX_NAMES)) merge_tree(*source, names);
    const Place place = first_behind(source->type(), flags);
    insert_at(place, std::move(source), flags);
    state().index.take_over(names);
}

CFSSource* creator(std::string_view directory) {
    const State& all = state();
    const auto makes = [&](const CFSSource* source) {
        const auto* const prefixed = dynamic_cast<const PrefixedNames*>(source);
        return prefixed == nullptr ||
               kernel::equal_folded(directory.substr(0, prefixed->prefix().size()), prefixed->prefix());
    };
    const auto newest = std::find_if(all.creators.rbegin(), all.creators.rend(), makes);
    if (newest != all.creators.rend()) return *newest;
    for (const auto& source : all.sources) {
        if (!has_any(source->flags(), FFSAddSourceFlags::BEFORE_PACKS)) return source.get();
    }
    return !all.sources.empty() ? all.sources.front().get() : nullptr;
}

void append_root(std::unique_ptr<CFSSource> root, std::unique_ptr<CFSSource> fallback) {
    State& all = state();
    fs::dir names;
    if (is_indexed(*root)) merge_tree(*root, names);
    const FFSAddSourceFlags::ENUM flags = root->flags();
    all.sources.reserve(all.sources.size() + 2);
    all.creators.reserve(all.creators.size() + 1);
    // A second start puts the first one's fallback among the sources.
    const bool is_overlay = has_any(flags, FFSAddSourceFlags::BEFORE_PACKS);
    if (all.fallback != nullptr) all.sources.push_back(std::move(all.fallback));
    const Place place = is_overlay ? first_behind(root->type(), flags) : all.sources.end();
    insert_at(place, std::move(root), flags);
    all.fallback = std::move(fallback);
    all.index.take_over(names);
}

std::unique_ptr<CFSSource> take_out(const std::function<CFSSource*()>& find) {
    std::unique_ptr<CFSSource> removed;
    {
        const ExclusiveGuard guard;
        auto& sources = state().sources;
        const auto place = std::ranges::find(sources, find(), [](const auto& held) { return held.get(); });
        if (place == sources.end()) return nullptr;
        fs::dir index;
        build_index(place->get(), index);
        removed = std::move(*place);
        sources.erase(place);
        std::erase(state().creators, removed.get());
        replace_index(index);
    }
    wait_for_pins(*removed);
    return removed;
}

void rebuild_index() {
    fs::dir index;
    build_index(nullptr, index);
    replace_index(index);
}

void destroy_all() {
    std::vector<std::unique_ptr<CFSSource>> sources;
    std::unique_ptr<CFSSource> fallback;
    {
        const ExclusiveGuard guard;
        State& all = state();
        sources.swap(all.sources);
        all.creators.clear();
        fallback.swap(all.fallback);
        all.index.clear();
        all.index.set_name(nullptr);
    }
    for (const auto& source : sources) wait_for_pins(*source);
    if (fallback != nullptr) wait_for_pins(*fallback);
}

void prepare_directory(const fs::path& file, fs::dir& out) {
    if (out.add_path(lower_case(file).PathName()) == nullptr) throw std::bad_alloc();
}

std::vector<std::string> indexed_directories(std::string_view dir) {
    std::vector<std::string> found;
    fs::dir& index = state().index;
    const std::string top(dir.substr(0, dir.size() - (dir.ends_with('/') ? 1 : 0)));
    if (!top.empty() && index.find(top.c_str()) != nullptr) found.push_back(top);
    for (std::size_t at = 0; at < found.size(); ++at) {
        for (const idir* child = index.find(found[at].c_str())->first_child(); child; child = child->next_sibling()) {
            found.push_back(found[at] + '/' + child->name());
        }
    }
    return found;
}

void forget_directories(const std::vector<std::string>& directories) {
    fs::dir& index = state().index;
    for (auto dir = directories.rbegin(); dir != directories.rend(); ++dir) {
        const fs::dir* const node = index.find(dir->c_str());
        if (node == nullptr || node->first_child() != nullptr) continue;
        const bool is_held = first_source(
            [&](CFSSource& source) { return is_indexed(source) && find_directory(source, dir->c_str()) != nullptr; });
        if (!is_held) index.remove(dir->c_str());
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
    constexpr const char* names[] = {"TYPE_PLS", "TYPE_PACK", "TYPE_SPECIAL", "TYPE_DIR"};
    return type < std::size(names) ? names[type] : "";
}

}  // namespace fs::registry

#include <algorithm>
#include <new>

#include <engine/filesystem/sources/directory.h>

#include "engine/filesystem/contract/native_path.h"
#include "engine/filesystem/contract/normalize.h"
#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/sources/directory/follow/follower.h"
#include "engine/filesystem/watch/change_batch.h"

// Under the registry's exclusive lock the table is brought to what was found. Each name is told, entered and unmarked in
// one go, so that where memory ends the table, the marks and what was told agree.

namespace fs {

namespace {

/// Files that are in the table, and go again unless they are kept.
class Entered {
public:
    explicit Entered(DirectoryState& state) : state_(state), table_(state.names->table) {}
    Entered(const Entered&) = delete;
    Entered& operator=(const Entered&) = delete;
    ~Entered() { remove(files_); }

    /// What the source shows of these.
    void enter(const std::vector<std::string>& paths) {
        files_.reserve(paths.size());
        for (const std::string_view path : paths) {
            const std::size_t split = path.rfind('/') + 1;
            const std::uint32_t dir = table_.intern_dir(path.substr(0, split));
            const std::uint32_t file = state_.enter(*state_.names, dir, path.substr(split));
            if (file != NameTable::none) files_.push_back(file);
        }
    }
    bool empty() const { return files_.empty(); }
    /// Keeps them, in the place of those.
    void keep_instead_of(const std::vector<std::uint32_t>& held) noexcept {
        for (const std::uint32_t file : files_) {
            if (!held.empty()) table_.set_value(file, table_.value(held.front()));
        }
        files_.clear();
        remove(held);
    }

private:
    void remove(const std::vector<std::uint32_t>& files) noexcept {
        for (const std::uint32_t file : files) table_.remove(file);
    }

    DirectoryState& state_;
    NameTable& table_;
    std::vector<std::uint32_t> files_;
};

bool is_spelled(const NameTable& table, std::uint32_t file, std::string_view path) {
    return path.ends_with(table.spelled_name(file)) &&
           path.substr(0, path.size() - table.spelled_name(file).size()) == table.spelled_dir(file);
}

}  // namespace

void DirectoryFollower::apply(ChangeBatch& batch) {
    if (is_to_be_mounted_) mount_again(batch);
    apply_directories(batch);
    const std::vector<Marks::value_type*> due = std::move(due_);
    for (Marks::value_type* const entry : due) {
        auto& [name, mark] = *entry;
        if (apply_mark(batch, name, mark))
            marks_.erase(name);
        else
            mark.is_named = true;
    }
    if (is_lost_) batch.add_lost();
    is_lost_ = false;
    state_.names->table.compact();
}

/// The root went or came.
void DirectoryFollower::mount_again(ChangeBatch& batch) {
    batch.tree_changes();
    ErrorScope scope;
    source_.refresh();  // which fails for a root that must exist, and keeps the names
    if (scope.has_error() && last_error().code == EFSError::OUT_OF_MEMORY) throw std::bad_alloc();
    scope.forget();
    reads_ = state_.reads;
    is_to_be_mounted_ = false;
    is_lost_ = true;
    if (!is_root_gone_) is_to_be_read_ = true;  // so that all of it is watched
}

void DirectoryFollower::apply_directories(ChangeBatch& batch) {
    if (new_dirs_.empty() && gone_dirs_.empty()) return;
    batch.tree_changes();
    MountedNames& names = *state_.names;
    for (const std::string& dir : gone_dirs_) state_.remove_node(dir);
    // The disk may have a directory of the same name in another case.
    const auto is_gone = [&](std::string_view dir) {
        while (!dir.empty() && !gone_dirs_.contains(dir)) dir = parent_directory(dir);
        return !dir.empty();
    };
    if (!gone_dirs_.empty()) {
        for (const auto& [dir, watch] : directories_) {
            const std::string lower = lower_text(dir);
            if (is_gone(lower)) state_.make_node(names, lower);
        }
    }
    for (const std::string& dir : new_dirs_) {
        if (!directories_.contains(dir)) continue;  // it went again
        const std::string lower = lower_text(dir);
        state_.make_node(names, lower);
        names.unlisted.erase(lower);
    }
    new_dirs_.clear();
    gone_dirs_.clear();
}

/// False when the disk is to be asked first.
bool DirectoryFollower::apply_mark(ChangeBatch& batch, const std::string& name, const Mark& mark) {
    const std::vector<std::uint32_t> held = held_files(name);
    if (!mark.is_named) {
        const bool is_held =
            std::any_of(held.begin(), held.end(), [&](std::uint32_t file) { return is_touched(mark, file); });
        if (is_held) batch.add(SFsChange::CONTENT, name);
        return is_held;
    }
    const std::vector<std::string> wanted = wanted_spellings(held, mark);
    const bool is_same = std::equal(
        held.begin(), held.end(), wanted.begin(), wanted.end(),
        [&](std::uint32_t file, const std::string& path) { return is_spelled(state_.names->table, file, path); });
    if (is_same && (held.empty() || !mark.is_written)) return true;
    Entered entered(state_);
    if (!is_same) entered.enter(wanted);
    if (held.empty() && entered.empty()) return true;  // the source shows no such name
    const bool is_removed = !is_same && entered.empty();
    const bool is_created = held.empty() || (is_same && mark.is_new);
    batch.add(is_removed ? SFsChange::REMOVED : is_created ? SFsChange::CREATED : SFsChange::CONTENT, name);
    if (!is_same) entered.keep_instead_of(held);
    return true;
}

/// The files of the table that have this name, in their order; they differ in case.
std::vector<std::uint32_t> DirectoryFollower::held_files(std::string_view name) const {
    const NameTable& table = state_.names->table;
    const std::size_t split = name.rfind('/') + 1;
    std::vector<std::uint32_t> held;
    std::uint32_t file = table.find_exact(name.substr(0, split), name.substr(split));
    for (; file != NameTable::none; file = table.next_exact(file)) held.push_back(file);
    return held;
}

/// Whether something was told of just this file.
bool DirectoryFollower::is_touched(const Mark& mark, std::uint32_t file) const {
    return std::any_of(mark.spellings.begin(), mark.spellings.end(),
                       [&](const Spelling& spelling) { return is_spelled(state_.names->table, file, spelling.path); });
}

/// The spellings that the table is to have, in the order of a scan: what is there, and of what it has already what nobody
/// touched.
std::vector<std::string> DirectoryFollower::wanted_spellings(const std::vector<std::uint32_t>& held,
                                                             const Mark& mark) const {
    std::vector<std::string> wanted;
    for (const std::uint32_t file : held) {
        if (!is_touched(mark, file)) wanted.push_back(spelled_path(file));
    }
    for (const Spelling& spelling : mark.spellings) {
        if (spelling.is_there) wanted.push_back(spelling.path);
    }
    std::sort(wanted.begin(), wanted.end());
    return wanted;
}

std::string DirectoryFollower::spelled_path(std::uint32_t file) const {
    const NameTable& table = state_.names->table;
    return std::string(table.spelled_dir(file)).append(table.spelled_name(file));
}

}  // namespace fs

#include <engine/filesystem/contract/names.h>

#include <algorithm>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "engine/filesystem/contract/error.h"
#include "engine/filesystem/log/message.h"

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

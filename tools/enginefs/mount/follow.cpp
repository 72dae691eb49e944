#include "mount/follow.h"

#include <set>

#include <engine/filesystem/watch.h>

#include "names.h"
#include "report.h"

bool Follower::start() {
    std::vector<std::string> paths = sources_.sources;
    paths.insert(paths.begin(), sources_.root.empty() ? "." : sources_.root);
    for (const std::string& path : paths)
        if (!attempt(path, "it cannot be watched", [&] { return fs::watch(full_native_path(path).c_str(), true); }))
            return false;
    return true;
}

/// The new file is listed before it is mounted, as at first.
bool Follower::reload(ListedPack& pack) {
    ztl::vector<SFsPackEntry> entries;
    if (!attempt(pack.path, "it cannot be read", [&] { return fs::list_pack(pack.path.c_str(), entries); }) ||
        !attempt(pack.path, "it cannot be mounted anew", [&] { return fs::reload_source(pack.path.c_str()); }))
        return false;
    pack.entries = std::move(entries);
    return true;
}

Batch Follower::next(const Table& before) {
    ztl::vector<SFsChange> changes;
    if (fs::poll_changes(changes))
        said_.clear();
    else if (const std::string text = fs::last_error().text; text != said_)
        note("--follow", said_ = text);
    if (changes.empty()) return {};
    std::set<std::string> names;
    bool is_lost = false;
    for (const SFsChange& change : changes) {
        if (change.kind != SFsChange::LOST) names.insert(change.name);
        is_lost = is_lost || change.kind == SFsChange::LOST;
        for (ListedPack& pack : packs_)
            if (change.kind == SFsChange::LOST && lower_case(pack.path) == change.source) reload(pack);
    }
    const Known known = [&](const std::string& name) -> std::optional<Table::Item> {
        const std::uint64_t inode = is_lost || names.contains(name) ? 0 : before.lookup_path(name);
        const Table::Node* const node = before.find(inode);
        if (node == nullptr || node->is_directory) return std::nullopt;
        return Table::Item{.path = before.path(inode),
                           .source = node->source,
                           .size = node->size,
                           .time = node->time,
                           .is_decoded = node->is_decoded};
    };
    Batch batch{.table = std::make_shared<const Table>(gather(packs_, known), &before), .rewritten = {}};
    for (const std::string& name : names) batch.rewritten.push_back(before.lookup_path(name));
    for (const Table::Node& node : before.nodes())
        if (is_lost && !node.is_directory) batch.rewritten.push_back(node.inode);
    return batch;
}

// Packs tell what they hold by their own lists. Directories are walked beside the library's names, which decide what is
// shown: that asks the disk once for each file, where asking the library for its place and then the disk takes four times.

#include "mount/fuse/view.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <utility>

#include <engine/filesystem/watch.h>

namespace {

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};

std::int64_t nanoseconds(const timespec& time) { return time.tv_sec * 1'000'000'000 + time.tv_nsec; }

Table::Facts facts_of(std::uint32_t source, std::uint32_t version, const struct stat& found) {
    return {.source = source,
            .version = version,
            .size = static_cast<std::uint64_t>(found.st_size),
            .time = nanoseconds(found.st_mtim)};
}

/// Collects the items of one source after the other, in asking order.
class Gathering {
public:
    explicit Gathering(std::uint32_t version) : version_(version), names_(list_files("")), is_found_(names_.size()) {
        items_.reserve(names_.size());
    }

    void add_pack(std::uint32_t source, const ztl::vector<SFsPackEntry>& entries, std::uint32_t version) {
        for (const SFsPackEntry& entry : entries) {
            const std::string path = normalised(entry.name, /*keep_case*/ true);
            if (take(lower_case(path)))
                items_.push_back({path,
                                  {.source = source,
                                   .version = version,
                                   .size = entry.size,
                                   .time = times_.time_of(entry.time),
                                   .is_decoded = entry.method != EFSPackMethod::STORE}});
        }
    }

    /// The directory `path` below `top`, either "" or with "/" at its end.
    void add_directory(std::uint32_t source, const std::string& top, const std::string& path, bool is_linked = false) {
        const std::unique_ptr<DIR, CloseDirectory> directory(opendir((top + path).c_str()));
        if (directory == nullptr) return;
        items_.push_back({path, {.source = source}});
        for (const auto& [name, type] : names_in(directory.get())) {
            const std::string spelled = path + name, key = lower_case(spelled);
            struct stat found {};
            if (type == DT_DIR)
                found.st_mode = S_IFDIR;
            else if (fstatat(dirfd(directory.get()), name.c_str(), &found, 0) != 0)
                continue;
            if (S_ISDIR(found.st_mode) && fs::search_dir(key.c_str()) != nullptr)
                add_directory(source, top, spelled + "/", is_linked || type != DT_DIR);
            // The library does not follow every link to a directory.
            else if ((!is_linked || !place_on_disk(top + key).empty()) && take(key))
                items_.push_back({spelled, facts_of(source, version_, found)});
        }
    }

    std::vector<Table::Item> finish() {
        for (std::size_t i = 0; i < names_.size(); ++i)
            if (!is_found_[i]) note(names_[i], "it is not there any more");
        return std::move(items_);
    }

private:
    /// In the library's order, so that of two spellings the same one wins.
    static std::vector<std::pair<std::string, unsigned char>> names_in(DIR* directory) {
        std::vector<std::pair<std::string, unsigned char>> names;
        while (const dirent* const item = readdir(directory)) {
            const std::string_view name = item->d_name;
            if (name != "." && name != "..") names.emplace_back(name, item->d_type);
        }
        std::ranges::sort(names);
        return names;
    }

    /// Whether a name is shown, and by no source before.
    bool take(const std::string& key) {
        const auto found = std::ranges::lower_bound(names_, key);
        if (found == names_.end() || *found != key) return false;
        return !std::exchange(is_found_[static_cast<std::size_t>(found - names_.begin())], 1);
    }

    const std::uint32_t version_;           // of what is looked at
    const std::vector<std::string> names_;  // that the library shows, sorted
    std::vector<char> is_found_;            // of each
    LocalTimes times_;
    std::vector<Table::Item> items_;
};

/// Adds all other files of a table, and the directories that are there still.
void add_unchanged(std::vector<Table::Item>& items, const Table& before, const std::set<std::string>& changed) {
    for (const Table::Node& node : before.nodes()) {
        std::string path = before.path(node.inode);
        if (node.is_directory ? !is_indexed(path) : changed.contains(lower_case(path))) continue;
        items.push_back({node.is_directory ? path + "/" : std::move(path), node.facts});
    }
}

}  // namespace

std::shared_ptr<const Table> Sources::table(const Table* before) {
    ++version_;
    Gathering gathering(version_);
    const std::vector<SFsSourceInfo> sources = all_sources();
    for (std::uint32_t at = 0; at < sources.size(); ++at) {
        const std::string place = place_of(sources[at]);
        if (sources[at].type == EFSSourceType::PACK) {
            const Pack& pack = listed(place);
            gathering.add_pack(at, pack.entries, pack.version);
        } else {
            gathering.add_directory(at, spelled(place), "");
        }
    }
    return std::make_shared<const Table>(gathering.finish(), before);
}

std::shared_ptr<const Table> Sources::changed_table(const Table& before, const std::set<std::string>& changed) {
    const std::vector<SFsSourceInfo> sources = all_sources();
    std::vector<Table::Item> items;
    ++version_;
    for (const std::string& name : changed) {
        const std::vector<SFsSourceInfo> holders = holders_of(name, FFSOpenFlags::WHOLE_NAME);
        const bool is_held = !holders.empty();
        if (is_indexed(name) || (is_held && holders[0].type == EFSSourceType::PACK)) return table(&before);
        const std::string place = is_held ? place_on_disk(place_of(holders[0]) + name) : "";
        struct stat found {};
        if (place.empty() || stat(place.c_str(), &found) != 0) continue;
        const auto is_it = [&](const SFsSourceInfo& source) { return place_of(source) == place_of(holders[0]); };
        const auto source = static_cast<std::uint32_t>(std::ranges::find_if(sources, is_it) - sources.begin());
        items.push_back({place.substr(place.size() - name.size()), facts_of(source, version_, found)});
    }
    add_unchanged(items, before, changed);  // behind them: the disk may spell directories in another way now
    return std::make_shared<const Table>(std::move(items), &before);
}

const Sources::Pack& Sources::listed(const std::string& pack) {
    const auto [known, is_new] = packs_.try_emplace(pack, Pack{.entries = {}, .version = version_});
    ztl::vector<SFsPackEntry>& entries = known->second.entries;
    if (is_new && !attempt(pack, "it cannot be listed", [&] { return fs::list_pack(pack.c_str(), entries); })) {
        packs_.erase(known);
        throw CommandFailed();
    }
    return known->second;
}

/// A directory, which the library tells in lower case, as the command line spells it.
std::string Sources::spelled(const std::string& directory) const {
    std::vector<std::string> paths = session_.sources;
    paths.push_back(session_.root.empty() ? "." : session_.root);
    for (const std::string& path : paths)
        if (std::string full = full_native_path(path) + "/"; lower_case(full) == lower_case(directory)) return full;
    return directory;
}

std::shared_ptr<const Table> Sources::changes(const Table& before) {
    ztl::vector<SFsChange> changes;
    if (fs::poll_changes(changes))
        said_.clear();
    else if (const std::string text = fs::last_error().text; text != said_)
        note("--follow", said_ = text);
    if (changes.empty()) return {};
    std::set<std::string> names;
    bool is_lost = false;
    for (const SFsChange& change : changes) {
        if (change.kind != SFsChange::LOST) {
            names.insert(change.name);
            continue;
        }
        is_lost = true;
        const bool is_pack = packs_.erase(change.source) != 0;
        if (is_pack)
            attempt(change.source, "it cannot be mounted anew",
                    [&] { return fs::reload_source(change.source.c_str()); });
    }
    return is_lost ? table(&before) : changed_table(before, names);
}

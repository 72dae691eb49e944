#include "mount/gather.h"

#include <algorithm>
#include <chrono>
#include <system_error>

#include "local_times.h"
#include "names.h"
#include "report.h"
#include "session.h"

namespace stdfs = std::filesystem;

namespace {

class Gathering {
public:
    Gathering(const std::vector<ListedPack>& packs, const Known& known) : sources_(all_sources()), known_(known) {
        for (const ListedPack& pack : packs) add_pack(pack);
        const auto is_before = [](const Entry& a, const Entry& b) {
            const int order = a.name.compare(b.name);
            return order != 0 ? order < 0 : a.item.source < b.item.source;
        };
        if (!std::ranges::is_sorted(entries_, is_before)) std::ranges::stable_sort(entries_, is_before);
    }

    std::vector<Table::Item> run() {
        const std::vector<std::string> names = list_files("");
        items_.reserve(names.size());
        for (const std::string& name : names) {
            if (!add_known(name) && !add_packed(name) && !add_from_disk(name)) note(name, "it is not there any more");
        }
        if (const fs::idir* const top = fs::search_dir("")) add_empty_directories(*top, "", names);
        return std::move(items_);
    }

private:
    struct Entry {
        std::string name;  // as the library holds it
        Table::Item item;
    };

    void add_pack(const ListedPack& pack) {
        const auto place = std::ranges::find_if(
            sources_, [&](const SFsSourceInfo& source) { return place_of(source) == lower_case(pack.path); });
        const auto source = static_cast<std::uint32_t>(place - sources_.begin());
        for (const SFsPackEntry& entry : pack.entries) {
            const std::string spelled = normalised(entry.name, /*keep_case*/ true);
            entries_.push_back({lower_case(spelled),
                                {.path = spelled,
                                 .source = source,
                                 .size = entry.size,
                                 .time = times_.time_of(entry.time),
                                 .is_decoded = entry.method != EFSPackMethod::STORE}});
        }
    }

    bool add_known(const std::string& name) {
        std::optional<Table::Item> item = known_ ? known_(name) : std::nullopt;
        if (item) items_.push_back(std::move(*item));
        return item.has_value();
    }

    /// Names come in order, and the entries lie in it.
    bool add_packed(const std::string& name) {
        while (next_entry_ < entries_.size() && entries_[next_entry_].name < name) ++next_entry_;
        if (next_entry_ == entries_.size() || entries_[next_entry_].name != name) return false;
        items_.push_back(std::move(entries_[next_entry_].item));
        return true;
    }

    bool add_from_disk(const std::string& name) {
        for (std::uint32_t at = 0; at < sources_.size(); ++at) {
            if (sources_[at].type == EFSSourceType::PACK) continue;
            const std::string full = sources_[at].path_name + name;
            fs::string place;
            if (!fs::native_path(full.c_str(), place)) continue;
            std::error_code error, no_time;
            const auto size = stdfs::file_size(fs::to_path(place), error);
            const auto time = stdfs::last_write_time(fs::to_path(place), no_time);
            if (error || no_time) return false;
            const auto since_1970 =
                std::chrono::time_point_cast<std::chrono::nanoseconds>(std::chrono::file_clock::to_sys(time));
            items_.push_back({.path = place.substr(place.size() - name.size()),
                              .source = at,
                              .size = size,
                              .time = since_1970.time_since_epoch().count()});
            return true;
        }
        return false;
    }

    void add_empty_directories(const fs::idir& directory, const std::string& path,
                               const std::vector<std::string>& names) {
        for (const fs::idir* child = directory.first_child(); child != nullptr; child = child->next_sibling()) {
            const std::string below = path + child->name() + "/";
            const auto file = std::ranges::lower_bound(names, below);
            if (file == names.end() || !file->starts_with(below)) add_empty(below);
            add_empty_directories(*child, below, names);
        }
    }

    void add_empty(const std::string& path) {
        for (std::uint32_t at = 0; at < sources_.size(); ++at) {
            const std::string& top = sources_[at].path_name;
            if (sources_[at].type == EFSSourceType::PACK || !fs::does_dir_exist((top + path).c_str())) continue;
            items_.push_back({.path = spelled_below(top, path), .source = at});
            return;
        }
        items_.push_back({.path = path, .source = static_cast<std::uint32_t>(sources_.size())});
    }

    /// A directory's name as the disk spells it.
    static std::string spelled_below(const std::string& top, const std::string& path) {
        stdfs::path place = fs::to_path(top);
        std::string spelled;
        for (const stdfs::path& part : fs::to_path(path.substr(0, path.size() - 1))) {
            std::string name = fs::from_path(part);
            std::error_code error;
            for (const stdfs::directory_entry& item : stdfs::directory_iterator(place, error))
                if (const std::string found = fs::from_path(item.path().filename());
                    lower_case(found) == fs::from_path(part))
                    name = found;
            place /= fs::to_path(name);
            spelled += name + "/";
        }
        return spelled;
    }

    const std::vector<SFsSourceInfo> sources_;
    const Known& known_;
    LocalTimes times_;
    std::vector<Entry> entries_;  // of all packs
    std::size_t next_entry_ = 0;
    std::vector<Table::Item> items_;
};

}  // namespace

bool list_packs(const std::vector<std::string>& sources, std::vector<ListedPack>& out) {
    for (const std::string& source : sources) {
        if (!is_pack_name(source)) continue;
        ListedPack pack{.path = full_native_path(source), .entries = {}};
        if (!attempt(source, "it cannot be read", [&] { return fs::list_pack(pack.path.c_str(), pack.entries); }))
            return false;
        out.push_back(std::move(pack));
    }
    return true;
}

std::vector<Table::Item> gather(const std::vector<ListedPack>& packs, const Known& known) {
    return Gathering(packs, known).run();
}

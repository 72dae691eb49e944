#include "page.h"

#include <algorithm>
#include <map>
#include <string_view>

#include "report.h"
#include "result.h"

extern const char page_text[];  // page/page.html

namespace {

using Files = std::vector<std::size_t>;
using Cells = std::vector<std::string>;

constexpr std::size_t most_rows = 200;  // of a table
constexpr std::size_t most_names = 20;  // in a cell
constexpr std::size_t deepest = 64;     // level of directories that is told apart
constexpr double gains_nothing = 0.98;  // of the plain bytes

std::string html(const std::string& text) {
    std::string out;
    for (const char c : as_utf8(text)) {
        if (c == '&' || c == '<' || c == '>' || c == '"')
            out += formatted("&#%d;", c);
        else
            out += c;
    }
    return out;
}

/// "12,345,678".
std::string grouped(std::uint64_t number) {
    std::string text = std::to_string(number);
    for (std::size_t at = text.size(); at > 3;) text.insert(at -= 3, 1, ',');
    return text;
}

std::string amount(std::uint64_t bytes) {
    double number = static_cast<double>(bytes);
    const char* unit = nullptr;
    for (const char* const next : {"KiB", "MiB", "GiB", "TiB"}) {
        if (number < 1024) break;
        number /= 1024;
        unit = next;
    }
    return unit == nullptr ? counted(bytes, "byte", "bytes") : formatted("%.1f %s", number, unit);
}

std::string percent(std::uint64_t part, std::uint64_t whole) {
    return whole != 0 ? formatted("%.1f %%", 100 * static_cast<double>(part) / static_cast<double>(whole)) : "-";
}

/// A table that its heading opens. The title of a column of numbers begins with "#".
class Table {
public:
    Table(const std::string& heading, const std::string& about, const Cells& columns, bool is_open = false)
        : columns_(columns) {
        text_ = std::string(is_open ? "<details open>" : "<details>") + "<summary><h2>" + heading + "</h2><p>" + about +
                "</p></summary><table><thead><tr>";
        for (const std::string& title : columns)
            text_ += is_number(title) ? "<th class=r>" + title.substr(1) : "<th>" + title;
        text_ += "</thead><tbody>\n";
    }

    /// Cells are HTML.
    void add(const Cells& cells) {
        if (++rows_ > most_rows) return;
        text_ += "<tr>";
        for (std::size_t i = 0; i < cells.size(); ++i)
            text_ += (is_number(columns_[i]) ? "<td class=r>" : "<td>") + cells[i];
        text_ += "\n";
    }

    std::string finish() const {
        const std::string more = rows_ <= most_rows ? "" : "<p>and " + grouped(rows_ - most_rows) + " more</p>";
        return rows_ == 0 ? "" : text_ + "</tbody></table>" + more + "</details>\n";
    }

private:
    static bool is_number(const std::string& title) { return title.starts_with('#'); }

    const Cells columns_;
    std::string text_{};
    std::size_t rows_ = 0;
};

/// What a page says of contents.
class Page {
public:
    explicit Page(Contents& contents) : contents_(contents), files_(contents.files()) {}

    std::string summary() const {
        const std::uint64_t size = sum(all(), &ContainedFile::size), packed = sum(all(), &ContainedFile::packed);
        return counted_files(files_.size()) + ", " + amount(size) +
               (packed != size ? ", packed " + amount(packed) + " (" + percent(packed, size) + ")" : "");
    }

    std::string places() const {
        Table table("Packs and directories", "In the order in which they are asked.",
                    {"Place", "Kind", "#Files", "#Bytes", "#Packed", "#Ratio"}, true);
        for (std::size_t i = 0; i < contents_.places().size(); ++i) {
            const Contents::Place& place = contents_.places()[i];
            const Files files = chosen([i](const ContainedFile& file) { return file.place == i; });
            const std::uint64_t size = sum(files, &ContainedFile::size), packed = sum(files, &ContainedFile::packed);
            table.add({html(place.name), place.tree.is_pack() ? "pack" : "directory", grouped(files.size()),
                       grouped(size), grouped(packed), percent(packed, size)});
        }
        return table.finish();
    }

    std::string largest() const {
        Table table("Largest", "By the bytes that they take.", {"Name", "Place", "#Bytes", "#Packed", "#Ratio"});
        for (const std::size_t i : all()) table.add(row(i));
        return table.finish();
    }

    std::string equal(bool exact) const {
        const std::vector<EqualFiles> groups = contents_.equal_files(exact);
        std::uint64_t wasted = 0;
        for (const EqualFiles& group : groups) wasted += group.wasted;
        Table table("Wasted by duplicates",
                    amount(wasted) + " in " + counted(groups.size(), "group", "groups") + " of " +
                        (exact ? "files with the same bytes." : "files with the same size and checksum."),
                    {"Names", "#Files", "#Bytes each", "#Wasted"});
        for (const EqualFiles& group : groups) {
            std::string names;
            for (std::size_t i = 0; i < std::min(group.files.size(), most_names); ++i)
                names += (i == 0 ? "" : "<br>") + name(group.files[i]);
            if (group.files.size() > most_names)
                names += "<br>and " + std::to_string(group.files.size() - most_names) + " more";
            table.add(
                {names, grouped(group.files.size()), grouped(files_[group.files[0]].size), grouped(group.wasted)});
        }
        return table.finish();
    }

    std::string shadowed() const {
        const Files hidden = shadowed_files();
        Table table("Shadowed", about(hidden) + " that nobody reads, since an earlier place has the name.",
                    {"Name", "Place", "#Bytes", "#Packed", "Who wins"});
        for (const std::size_t i : hidden) {
            Cells cells = row(i);
            const std::size_t winner = files_[i].winner;
            cells.back() = winner != ContainedFile::nobody ? place(winner) : "nobody: mounts do not show it";
            table.add(cells);
        }
        return table.finish();
    }

    std::string gaining_nothing() const {
        const Files files = chosen([](const ContainedFile& file) {
            return file.method != EFSPackMethod::STORE && file.method != EFSPackMethod::ZSTD && file.size != 0 &&
                   static_cast<double>(file.packed) >= gains_nothing * static_cast<double>(file.size);
        });
        Table table("Gains nothing by deflate", about(files) + " deflated to 98 % or more.",
                    {"Name", "Place", "#Bytes", "#Packed", "#Ratio"});
        for (const std::size_t i : files) table.add(row(i));
        return table.finish();
    }

    std::string never_read() const {
        std::vector<bool> is_read(files_.size());
        for (const std::size_t i : contents_.record()) is_read[i] = true;
        Files files = chosen([&](const ContainedFile& file) {
            const auto i = static_cast<std::size_t>(&file - files_.data());
            return file.winner == i && !is_read[i];
        });
        const std::size_t unknown = contents_.unknown_names();
        Table table("Never read",
                    about(files) + " that the record does not name" +
                        (unknown == 0 ? "." : "; of its names, " + grouped(unknown) + " are in none of these places."),
                    {"Name", "Place", "#Bytes", "#Packed", "#Ratio"});
        for (const std::size_t i : files) table.add(row(i));
        return table.finish();
    }

    /// What the script draws: a tree of names, and numbers of the files in its order. A directory stands behind the one
    /// that it lies in, and has the next `counts` files.
    std::string data(bool has_record) const {
        Directories tree;
        for (const Contents::Place& place : contents_.places()) tree.add(0, as_utf8(place.name));
        for (std::size_t i = 0; i < files_.size(); ++i) tree.add_file(1 + files_[i].place, files_[i].name, i);
        Json names = Json::array(), sizes = Json::array(), saved = Json::array(), counts = Json::array();
        Json shadowed = Json::array(), order = Json::array();
        std::vector<std::size_t> positions(files_.size());
        for (const auto& files : tree.files) {
            counts.push_back(files.size());
            for (const auto& [name, i] : files) {
                positions[i] = names.size();
                names.push_back(name);
                sizes.push_back(files_[i].size);
                saved.push_back(static_cast<std::int64_t>(files_[i].size - files_[i].packed));
            }
        }
        for (const std::size_t i : shadowed_files()) shadowed.push_back(positions[i]);
        for (const std::size_t i : contents_.record()) order.push_back(positions[i]);
        const Json all = {{"places", contents_.places().size()},
                          {"dirs", tree.names},
                          {"parents", tree.parents},
                          {"counts", counts},
                          {"names", names},
                          {"sizes", sizes},
                          {"saved", saved},
                          {"shadowed", shadowed},
                          {"order", order},
                          {"recorded", has_record}};
        std::string text = all.dump();
        for (std::size_t at = 0; (at = text.find('<', at)) != std::string::npos;) text.replace(at, 1, "\\u003c");
        return text;
    }

private:
    struct Directories {
        std::vector<std::string> names{""};
        std::vector<std::size_t> parents{0};
        std::vector<std::vector<std::pair<std::string, std::size_t>>> files{1};
        std::map<std::pair<std::size_t, std::string>, std::size_t> known{};

        std::size_t add(std::size_t parent, const std::string& name) {
            names.push_back(name);
            parents.push_back(parent);
            files.emplace_back();
            return names.size() - 1;
        }
        void add_file(std::size_t at, const std::string& path, std::size_t file) {
            std::size_t begin = 0;
            for (std::size_t level = 0; level < deepest; ++level) {
                const std::size_t end = path.find('/', begin);
                if (end == std::string::npos) break;
                const auto [place, is_new] = known.try_emplace({at, path.substr(begin, end - begin)});
                if (is_new) place->second = add(at, as_utf8(place->first.second));
                at = place->second;
                begin = end + 1;
            }
            files[at].emplace_back(as_utf8(path.substr(begin)), file);
        }
    };

    std::uint64_t sum(const Files& files, std::uint64_t ContainedFile::*number) const {
        std::uint64_t all = 0;
        for (const std::size_t i : files) all += files_[i].*number;
        return all;
    }
    /// The files that are wanted, the largest first.
    template <class Wanted>
    Files chosen(const Wanted& wanted) const {
        Files chosen;
        for (std::size_t i = 0; i < files_.size(); ++i)
            if (wanted(files_[i])) chosen.push_back(i);
        std::ranges::stable_sort(chosen, std::ranges::greater(), [this](std::size_t i) { return files_[i].packed; });
        return chosen;
    }
    Files all() const {
        return chosen([](const ContainedFile&) { return true; });
    }
    Files shadowed_files() const {
        return chosen([this](const ContainedFile& file) {
            return file.winner != static_cast<std::size_t>(&file - files_.data());
        });
    }

    static std::string counted_files(std::size_t count) { return grouped(count) + (count == 1 ? " file" : " files"); }
    std::string about(const Files& files) const {
        return counted_files(files.size()) + ", " + amount(sum(files, &ContainedFile::packed)) + ",";
    }
    std::string name(std::size_t i) const { return "<bdi>" + html(files_[i].name) + "</bdi>"; }
    std::string place(std::size_t i) const { return html(contents_.places()[files_[i].place].name); }
    Cells row(std::size_t i) const {
        const ContainedFile& file = files_[i];
        return {name(i), place(i), grouped(file.size), grouped(file.packed), percent(file.packed, file.size)};
    }

    Contents& contents_;
    const std::vector<ContainedFile>& files_;
};

}  // namespace

std::string page_of(Contents& contents, const std::string& title, bool has_record, bool exact) {
    const Page page(contents);
    const std::map<std::string_view, std::string> parts = {
        {"title", html(title)},
        {"summary", page.summary()},
        {"data", page.data(has_record)},
        {"tables", page.places() + page.largest() + page.equal(exact) + page.shadowed() + page.gaining_nothing() +
                       (has_record ? page.never_read() : "")}};
    std::string out;
    std::string_view left = page_text;
    for (std::size_t at = 0; (at = left.find("<!--")) != std::string_view::npos;) {
        const std::size_t end = left.find("-->", at);
        out.append(left, 0, at).append(parts.at(left.substr(at + 4, end - at - 4)));
        left.remove_prefix(end + 3);
    }
    return out.append(left);
}

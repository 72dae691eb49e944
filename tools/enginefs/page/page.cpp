// report: what packs and directories hold, as a page for a browser: a map of the bytes, which needs script, and tables,
// which do not. It is one text that reaches for nothing else, and whose names cannot act.

#include <algorithm>
#include <string_view>
#include <system_error>

#include "command.h"
#include "page/contents.h"

extern const char page_text[];  // page/page.html

namespace {

namespace stdfs = std::filesystem;

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

/// As JSON that can stand within HTML.
std::string json_text(const std::string& text) {
    std::string out = "\"";
    for (const char c : as_utf8(text)) {
        if (c == '"' || c == '\\') out += '\\';
        if (c == '<')
            out += "\\u003c";
        else
            out += c;
    }
    return out += '"';
}

/// A field of an object, behind another. (Values of the library for JSON take memory to end.)
template <class Items, class Make>
std::string json_field(const char* name, const Items& items, const Make& make) {
    std::string text;
    for (const auto& item : items) text.append(text.empty() ? "" : ",").append(make(item));
    return std::string(",\"") + name + "\":[" + text + "]\n";
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

    std::string largest() const { return table_of("Largest", "By the bytes that they take.", all()); }

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
        return table_of("Gains nothing by deflate", about(files) + " deflated to 98 % or more.", files);
    }

    std::string never_read() const {
        std::vector<bool> is_read(files_.size());
        for (const std::size_t i : contents_.record()) is_read[i] = true;
        const Files files = chosen([&](const ContainedFile& file) {
            const auto i = static_cast<std::size_t>(&file - files_.data());
            return file.winner == i && !is_read[i];
        });
        const std::size_t unknown = contents_.unknown_names();
        return table_of(
            "Never read",
            about(files) + " that the record does not name" +
                (unknown == 0 ? "." : "; of its names, " + grouped(unknown) + " are in none of these places."),
            files);
    }

    /// What the script draws: a tree of names, and numbers of the files in its order. A directory stands behind the one
    /// that it lies in, and has the next `counts` files.
    std::string data(bool has_record) const {
        Directories tree;
        for (const Contents::Place& place : contents_.places()) tree.add(0, place.name);
        for (std::size_t i = 0; i < files_.size(); ++i) tree.add_file(1 + files_[i].place, files_[i].name, i);
        std::vector<NamedFile> files;
        for (const std::vector<NamedFile>& here : tree.files) files.insert(files.end(), here.begin(), here.end());
        std::vector<std::size_t> positions(files.size());
        for (std::size_t at = 0; at < files.size(); ++at) positions[files[at].second] = at;
        const auto number = [](std::size_t value) { return std::to_string(value); };
        const auto position = [&](std::size_t i) { return std::to_string(positions[i]); };
        const auto size = [this](const NamedFile& file) { return std::to_string(files_[file.second].size); };
        const auto saved = [this](const NamedFile& file) {
            return std::to_string(static_cast<std::int64_t>(files_[file.second].size - files_[file.second].packed));
        };
        return std::string(R"({"recorded":)") + (has_record ? "true" : "false") + R"(,"places":)" +
               std::to_string(contents_.places().size()) + json_field("dirs", tree.names, json_text) +
               json_field("parents", tree.parents, number) +
               json_field("counts", tree.files, [&](const auto& here) { return number(here.size()); }) +
               json_field("names", files, [](const NamedFile& file) { return json_text(file.first); }) +
               json_field("sizes", files, size) + json_field("saved", files, saved) +
               json_field("shadowed", shadowed_files(), position) + json_field("order", contents_.record(), position) +
               "}";
    }

private:
    using NamedFile = std::pair<std::string, std::size_t>;  // the name in its directory, and the number

    struct Directories {
        std::vector<std::string> names{""};
        std::vector<std::size_t> parents{0};
        std::vector<std::vector<NamedFile>> files{1};
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
                if (is_new) place->second = add(at, place->first.second);
                at = place->second;
                begin = end + 1;
            }
            files[at].emplace_back(path.substr(begin), file);
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
    std::string table_of(const std::string& heading, const std::string& about, const Files& files) const {
        Table table(heading, about, {"Name", "Place", "#Bytes", "#Packed", "#Ratio"});
        for (const std::size_t i : files) table.add(row(i));
        return table.finish();
    }
    Cells row(std::size_t i) const {
        const ContainedFile& file = files_[i];
        return {name(i), place(i), grouped(file.size), grouped(file.packed), percent(file.packed, file.size)};
    }

    Contents& contents_;
    const std::vector<ContainedFile>& files_;
};

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

struct Given {
    std::string out, record, title;
    std::vector<std::string> packs{};
    bool exact = false;
    const SessionOptions* session = nullptr;
};

/// Packs before directories, each in the order of the command line, as they are asked when they are mounted.
std::vector<std::string> places_of(const Given& given) {
    const SessionOptions& session = *given.session;
    std::vector<std::string> places = given.packs, directories;
    for (const std::string& path : session.sources) (is_pack_name(path) ? places : directories).push_back(path);
    if (!session.root.empty() || given.packs.empty() || !session.sources.empty())
        places.push_back(session.root.empty() ? "." : session.root);
    places.insert(places.end(), directories.begin(), directories.end());
    return places;
}

bool write_file(const std::string& path, const std::string& text) {
    const stdfs::path place = fs::to_path(full_native_path(path));
    const std::string name = safe_name(fs::from_path(fs::to_path(path).filename()));
    std::error_code unknown;
    if (name.empty()) return fail(path, "it is no name of a file");
    if (!stdfs::is_directory(place.parent_path(), unknown)) return fail(path, "its directory does not exist");
    Output out;
    return out.open_below(place.parent_path(), name) && out.write(text.data(), text.size()) && out.finish();
}

bool report(const Given& given) {
    Contents contents;
    for (const std::string& path : places_of(given))
        if (!contents.add(path)) return false;
    contents.find_winners();
    if (!given.record.empty() && !contents.read_record(given.record)) return false;
    std::string title = given.title;
    for (const Contents::Place& place : contents.places())
        if (given.title.empty()) title += (title.empty() ? "What fills " : ", ") + place.name;
    const std::string page = page_of(contents, title, !given.record.empty(), given.exact);
    return contents.is_whole() && write_file(given.out, page);
}

}  // namespace

void add_report_command(Commands& commands) {
    const auto added = commands.add(
        "report", "Make a page that shows what fills packs and directories, for a browser and without a network",
        report, /*needs_mount*/ false);
    Given& given = added.given;
    given.session = &commands.session();
    added->add_option("OUT", given.out, "The page to make, such as report.html")->required();
    add_repeatable(added.app, "--pack PACK", given.packs,
                   "A pack that stands before what the options --root and --add name, or alone when there are none; "
                   "repeatable");
    add_option(added.app, "--record FILE", given.record,
               "The names that were read, one a line, in their order (see fs::record_access)");
    added->add_option("--title", given.title, "The title of the page");
    added->add_flag("--exact", given.exact, "Compare what seems equal byte by byte");
}

// pack, diff, patch: packs of directories, and of what tells two trees apart.

#include <algorithm>
#include <system_error>
#include <unordered_map>

#include "command.h"
#include "pack_files.h"

namespace {

namespace stdfs = std::filesystem;

/// Patterns that choose among the names of a tree.
struct Globs {
    std::vector<std::string> include{};  // none: every name
    std::vector<std::string> exclude{};

    bool take(const std::string& name) const { return (include.empty() || any(include, name)) && !leave_out(name); }
    bool leave_out(const std::string& name) const { return any(exclude, name); }
    static bool any(const std::vector<std::string>& patterns, const std::string& name) {
        return std::ranges::any_of(patterns, [&](const std::string& pattern) { return selects(pattern, name); });
    }
};

/// Why mounts hide a file or a directory by its name alone; null when they do not.
const char* hidden_because(const std::string& file_name) {
    if (file_name.starts_with('#')) return "mounts hide names that begin with \"#\"";
    return file_name.find('\\') != std::string::npos ? "its name holds a backslash, which separates directories"
                                                     : nullptr;
}

/// Looks for all that a pack of a tree would lack or could not hold, before anything is written, and says each with its
/// reason on standard error.
class PackCheck {
public:
    explicit PackCheck(const Tree& tree) : tree_(tree) {}

    /// Looks for what the patterns choose in `dir` on the disk and is not shown where that is mounted.
    void look_for_unshown(const std::string& dir, const Globs& globs) {
        root_length_ = full_native_path(dir).size();
        walk(fs::to_path(dir), "", globs);
    }

    /// Looks at the files that go in, and adds up their bytes.
    void look_at(const std::vector<std::string>& names, const std::string& where) {
        for (const std::string& name : names) {
            std::string label = where;
            label.append("/").append(name);
            fs::clear_error();
            const std::uint64_t size = tree_.size_of(name);
            if (size == failed)
                tell_error(label, "it cannot be read: " + fs::last_error().text);
            else if (size > most_bytes)
                tell_error(label,
                           "it has " + std::to_string(size) + " bytes; an entry of a pack holds less than 4 GiB");
            else if (!fs::pack_writer::check_name(name.c_str()))
                tell_error(label, fs::last_error().text);
            else if (as_utf8(name) != printable(name))
                tell(label, "its name is not UTF-8: other systems read another one");
            total_bytes_ += size;
        }
    }

    /// Of what was said: all of it, and what no pack can be made with.
    std::size_t findings() const { return findings_; }
    std::size_t errors() const { return errors_; }
    std::uint64_t total_bytes() const { return total_bytes_; }

private:
    void walk(const stdfs::path& dir, const std::string& name, const Globs& globs) try {
        std::vector<stdfs::directory_entry> entries(stdfs::directory_iterator(dir), {});
        std::ranges::sort(entries);
        for (const stdfs::directory_entry& entry : entries)
            look_at_entry(entry, name + fs::from_path(entry.path().filename()), globs);
    } catch (const stdfs::filesystem_error& error) {
        tell_error(fs::from_path(dir), "it cannot be listed: " + error.code().message());
    }

    void look_at_entry(const stdfs::directory_entry& entry, const std::string& name, const Globs& globs) {
        const std::string path = fs::from_path(entry.path());
        std::error_code unknown;
        const bool is_link = entry.is_symlink(unknown);
        const bool is_directory = entry.is_directory(unknown);
        if (is_directory ? globs.leave_out(name) : !globs.take(name)) return;
        const std::string lower = lower_case(name);
        const char* const hidden = hidden_because(fs::from_path(entry.path().filename()));
        if (root_length_ + 1 + name.size() > longest_path)
            tell_error(path, "its path is longer than 259 bytes");
        else if (hidden != nullptr)
            tell(path, hidden);
        else if (is_directory && !is_link)
            walk(entry.path(), name + "/", globs);
        else if (is_directory && !tree_.holds_below(lower))
            tell(path, "the link to a directory shows nothing: it is empty, or leads to where one came from");
        else if (entry.is_regular_file(unknown))
            look_at_file(path, lower);
        else if (!is_directory)
            tell(path, is_link && !entry.exists(unknown) ? "the link leads nowhere" : "it is no regular file");
    }

    void look_at_file(const std::string& path, const std::string& name) {
        walked_.add(1);
        if (!tree_.holds(name)) return tell(path, "a mount does not show it");
        const auto [first, is_new] = seen_.emplace(name, path);
        if (is_new) return;
        const bool is_packed = full_native_path(path) == tree_.native_path(name);
        const std::string& other = is_packed ? first->second : path;
        tell(other, "another name differs from it in case alone, and is packed in its place: " +
                        (is_packed ? path : first->second));
    }

    void tell(const std::string& path, const std::string& reason) {
        note(path, reason);
        ++findings_;
    }
    void tell_error(const std::string& path, const std::string& reason) {
        tell(path, reason);
        ++errors_;
    }

    const Tree& tree_;
    std::size_t root_length_ = 0;
    std::map<std::string, std::string> seen_{};  // paths of files by their names in lower case
    std::size_t findings_ = 0;
    std::size_t errors_ = 0;
    std::uint64_t total_bytes_ = 0;
    Progress walked_{"look at the directory", tree_.names().size(), false};
};

struct Pack {
    std::string out;
    std::string dir;
    std::string order;
    Globs globs{};
    Packing how{};
    bool strict = false;
    bool dry_run = false;
};

/// Puts the names of the order file first, in its order; the rest keep theirs.
bool apply_order(const std::string& path, std::vector<std::string>& names) {
    std::vector<std::string> lines;
    if (!read_lines(path, lines)) return false;
    std::unordered_map<std::string, std::size_t> places;
    for (const std::string& line : lines) places.emplace(normalised(line), places.size());
    std::ranges::stable_sort(names, {}, [&places](const std::string& name) {
        const auto found = places.find(name);
        return found != places.end() ? found->second : places.size();
    });
    return true;
}

bool pack(const Pack& given) {
    Tree tree;
    if (!tree.open_directory(given.dir)) return false;
    std::vector<std::string> names = tree.names();
    const auto dropped = std::erase_if(names, [&](const std::string& name) { return !given.globs.take(name); });
    leave_out_packs(names, given.dir, given.out, given.how);
    PackCheck check(tree);
    check.look_for_unshown(given.dir, given.globs);
    check.look_at(names, given.dir);
    if (check.errors() != 0 || (given.strict && check.findings() != 0))
        return fail(given.out,
                    "it is not made; see the " + counted(check.findings(), "finding", "findings") + " above");
    if (names.empty() && (dropped != 0 || !given.globs.include.empty()))
        return fail(given.out, "it is not made; --include and --exclude leave no file of " + given.dir);
    if (!tree.is_whole() || (!given.order.empty() && !apply_order(given.order, names))) return false;
    if (!given.dry_run) return write_packs(tree, names, check.total_bytes(), given.out, given.how);
    Listing listing;
    for (const std::string& name : names) listing.add({{"name", name}, {"size", tree.size_of(name), 12}});
    listing.note(counted(names.size(), "file", "files") + ", " + std::to_string(check.total_bytes()) + " bytes");
    return listing.finish();
}

struct Patch {
    std::string from, to, out;
    Packing how{};
};

enum class Kind { ADDED, REMOVED, CHANGED };
constexpr const char* kind_names[] = {"added", "removed", "changed"};

struct Change {
    Kind kind;
    std::string name;
    std::uint64_t old_size, new_size;  // `failed` where there is none
};

/// The changes from one tree to the other, by names.
class Comparison {
public:
    bool run(const std::string& from, const std::string& to) {
        if (!old_.open(from) || !new_.open(to) || !old_.is_whole() || !new_.is_whole()) return false;
        std::vector<std::string> all;
        std::ranges::set_union(old_.names(), new_.names(), std::back_inserter(all));
        Progress progress("compare " + from + " and " + to, all.size(), false);
        for (const std::string& name : all) {
            if (!compare(name)) return false;
            progress.add(1);
        }
        return true;
    }

    const Tree& new_tree() const { return new_; }
    const std::vector<Change>& changes() const { return changes_; }
    std::string counted(Kind kind) const {
        return std::to_string(std::ranges::count(changes_, kind, &Change::kind)) + " " +
               kind_names[static_cast<int>(kind)];
    }

private:
    bool compare(const std::string& name) {
        const bool was = old_.holds(name), is = new_.holds(name);
        const std::uint64_t old_size = was ? old_.size_of(name) : failed, new_size = is ? new_.size_of(name) : failed;
        if ((was && old_size == failed) || (is && new_size == failed))
            return fail_with_last_error(name, "it cannot be read");
        std::uint32_t old_crc = 0, new_crc = 0;
        if (was && is && old_size == new_size) {
            if (!old_.crc_of(name, old_crc) || !new_.crc_of(name, new_crc)) return false;
            if (old_crc == new_crc) return true;
        }
        const Kind kind = !was ? Kind::ADDED : is ? Kind::CHANGED : Kind::REMOVED;
        changes_.push_back({kind, name, old_size, new_size});
        return true;
    }

    Tree old_, new_;
    std::vector<Change> changes_;
};

bool diff(const FromTo& given) {
    Comparison all;
    if (!all.run(given.from, given.to)) return false;
    Listing listing;
    for (const Change& change : all.changes())
        listing.add({{"name", change.name},
                     {"change", kind_names[static_cast<int>(change.kind)], -7},
                     {"old_size", json_or_null(change.old_size), 12},
                     {"new_size", json_or_null(change.new_size), 12}});
    listing.note(all.counted(Kind::ADDED) + ", " + all.counted(Kind::REMOVED) + ", " + all.counted(Kind::CHANGED));
    return listing.finish();
}

bool patch(const Patch& given) {
    Comparison all;
    if (!all.run(given.from, given.to)) return false;
    std::vector<std::string> names;
    for (const Change& change : all.changes())
        if (change.kind != Kind::REMOVED) names.push_back(change.name);
    leave_out_packs(names, given.to, given.out, given.how);
    PackCheck check(all.new_tree());
    check.look_at(names, given.to);
    if (check.errors() != 0) return false;
    for (const Change& change : all.changes())
        if (change.kind == Kind::REMOVED)
            note(change.name,
                 given.from + " shows it still, though " + given.to + " lacks it: packs cannot hide names");
    return write_packs(all.new_tree(), names, check.total_bytes(), given.out, given.how);
}

void add_packing_options(CLI::App* command, Packing& how) {
    command
        ->add_option("--method", how.method,
                     "deflate, which every zip tool reads, or zstd, which is read faster and which zip tools of before "
                     "2021 do not know (default: deflate)")
        ->check(CLI::IsMember({"deflate", "zstd"}));
    command->add_option("--level", how.level, "How hard to pack: 0 (store) to 12, usually 6; for zstd to 22, usually 9")
        ->check(CLI::Range(0, 22));
    add_option(command, "--worth P", how.worth,
               "What packing must save of a file, in percent (default: 3); what saves less is only copied, and can be "
               "sought in like the rest")
        ->check(CLI::Range(0, 100));
    add_option(command, "--store EXT,...", how.store,
               "Store files with these extensions, for views of the pack without a copy. Do not seek far back in them: "
               "unless the pack is mounted with EXACT_SEEKS, reading goes on from where it was");
    command->add_flag("--deterministic", how.deterministic, "The same bytes for the same tree: no times");
    command->add_flag(
        "--split", how.split,
        "Go on in OUT.2.pak, OUT.3.pak and so on where one pack would hold more than 65,535 files or 4 GiB");
    add_option(command, "--split-size BYTES", how.split_size, "The same where one would pass this size, such as 600M")
        ->transform(CLI::AsSizeValue(false))
        ->check(CLI::Range(std::uint64_t{0}, std::uint64_t{INT64_MAX}, "at most 8 EiB"));  // a minus would wrap
}

/// The two trees that are compared.
template <class Given>
void add_trees(const Added<Given>& added) {
    added->add_option("OLD", added.given.from, "A pack or a directory")->required();
    added->add_option("NEW", added.given.to, "A pack or a directory")->required();
}

}  // namespace

void add_pack_commands(Commands& commands) {
    const auto added = commands.add("pack", "Make a pack of everything that a directory shows when it is mounted", pack,
                                    /*needs_mount*/ false);
    Pack& given = added.given;
    added->add_option("OUT", given.out, "The pack to make, or to replace once the new one is whole")->required();
    added->add_option("DIR", given.dir, "The directory")->required();
    add_packing_options(added.app, given.how);
    add_repeatable(added.app, "--include GLOB", given.globs.include,
                   "Only what matches, or lies in a directory that does; repeatable");
    add_repeatable(added.app, "--exclude GLOB", given.globs.exclude,
                   "Nothing of what matches, which nobody is told of; repeatable");
    add_option(added.app, "--order FILE", given.order,
               "Lay the names of this list out first, in its order (see fs::record_access)");
    added->add_flag("--strict", given.strict, "Make nothing where something in the directory would be missing");
    CLI::Option* const dry_run =
        added->add_flag("-n,--dry-run", given.dry_run, "Say what would go in, and what would not, and make nothing");
    commands.add_json(added.app)->needs(dry_run);
}

void add_diff_commands(Commands& commands) {
    const auto diff_command = commands.add(
        "diff", "Show what was added, removed and changed between two packs, or directories, with the sizes of both",
        diff, /*needs_mount*/ false);
    add_trees(diff_command);
    commands.add_forms(diff_command.app);

    const auto patch_command = commands.add(
        "patch", "Make a pack of what was added and changed: mounted before OLD it shows what NEW shows", patch,
        /*needs_mount*/ false);
    add_trees(patch_command);
    patch_command->add_option("OUT", patch_command.given.out, "The pack to make")->required();
    add_packing_options(patch_command.app, patch_command.given.how);
}

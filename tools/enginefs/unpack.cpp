// unpack, verify, list: looking into packs.

#include <chrono>
#include <system_error>
#include <unordered_set>

#include "command.h"
#include "tree.h"

namespace {

namespace stdfs = std::filesystem;

struct Unpack {
    std::string pack;
    std::string dir;
    std::vector<std::string> names{};  // none: all
    std::string overwrite = "always";
    bool dry_run = false;
};
struct List {
    std::string pack;
    bool long_form = false;
};

using SeenNames = std::unordered_set<std::string>;

/// Whether a mount reads this entry by its name; if not, says why of `told`. `before` has the names of the entries before
/// it.
bool is_read_by_name(const SFsPackEntry& entry, const std::string& told, SeenNames& before) {
    if (safe_name(entry.name).empty()) return fail(told, "its name leads out of the pack, or holds a colon");
    return before.insert(normalised(entry.name)).second ||
           fail(told, "an entry before it has the same name: nobody reads this one");
}

bool is_older(const stdfs::path& file, stdfs::file_time_type than) {
    std::error_code error;
    const stdfs::file_time_type time = stdfs::last_write_time(file, error);
    return error || time < than;
}

class Unpacking {
public:
    Unpacking(const Unpack& given, const Tree& pack)
        : given_(given), pack_(pack), root_(fs::to_path(full_native_path(given.dir))) {}

    bool run() {
        if (!given_.dry_run && !make_directory(given_.dir, root_)) return false;
        const std::vector<const SFsPackEntry*> chosen = choose();
        std::uint64_t total = 0;
        for (const SFsPackEntry* entry : chosen) total += entry->size;
        Progress progress("unpack " + given_.pack, total, true);
        for (const SFsPackEntry* entry : chosen) {
            good_ = unpack(*entry, progress) && good_;
            if (stopped_ || Interruption::requested()) return fail(given_.dir, "the rest was not unpacked");
        }
        return (!given_.dry_run || listing_.finish()) && good_;
    }

private:
    /// The entries that are asked for. What matches none is said.
    std::vector<const SFsPackEntry*> choose() {
        std::vector<const SFsPackEntry*> chosen;
        std::vector<bool> used(given_.names.size());
        for (const SFsPackEntry& entry : pack_.entries()) {
            bool wanted = given_.names.empty();
            for (std::size_t i = 0; i < used.size(); ++i) {
                if (!selects(given_.names[i], normalised(entry.name))) continue;
                wanted = used[i] = true;
            }
            if (wanted) chosen.push_back(&entry);
        }
        for (std::size_t i = 0; i < used.size(); ++i)
            if (!used[i]) good_ = fail(given_.names[i], "no entry of the pack matches");
        return chosen;
    }

    bool unpack(const SFsPackEntry& entry, Progress& progress) {
        if (!is_read_by_name(entry, entry.name, before_)) return false;
        const std::string name = safe_name(entry.name);
        const stdfs::path target = root_ / fs::to_path(name);
        std::error_code error;
        const bool is_there = stdfs::exists(stdfs::symlink_status(target, error));
        if (is_there &&
            (given_.overwrite == "never" || (given_.overwrite == "older" && !is_older(target, disk_time(entry)))))
            return true;
        if (!given_.dry_run) return write(entry, name, progress);
        listing_.add({{"name", name}, {"size", entry.size}});
        return true;
    }

    bool write(const SFsPackEntry& entry, const std::string& name, Progress& progress) {
        Output out;
        if (!out.open_below(root_, name)) return false;
        const auto take = [&](const char* data, std::uint64_t size) {
            progress.add(size);
            return !(stopped_ = !out.write(data, size));
        };
        out.keep_time(disk_time(entry));
        return pack_.read(entry.name, entry.name, take) && out.finish();
    }

    /// What the disk calls the time of an entry, which is local time.
    stdfs::file_time_type disk_time(const SFsPackEntry& entry) {
        const std::chrono::nanoseconds since_1970(times_.time_of(entry.time));
        return std::chrono::file_clock::from_sys(std::chrono::sys_time<std::chrono::nanoseconds>(since_1970));
    }

    const Unpack& given_;
    const Tree& pack_;
    const stdfs::path root_;
    const Interruption interruption_;
    LocalTimes times_;
    SeenNames before_;
    Listing listing_;  // of a dry run
    bool good_ = true;
    bool stopped_ = false;
};

bool unpack(const Unpack& given) {
    Tree pack;
    return pack.open_pack(given.pack) && Unpacking(given, pack).run();
}

/// Also what is not damaged but does not show: a name that leads out of the pack, or that an entry before has.
bool verify_one(const std::string& name) {
    Tree pack;
    if (!pack.open_pack(name)) return false;
    std::uint64_t total = 0;
    for (const SFsPackEntry& entry : pack.entries()) total += entry.size;
    Progress progress("verify " + name, total, true);
    std::size_t good = 0;
    SeenNames before;
    for (const SFsPackEntry& entry : pack.entries()) {
        const std::string label = name + ": " + entry.name;
        const auto take = [&](const char*, std::uint64_t size) { return progress.add(size), true; };
        if (is_read_by_name(entry, label, before) && pack.read(entry.name, label, take)) ++good;
    }
    const std::size_t findings = pack.entries().size() - good;
    print(shown(name) + ": " + counted(good, "entry", "entries") +
          (findings == 0 ? ", all good\n" : " good, " + counted(findings, "finding", "findings") + "\n"));
    return findings == 0;
}

bool verify(const Names& given) { return for_all(given.names, verify_one); }

std::string method_text(std::uint32_t method) {
    if (method == EFSPackMethod::STORE) return "stored";
    if (method == EFSPackMethod::DEFLATE) return "deflated";
    return method == EFSPackMethod::ZSTD ? "zstd" : "method " + std::to_string(method);
}

bool list(const List& given) {
    ztl::vector<SFsPackEntry> entries;
    const std::string full = full_native_path(given.pack);
    if (!attempt(given.pack, "it cannot be read", [&] { return fs::list_pack(full.c_str(), entries); })) return false;
    Listing listing;
    for (const SFsPackEntry& entry : entries) {
        if (given.long_form)
            listing.add({{"name", entry.name},
                         {"size", entry.size, 12},
                         {"packed", entry.packed_size, 12},
                         {"method", method_text(entry.method), -8},
                         {"crc", entry.crc, Field::hexadecimal},
                         {"time", time_text(entry.time), -19}});
        else
            listing.add({{"name", entry.name}});
    }
    return listing.finish();
}

}  // namespace

void add_unpack_commands(Commands& commands) {
    const auto unpack_command =
        commands.add("unpack", "Write the files of a pack below a directory, and nowhere else", unpack, false);
    unpack_command->add_option("PACK", unpack_command.given.pack)->required();
    unpack_command->add_option("DIR", unpack_command.given.dir)->required();
    unpack_command->add_option("NAME", unpack_command.given.names,
                               "Entries, directories of them or patterns, in any case (default: everything)");
    unpack_command
        ->add_option("--overwrite", unpack_command.given.overwrite,
                     "Which files that are there to replace: never, older (than the entry) or always (default: always)")
        ->check(CLI::IsMember({"never", "older", "always"}));
    CLI::Option* const dry_run = unpack_command->add_flag("-n,--dry-run", unpack_command.given.dry_run,
                                                          "Print what would be written, and write nothing");
    commands.add_json(unpack_command.app)->needs(dry_run);

    const auto verify_command =
        commands.add("verify", "Decode every entry of packs and hold it against its checksum and size", verify, false);
    verify_command->add_option("PACK", verify_command.given.names)->required();

    const auto list_command = commands.add("list", "List the entries of a pack as it records them", list, false);
    list_command->add_option("PACK", list_command.given.pack)->required();
    list_command->add_flag("--long", list_command.given.long_form,
                           "Size, packed size, method, checksum and time of each; packs keep no time zone");
    commands.add_forms(list_command.app);
}

// unpack, verify, list: looking into packs.

#include <cinttypes>
#include <system_error>
#include <unordered_set>

#include <engine/filesystem.h>

#include "commands.h"
#include "names.h"
#include "output.h"
#include "report.h"
#include "result.h"
#include "terminal.h"

namespace {

namespace stdfs = std::filesystem;

struct Unpack {
    std::string pack;
    std::string dir;
};
struct Verify {
    std::vector<std::string> packs;
};
struct List {
    std::string pack;
    bool long_form = false;
    bool json = false;
};

using Entries = ztl::vector<SFsPackEntry>;

bool list_entries(const std::string& pack, Entries& entries) {
    return attempt(pack, "it cannot be read", [&] { return fs::list_pack(full_native_path(pack).c_str(), entries); });
}

/// A pack whose entries are read as the engine reads them, which holds each against its checksum.
class PackReader {
public:
    bool open(const std::string& pack) {
        const std::string full = full_native_path(pack);
        source_.set_native_spelling(full.c_str());
        return attempt(pack, "it cannot be mounted", [&] {
            return source_.init(fs::path(full.c_str(), true), FFSAddSourceFlags::EXACT_SEEKS, nullptr);
        });
    }

    /// False, with a word on standard error, when the entry is damaged; or when `take` says so.
    bool read(const std::string& label, const std::string& name, const TakeBytes& take) {
        fs::file_ptr file;
        return attempt(label, "a mounted pack shows no file of this name",
                       [&] {
                           file.reset(source_.open_read(fs::path(name.c_str(), true), FFSOpenFlags::WHOLE_NAME));
                           return file != nullptr;
                       }) &&
               read_to_end(file.get(), label, take);
    }

private:
    CZip_dir source_;
};

/// The entry's place below a directory, or "" for a name that would leave it or that no disk of ours could hold.
std::string safe_name(const std::string& name) {
    if (name.find('\0') != std::string::npos || name.find(':') != std::string::npos) return "";
    std::string out(name.size() + 1, '\0');
    fs::path_normalize(out.data(), name.c_str(), true);
    out.resize(out.find('\0'));
    const bool climbs = out == ".." || out.compare(0, 3, "../") == 0;
    return out.empty() || out[0] == '/' || climbs ? "" : out;
}

/// Makes the directories of a name below `root`. A link on the way is replaced by a directory: what it points to may lie
/// anywhere. False, with a word on standard error, when that fails.
bool make_directories(const stdfs::path& root, const std::string& name) {
    stdfs::path at = root;
    for (const stdfs::path& part : fs::to_path(name).parent_path()) {
        std::error_code error, unknown;
        at /= part;
        if (stdfs::is_symlink(stdfs::symlink_status(at, unknown))) stdfs::remove(at, error);
        if (!error) stdfs::create_directory(at, error);
        if (stdfs::is_directory(at, unknown)) continue;
        const bool taken = stdfs::exists(at, unknown);
        return fail(name, "its directory cannot be made: " +
                              (taken ? fs::from_path(at) + " is there and is no directory" : error.message()));
    }
    return true;
}

/// Remembers the names it is asked for. Whether one was taken before: in the same spelling or, where the disk does not
/// tell case apart, in another.
class TakenNames {
public:
    bool take(const std::string& name, const stdfs::path& target) {
        std::error_code error;
        const bool is_new = exact_.insert(name).second;
        const bool folded_is_new = folded_.insert(lower_case(name)).second;
        return is_new && (folded_is_new || !stdfs::exists(stdfs::symlink_status(target, error)));
    }

private:
    std::unordered_set<std::string> exact_;
    std::unordered_set<std::string> folded_;
};

bool unpack_entry(PackReader& reader, const std::string& entry, const stdfs::path& root, TakenNames& taken,
                  bool& stopped) {
    const std::string name = safe_name(entry);
    if (name.empty()) return fail(entry, "its name would lead out of the directory");
    const stdfs::path target = root / fs::to_path(name);
    std::error_code error;
    if (!taken.take(name, target)) return fail(entry, "an entry before it has the same name");
    if (!make_directories(root, name)) return false;
    if (stdfs::is_symlink(stdfs::symlink_status(target, error))) stdfs::remove(target, error);
    Output out;
    if (!out.open_native(fs::from_path(target), fs::from_path(target))) return false;
    const auto take = [&](const char* data, std::uint64_t size) { return !(stopped = !out.write(data, size)); };
    return reader.read(entry, entry, take) && out.finish();
}

bool unpack(const Unpack& given) {
    Entries entries;
    PackReader reader;
    if (!list_entries(given.pack, entries) || !reader.open(given.pack)) return false;
    const stdfs::path root = fs::to_path(full_native_path(given.dir));
    std::error_code error;
    stdfs::create_directories(root, error);
    if (!stdfs::is_directory(root, error)) return fail(given.dir, "it cannot be made a directory");
    Progress progress("unpack " + given.pack, entries.size(), false);
    bool good = true;
    bool stopped = false;
    TakenNames taken;
    for (const SFsPackEntry& entry : entries) {
        good = unpack_entry(reader, entry.name, root, taken, stopped) && good;
        if (stopped) return fail(given.dir, "the rest was not unpacked");
        progress.add(1);
    }
    return good;
}

bool verify_one(const std::string& pack) {
    Entries entries;
    PackReader reader;
    if (!list_entries(pack, entries) || !reader.open(pack)) return false;
    Progress progress("verify " + pack, entries.size(), false);
    bool good = true;
    std::unordered_set<std::string> names;
    for (const SFsPackEntry& entry : entries) {
        const std::string label = pack + ": " + entry.name;
        if (!names.insert(normalised(entry.name)).second)
            note(label, "an entry before it has the same name: nobody reads this one");
        else
            good = reader.read(label, entry.name, [](const char*, std::uint64_t) { return true; }) && good;
        progress.add(1);
    }
    const std::size_t hidden = entries.size() - names.size();
    return good && print(pack + ": " + counted(names.size(), "entry", "entries") +
                         (hidden == 0 ? ", all good\n" : " good, " + std::to_string(hidden) + " not looked at\n"));
}

bool verify(const Verify& given) {
    bool good = true;
    for (const std::string& pack : given.packs) good = verify_one(pack) && good;
    return good;
}

std::string method_text(std::uint32_t method) {
    if (method == EFSPackMethod::STORE) return "stored";
    if (method == EFSPackMethod::DEFLATE) return "deflated";
    return method == EFSPackMethod::ZSTD ? "zstd" : "method " + std::to_string(method);
}

std::string columns_of(const SFsPackEntry& entry) {
    return formatted("%12" PRIu64 " %12" PRIu64 "  %-8s  %08" PRIx32 "  %s  ", entry.size, entry.packed_size,
                     method_text(entry.method).c_str(), entry.crc, fs::get_time_as_str(entry.time).c_str());
}

Json json_of(const SFsPackEntry& entry, bool long_form) {
    Json item{{"name", entry.name}};
    if (long_form)
        item.update({{"size", entry.size},
                     {"packed", entry.packed_size},
                     {"method", method_text(entry.method)},
                     {"crc", entry.crc},
                     {"time", fs::get_time_as_str(entry.time)}});
    return item;
}

bool list(const List& given) {
    Entries entries;
    if (!list_entries(given.pack, entries)) return false;
    if (given.json) {
        Json all = Json::array();
        for (const SFsPackEntry& entry : entries) all.push_back(json_of(entry, given.long_form));
        return print_json(all);
    }
    for (const SFsPackEntry& entry : entries) print((given.long_form ? columns_of(entry) : "") + entry.name + "\n");
    return true;
}

}  // namespace

void add_unpack_commands(Commands& commands) {
    const auto unpack_command =
        commands.add("unpack", "Write the files of a pack below a directory, and nowhere else", unpack, false);
    unpack_command->add_option("PACK", unpack_command.given.pack)->required();
    unpack_command->add_option("DIR", unpack_command.given.dir)->required();

    const auto verify_command =
        commands.add("verify", "Decode every entry of packs and hold it against its checksum and size", verify, false);
    verify_command->add_option("PACK", verify_command.given.packs)->required();

    const auto list_command = commands.add("list", "List the entries of a pack as it records them", list, false);
    list_command->add_option("PACK", list_command.given.pack)->required();
    list_command->add_flag("--long", list_command.given.long_form,
                           "Size, packed size, method, checksum and time of each");
    list_command->add_flag("--json", list_command.given.json, "As a JSON array of objects");
}

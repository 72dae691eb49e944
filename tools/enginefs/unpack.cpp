// unpack, verify, list: looking into packs.

#include <cinttypes>
#include <system_error>
#include <unordered_set>

#include <nlohmann/json.hpp>

#include <engine/filesystem.h>

#include "commands.h"
#include "names.h"
#include "output.h"
#include "report.h"
#include "terminal.h"
#include "zip_directory.h"

namespace {

namespace stdfs = std::filesystem;
using Json = nlohmann::ordered_json;

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

/// The library's own opinion of a pack: it must be one that mounts.
bool mounts(const std::string& pack) {
    CZip_dir source;
    const std::string full = full_native_path(pack);
    source.set_native_spelling(full.c_str());
    return attempt(pack, "it cannot be mounted",
                   [&] { return source.init(fs::path(full.c_str(), true), FFSAddSourceFlags::NONE, nullptr); });
}

bool open_pack(const std::string& pack, ZipDirectory& directory) {
    if (!mounts(pack)) return false;
    return directory.open(pack) || fail(pack, directory.error());
}

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
/// anywhere.
bool make_directories(const stdfs::path& root, const std::string& name) {
    std::error_code error;
    stdfs::path at = root;
    for (const stdfs::path& part : to_path(name).parent_path()) {
        at /= part;
        if (stdfs::is_symlink(stdfs::symlink_status(at, error))) stdfs::remove(at, error);
        stdfs::create_directory(at, error);
        if (!stdfs::is_directory(at, error)) return false;
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

bool unpack_entry(ZipDirectory& directory, const ZipEntry& entry, const stdfs::path& root, TakenNames& taken,
                  bool& stopped) {
    const std::string name = safe_name(entry.name);
    if (name.empty()) return fail(entry.name, "its name would lead out of the directory");
    const stdfs::path target = root / to_path(name);
    std::error_code error;
    if (!taken.take(name, target)) return fail(entry.name, "an entry before it has the same name");
    if (!make_directories(root, name))
        return fail(entry.name, "its directory cannot be made: an entry before it is no directory");
    if (stdfs::is_symlink(stdfs::symlink_status(target, error))) stdfs::remove(target, error);
    Output out;
    if (!out.open_native(to_text(target))) return false;
    const std::string wrong = directory.decode(
        entry, [&](const char* data, std::size_t size) { return !(stopped = !out.write(data, size)); });
    if (!stopped && !wrong.empty()) return fail(entry.name, wrong);
    return !stopped && out.finish();
}

bool unpack(const Unpack& given) {
    ZipDirectory directory;
    if (!open_pack(given.pack, directory)) return false;
    const stdfs::path root = to_path(full_native_path(given.dir));
    std::error_code error;
    stdfs::create_directories(root, error);
    if (!stdfs::is_directory(root, error)) return fail(given.dir, "it cannot be made a directory");
    Progress progress("unpack " + given.pack, directory.entries().size(), false);
    bool good = true;
    bool stopped = false;
    TakenNames taken;
    for (const ZipEntry& entry : directory.entries()) {
        good = unpack_entry(directory, entry, root, taken, stopped) && good;
        if (stopped) return fail(given.dir, "the rest was not unpacked");
        progress.add(1);
    }
    return good;
}

bool verify_one(const std::string& pack) {
    ZipDirectory directory;
    if (!open_pack(pack, directory)) return false;
    Progress progress("verify " + pack, directory.entries().size(), false);
    bool good = true;
    for (const ZipEntry& entry : directory.entries()) {
        const std::string wrong = directory.decode(entry, [](const char*, std::size_t) { return true; });
        if (!wrong.empty()) good = fail(pack + ": " + entry.name, wrong);
        progress.add(1);
    }
    return good && print(pack + ": " + std::to_string(directory.entries().size()) + " entries, all good\n");
}

bool verify(const Verify& given) {
    bool good = true;
    for (const std::string& pack : given.packs) good = verify_one(pack) && good;
    return good;
}

std::string time_text(std::uint32_t dos) {
    return formatted("%04u-%02u-%02u %02u:%02u:%02u", 1980 + (dos >> 25), dos >> 21 & 15, dos >> 16 & 31,
                     dos >> 11 & 31, dos >> 5 & 63, (dos & 31) * 2);
}

std::string method_text(std::uint32_t method) {
    return method == 0 ? "stored" : method == 8 ? "deflated" : "method " + std::to_string(method);
}

bool list(const List& given) {
    ZipDirectory directory;
    if (!open_pack(given.pack, directory)) return false;
    Json all = Json::array();
    for (const ZipEntry& entry : directory.entries()) {
        const std::string columns =
            formatted("%12" PRIu64 " %12" PRIu64 "  %-8s  %08x  %s  ", entry.size, entry.packed_size,
                      method_text(entry.method).c_str(), entry.crc, time_text(entry.dos_time).c_str());
        if (!given.json) print((given.long_form ? columns : "") + entry.name + "\n");
        Json item{{"name", entry.name}};
        if (given.long_form)
            item.update({{"size", entry.size},
                         {"packed", entry.packed_size},
                         {"method", method_text(entry.method)},
                         {"crc", entry.crc},
                         {"time", time_text(entry.dos_time)}});
        if (given.json) all.push_back(std::move(item));
    }
    return !given.json || print(all.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
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

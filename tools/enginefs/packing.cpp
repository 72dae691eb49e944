// pack, unpack, verify, list: making packs and looking into them.

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <unordered_map>
#include <unordered_set>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <engine/filesystem.h>

#include "commands.h"
#include "compressor.h"
#include "interruption.h"
#include "names.h"
#include "report.h"
#include "session.h"
#include "terminal.h"
#include "zip_directory.h"

namespace {

namespace stdfs = std::filesystem;

constexpr std::size_t most_entries = 65535;
constexpr std::size_t longest_path = 259;
// 1980-01-01, where the time of a zip begins: the time of every entry when the pack must not depend on it.
constexpr std::int64_t fixed_time = 119600064000000000;

struct PackOptions {
    std::string out;
    std::string dir;
    int level = 6;
    std::string store;
    std::string order;
    bool deterministic = false;
};

std::set<std::string> extensions_of(const std::string& list) {
    std::set<std::string> all;
    std::istringstream in(lower_case(list));
    for (std::string ext; std::getline(in, ext, ',');)
        if (!ext.empty()) all.insert(ext[0] == '.' ? ext : "." + ext);
    return all;
}

/// What the library does not show would be missing from the pack without a word: a path that is too long is an error, a
/// name that differs from another in case alone is told of.
bool check_tree(const std::string& dir) {
    std::set<std::string> seen;
    std::error_code error;
    stdfs::recursive_directory_iterator walk(dir, stdfs::directory_options::skip_permission_denied, error);
    for (const stdfs::recursive_directory_iterator end; !error && walk != end; walk.increment(error)) {
        const std::string path = walk->path().generic_string();
        if (path.size() > longest_path) return fail(path, "its path is longer than 259 bytes") == exit_ok;
        if (!walk->is_directory(error) && !seen.insert(lower_case(path)).second)
            fail(path, "another name differs from it in case alone; only one of them is packed");
    }
    return true;
}

/// Puts the names of the order file first, in its order; the rest keep theirs.
bool apply_order(const std::string& path, std::vector<std::string>& names) {
    std::ifstream in(path);
    if (!in) return false;
    std::unordered_map<std::string, std::size_t> places;
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        places.emplace(normalised(line), places.size());
    }
    const auto place = [&places](const std::string& name) {
        const auto found = places.find(name);
        return found != places.end() ? found->second : places.size();
    };
    std::stable_sort(names.begin(), names.end(),
                     [&](const std::string& a, const std::string& b) { return place(a) < place(b); });
    return true;
}

void load_file(const std::string& name, bool with_time, PackedFile& file) {
    const FilePtr open(fs::open(name.c_str(), EFSMode::READ));
    const std::uint64_t length = fs::length(open.get());
    if (open == nullptr || length == ~std::uint64_t{0}) {
        file.error = "it cannot be read: " + fs::last_error().text;
        return;
    }
    file.plain.resize(length);
    if (fs::read(open.get(), file.plain.data(), length) != length) file.error = "it changed while it was read";
    file.size = length;
    file.time = with_time ? fs::write_time(name.c_str()) : fixed_time;
}

bool add_to_pack(fs::pack_writer& writer, const std::string& name, const PackedFile& file) {
    if (!file.deflated) return writer.add(name.c_str(), file.plain.data(), file.size, 0, file.time);
    return writer.add_deflated(name.c_str(), file.packed.data(), file.packed.size(), file.size, file.crc, file.time);
}

/// What refuses an entry says so of its name; what fails on the disk, of the pack.
int fail_to_add(const std::string& out, const std::string& name) {
    return fail_with_last_error(fs::last_error().path == name ? name : out, "it cannot be written");
}

int write_pack(const PackOptions& options, const std::vector<std::string>& names) {
    const stdfs::path parent = stdfs::path(options.out).parent_path();
    std::error_code error;
    if (!parent.empty() && !stdfs::is_directory(parent, error))
        return fail(options.out, "its directory does not exist");
    const Interruption interruption;
    fs::pack_writer writer;
    if (!writer.open(full_native_path(options.out).c_str()))
        return fail_with_last_error(options.out, "it cannot be written");
    const std::set<std::string> stored = extensions_of(options.store);
    const auto load = [&](std::size_t i, PackedFile& file) { load_file(names[i], !options.deterministic, file); };
    const auto level_of = [&](std::size_t i) {
        return stored.count(stdfs::path(names[i]).extension().string()) != 0 ? 0 : options.level;
    };
    Compressor compressor(names.size(), load, level_of);
    Progress progress("pack " + options.out, names.size(), false);
    for (std::size_t i = 0; i < names.size(); ++i) {
        const PackedFile file = compressor.take(i);
        if (!file.error.empty()) return fail(names[i], file.error);
        if (!add_to_pack(writer, names[i], file)) return fail_to_add(options.out, names[i]);
        if (interruption.requested()) return fail(options.out, "interrupted; it is as it was");
        progress.add(1);
    }
    return writer.finish() ? exit_ok : fail_with_last_error(options.out, "it cannot be finished");
}

int pack(const PackOptions& options) {
    Session session;
    if (!check_tree(options.dir) || !session.mount({.root = options.dir, .fallback = false})) return exit_failed;
    std::vector<std::string> names = list_everything();
    const std::string root = lower_case(full_native_path(options.dir)) + "/";
    const std::string out = lower_case(full_native_path(options.out));
    if (out.compare(0, root.size(), root) == 0) std::erase(names, out.substr(root.size()));
    if (names.size() > most_entries)
        return fail(options.dir, "it holds " + std::to_string(names.size()) + " files; a pack holds at most 65535");
    if (!options.order.empty() && !apply_order(options.order, names)) return fail(options.order, "it cannot be read");
    return write_pack(options, names);
}

/// The library's own opinion of a pack: it must be one that mounts.
bool mounts(const std::string& pack) {
    fs::clear_error();
    CZip_dir source;
    const std::string full = full_native_path(pack);
    source.set_native_spelling(full.c_str());
    if (source.init(fs::path(full.c_str(), true), FFSAddSourceFlags::NONE, nullptr)) return true;
    fail_with_last_error(pack, "it cannot be mounted");
    return false;
}

bool open_pack(const std::string& pack, ZipDirectory& directory) {
    if (!mounts(pack)) return false;
    return directory.open(pack) || fail(pack, directory.error()) == exit_ok;
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
    for (const stdfs::path& part : stdfs::path(name).parent_path()) {
        at /= part;
        if (stdfs::is_symlink(stdfs::symlink_status(at, error))) stdfs::remove(at, error);
        stdfs::create_directory(at, error);
        if (!stdfs::is_directory(at, error)) return false;
    }
    return true;
}

constexpr const char* not_written = "it cannot be written";

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

std::string unpack_entry(ZipDirectory& directory, const ZipEntry& entry, const stdfs::path& root, TakenNames& taken) {
    const std::string name = safe_name(entry.name);
    if (name.empty()) return "its name would lead out of the directory";
    const stdfs::path target = root / name;
    std::error_code error;
    if (!taken.take(name, target)) return "an entry before it has the same name";
    if (!make_directories(root, name)) return "its directory cannot be made: an entry before it is no directory";
    if (stdfs::is_symlink(stdfs::symlink_status(target, error))) stdfs::remove(target, error);
    std::ofstream out(target, std::ios::binary | std::ios::trunc);
    if (!out) return "it cannot be created";
    std::string wrong = directory.decode(entry, [&out](const char* data, std::size_t size) {
        return static_cast<bool>(out.write(data, static_cast<std::streamsize>(size)));
    });
    out.close();
    if (wrong == "stopped" || (wrong.empty() && !out)) wrong = not_written;
    if (wrong.empty() && !stdfs::is_regular_file(target, error)) return "its name is that of a device";
    if (!wrong.empty()) stdfs::remove(target, error);
    return wrong;
}

int unpack(const std::string& pack, const std::string& dir) {
    ZipDirectory directory;
    if (!open_pack(pack, directory)) return exit_failed;
    std::error_code error;
    stdfs::create_directories(dir, error);
    if (!stdfs::is_directory(dir, error)) return fail(dir, "it cannot be made a directory");
    Progress progress("unpack " + pack, directory.entries().size(), false);
    int status = exit_ok;
    TakenNames taken;
    for (const ZipEntry& entry : directory.entries()) {
        const std::string wrong = unpack_entry(directory, entry, dir, taken);
        if (!wrong.empty()) status = fail(entry.name, wrong);
        if (wrong == not_written) return fail(dir, "the rest was not unpacked; is the disk full?");
        progress.add(1);
    }
    return status;
}

int verify_one(const std::string& pack) {
    ZipDirectory directory;
    if (!open_pack(pack, directory)) return exit_failed;
    Progress progress("verify " + pack, directory.entries().size(), false);
    int status = exit_ok;
    for (const ZipEntry& entry : directory.entries()) {
        const std::string wrong = directory.decode(entry, [](const char*, std::size_t) { return true; });
        if (!wrong.empty()) status = fail(pack + ": " + entry.name, wrong);
        progress.add(1);
    }
    if (status == exit_ok) print(pack + ": " + std::to_string(directory.entries().size()) + " entries, all good\n");
    return status;
}

int verify(const std::vector<std::string>& packs) {
    int status = exit_ok;
    for (const std::string& pack : packs) status = std::max(status, verify_one(pack));
    return status;
}

std::string time_text(std::uint32_t dos) {
    char text[80];
    std::snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u", 1980 + (dos >> 25), dos >> 21 & 15,
                  dos >> 16 & 31, dos >> 11 & 31, dos >> 5 & 63, (dos & 31) * 2);
    return text;
}

std::string method_text(std::uint32_t method) {
    return method == 0 ? "stored" : method == 8 ? "deflated" : "method " + std::to_string(method);
}

int list_pack(const std::string& pack, bool long_form, bool json) {
    ZipDirectory directory;
    if (!open_pack(pack, directory)) return exit_failed;
    nlohmann::ordered_json all = nlohmann::ordered_json::array();
    for (const ZipEntry& entry : directory.entries()) {
        char columns[120];
        std::snprintf(columns, sizeof columns, "%12" PRIu64 " %12" PRIu64 "  %-8s  %08x  %s  ", entry.size,
                      entry.packed_size, method_text(entry.method).c_str(), entry.crc,
                      time_text(entry.dos_time).c_str());
        if (!json) print((long_form ? columns : "") + entry.name + "\n");
        nlohmann::ordered_json item{{"name", entry.name}};
        if (long_form)
            item.update({{"size", entry.size},
                         {"packed", entry.packed_size},
                         {"method", method_text(entry.method)},
                         {"crc", entry.crc},
                         {"time", time_text(entry.dos_time)}});
        if (json) all.push_back(std::move(item));
    }
    if (json) print(all.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n");
    return exit_ok;
}

void choose(Command& chosen, std::function<int()> run) {
    chosen.run = std::move(run);
    chosen.needs_mount = false;
}

void add_pack(CLI::App& app, Command& chosen) {
    CLI::App* const sub =
        app.add_subcommand("pack", "Make a pack of everything that a directory shows when it is mounted");
    auto options = std::make_shared<PackOptions>();
    sub->add_option("OUT", options->out, "The pack to make, or to replace once the new one is whole")->required();
    sub->add_option("DIR", options->dir, "The directory")->required();
    sub->add_option("--level", options->level, "How hard to deflate: 0 (store) to 12, usually 6")
        ->check(CLI::Range(0, 12));
    sub->add_option("--store", options->store,
                    "Store files with these extensions; for data that is packed already. Large stored entries are for "
                    "forward reading: a far seek back goes on from where reading was")
        ->type_name("EXT,...");
    sub->add_option("--order", options->order,
                    "Lay the names of this list out first, in its order (see fs::record_access)")
        ->type_name("FILE");
    sub->add_flag("--deterministic", options->deterministic, "The same bytes for the same tree: no times");
    sub->callback([options, &chosen] { choose(chosen, [options] { return pack(*options); }); });
}

void add_unpack(CLI::App& app, Command& chosen) {
    CLI::App* const sub = app.add_subcommand("unpack", "Write the files of a pack below a directory, and nowhere else");
    auto pack = std::make_shared<std::string>();
    auto dir = std::make_shared<std::string>();
    sub->add_option("PACK", *pack)->required();
    sub->add_option("DIR", *dir)->required();
    sub->callback([pack, dir, &chosen] { choose(chosen, [pack, dir] { return unpack(*pack, *dir); }); });
}

void add_verify(CLI::App& app, Command& chosen) {
    CLI::App* const sub =
        app.add_subcommand("verify", "Decode every entry of packs and hold it against its checksum and size");
    auto packs = std::make_shared<std::vector<std::string>>();
    sub->add_option("PACK", *packs)->required();
    sub->callback([packs, &chosen] { choose(chosen, [packs] { return verify(*packs); }); });
}

void add_list(CLI::App& app, Command& chosen) {
    CLI::App* const sub = app.add_subcommand("list", "List the entries of a pack as it records them");
    auto pack = std::make_shared<std::string>();
    auto long_form = std::make_shared<bool>(false);
    auto json = std::make_shared<bool>(false);
    sub->add_option("PACK", *pack)->required();
    sub->add_flag("--long", *long_form, "Size, packed size, method, checksum and time of each");
    sub->add_flag("--json", *json, "As a JSON array of objects");
    sub->callback([=, &chosen] { choose(chosen, [=] { return list_pack(*pack, *long_form, *json); }); });
}

}  // namespace

void add_packing_commands(CLI::App& app, Command& chosen) {
    add_pack(app, chosen);
    add_unpack(app, chosen);
    add_verify(app, chosen);
    add_list(app, chosen);
}

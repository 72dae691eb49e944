// pack: a directory as a pack.

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>
#include <system_error>
#include <unordered_map>

#include <engine/filesystem.h>

#include "commands.h"
#include "compressor.h"
#include "interruption.h"
#include "names.h"
#include "report.h"
#include "terminal.h"

namespace {

namespace stdfs = std::filesystem;

constexpr std::size_t most_entries = 65535;
constexpr std::uint64_t most_bytes = 0xFFFFFFFE;
// 1980-01-01, where the time of a zip begins: the time of every entry when the pack must not depend on it.
constexpr std::int64_t fixed_time = 119600064000000000;

struct Pack {
    std::string out;
    std::string dir;
    std::string method = "deflate";
    int level = -1;  // the usual one of the method
    int worth = 3;
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

/// What the library does not show would be missing from the pack without a word: a path that is too long and a directory
/// that cannot be listed are errors, a name that differs from another in case alone is told of.
bool check_tree(const stdfs::path& dir, std::set<std::string>& seen) try {
    bool good = true;
    for (const stdfs::directory_entry& entry : stdfs::directory_iterator(dir)) {
        const std::string path = fs::from_path(entry.path());
        std::error_code unknown;
        if (path.size() > longest_path)
            good = fail(path, "its path is longer than 259 bytes");
        else if (entry.is_directory(unknown) && !entry.is_symlink(unknown))
            good = check_tree(entry.path(), seen) && good;
        else if (!seen.insert(lower_case(path)).second)
            note(path, "another name differs from it in case alone; only one of them is packed");
    }
    return good;
} catch (const stdfs::filesystem_error& error) {
    return fail(fs::from_path(dir), "it cannot be listed: " + error.code().message());
}

/// Puts the names of the order file first, in its order; the rest keep theirs.
bool apply_order(const std::string& path, std::vector<std::string>& names) {
    std::vector<std::string> lines;
    if (!read_lines(path, lines)) return false;
    std::unordered_map<std::string, std::size_t> places;
    for (const std::string& line : lines) places.emplace(normalised(line), places.size());
    const auto place = [&places](const std::string& name) {
        const auto found = places.find(name);
        return found != places.end() ? found->second : places.size();
    };
    std::stable_sort(names.begin(), names.end(),
                     [&](const std::string& a, const std::string& b) { return place(a) < place(b); });
    return true;
}

PackedFile make_file(const Pack& given, const SFsPacking& how, const std::string& name, fs::entry_packer& packer) {
    PackedFile file;
    std::vector<char> plain;
    const fs::file_ptr open = fs::open_file(name.c_str(), EFSMode::READ);
    const std::uint64_t length = fs::length(open.get());
    if (length != failed && length > most_bytes)
        file.error = "an entry of a pack holds less than 4 GiB";
    else if (open == nullptr || !fs::read_rest(open.get(), plain))
        file.error = "it cannot be read: " + fs::last_error().text;
    else if (!packer.pack(plain.data(), plain.size(), how, file.entry))
        file.error = fs::last_error().text;
    if (!file.error.empty()) return file;
    fs::clear_error();
    file.time = given.deterministic ? fixed_time : fs::write_time(name.c_str());
    if (file.time < 0) file.error = "its time cannot be told: " + fs::last_error().text;
    return file;
}

bool add_to_pack(fs::pack_writer& writer, const std::string& out, const std::string& name, const PackedFile& file) {
    if (!file.error.empty()) return fail(name, file.error);
    fs::clear_error();
    // What is wrong with an entry is said of its name; what fails on the disk, of the pack.
    return writer.add_packed(name.c_str(), file.entry, file.time) ||
           fail_with_last_error(fs::last_error().path == name ? name : out, "it cannot be written");
}

bool write_pack(const Pack& given, const std::vector<std::string>& names) {
    const std::string out = full_native_path(given.out);
    const Interruption interruption;
    fs::pack_writer writer;
    if (!attempt(given.out, "it cannot be written", [&] { return writer.open(out.c_str()); })) return false;
    const std::set<std::string> stored = extensions_of(given.store);
    const bool is_zstd = given.method == "zstd";
    const SFsPacking packed{.method = is_zstd ? EFSPackMethod::ZSTD : EFSPackMethod::DEFLATE,
                            .level = given.level >= 0 ? given.level
                                     : is_zstd        ? 9
                                                      : 6,
                            .worth = given.worth};
    Compressor compressor(names.size(), [&](std::size_t i, fs::entry_packer& packer) {
        const bool store = stored.count(fs::from_path(fs::to_path(names[i]).extension())) != 0;
        return make_file(given, store ? SFsPacking{.method = EFSPackMethod::STORE} : packed, names[i], packer);
    });
    Progress progress("pack " + given.out, names.size(), false);
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (!add_to_pack(writer, given.out, names[i], compressor.take(i))) return false;
        if (interruption.requested()) return fail(given.out, "interrupted; it is as it was");
        progress.add(1);
    }
    return attempt(given.out, "it cannot be finished", [&] { return writer.finish(); });
}

bool pack(const Pack& given) {
    if (given.level > 12 && given.method == "deflate")
        fail_usage("--level " + std::to_string(given.level), "deflate has levels from 0 to 12, zstd to 22");
    std::set<std::string> seen;
    std::error_code error;
    const stdfs::path parent = fs::to_path(given.out).parent_path();
    if (!parent.empty() && !stdfs::is_directory(parent, error)) return fail(given.out, "its directory does not exist");
    Session session;
    if (!session.mount({.root = given.dir, .fallback = false}) || !check_tree(fs::to_path(given.dir), seen) ||
        !session.is_whole())
        return false;
    std::vector<std::string> names = list_files();
    const std::string root = lower_case(full_native_path(given.dir)) + "/";
    const std::string out = lower_case(full_native_path(given.out));
    if (out.starts_with(root)) std::erase(names, out.substr(root.size()));
    if (names.size() > most_entries)
        return fail(given.dir, "it holds " + std::to_string(names.size()) + " files; a pack holds at most 65535");
    if (!given.order.empty() && !apply_order(given.order, names)) return false;
    return write_pack(given, names);
}

}  // namespace

void add_pack_commands(Commands& commands) {
    const auto added = commands.add("pack", "Make a pack of everything that a directory shows when it is mounted", pack,
                                    /*needs_mount*/ false);
    Pack& given = added.given;
    added->add_option("OUT", given.out, "The pack to make, or to replace once the new one is whole")->required();
    added->add_option("DIR", given.dir, "The directory")->required();
    added
        ->add_option("--method", given.method,
                     "deflate, which every zip tool reads, or zstd, which is read faster and which zip tools of before "
                     "2021 do not know (default: deflate)")
        ->check(CLI::IsMember({"deflate", "zstd"}));
    added->add_option("--level", given.level, "How hard to pack: 0 (store) to 12, usually 6; for zstd to 22, usually 9")
        ->check(CLI::Range(0, 22));
    added
        ->add_option("--worth", given.worth,
                     "What packing must save of a file, in percent (default: 3); what saves less is only copied, and "
                     "can be sought in like the rest")
        ->check(CLI::Range(0, 100))
        ->type_name("P");
    added
        ->add_option("--store", given.store,
                     "Store files with these extensions, for views of the pack without a copy. Do not seek far back in "
                     "them: unless the pack is mounted with EXACT_SEEKS, reading goes on from where it was")
        ->type_name("EXT,...");
    added
        ->add_option("--order", given.order,
                     "Lay the names of this list out first, in its order (see fs::record_access)")
        ->type_name("FILE");
    added->add_flag("--deterministic", given.deterministic, "The same bytes for the same tree: no times");
}

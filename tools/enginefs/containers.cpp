// container: looking into multi-container files and changing them.

#include <charconv>
#include <cinttypes>

#include <engine/filesystem.h>

#include "commands.h"
#include "names.h"
#include "output.h"
#include "report.h"
#include "result.h"

namespace {

/// What the arguments of any of the commands say.
struct Arguments {
    std::string file;
    std::string container;
    std::string hash;
    std::string name;  // of the file that goes in or comes out
    bool deflate = false;
    bool long_form = false;
};

/// A number, decimal or with "0x".
std::uint32_t hash_of(const Arguments& given) {
    const std::string& text = given.hash;
    const bool hexadecimal = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const char* const begin = text.data() + (hexadecimal ? 2 : 0);
    const char* const end = text.data() + text.size();
    std::uint32_t hash = 0;
    const auto [stop, error] = std::from_chars(begin, end, hash, hexadecimal ? 16 : 10);
    if (error != std::errc() || stop != end)
        fail_usage(text, "this is no hash; give a number of 32 bits, as 0x... or decimal");
    return hash;
}

std::string hash_text(std::uint32_t hash) { return formatted("0x%08" PRIx32, hash); }

bool open(CFileHashMultiContainer& all, const std::string& file, bool writable) {
    return (!writable || names_itself(file)) &&
           attempt(file, "it cannot be opened", [&] { return all.Open(file.c_str(), writable); });
}

/// Says so where the blob is missing, and why where it cannot even be looked for.
bool has_blob(const CFileHashMultiContainer& all, const Arguments& given, std::uint32_t hash) {
    fs::clear_error();
    if (all.Exists(given.container.c_str(), hash)) return true;
    const std::string missing = "there is no blob " + hash_text(hash) + " in container \"" + given.container + "\"";
    return fs::last_error().code == EFSError::NOT_FOUND ? fail(given.file, missing)
                                                        : fail_with_last_error(given.file, missing);
}

bool list_one(const CFileHashMultiContainer& all, const Arguments& given, const std::string& container, bool blobs,
              Listing& listing) {
    ztl::vector<SBlobInfo> found;
    fs::clear_error();
    if (!all.ListBlobs(container.c_str(), found))
        return fail_with_last_error(given.file, "there is no container \"" + container + "\"");
    std::string lines = shown(container) + "  " + counted(found.size(), "blob", "blobs");
    for (std::size_t i = 0; blobs && i < found.size(); ++i)
        lines += formatted("\n    %s %12" PRIu64 " %12" PRIu64 "  %s", hash_text(found[i].hash).c_str(), found[i].size,
                           found[i].stored_size, found[i].deflated ? "deflated" : "stored");
    listing.add(container, lines, [&] {
        Json object{{"container", container}, {"count", found.size()}};
        for (std::size_t i = 0; blobs && i < found.size(); ++i)
            object["blobs"].push_back({{"hash", found[i].hash},
                                       {"size", found[i].size},
                                       {"stored_size", found[i].stored_size},
                                       {"deflated", found[i].deflated}});
        return object;
    });
    return true;
}

bool list(const Arguments& given) {
    CFileHashMultiContainer all;
    if (!open(all, given.file, false)) return false;
    Listing listing;
    if (!given.container.empty()) return list_one(all, given, given.container, true, listing) && listing.finish();
    ztl::vector<fs::string> containers;
    all.ListContainers(containers);
    bool good = true;
    for (const fs::string& container : containers)
        good = list_one(all, given, container, given.long_form, listing) && good;
    SMultiContainerStats stats;
    if (!good || !all.GetStats(stats)) return false;
    listing.note(counted(stats.containers, "container", "containers") + ", " + counted(stats.blobs, "blob", "blobs") +
                 ", " + std::to_string(stats.live_bytes) + " bytes live, " + std::to_string(stats.wasted_bytes) +
                 " wasted");
    return listing.finish();
}

bool get(const Arguments& given) {
    const std::uint32_t hash = hash_of(given);
    CFileHashMultiContainer all;
    if (!open(all, given.file, false) || !has_blob(all, given, hash)) return false;
    ztl::vector<unsigned char> blob;
    if (!all.Fetch(given.container.c_str(), hash, blob))
        return fail_with_last_error(given.file, "blob " + hash_text(hash) + " cannot be fetched");
    if (given.name.empty()) return print_bytes(blob.data(), blob.size());
    Output out;
    return out.open(given.name) && out.write(blob.data(), blob.size()) && out.finish();
}

bool load(const std::string& name, std::vector<char>& data) {
    const fs::file_ptr file = open_file(name);
    if (file == nullptr) return false;
    const std::uint64_t length = fs::length(file.get());
    if (length > 0xFFFFFFFFu) return fail(name, "a blob holds at most 4294967295 bytes");
    data.reserve(static_cast<std::size_t>(length));
    return read_to_end(file.get(), name, [&data](const char* bytes, std::uint64_t size) {
        data.insert(data.end(), bytes, bytes + size);
        return true;
    });
}

bool put(const Arguments& given) {
    const std::uint32_t hash = hash_of(given);
    std::vector<char> data;
    if (!load(given.name, data) || !names_itself(given.file)) return false;
    CFileHashMultiContainer all;
    const char* const file = given.file.c_str();
    // Only what is not there is made: a file that is damaged, or something else, is not written over.
    const bool is_new = !fs::exists(file);
    const auto open_or_create = [&] { return is_new ? all.Create(file) : all.Open(file, true); };
    const auto add = [&] {
        return all.Put(given.container.c_str(), hash, data.data(), data.size(), given.deflate) && all.Save();
    };
    if (!attempt(given.file, "it cannot be opened for writing", open_or_create)) return false;
    if (attempt(given.file, "the blob cannot be added", add)) return true;
    all.Close();
    if (is_new) fs::rem_file(file);
    return false;
}

bool remove(const Arguments& given) {
    const bool one_blob = !given.hash.empty();
    const std::uint32_t hash = one_blob ? hash_of(given) : 0;
    CFileHashMultiContainer all;
    if (!open(all, given.file, true) || (one_blob && !has_blob(all, given, hash))) return false;
    const char* const container = given.container.c_str();
    if (!(one_blob ? all.Remove(container, hash) : all.RemoveContainer(container)))
        return fail_with_last_error(given.file, "there is no container \"" + given.container + "\"");
    return all.Save() || fail_with_last_error(given.file, "it cannot be saved");
}

bool compact(const Arguments& given) {
    CFileHashMultiContainer all;
    if (!open(all, given.file, true)) return false;
    SMultiContainerStats before;
    all.GetStats(before);
    return attempt(given.file, "it cannot be compacted", [&] { return all.Compact(); }) &&
           print(given.file + ": " + std::to_string(before.wasted_bytes) + " bytes regained\n");
}

bool verify(const Arguments& given) {
    CFileHashMultiContainer all;
    if (!open(all, given.file, false)) return false;
    ztl::vector<fs::string> report;
    const bool good = all.Verify(report);
    for (const fs::string& line : report) fail(given.file, line);
    if (!good) return report.empty() ? fail_with_last_error(given.file, "it is damaged") : false;
    SMultiContainerStats stats;
    all.GetStats(stats);
    return print(given.file + ": " + counted(stats.blobs, "blob", "blobs") + ", all good\n");
}

/// One of the commands, with the argument that all of them have.
Added<Arguments> add(Commands& group, const char* name, const char* help, bool (*run)(const Arguments&)) {
    const auto added = group.add(name, help, run);
    added->add_option("FILE", added.given.file, "The multi-container file, by its virtual name")->required();
    return added;
}

CLI::Option* add_container(const Added<Arguments>& added) {
    return added->add_option("CONTAINER", added.given.container, "Name of a container in it");
}

CLI::Option* add_hash(const Added<Arguments>& added) {
    return added->add_option("HASH", added.given.hash, "Hash of a blob, 0x... or decimal");
}

}  // namespace

void add_container_commands(Commands& commands) {
    Commands group =
        commands.group("container", "Multi-container files: named containers that map 32-bit hashes to blobs");

    const auto ls = add(group, "ls", "List the containers, or the blobs of one", list);
    add_container(ls);
    group.add_forms(ls, "The containers");
    ls->add_flag("--long", ls.given.long_form, "The blobs of every container: hash, size, stored size, method");

    const auto get_command = add(group, "get", "Fetch a blob", get);
    add_container(get_command)->required();
    add_hash(get_command)->required();
    get_command->add_option("OUT", get_command.given.name, "The file that is written (default: standard output)");

    const auto put_command =
        add(group, "put", "Add a blob or replace it; file and container are made when missing", put);
    add_container(put_command)->required();
    add_hash(put_command)->required();
    put_command->add_option("NAME", put_command.given.name, "The file whose content is the blob")->required();
    put_command->add_flag("--deflate", put_command.given.deflate, "Store it compressed where that is smaller");

    const auto rm = add(group, "rm", "Remove a blob, or a whole container", remove);
    add_container(rm)->required();
    add_hash(rm);

    add(group, "compact", "Give back the space of what was replaced or removed", compact);
    add(group, "verify", "Check every structure's bounds and every blob's checksum", verify);
}

// container: looking into multi-container files and changing them.

#include <algorithm>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <memory>
#include <optional>

#include <CLI/CLI.hpp>

#include <engine/filesystem.h>

#include "commands.h"
#include "names.h"
#include "report.h"
#include "terminal.h"

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
std::optional<std::uint32_t> parse_hash(const std::string& text) {
    const bool hexadecimal = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const char* const begin = text.data() + (hexadecimal ? 2 : 0);
    const char* const end = text.data() + text.size();
    std::uint32_t hash = 0;
    const auto [stop, error] = std::from_chars(begin, end, hash, hexadecimal ? 16 : 10);
    return error == std::errc() && stop == end ? std::optional(hash) : std::nullopt;
}

int refuse_hash(const std::string& text) {
    fail(text, "this is no hash; give a number of 32 bits, as 0x... or decimal");
    return exit_usage;
}

std::string hash_text(std::uint32_t hash) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08" PRIx32, hash);
    return text;
}

bool open(CFileHashMultiContainer& all, const std::string& file, bool writable) {
    if (writable && !names_itself(file)) return false;
    fs::clear_error();
    return all.Open(file.c_str(), writable) || fail_with_last_error(file, "it cannot be opened") == exit_ok;
}

/// Says so where the blob is missing, and why where it cannot even be looked for.
bool has_blob(const CFileHashMultiContainer& all, const Arguments& given, std::uint32_t hash) {
    fs::clear_error();
    if (all.Exists(given.container.c_str(), hash)) return true;
    const std::string missing = "there is no blob " + hash_text(hash) + " in container \"" + given.container + "\"";
    if (fs::last_error().code == EFSError::NOT_FOUND) return fail(given.file, missing) == exit_ok;
    return fail_with_last_error(given.file, missing) == exit_ok;
}

void print_blob(const SBlobInfo& blob) {
    char text[96];
    std::snprintf(text, sizeof text, "    %s %12" PRIu64 " %12" PRIu64 "  %s\n", hash_text(blob.hash).c_str(),
                  blob.size, blob.stored_size, blob.deflated ? "deflated" : "stored");
    print(text);
}

int list_one(const CFileHashMultiContainer& all, const Arguments& given, const std::string& container, bool blobs) {
    ztl::vector<SBlobInfo> found;
    fs::clear_error();
    if (!all.ListBlobs(container.c_str(), found))
        return fail_with_last_error(given.file, "there is no container \"" + container + "\"");
    print(container + "  " + std::to_string(found.size()) + " blobs\n");
    for (std::size_t i = 0; blobs && i < found.size(); ++i) print_blob(found[i]);
    return exit_ok;
}

int list(const Arguments& given) {
    CFileHashMultiContainer all;
    if (!open(all, given.file, false)) return exit_failed;
    if (!given.container.empty()) return list_one(all, given, given.container, true);
    ztl::vector<fs::string> containers;
    all.ListContainers(containers);
    int status = exit_ok;
    for (const fs::string& container : containers)
        status = std::max(status, list_one(all, given, container, given.long_form));
    SMultiContainerStats stats;
    if (status != exit_ok || !all.GetStats(stats)) return exit_failed;
    print(std::to_string(stats.containers) + " containers, " + std::to_string(stats.blobs) + " blobs, " +
          std::to_string(stats.live_bytes) + " bytes live, " + std::to_string(stats.wasted_bytes) + " wasted\n");
    return exit_ok;
}

int write_out(const std::string& name, const ztl::vector<unsigned char>& blob) {
    if (!names_itself(name)) return exit_failed;
    fs::clear_error();
    return fs::save_binary_file(blob.data(), blob.size(), name.c_str())
               ? exit_ok
               : fail_with_last_error(name, "it cannot be written");
}

int get(const Arguments& given) {
    const std::optional<std::uint32_t> hash = parse_hash(given.hash);
    if (!hash) return refuse_hash(given.hash);
    CFileHashMultiContainer all;
    if (!open(all, given.file, false)) return exit_failed;
    if (!has_blob(all, given, *hash)) return exit_failed;
    ztl::vector<unsigned char> blob;
    if (!all.Fetch(given.container.c_str(), *hash, blob))
        return fail_with_last_error(given.file, "blob " + hash_text(*hash) + " cannot be fetched");
    if (!given.name.empty()) return write_out(given.name, blob);
    print_bytes(blob.data(), blob.size());
    return exit_ok;
}

bool load(const std::string& name, ztl::vector<unsigned char>& data) {
    fs::clear_error();
    const FilePtr file(fs::open(name.c_str(), EFSMode::READ));
    if (file == nullptr) return fail_with_last_error(name, "no source holds it") == exit_ok;
    const std::uint64_t length = fs::length(file.get());
    if (length > 0xFFFFFFFFu) return fail(name, "a blob holds at most 4294967295 bytes") == exit_ok;
    data.resize(static_cast<std::size_t>(length));
    return fs::read(file.get(), data.data(), length) == length || fail(name, "it cannot be read whole") == exit_ok;
}

int put(const Arguments& given) {
    const std::optional<std::uint32_t> hash = parse_hash(given.hash);
    if (!hash) return refuse_hash(given.hash);
    ztl::vector<unsigned char> data;
    if (!load(given.name, data) || !names_itself(given.file)) return exit_failed;
    CFileHashMultiContainer all;
    fs::clear_error();
    // Only what is not there is made: a file that is damaged, or something else, is not written over.
    const bool ready =
        fs::exists(given.file.c_str()) ? all.Open(given.file.c_str(), true) : all.Create(given.file.c_str());
    if (!ready) return fail_with_last_error(given.file, "it cannot be opened for writing");
    if (!all.Put(given.container.c_str(), *hash, data.data(), data.size(), given.deflate) || !all.Save())
        return fail_with_last_error(given.file, "the blob cannot be added");
    return exit_ok;
}

bool remove_from(CFileHashMultiContainer& all, const Arguments& given, std::optional<std::uint32_t> hash) {
    return hash ? all.Remove(given.container.c_str(), *hash) : all.RemoveContainer(given.container.c_str());
}

int remove(const Arguments& given) {
    const std::optional<std::uint32_t> hash = parse_hash(given.hash);
    if (!given.hash.empty() && !hash) return refuse_hash(given.hash);
    CFileHashMultiContainer all;
    if (!open(all, given.file, true)) return exit_failed;
    if (hash && !has_blob(all, given, *hash)) return exit_failed;
    if (!remove_from(all, given, hash))
        return fail_with_last_error(given.file, "there is no container \"" + given.container + "\"");
    return all.Save() ? exit_ok : fail_with_last_error(given.file, "it cannot be saved");
}

int compact(const Arguments& given) {
    CFileHashMultiContainer all;
    if (!open(all, given.file, true)) return exit_failed;
    SMultiContainerStats before;
    all.GetStats(before);
    if (!all.Compact()) return fail_with_last_error(given.file, "it cannot be compacted");
    print(given.file + ": " + std::to_string(before.wasted_bytes) + " bytes regained\n");
    return exit_ok;
}

int verify(const Arguments& given) {
    CFileHashMultiContainer all;
    if (!open(all, given.file, false)) return exit_failed;
    ztl::vector<fs::string> report;
    const bool good = all.Verify(report);
    for (const fs::string& line : report) fail(given.file, line);
    if (!good) return report.empty() ? fail_with_last_error(given.file, "it is damaged") : exit_failed;
    SMultiContainerStats stats;
    all.GetStats(stats);
    print(given.file + ": " + std::to_string(stats.blobs) + " blobs, all good\n");
    return exit_ok;
}

using Shared = std::shared_ptr<Arguments>;

/// One of the commands, with the argument that all of them have.
CLI::App* add(CLI::App* group, Command& chosen, const char* name, const char* help, const Shared& given,
              int (*run)(const Arguments&)) {
    CLI::App* const sub = group->add_subcommand(name, help);
    sub->add_option("FILE", given->file, "The multi-container file, by its virtual name")->required();
    sub->callback([given, run, &chosen] { chosen.run = [given, run] { return run(*given); }; });
    return sub;
}

CLI::Option* add_container(CLI::App* sub, const Shared& given) {
    return sub->add_option("CONTAINER", given->container, "Name of a container in it");
}

CLI::Option* add_hash(CLI::App* sub, const Shared& given) {
    return sub->add_option("HASH", given->hash, "Hash of a blob, 0x... or decimal");
}

}  // namespace

void add_container_commands(CLI::App& app, Command& chosen) {
    CLI::App* const group =
        app.add_subcommand("container", "Multi-container files: named containers that map 32-bit hashes to blobs");
    group->require_subcommand(1);
    const auto given = std::make_shared<Arguments>();

    CLI::App* const ls = add(group, chosen, "ls", "List the containers, or the blobs of one", given, list);
    add_container(ls, given);
    ls->add_flag("--long", given->long_form, "The blobs of every container: hash, size, stored size, method");

    CLI::App* const get_command = add(group, chosen, "get", "Fetch a blob", given, get);
    add_container(get_command, given)->required();
    add_hash(get_command, given)->required();
    get_command->add_option("OUT", given->name, "The file that is written (default: standard output)");

    CLI::App* const put_command =
        add(group, chosen, "put", "Add a blob or replace it; file and container are made when missing", given, put);
    add_container(put_command, given)->required();
    add_hash(put_command, given)->required();
    put_command->add_option("NAME", given->name, "The file whose content is the blob")->required();
    put_command->add_flag("--deflate", given->deflate, "Store it compressed where that is smaller");

    CLI::App* const rm = add(group, chosen, "rm", "Remove a blob, or a whole container", given, remove);
    add_container(rm, given)->required();
    add_hash(rm, given);

    add(group, chosen, "compact", "Give back the space of what was replaced or removed", given, compact);
    add(group, chosen, "verify", "Check every structure's bounds and every blob's checksum", given, verify);
}

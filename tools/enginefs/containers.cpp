// container: looking into multi-container files and changing them.

#include <charconv>
#include <cinttypes>
#include <functional>
#include <optional>
#include <system_error>

#include <engine/filesystem.h>

#include "commands.h"
#include "interruption.h"
#include "names.h"
#include "output.h"
#include "report.h"
#include "result.h"
#include "terminal.h"
#include "tree.h"

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
    if (error != std::errc() || stop != end) return std::nullopt;
    return hash;
}

std::uint32_t hash_of(const std::string& text) {
    const std::optional<std::uint32_t> hash = parse_hash(text);
    if (!hash) fail_usage(text, "this is no hash; give a number of 32 bits, as 0x... or decimal");
    return *hash;
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

ztl::vector<fs::string> containers_of(const CFileHashMultiContainer& all, const Arguments& given) {
    return ask(given.file, [&] {
        ztl::vector<fs::string> containers;
        all.ListContainers(containers);
        return containers;
    });
}

bool list(const Arguments& given) {
    CFileHashMultiContainer all;
    if (!open(all, given.file, false)) return false;
    Listing listing;
    if (!given.container.empty()) return list_one(all, given, given.container, true, listing) && listing.finish();
    const ztl::vector<fs::string> containers = containers_of(all, given);
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
    const std::uint32_t hash = hash_of(given.hash);
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

/// A file that goes with this unless it is to stay.
class NewFile {
public:
    NewFile(const char* name, bool stays) : name_(name), stays_(stays) {}
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;
    ~NewFile() {
        if (!stays_) fs::rem_file(name_);
    }

    void keep() { stays_ = true; }

private:
    const char* const name_;
    bool stays_;
};

/// Calls `add` with a file that is there or made, and saves what it adds: all or nothing. Ctrl-C waits for that.
bool add_to(const std::string& name, const std::function<bool(CFileHashMultiContainer&)>& add) {
    if (!names_itself(name)) return false;
    const Interruption interruption;
    const char* const file = name.c_str();
    // Only what is not there is made: a file that is damaged, or something else, is not written over.
    const bool is_new = !fs::exists(file);
    NewFile made(file, !is_new);
    CFileHashMultiContainer all;
    const auto open_or_create = [&] { return is_new ? all.Create(file) : all.Open(file, true); };
    if (!attempt(name, "it cannot be opened for writing", open_or_create) || !add(all) ||
        !attempt(name, "it cannot be saved", [&] { return all.Save(); }))
        return false;
    made.keep();
    return true;
}

bool put(const Arguments& given) {
    const std::uint32_t hash = hash_of(given.hash);
    std::vector<char> data;
    return load(given.name, data) && add_to(given.file, [&](CFileHashMultiContainer& all) {
               return attempt(given.file, "the blob cannot be added", [&] {
                   return all.Put(given.container.c_str(), hash, data.data(), data.size(), given.deflate);
               });
           });
}

bool remove(const Arguments& given) {
    const Interruption interruption;
    const bool one_blob = !given.hash.empty();
    const std::uint32_t hash = one_blob ? hash_of(given.hash) : 0;
    CFileHashMultiContainer all;
    if (!open(all, given.file, true) || (one_blob && !has_blob(all, given, hash))) return false;
    const char* const container = given.container.c_str();
    if (!(one_blob ? all.Remove(container, hash) : all.RemoveContainer(container)))
        return fail_with_last_error(given.file, "there is no container \"" + given.container + "\"");
    return all.Save() || fail_with_last_error(given.file, "it cannot be saved");
}

bool compact(const Arguments& given) {
    const Interruption interruption;
    CFileHashMultiContainer all;
    if (!open(all, given.file, true)) return false;
    SMultiContainerStats before;
    all.GetStats(before);
    return attempt(given.file, "it cannot be compacted", [&] { return all.Compact(); }) &&
           print(given.file + ": " + std::to_string(before.wasted_bytes) + " bytes regained\n");
}

/// Calls `take` for the blobs of every container. False when one of them cannot be fetched, of which is told, or when
/// `take` says so, which ends it.
bool for_each_blob(
    const CFileHashMultiContainer& all, const Arguments& given,
    const std::function<bool(const std::string&, std::uint32_t, const ztl::vector<unsigned char>&)>& take) {
    SMultiContainerStats stats;
    all.GetStats(stats);
    Progress progress(given.file, stats.live_bytes, true);
    const ztl::vector<fs::string> containers = containers_of(all, given);
    bool good = true;
    for (const fs::string& container : containers) {
        const std::string told = given.file + ": container \"" + container + "\"";
        ztl::vector<SBlobInfo> blobs;
        good = attempt(told, "it cannot be listed", [&] { return all.ListBlobs(container.c_str(), blobs); }) && good;
        for (const SBlobInfo& blob : blobs) {
            ztl::vector<unsigned char> bytes;
            const std::string label = told + ", blob " + hash_text(blob.hash);
            progress.add(blob.stored_size);
            if (!attempt(label, "it is damaged", [&] { return all.Fetch(container.c_str(), blob.hash, bytes); }))
                good = false;
            else if (!take(container, blob.hash, bytes))
                return false;
        }
    }
    return good;
}

bool verify(const Arguments& given) {
    CFileHashMultiContainer all;
    std::uint64_t blobs = 0;
    const auto count = [&](const auto&...) { return ++blobs, true; };
    return open(all, given.file, false) && for_each_blob(all, given, count) &&
           print(given.file + ": " + counted(blobs, "blob", "blobs") + ", all good\n");
}

bool export_blobs(const Arguments& given) {
    CFileHashMultiContainer all;
    const std::filesystem::path root = fs::to_path(full_native_path(given.name));
    std::uint64_t blobs = 0;
    const Interruption interruption;
    const auto write = [&](const std::string& container, std::uint32_t hash, const ztl::vector<unsigned char>& bytes) {
        const std::string name = safe_name(container);
        if (name != container)
            return fail(given.file, "container \"" + container + "\": no directory can have its name");
        Output out;
        ++blobs;
        return out.open_below(root, name + "/" + hash_text(hash)) && out.write(bytes.data(), bytes.size()) &&
               out.finish();
    };
    if (!open(all, given.file, false)) return false;
    std::error_code error;
    std::filesystem::create_directories(root, error);
    return for_each_blob(all, given, write) && print(given.name + ": " + counted(blobs, "blob", "blobs") + "\n");
}

/// What a file of an exported tree is: CONTAINER/HASH, or CONTAINER/HASH.EXTENSION.
struct Blob {
    std::string name;  // in the tree
    std::string container;
    std::uint32_t hash;
};

bool find_blobs(const Tree& tree, const std::string& dir, std::vector<Blob>& blobs) {
    const std::size_t root = full_native_path(dir).size() + 1;
    bool good = tree.is_whole();
    for (const std::string& name : tree.names()) {
        const std::string place = tree.native_path(name).substr(root);
        const std::size_t slash = place.rfind('/');
        const std::string file = place.substr(slash + 1);
        const std::optional<std::uint32_t> hash = parse_hash(file.substr(0, file.find('.')));
        if (!hash || slash == std::string::npos)
            good = fail(std::string(dir).append("/").append(place),
                        "it is no CONTAINER/HASH, as \"container export\" writes them");
        else
            blobs.push_back({name, place.substr(0, slash), *hash});
    }
    return good;
}

bool import_blobs(const Arguments& given) {
    Tree tree;
    std::vector<Blob> blobs;
    if (!tree.open(given.name)) return false;
    if (tree.is_pack()) return fail(given.name, "it is no directory");
    if (!find_blobs(tree, given.name, blobs)) return false;
    const Interruption interruption;
    Progress progress("import " + given.name, blobs.size(), false);
    const auto add = [&](CFileHashMultiContainer& all) {
        for (const Blob& blob : blobs) {
            std::string bytes;
            const std::string told = given.name + "/" + blob.name;
            const auto take = [&](const char* data, std::uint64_t size) { return bytes.append(data, size), true; };
            const auto put = [&] {
                return all.Put(blob.container.c_str(), blob.hash, bytes.data(), bytes.size(), given.deflate);
            };
            if (!tree.read(blob.name, told, take) || !attempt(told, "the blob cannot be added", put)) return false;
            if (interruption.requested()) return fail(given.file, "interrupted; it is as it was");
            progress.add(1);
        }
        return true;
    };
    return add_to(given.file, add) && print(given.file + ": " + counted(blobs.size(), "blob", "blobs") + "\n");
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

    const auto export_command = add(group, "export", "Write every blob to a file DIR/CONTAINER/HASH", export_blobs);
    export_command->add_option("DIR", export_command.given.name, "A directory of the disk, made when missing")
        ->required();

    const auto import_command =
        add(group, "import", "Add the files of such a directory, all or none; FILE is made when missing", import_blobs);
    import_command->add_option("DIR", import_command.given.name, "A directory of the disk")->required();
    import_command->add_flag("--deflate", import_command.given.deflate, "Store them compressed where that is smaller");

    add(group, "compact", "Give back the space of what was replaced or removed", compact);
    add(group, "verify", "Check every structure's bounds and every blob's checksum", verify);
}

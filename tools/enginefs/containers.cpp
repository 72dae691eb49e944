// container: looking into multi-container files and changing them.

#include <charconv>
#include <cinttypes>
#include <system_error>

#include "command.h"
#include "tree.h"

namespace {

/// What the arguments of any of the commands say.
struct Arguments {
    std::string file;
    std::string container;
    std::optional<std::string> hash{};
    std::string name{};  // of the file that goes in or comes out
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
    if (writable && !names_itself(file)) return false;
    fs::clear_error();
    return all.Open(file.c_str(), writable) ||
           fail_to_read(file, writable ? "it cannot be opened for writing" : "it cannot be read");
}

/// How what is in a file is told of.
std::string told(const std::string& file, const std::string& container) {
    return file + ": container \"" + container + "\"";
}
std::string told(const std::string& file, const std::string& container, std::uint32_t hash) {
    return told(file, container) + ", blob " + hash_text(hash);
}

bool list_one(const CFileHashMultiContainer& all, const Arguments& given, const std::string& container, bool blobs,
              Listing& listing) {
    ztl::vector<SBlobInfo> found;
    if (!attempt(told(given.file, container), "it cannot be listed",
                 [&] { return all.ListBlobs(container.c_str(), found); }))
        return false;
    std::string lines = shown(container) + "  " + counted(found.size(), "blob", "blobs");
    Fields fields = {{"container", container}, {"count", found.size()}};
    if (blobs && !found.empty()) {
        for (const SBlobInfo& blob : found)
            lines += formatted("\n    0x%08" PRIx32 " %12" PRIu64 " %12" PRIu64 "  %s", blob.hash, blob.size,
                               blob.stored_size, blob.deflated ? "deflated" : "stored");
        fields.push_back({"blobs", json_array(found, [](const SBlobInfo& blob) {
                              return Json{{"hash", blob.hash},
                                          {"size", blob.size},
                                          {"stored_size", blob.stored_size},
                                          {"deflated", blob.deflated}};
                          })});
    }
    listing.add(fields, lines);
    return true;
}

ztl::vector<fs::string> containers_of(const CFileHashMultiContainer& all, const std::string& file) {
    return ask(file, [&] {
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
    const auto list = [&](const std::string& container) {
        return list_one(all, given, container, given.long_form, listing);
    };
    SMultiContainerStats stats;
    const bool good = for_all(containers_of(all, given.file), list) &&
                      attempt(given.file, "its bytes cannot be counted", [&] { return all.GetStats(stats); });
    if (good)
        listing.note(counted(stats.containers, "container", "containers") + ", " +
                     counted(stats.blobs, "blob", "blobs") + ", " + std::to_string(stats.live_bytes) + " bytes live, " +
                     std::to_string(stats.wasted_bytes) + " wasted");
    return listing.finish() && good;
}

bool get(const Arguments& given) {
    const std::uint32_t hash = hash_of(*given.hash);
    CFileHashMultiContainer all;
    ztl::vector<unsigned char> blob;
    const auto fetch = [&] { return all.Fetch(given.container.c_str(), hash, blob); };
    if (!open(all, given.file, false) ||
        !attempt(told(given.file, given.container, hash), "it cannot be fetched", fetch))
        return false;
    if (given.name.empty()) return print_bytes(blob.data(), blob.size());
    Output out;
    return out.open(given.name) && out.write(blob.data(), blob.size()) && out.finish();
}

bool load(const std::string& name, std::vector<char>& data) {
    const fs::file_ptr file = open_file(name);
    if (file == nullptr) return false;
    const std::uint64_t length = fs::length(file.get());
    if (length != failed && length > 0xFFFFFFFFu) return fail(name, "a blob holds at most 4294967295 bytes");
    return fs::read_rest(file.get(), data) || fail_with_last_error(name, "it cannot be read");
}

struct RemoveFile {
    void operator()(const char* name) const { fs::rem_file(name); }
};

using Change = std::function<bool(CFileHashMultiContainer&)>;

/// Calls `change` with a file that is there, or may be made, and saves what it does: all or nothing.
bool save_change(const std::string& name, bool may_make, const Change& change) {
    if (!names_itself(name)) return false;
    const Interruption interruption;
    const char* const file = name.c_str();
    // Only what is not there is made: a file that is damaged, or something else, is not written over.
    const bool is_new = may_make && !fs::exists(file);
    std::unique_ptr<const char, RemoveFile> made(is_new ? file : nullptr);
    CFileHashMultiContainer all;
    const auto create = [&] { return all.Create(file); };
    if (!(is_new ? attempt(name, "it cannot be opened for writing", create) : open(all, name, true)) || !change(all))
        return false;
    if (Interruption::requested()) return fail(name, "interrupted; it is as it was");
    if (!attempt(name, "it cannot be saved", [&] { return all.Save(); })) return false;
    static_cast<void>(made.release());
    return true;
}

bool put_blob(CFileHashMultiContainer& all, const Arguments& given, const std::string& container, std::uint32_t hash,
              const std::vector<char>& data) {
    return attempt(told(given.file, container, hash), "it cannot be added",
                   [&] { return all.Put(container.c_str(), hash, data.data(), data.size(), given.deflate); });
}

bool put(const Arguments& given) {
    const std::uint32_t hash = hash_of(*given.hash);
    std::vector<char> data;
    const auto add = [&](CFileHashMultiContainer& all) { return put_blob(all, given, given.container, hash, data); };
    return load(given.name, data) && save_change(given.file, true, add);
}

bool remove(const Arguments& given) {
    const char* const container = given.container.c_str();
    const bool one_blob = given.hash.has_value();
    const std::uint32_t hash = one_blob ? hash_of(*given.hash) : 0;
    const std::string what = one_blob ? told(given.file, container, hash) : told(given.file, container);
    return save_change(given.file, false, [&](CFileHashMultiContainer& all) {
        return attempt(what, "it cannot be removed",
                       [&] { return one_blob ? all.Remove(container, hash) : all.RemoveContainer(container); });
    });
}

bool compact(const std::string& name) {
    const Interruption interruption;
    CFileHashMultiContainer all;
    SMultiContainerStats before;
    const auto count = [&] { return all.GetStats(before); };
    if (!open(all, name, true) || !attempt(name, "it cannot be compacted", count)) return false;
    Progress progress("compact " + name, before.live_bytes, true);
    const auto tell = [](std::uint64_t done, std::uint64_t, void* user) {
        static_cast<Progress*>(user)->reach(done);
        return !Interruption::requested();
    };
    return attempt(name, "it cannot be compacted", [&] { return all.Compact(tell, &progress); }) &&
           print(shown(name) + ": " + std::to_string(before.wasted_bytes) + " bytes regained\n");
}

using TakeBlob =
    std::function<bool(const std::string& container, std::uint32_t hash, const ztl::vector<unsigned char>&)>;

/// Calls `take` for the blobs of every container. False when one of them cannot be fetched, of which is told, or when
/// `take` says so, which ends it.
bool for_each_blob(const CFileHashMultiContainer& all, const std::string& file, const TakeBlob& take) {
    SMultiContainerStats stats;
    all.GetStats(stats);
    Progress progress(file, stats.live_bytes, true);
    bool good = true;
    for (const fs::string& container : containers_of(all, file)) {
        ztl::vector<SBlobInfo> blobs;
        const auto list = [&] { return all.ListBlobs(container.c_str(), blobs); };
        good = attempt(told(file, container), "it cannot be listed", list) && good;
        for (const SBlobInfo& blob : blobs) {
            ztl::vector<unsigned char> bytes;
            const auto fetch = [&] { return all.Fetch(container.c_str(), blob.hash, bytes); };
            progress.add(blob.stored_size);
            if (!attempt(told(file, container, blob.hash), "it is damaged", fetch))
                good = false;
            else if (!take(container, blob.hash, bytes))
                return false;
        }
    }
    return good;
}

bool print_count(const std::string& name, std::uint64_t blobs, const char* behind = "") {
    return print(shown(name) + ": " + counted(blobs, "blob", "blobs") + behind + "\n");
}

bool verify(const std::string& name) {
    CFileHashMultiContainer all;
    std::uint64_t blobs = 0;
    const auto count = [&](const auto&...) { return ++blobs, true; };
    return open(all, name, false) && for_each_blob(all, name, count) && print_count(name, blobs, ", all good");
}

bool export_blobs(const Arguments& given) {
    CFileHashMultiContainer all;
    const std::filesystem::path root = fs::to_path(full_native_path(given.name));
    std::uint64_t blobs = 0;
    std::optional<std::string> unfit;  // the latest container that cannot be a directory
    const Interruption interruption;
    const auto write = [&](const std::string& container, std::uint32_t hash, const ztl::vector<unsigned char>& bytes) {
        const std::string name = safe_name(container);
        if (name.empty() || name != container) {
            if (unfit != container) fail(told(given.file, container), "no directory can have its name");
            unfit = container;
            return true;
        }
        Output out;
        ++blobs;
        return out.open_below(root, name + "/" + hash_text(hash)) && out.write(bytes.data(), bytes.size()) &&
               out.finish();
    };
    return open(all, given.file, false) && make_directory(given.name, root) && for_each_blob(all, given.file, write) &&
           print_count(given.name, blobs) && !unfit;
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
    if (!tree.open_directory(given.name) || !find_blobs(tree, given.name, blobs)) return false;
    const auto add = [&](CFileHashMultiContainer& all) {
        Progress progress("import " + given.name, blobs.size(), false);
        for (const Blob& blob : blobs) {
            std::vector<char> bytes;
            const auto take = [&](const char* data, std::uint64_t size) {
                return bytes.insert(bytes.end(), data, data + size), true;
            };
            if (!tree.read(blob.name, given.name + "/" + blob.name, take) ||
                !put_blob(all, given, blob.container, blob.hash, bytes))
                return false;
            if (Interruption::requested()) break;  // of which save_change tells
            progress.add(1);
        }
        return true;
    };
    return save_change(given.file, true, add) && print_count(given.file, blobs.size());
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
    group.add_forms(ls.app, "The containers");
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

    group.add("compact", "Give back the space of what was replaced or removed", "FILE", compact);
    group.add("verify", "Check every structure's bounds and every blob's checksum", "FILE", verify);
}

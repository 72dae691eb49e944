// cache: the recorded listings that spare later mounts a look at the disk.

#include <algorithm>
#include <cinttypes>
#include <cstring>
#include <fstream>
#include <system_error>

#include "command.h"

namespace {

namespace stdfs = std::filesystem;

struct Given {
    const SessionOptions* session = nullptr;
};

/// The directory of the listings.
std::string directory_of(const Given& given) {
    if (given.session->cache_dir.empty())
        fail_usage("cache", "give the cache directory, as in: enginefs --cache DIR cache show");
    return full_native_path(given.session->cache_dir) + "/" + fs::listing_cache_folder;
}

/// With `partial` also what a writer that was stopped has left beside a listing: its name and two numbers.
std::vector<std::string> listings_in(const std::string& dir, bool partial = false) {
    std::vector<std::string> found;
    std::error_code error, unknown;
    if (!stdfs::is_directory(fs::to_path(dir), unknown)) return found;
    const stdfs::directory_iterator entries(fs::to_path(dir), error);
    if (error) {
        fail(dir, "it cannot be listed: " + error.message());
        throw CommandFailed();
    }
    for (const stdfs::directory_entry& entry : entries) {
        const stdfs::path name = entry.path().filename();
        const bool is_partial = partial && name.stem().stem().extension() == ".fsc";
        if ((name.extension() != ".fsc" && !is_partial) || !entry.is_regular_file(unknown)) continue;
        found.push_back(fs::from_path(entry.path()));
    }
    std::ranges::sort(found);
    return found;
}

/// The directory that a listing is of, as it says (docs/formats.md); "" when it is none.
std::string directory_in(const std::string& path) {
    std::ifstream in(fs::to_path(path), std::ios::binary);
    unsigned char head[18];
    if (!in.read(reinterpret_cast<char*>(head), sizeof head) || std::memcmp(head, "FSCL", 4) != 0) return "";
    std::string directory(static_cast<std::size_t>(head[16] | head[17] << 8), '\0');
    return in.read(directory.data(), static_cast<std::streamsize>(directory.size())) ? directory : "";
}

bool show_listings(const std::vector<std::string>& listings) {
    Listing listing;
    listing.note("       bytes  written               directory, and its listing");
    for (const std::string& path : listings) {
        std::error_code unknown;
        const std::uint64_t size = stdfs::file_size(fs::to_path(path), unknown);
        const std::string time = time_on_disk(path), directory = directory_in(path);
        const std::string columns = formatted("%12" PRIu64 "  %s  ", size, time.c_str());
        const std::string shown_directory = directory.empty() ? "(damaged)" : shown(directory, Color::DIRECTORY);
        listing.add({{"path", path}, {"size", size}, {"time", time}, {"directory", directory}},
                    columns + shown_directory + "\n" + std::string(36, ' ') + shown(path));
    }
    return listing.finish();
}

bool build(const Given& given) {
    const std::string dir = directory_of(given);
    if (given.session->sources.empty()) fail_usage("cache build", "nothing to record: give the directories with --add");
    if (!make_directory(dir, fs::to_path(dir))) return false;
    Session session;
    if (!session.mount(*given.session)) return false;
    const std::vector<std::string> listings = listings_in(dir);
    if (listings.empty())
        return fail(dir, "mounting recorded no listing there; only directories have one, or the disk is full");
    return show_listings(listings) && session.is_whole();
}

bool show(const Given& given) {
    const std::string dir = directory_of(given);
    std::error_code error;
    if (!stdfs::is_directory(fs::to_path(dir), error))
        return fail(dir, "there is no such directory; \"cache build\" makes it");
    return show_listings(listings_in(dir));
}

bool drop(const Given& given) { return for_all(listings_in(directory_of(given), true), remove_on_disk); }

}  // namespace

void add_cache_commands(Commands& commands) {
    Commands cache = commands.group(
        "cache",
        "Recorded listings of sources in the cache directory (--cache), which later mounts read instead of the disk");
    const auto add = [&](const char* name, const char* help, bool (*run)(const Given&)) {
        const auto added = cache.add(name, help, run, false);
        added.given.session = &cache.session();
        return added;
    };
    add("build", "Make the place for them and mount the sources of --add, so that each is recorded", build);
    cache.add_forms(add("show", "Show the recorded listings with their sizes", show).app, "The places");
    add("drop", "Remove the recorded listings; the next mounts read the disk", drop);
}

// cache: the recorded listings that spare later mounts a look at the disk.

#include <algorithm>
#include <filesystem>
#include <memory>
#include <system_error>
#include <vector>

#include <CLI/CLI.hpp>

#include <engine/filesystem.h>

#include "commands.h"
#include "report.h"
#include "session.h"

namespace {

namespace stdfs = std::filesystem;

struct Listing {
    std::string path;
    std::uint64_t size = 0;
};

/// The directory of the listings; "", with a message, without --cache.
std::string directory_of(const SessionOptions& options) {
    if (!options.cache_dir.empty()) return full_native_path(options.cache_dir) + "/" + fs::listing_cache_folder;
    fail("cache", "give the cache directory, as in: enginefs --cache DIR cache show");
    return "";
}

/// With `partial` also what a writer that was stopped has left beside a listing: its name and two numbers.
std::vector<Listing> listings_in(const std::string& dir, bool partial = false) {
    std::vector<Listing> found;
    std::error_code error;
    for (stdfs::directory_iterator walk(dir, error), end; !error && walk != end; walk.increment(error)) {
        const stdfs::path name = walk->path().filename();
        const bool is_partial = partial && name.stem().stem().extension() == ".fsc";
        if ((name.extension() != ".fsc" && !is_partial) || !walk->is_regular_file(error)) continue;
        found.push_back({walk->path().generic_string(), walk->file_size(error)});
    }
    std::sort(found.begin(), found.end(), [](const Listing& a, const Listing& b) { return a.path < b.path; });
    return found;
}

int show_listings(const std::vector<Listing>& listings) {
    for (const Listing& listing : listings) print(std::to_string(listing.size) + "  " + listing.path + "\n");
    return exit_ok;
}

int build(const SessionOptions& options) {
    const std::string dir = directory_of(options);
    if (dir.empty()) return exit_usage;
    if (options.sources.empty())
        return fail("cache build", "nothing to record: give the directories with --add"), exit_usage;
    std::error_code error;
    stdfs::create_directories(dir, error);
    if (!stdfs::is_directory(dir, error)) return fail(dir, "it cannot be made a directory");
    Session session;
    if (!session.mount(options)) return exit_failed;
    const std::vector<Listing> listings = listings_in(dir);
    return listings.empty() ? fail(dir, "mounting recorded no listing there; only directories have one")
                            : show_listings(listings);
}

int show(const SessionOptions& options) {
    const std::string dir = directory_of(options);
    if (dir.empty()) return exit_usage;
    std::error_code error;
    if (!stdfs::is_directory(dir, error)) return fail(dir, "there is no such directory; \"cache build\" makes it");
    return show_listings(listings_in(dir));
}

int drop(const SessionOptions& options) {
    const std::string dir = directory_of(options);
    if (dir.empty()) return exit_usage;
    int status = exit_ok;
    for (const Listing& listing : listings_in(dir, true)) {
        std::error_code error;
        if (!stdfs::remove(listing.path, error))
            status = fail(listing.path, "it cannot be removed: " + error.message());
    }
    return status;
}

}  // namespace

void add_cache_commands(CLI::App& app, Command& chosen, const SessionOptions& options) {
    CLI::App* const group = app.add_subcommand(
        "cache",
        "Recorded listings of sources in the cache directory (--cache), which later mounts read instead of the disk");
    group->require_subcommand(1);
    const auto add = [&](const char* name, const char* help, int (*run)(const SessionOptions&)) {
        group->add_subcommand(name, help)->callback([&chosen, &options, run] {
            chosen.needs_mount = false;
            chosen.run = [&options, run] { return run(options); };
        });
    };
    add("build", "Make the place for them and mount the sources of --add, so that each is recorded", build);
    add("show", "Show the recorded listings with their sizes", show);
    add("drop", "Remove the recorded listings; the next mounts read the disk", drop);
}

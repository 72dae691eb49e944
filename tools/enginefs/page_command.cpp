// report: what fills packs and directories, as a page for a browser.

#include <engine/filesystem.h>

#include "commands.h"
#include "output.h"
#include "page.h"
#include "report.h"

namespace stdfs = std::filesystem;

namespace {

struct Given {
    std::string out, record, title;
    std::vector<std::string> packs{};
    bool exact = false;
    const SessionOptions* session = nullptr;
};

/// Packs before directories, each in the order of the command line, as they are asked when they are mounted.
std::vector<std::string> places_of(const Given& given) {
    const SessionOptions& session = *given.session;
    std::vector<std::string> places = given.packs, directories;
    for (const std::string& path : session.sources) (is_pack_name(path) ? places : directories).push_back(path);
    if (!session.root.empty() || given.packs.empty() || !session.sources.empty())
        places.push_back(session.root.empty() ? "." : session.root);
    places.insert(places.end(), directories.begin(), directories.end());
    return places;
}

bool write_file(const std::string& path, const std::string& text) {
    const stdfs::path place = fs::to_path(full_native_path(path));
    const std::string name = safe_name(fs::from_path(fs::to_path(path).filename()));
    std::error_code unknown;
    if (name.empty()) return fail(path, "it is no name of a file");
    if (!stdfs::is_directory(place.parent_path(), unknown)) return fail(path, "its directory does not exist");
    Output out;
    return out.open_below(place.parent_path(), name) && out.write(text.data(), text.size()) && out.finish();
}

bool report(const Given& given) {
    Contents contents;
    for (const std::string& path : places_of(given))
        if (!contents.add(path)) return false;
    contents.find_winners();
    if (!given.record.empty() && !contents.read_record(given.record)) return false;
    std::string title = given.title;
    for (const Contents::Place& place : contents.places())
        if (given.title.empty()) title += (title.empty() ? "What fills " : ", ") + place.name;
    const std::string page = page_of(contents, title, !given.record.empty(), given.exact);
    return contents.is_whole() && write_file(given.out, page);
}

}  // namespace

void add_report_command(Commands& commands) {
    const auto added = commands.add(
        "report", "Make a page that shows what fills packs and directories, for a browser and without a network",
        report,
        /*needs_mount*/ false);
    Given& given = added.given;
    given.session = &commands.session();
    added->add_option("OUT", given.out, "The page to make, such as report.html")->required();
    added
        ->add_option("--pack", given.packs,
                     "A pack that stands before what the options --root and --add name, or alone when there are none; "
                     "repeatable")
        ->type_name("PACK")
        ->expected(1)
        ->take_all();
    added
        ->add_option("--record", given.record,
                     "The names that were read, one a line, in their order (see fs::record_access)")
        ->type_name("FILE");
    added->add_option("--title", given.title, "The title of the page");
    added->add_flag("--exact", given.exact, "Compare what seems equal byte by byte");
}

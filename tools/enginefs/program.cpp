#include "program.h"

#include <exception>
#include <new>

#include <engine/filesystem.h>

#include "commands.h"
#include "report.h"

namespace {

void add_session_options(CLI::App& app, SessionOptions& options) {
    app.add_option("--root", options.root,
                   "Directory that is asked after packs and written to (default: the current one)")
        ->type_name("DIR");
    app.add_option("--add", options.sources,
                   "Further source: a pack (.pak, .mpak), which is asked before the root, or a directory, which is "
                   "asked after it; repeatable, of each kind the earlier ones win")
        ->type_name("PATH")
        ->take_all()
        ->expected(1);
    app.add_flag_callback(
        "--no-fallback", [&options] { options.fallback = false; },
        "Do not look on the disk for names that no source holds");
    app.add_option("--cache", options.cache_dir,
                   "Cache directory, which holds recorded listings (see the command \"cache\")")
        ->type_name("DIR");
    app.add_option("--log", options.log_level,
                   "Show the library's messages on standard error: none, fatal, error, info, "
                   "warn, debug, verbose or all")
        ->type_name("LEVEL");
}

}  // namespace

Program::Program() : app_("Lists, reads, explains and changes what the engine's file system sees.", "enginefs") {
    app_.footer(
        "Names use \"/\" and any case; a name that begins with \"-\" stands behind \"--\". A file is also found by the "
        "end of its name (\"one.txt\" for \"levels/one.txt\"), but only changed by the whole of it. Exit status: 0 "
        "done, 1 not found or failed, 2 wrong command line.");
    app_.failure_message([](const CLI::App*, const CLI::Error& error) {
        return "enginefs: " + std::string(error.what()) + "\nRun with --help for more information.\n";
    });
    app_.require_subcommand(1);
    app_.option_defaults()->always_capture_default(false);
    add_session_options(app_, options_);
    Commands commands(app_, chosen_, options_);
    for (const auto add :
         {add_listing_commands, add_content_commands, add_pack_commands, add_unpack_commands, add_diff_commands,
          add_stream_commands, add_chunk_commands, add_manage_commands, add_duplicates_command, add_container_commands,
          add_cache_commands, add_log_commands, add_load_command})
        add(commands);
}

std::optional<int> Program::parse(int argc, const char* const* argv) {
    try {
        app_.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app_.exit(error) == 0 ? exit_ok : exit_usage;
    }
    return std::nullopt;
}

int Program::run() const {
    try {
        return run_chosen() ? exit_ok : exit_failed;
    } catch (const WrongUsage&) {
        return exit_usage;
    } catch (const CommandFailed&) {
        return exit_failed;
    } catch (const std::bad_alloc&) {
        fail_without_memory();
    } catch (const std::exception& error) {
        fail("enginefs", error.what());
    }
    return exit_failed;
}

bool Program::run_chosen() const {
    // Messages go to the callback alone: a tool leaves no log files in the trees that it looks at.
    _CLFilterSetMode(CLFilterMode::ALL_CONSOLE);
    if (!options_.log_level.empty()) show_messages(options_.log_level);
    Session session;
    if (chosen_.needs_mount && !session.mount(options_)) return false;
    fs::clear_error();
    return chosen_.run() && session.is_whole();
}

// enginefs: what content and build people do every day with the engine's file system, over its exported interface.

#include <exception>
#include <new>

#include <engine/filesystem.h>

#include "commands.h"
#include "report.h"
#include "terminal.h"

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

bool run_chosen(const SessionOptions& options, const Chosen& chosen) {
    // Messages go to the callback alone: a tool leaves no log files in the trees that it looks at.
    _CLFilterSetMode(CLFilterMode::ALL_CONSOLE);
    if (!options.log_level.empty()) show_messages(options.log_level);
    Session session;
    if (chosen.needs_mount && !session.mount(options)) return false;
    fs::clear_error();
    return chosen.run();
}

int run(int argc, char** argv) {
    CLI::App app("Lists, reads, explains and changes what the engine's file system sees.", "enginefs");
    app.footer(
        "Names use \"/\" and any case; a name that begins with \"-\" stands behind \"--\". A file is also found by the "
        "end of its name (\"one.txt\" for \"levels/one.txt\"), but only changed by the whole of it. Exit status: 0 "
        "done, 1 not found or failed, 2 wrong command line.");
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        return "enginefs: " + std::string(error.what()) + "\nRun with --help for more information.\n";
    });
    app.require_subcommand(1);
    app.option_defaults()->always_capture_default(false);
    SessionOptions options;
    Chosen chosen;
    add_session_options(app, options);
    Commands commands(app, chosen, options);
    for (const auto add : {add_listing_commands, add_content_commands, add_pack_commands, add_unpack_commands,
                           add_stream_commands, add_chunk_commands, add_manage_commands, add_duplicates_command,
                           add_container_commands, add_cache_commands, add_log_commands, add_load_command})
        add(commands);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? exit_ok : exit_usage;
    }
    return run_chosen(options, chosen) ? exit_ok : exit_failed;
}

}  // namespace

int main(int argc, char** argv) {
    prepare_streams();
    try {
        return finish_output(run(argc, argv));
    } catch (const WrongUsage&) {
        return exit_usage;
    } catch (const std::bad_alloc&) {
        fail_without_memory();
    } catch (const std::exception& error) {
        fail("enginefs", error.what());
    }
    return exit_failed;
}

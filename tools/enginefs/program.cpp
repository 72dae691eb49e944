#include "program.h"

#include <algorithm>
#include <exception>
#include <iostream>
#include <new>
#include <numeric>
#include <sstream>
#include <utility>

namespace {

void add_session_options(CLI::App& app, SessionOptions& options, Style& style) {
    add_option(&app, "--root DIR", options.root,
               "Directory that is asked after packs and written to (default: the current one)")
        ->check([](const std::string& given) { return given.empty() ? "it names no directory" : ""; });
    add_repeatable(
        &app, "--add PATH", options.sources,
        "Further source: a pack (.pak, .mpak, or by an http or https URL), which is asked before the root, or "
        "a directory, which is asked after it; repeatable, of each kind the earlier ones win");
    app.add_flag_callback(
        "--no-fallback", [&options] { options.fallback = false; },
        "Do not look on the disk for names that no source holds");
    add_option(&app, "--cache DIR", options.cache_dir,
               "Cache directory, which holds recorded listings (see the command \"cache\")");
    add_option(&app, "--log LEVEL", options.log_level, "Show the library's messages up to this level on standard error")
        ->check(CLI::IsMember({"none", "fatal", "error", "info", "warn", "debug", "verbose", "all"}));
    add_option(&app, "--color WHEN", style.color,
               "Colours: always, never, or, by default, on a terminal unless NO_COLOR is set")
        ->check(CLI::IsMember({"auto", "always", "never"}));
}

/// Log lines end as log files want it; standard error ends its lines as the system does.
void print_message(Log::ELevel::TYPE, const char*, const char* text) {
    std::string lines = text;
    std::erase(lines, '\r');
    std::fputs(lines.c_str(), stderr);
}

/// How many letters must be changed, added or dropped to make one word of the other.
std::size_t distance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, diagonal + 1, row[j] + 1});
        }
    }
    return row.back();
}

/// The command or option that is meant by a word which is none; "" where none is near.
std::string suggestion(const CLI::App& app, const std::string& word) {
    std::vector<std::string> known;
    for (const CLI::App* const command : app.get_subcommands({})) known.push_back(command->get_name());
    for (const CLI::App* at = &app; at != nullptr; at = at->get_parent())
        for (const CLI::Option* const option : at->get_options())
            for (const std::string& name : option->get_lnames()) known.push_back("--" + name);
    const auto near = [&](const std::string& name) { return distance(word, name); };
    const auto best = std::ranges::min_element(known, {}, near);
    return best != known.end() && near(*best) <= 2 && near(*best) < word.size() ? *best : "";
}

std::string message_of(const CLI::App* app, const CLI::Error& error) {
    const std::vector<std::string> unknown = app->remaining(true);
    while (!app->get_subcommands().empty()) app = app->get_subcommands().front();
    const auto code = static_cast<CLI::ExitCodes>(error.get_exit_code());
    const bool is_unknown = code == CLI::ExitCodes::ExtrasError || code == CLI::ExitCodes::RequiredError;
    std::string text = "enginefs: " + printable(error.what()) + "\n";
    if (is_unknown && !unknown.empty()) {
        const bool is_option = unknown[0].starts_with('-');
        const std::string meant = suggestion(*app, unknown[0]);
        text = "enginefs: " + (unknown[0].empty() ? "\"\"" : printable(unknown[0])) + ": this is " +
               (is_option                          ? "no option here"
                : app->get_subcommands({}).empty() ? "one argument too many"
                                                   : "no command here");
        if (!meant.empty())
            text += meant == unknown[0] ? "; it stands behind the command" : "; did you mean \"" + meant + "\"?";
        text += "\n";
    }
    return text + "Run with --help for more information.\n";
}

}  // namespace

Program::Program() : app_("Lists, reads, explains and changes what the engine's file system sees.", "enginefs") {
    app_.footer(
        "Names use \"/\" and any case; a name that begins with \"-\" stands behind \"--\". A file is also found by the "
        "end of its name (\"one.txt\" for \"levels/one.txt\"), but only changed by the whole of it. Where names are "
        "taken "
        "so are patterns of whole names: \"*\" and \"?\" within a directory, \"**\" across. The options of \"enginefs "
        "--help\" stand "
        "before or behind the command. Exit status: 0 done, 1 not found or failed, 2 wrong command line.");
    app_.failure_message(message_of);
    app_.set_version_flag("--version", "enginefs " ENGINE_VERSION);
    app_.require_subcommand(1);
    app_.fallthrough();
    app_.allow_windows_style_options(false);  // "/games/one" is a path there too
    app_.option_defaults()->always_capture_default(false);
    add_session_options(app_, line_.session, line_.style);
    Commands commands(app_, line_);
    for (const auto add :
         {add_listing_commands, add_content_commands, add_pack_commands, add_unpack_commands, add_diff_commands,
          add_chunk_commands, add_manage_commands, add_duplicates_command, add_container_commands, add_cache_commands,
          add_log_commands, add_load_command, add_mount_command, add_report_command, add_watch_command})
        add(commands);
}

std::optional<int> Program::parse(int argc, const char* const* argv) {
    try {
        app_.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        std::ostringstream help;
        const int code = app_.exit(error, help, std::cerr);
        print(help.str());
        return code == 0 ? exit_ok : exit_usage;
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
    set_style(line_.style);
    // Messages go to the callback alone: a tool leaves no log files in the trees that it looks at.
    _CLFilterSetMode(CLFilterMode::ALL_CONSOLE);
    if (const std::string& level = line_.session.log_level; !level.empty()) {
        Log::Settings::Instance().SetLevel(level == "all" ? Log::ELevel::VERE : CrashLevelFromName(level.c_str()));
        LogSetPrintCallback(print_message);
    }
    Session session;
    if (line_.needs_mount && !session.mount(line_.session)) return false;
    fs::clear_error();
    return line_.run() && session.is_whole();
}

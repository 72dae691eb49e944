#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "files.h"
#include "session.h"

// What every file of commands needs: where commands are added, and with it names, files and messages.

/// What a command line says.
struct CommandLine {
    SessionOptions session{};
    Style style{};
    std::function<bool()> run{};  // the command that was chosen; false: it failed, and said so
    bool needs_mount = true;      // whether that works on the mounted file system
};

/// A command of the parser, and the place that its options and arguments fill.
template <class Given>
struct Added {
    CLI::App* operator->() const { return app; }
    CLI::App* app;
    Given& given;
};

/// Arguments that several commands take.
struct Names {
    std::vector<std::string> names;
};

/// An option, spelled with what it takes: "--order FILE".
template <class Value>
CLI::Option* add_option(CLI::App* app, const std::string& spelled, Value& value, const std::string& help) {
    const std::size_t blank = spelled.find(' ');
    return app->add_option(spelled.substr(0, blank), value, help)->type_name(spelled.substr(blank + 1));
}
/// One that may be given several times, with a value each.
inline void add_repeatable(CLI::App* app, const std::string& spelled, std::vector<std::string>& values,
                           const std::string& help) {
    add_option(app, spelled, values, help)->expected(1)->take_all();
}

/// Where commands are added: the parser, or a group of commands in it.
class Commands {
public:
    Commands(CLI::App& app, CommandLine& line) : app_(app), line_(line) {}

    /// A command that calls `run` with its arguments.
    template <class Given>
    Added<Given> add(const char* name, const char* help, bool (*run)(const Given&), bool needs_mount = true) {
        return add_running<Given>(name, help, run, needs_mount);
    }

    /// One that takes names and patterns, and calls `run` for each of the files.
    Added<Names> add(const char* name, const char* help, const char* argument, bool (*run)(const std::string& file)) {
        const auto added =
            add_running<Names>(name, help, [run](const Names& given) { return for_each_file(given.names, run); });
        added->add_option(argument, added.given.names)->required();
        return added;
    }

    /// One that takes names and patterns and then a new name, or a directory for files under what `rename` makes of their
    /// own; calls `run` for each of the files.
    void add_moving(const char* name, const char* help, bool (*run)(const FromTo&), Rename rename = nullptr) {
        const auto added = add_running<Names>(
            name, help, [=](const Names& given) { return for_each_target(given.names, run, rename); });
        added->add_option("NAMES", added.given.names, "Files, and last the whole new name, or a directory for them")
            ->required()
            ->expected(2, -1);
    }

    /// Lets a command that lists be asked for other forms than lines; `first` is what -0 prints.
    CLI::Option* add_json(CLI::App* app, const char* help = "As a JSON array of objects") {
        return app->add_flag("--json", line_.style.json, help);
    }
    void add_forms(CLI::App* app, const std::string& first = "The names") {
        app->add_flag("-0,--null", line_.style.zero, first + " alone, with a zero byte behind each")
            ->excludes(add_json(app));
    }
    /// The same for one that lists files.
    template <class Given>
    void add_forms_of_files(const Added<Given>& added) {
        add_forms(added.app);
        CLI::Option* const spelling =
            added->add_flag("--spelling", added.given.form.spelling, "Names as the disk spells them");
        added->add_flag("--native-paths", added.given.form.native, "The place of each on the disk for its name")
            ->excludes(spelling);
    }

    Commands group(const char* name, const char* help) {
        CLI::App* const app = app_.add_subcommand(name, help);
        app->require_subcommand(1);
        return {*app, line_};
    }

    /// The options before the command; they are full when a command runs.
    const SessionOptions& session() const { return line_.session; }

private:
    template <class Given>
    Added<Given> add_running(const char* name, const char* help, std::function<bool(const Given&)> run,
                             bool needs_mount = true) {
        const auto given = std::make_shared<Given>();
        CommandLine& line = line_;
        CLI::App* const app = app_.add_subcommand(name, help);
        app->callback([=, &line] {
            line.run = [=] { return run(*given); };
            line.needs_mount = needs_mount;
        });
        return {app, *given};
    }

    CLI::App& app_;
    CommandLine& line_;
};

/// Each adds the commands of one topic to the parser.
using AddCommands = void(Commands& commands);
AddCommands add_listing_commands, add_content_commands, add_pack_commands, add_unpack_commands, add_diff_commands,
    add_chunk_commands, add_manage_commands, add_duplicates_command, add_container_commands, add_cache_commands,
    add_log_commands, add_load_command, add_mount_command, add_report_command, add_watch_command;

#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "names.h"
#include "result.h"
#include "session.h"

/// The command that was chosen on the command line.
struct Chosen {
    std::function<bool()> run;  // false: it failed, and said so
    bool needs_mount = true;    // whether it works on the mounted file system
};

/// A command of the parser, and the place that its options and arguments fill.
template <class Given>
struct Added {
    CLI::App* operator->() const { return app; }
    CLI::App* app;
    Given& given;
};

/// Arguments that several commands take.
struct Name {
    std::string name;
};
struct Names {
    std::vector<std::string> names;
};

/// Where commands are added: the parser, or a group of commands in it.
class Commands {
public:
    Commands(CLI::App& app, Chosen& chosen, SessionOptions& session, Style& style)
        : app_(app), chosen_(chosen), session_(session), style_(style) {}

    /// A command that calls `run` with its arguments.
    template <class Given>
    Added<Given> add(const char* name, const char* help, bool (*run)(const Given&), bool needs_mount = true) {
        return add_running<Given>(name, help, run, needs_mount);
    }

    /// One that takes names and patterns, and calls `run` for each of the files.
    Added<Names> add(const char* name, const char* help, const char* argument, bool (*run)(const Name&)) {
        const auto added = add_running<Names>(name, help, [run](const Names& given) {
            return for_each_file(given.names, [run](const std::string& file) { return run({file}); });
        });
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
    template <class Given>
    CLI::Option* add_json(const Added<Given>& added) {
        return added->add_flag("--json", style_.json, "As a JSON array of objects");
    }
    template <class Given>
    void add_forms(const Added<Given>& added, const std::string& first) {
        added->add_flag("-0,--null", style_.zero, first + " alone, with a zero byte behind each")
            ->excludes(add_json(added));
    }
    /// The same for one that lists files.
    template <class Given>
    void add_forms(const Added<Given>& added) {
        add_forms(added, "The names");
        CLI::Option* const spelling =
            added->add_flag("--spelling", added.given.form.spelling, "Names as the disk spells them");
        added->add_flag("--native-paths", added.given.form.native, "The place of each on the disk for its name")
            ->excludes(spelling);
    }

    Commands group(const char* name, const char* help) {
        CLI::App* const app = app_.add_subcommand(name, help);
        app->require_subcommand(1);
        return {*app, chosen_, session_, style_};
    }

    /// The options before the command; they are full when a command runs.
    const SessionOptions& session() const { return session_; }

private:
    template <class Given>
    Added<Given> add_running(const char* name, const char* help, std::function<bool(const Given&)> run,
                             bool needs_mount = true) {
        const auto given = std::make_shared<Given>();
        Chosen& chosen = chosen_;
        CLI::App* const app = app_.add_subcommand(name, help);
        app->callback([=, &chosen] { chosen = {[=] { return run(*given); }, needs_mount}; });
        return {app, *given};
    }

    CLI::App& app_;
    Chosen& chosen_;
    SessionOptions& session_;
    Style& style_;
};

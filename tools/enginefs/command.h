#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

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
struct FromTo {
    std::string from, to;
};

/// Where commands are added: the parser, or a group of commands in it.
class Commands {
public:
    Commands(CLI::App& app, Chosen& chosen, const SessionOptions& session)
        : app_(app), chosen_(chosen), session_(session) {}

    /// A command that calls `run` with its arguments.
    template <class Given>
    Added<Given> add(const char* name, const char* help, bool (*run)(const Given&), bool needs_mount = true) {
        const auto given = std::make_shared<Given>();
        Chosen& chosen = chosen_;
        CLI::App* const app = app_.add_subcommand(name, help);
        app->callback([=, &chosen] { chosen = {[=] { return run(*given); }, needs_mount}; });
        return {app, *given};
    }

    /// One that takes a single required argument.
    void add(const char* name, const char* help, const char* argument, bool (*run)(const Name&)) {
        const Added<Name> added = add(name, help, run);
        added->add_option(argument, added.given.name)->required();
    }

    Commands group(const char* name, const char* help) {
        CLI::App* const app = app_.add_subcommand(name, help);
        app->require_subcommand(1);
        return {*app, chosen_, session_};
    }

    /// The options before the command; they are full when a command runs.
    const SessionOptions& session() const { return session_; }

private:
    CLI::App& app_;
    Chosen& chosen_;
    const SessionOptions& session_;
};

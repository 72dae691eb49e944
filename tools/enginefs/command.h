#pragma once

#include <functional>
#include <string>

namespace CLI {
class App;
}

/// The command that was chosen on the command line.
struct Command {
    std::function<int()> run;  // returns the exit status
    bool needs_mount = true;   // whether it works on the mounted file system
};

/// Adds a command that takes one name or text and nothing else.
void add_name_command(CLI::App& app, Command& chosen, const char* command, const char* help, const char* argument,
                      int (*run)(const std::string&));

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

// Each of these adds the commands of one topic to the parser; the parser fills `chosen` when one of them is named.
void add_listing_commands(CLI::App& app, Command& chosen);
void add_content_commands(CLI::App& app, Command& chosen);
void add_packing_commands(CLI::App& app, Command& chosen);

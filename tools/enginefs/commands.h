#pragma once

#include <functional>
#include <string>

namespace CLI {
class App;
}

struct SessionOptions;

/// The command that was chosen on the command line.
struct Command {
    std::function<int()> run;  // returns the exit status
    bool needs_mount = true;   // whether it works on the mounted file system
};

/// Adds a command that takes one name or text and nothing else.
void add_name_command(CLI::App& app, Command& chosen, const char* command, const char* help, const char* argument,
                      int (*run)(const std::string&));

// Each of these adds the commands of one topic to the parser; the parser fills `chosen` when one of them is named.
void add_listing_commands(CLI::App& app, Command& chosen);
void add_content_commands(CLI::App& app, Command& chosen);
void add_packing_commands(CLI::App& app, Command& chosen);
void add_stream_commands(CLI::App& app, Command& chosen);
void add_chunk_commands(CLI::App& app, Command& chosen);
void add_manage_commands(CLI::App& app, Command& chosen);
void add_duplicates_command(CLI::App& app, Command& chosen);
void add_container_commands(CLI::App& app, Command& chosen);
void add_log_commands(CLI::App& app, Command& chosen);
/// `options` are those of the session; they are full when a command runs.
void add_cache_commands(CLI::App& app, Command& chosen, const SessionOptions& options);

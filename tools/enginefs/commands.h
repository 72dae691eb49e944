#pragma once

#include "command.h"

struct SessionOptions;

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

#pragma once

#include "command.h"

// Each of these adds the commands of one topic to the parser.
void add_listing_commands(Commands& commands);
void add_content_commands(Commands& commands);
void add_pack_commands(Commands& commands);
void add_unpack_commands(Commands& commands);
void add_diff_commands(Commands& commands);
void add_chunk_commands(Commands& commands);
void add_manage_commands(Commands& commands);
void add_duplicates_command(Commands& commands);
void add_container_commands(Commands& commands);
void add_cache_commands(Commands& commands);
void add_log_commands(Commands& commands);
void add_load_command(Commands& commands);
void add_mount_command(Commands& commands);
void add_report_command(Commands& commands);
void add_watch_command(Commands& commands);

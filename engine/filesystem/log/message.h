#pragma once

#include <engine/filesystem/log.h>

#include "engine/kernel/text.h"

/// Where messages of one source file come from: their category, and the file as people who read and filter logs know
/// it (part of the message, not a folder of this tree).
struct MessageSource {
    const char* category;
    const char* file;
};

/// How the library's own code logs: nothing when the category's level holds the message back; otherwise one message,
/// where the filter of its level sends it, on a new line. `line` is usually __LINE__.
///
///     constexpr MessageSource source{"FileSystem", "engine/filesystem/filesystem"};
///     log_message(source, Log::ELevel::WARN, __LINE__, "Cannot add source '%s'. It is not full path.\n", path);
ENGINE_PRINTF(4, 5)
void log_message(const MessageSource& source, Log::ELevel::TYPE level, int line, const char* format, ...);

/// Whether log_message would emit, for messages that are costly to prepare.
bool is_logged(const MessageSource& source, Log::ELevel::TYPE level);

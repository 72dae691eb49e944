#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "engine/platform/clock.h"
#include "engine/platform/text.h"

// What the start of the log and the dumps share: switches and configuration, the log file, and names.

namespace crash {

/// Whether `word` stands on the command line as a switch: behind "/", "-" or "--" at the start of the line or of a word,
/// in any case, and followed by a blank, a tab or the end.
bool has_switch(std::string_view command_line, std::string_view word);

/// The value of the first option of this name ("logcfg=") that has one: up to the next blank. Values of 260 characters
/// and more, and empty ones, are passed over.
std::optional<std::string> option_value(std::string_view command_line, std::string_view name);

/// Reads the configuration that the command line names and applies it to filters and levels. Looks for its name, then for
/// the same name in the directory of the executable: through the file system when it is initialised, otherwise on the
/// disk. False when there is no text to be read.
bool read_configuration();

/// Applies a text; `file` names it. Commands that are not known are passed over. False when there is no memory for it.
bool apply_configuration(const std::string& text, const char* file);

enum class Opened {
    YES,
    TAKEN,  // the name belongs to somebody else: another process, or an earlier run
    NO,
};

/// Opens the log file below this name and makes it the place that log lines go to.
///
/// must_be_new  whether a file that is there already takes the name; otherwise it is emptied, unless it is in use.
Opened open_log_file(const std::string& name, bool must_be_new);
/// Closes it, and removes it when it is empty and this process made it. Nothing happens when there is none.
void close_log_file();
/// Where on the disk it lies, or lay: the path ends in "/". "" when there was none.
std::string log_directory();

inline constexpr std::string_view log_folder = "out/logs/";
/// Where a new file of this name would lie on the disk, as far as can be told beforehand.
std::string below_write_path(std::string_view name);

/// The name of a log file or a dump: "crash_20260131_235959123" and the ending; between them, where another process has
/// taken that name, "_" and the number of this one. Takes neither memory nor locks, so that a crash handler may call it.
void add_stamped_name(platform::BoundedText& out, const platform::CalendarTime& time, std::string_view ending,
                      bool with_process);

}  // namespace crash

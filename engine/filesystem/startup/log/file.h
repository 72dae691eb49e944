#pragma once

#include <string>

namespace crash {

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
/// As the open file names itself; null when there is none.
const char* log_file_name();

}  // namespace crash

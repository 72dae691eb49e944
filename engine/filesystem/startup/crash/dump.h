#pragma once

namespace crash {

/// Tells where the log file lies: dumps are written beside it. `directory` is native and ends in "/".
void set_log_directory(const char* directory);

}  // namespace crash

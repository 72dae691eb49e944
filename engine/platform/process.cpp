// Where the executable lies and how it was called.
#include "engine/platform/process.h"

#include <new>

#include "engine/platform/threads.h"

namespace platform {
namespace {

/// Asked for once; whoever runs at the very end of the process may still ask.
struct Facts {
    std::string path = find_executable();
    std::string directory = path.substr(0, path.rfind('/') + 1);
    std::string command_line = find_command_line();
};

/// Null without memory; then the next call asks again.
const Facts* facts() try { return &never_destroyed<Facts>(); } catch (const std::bad_alloc&) {
    return nullptr;
}

}  // namespace

const char* executable_path() { return facts() != nullptr ? facts()->path.c_str() : ""; }
const char* executable_directory() {
    return facts() != nullptr && !facts()->directory.empty() ? facts()->directory.c_str() : "./";
}
const char* command_line() { return facts() != nullptr ? facts()->command_line.c_str() : ""; }

}  // namespace platform

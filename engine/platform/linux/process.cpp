// What the kernel tells about this process under /proc.
#include "engine/platform/process.h"

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>

namespace platform {

std::string find_executable() {
    char target[4096];
    const ssize_t length = ::readlink("/proc/self/exe", target, sizeof target);
    return {target, static_cast<std::size_t>(std::max<ssize_t>(length, 0))};
}

std::string find_command_line() {
    std::ifstream file("/proc/self/cmdline", std::ios::binary);
    std::string arguments(std::istreambuf_iterator<char>(file), {});
    if (!arguments.empty()) arguments.pop_back();  // each argument ends with a zero
    std::replace(arguments.begin(), arguments.end(), '\0', ' ');
    return arguments;
}

}  // namespace platform

// What the kernel tells about this process under /proc.
#include "engine/platform/process.h"

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <new>
#include <string>

#include "engine/platform/never_destroyed.h"

namespace platform {
namespace {

/// Read when first asked for; whoever runs at the very end of the process may still ask.
struct Facts {
    std::string path;
    std::string directory = "./";
    std::string command_line;

    Facts() {
        try {
            read_paths();
            read_command_line();
        } catch (const std::bad_alloc&) {  // what there was no memory for stays empty
        }
    }

private:
    void read_paths() {
        char target[4096];
        const ssize_t length = ::readlink("/proc/self/exe", target, sizeof target);
        if (length > 0) path.assign(target, static_cast<std::size_t>(length));
        if (const auto slash = path.rfind('/'); slash != std::string::npos) directory = path.substr(0, slash + 1);
    }
    void read_command_line() {
        std::ifstream arguments("/proc/self/cmdline", std::ios::binary);
        command_line.assign(std::istreambuf_iterator<char>(arguments), {});
        if (!command_line.empty()) command_line.pop_back();  // each argument ends with a zero
        std::replace(command_line.begin(), command_line.end(), '\0', ' ');
    }
};

const Facts& facts() {
    static NeverDestroyed<Facts> instance;
    return instance.value;
}

}  // namespace

const char* executable_path() { return facts().path.c_str(); }
const char* executable_directory() { return facts().directory.c_str(); }
const char* command_line() { return facts().command_line.c_str(); }

void trim_heap() {
#ifdef __GLIBC__
    ::malloc_trim(0);
#endif
}

}  // namespace platform

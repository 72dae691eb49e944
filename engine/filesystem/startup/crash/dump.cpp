// Dumps go straight to the disk, past the virtual file system: they are written when nothing can be relied on. What a
// crash handler needs is therefore worked out beforehand and kept in fixed buffers.
#include <engine/filesystem/startup/crash.h>

#include <atomic>
#include <cstring>
#include <string>

#include <engine/filesystem/registry.h>

#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/log/message.h"
#include "engine/filesystem/log/recent.h"
#include "engine/filesystem/startup/log/file.h"
#include "engine/filesystem/startup/crash/name.h"
#include "engine/platform/clock.h"
#include "engine/platform/crash.h"
#include "engine/platform/directories.h"
#include "engine/platform/files.h"

namespace {

constexpr MessageSource source{"Crash", "engine/filesystem/kernelimports"};
constexpr const char* log_folder = "out/logs/";
constexpr const char* dump_prefix = "crash_";

struct DumpState {
    char directory[platform::path_buffer_size] =
        "";                         // where a crash leaves its dump; written before the handler is there
    std::int64_t local_offset = 0;  // what local time is ahead of universal time
};
DumpState state;

std::string stamped_name() {
    char stamp[crash::stamp_capacity];
    crash::write_stamp(stamp, platform::now_local());
    return std::string(dump_prefix) + stamp + platform::dump_ending();
}

/// Makes each directory of a path that ends in "/".
void make_directories(const std::string& path) {
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
        platform::create_directory(path.substr(0, slash).c_str());
    }
}

/// The directory for dumps, made when it is missing: the log file's, else the one where a log file would be.
std::string dump_directory() {
    std::string directory = crash::log_directory();
    if (directory.empty()) directory = std::string(fs::is_initialized() ? fs::write_path() : "") + log_folder;
    make_directories(directory);
    char spelled[platform::path_buffer_size];
    return platform::resolve_case(directory.c_str(), spelled) ? spelled : directory;
}

bool write(const char* native_path, bool full) try {
    const fs::ErrorKeeper keeper;
    const std::string path = native_path != nullptr ? native_path : dump_directory() + stamped_name();
    if (path.size() > platform::max_path_bytes) return false;
    const bool is_written = platform::write_dump(
        {.path = path.c_str(), .full = full, .crash = nullptr, .write_log = logging::write_recent_lines});
    if (is_written) {
        log_message(source, Log::ELevel::INFO, __LINE__, "The process is described in '%s'.\n", path.c_str());
    } else {
        log_message(source, Log::ELevel::ERRR, __LINE__, "Cannot describe the process in '%s'.\n", path.c_str());
    }
    return is_written;
} catch (const std::bad_alloc&) {
    return false;
}

/// Joins texts in a fixed buffer. False when they do not fit.
template <std::size_t Capacity, class... Texts>
bool join(char (&out)[Capacity], Texts... texts) {
    std::size_t size = 0;
    bool fits = true;
    const auto add = [&](const char* text) {
        const std::size_t length = std::strlen(text);
        fits = fits && length < Capacity - size;
        if (!fits) return;
        std::memcpy(out + size, text, length + 1);
        size += length;
    };
    (add(texts), ...);
    return fits;
}

/// Runs in a broken process: no memory, no locks, no library that may have either.
void on_crash(const platform::CrashContext* context) {
    char stamp[crash::stamp_capacity];
    crash::write_stamp(stamp, platform::to_calendar(platform::now_utc() + state.local_offset));
    char path[platform::path_buffer_size];
    if (!join(path, static_cast<const char*>(state.directory), dump_prefix, static_cast<const char*>(stamp),
              platform::dump_ending())) {
        return;
    }
    platform::write_dump({.path = path, .full = false, .crash = context, .write_log = logging::write_recent_lines});
}

}  // namespace

fs::string CreateDumpFilename() { return log_folder + stamped_name(); }

bool GenerateDump(const char* native_path) { return write(native_path, false); }
bool WriteFullDump(const char* native_path) { return write(native_path, true); }

bool CrashCatchExceptions(bool on) try {
    const fs::ErrorKeeper keeper;
    platform::remove_crash_handler();
    if (!on) return true;
    if (!join(state.directory, dump_directory().c_str())) return false;
    const std::int64_t now = platform::now_utc();
    state.local_offset = platform::utc_to_local(now) - now;
    return platform::install_crash_handler(on_crash);
} catch (const std::bad_alloc&) {
    return false;
}

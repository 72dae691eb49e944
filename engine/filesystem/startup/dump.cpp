// Dumps go straight to the disk, past the virtual file system: they are written when nothing can be relied on. What a
// crash handler needs is therefore worked out beforehand and kept in fixed buffers.
#include <string>

#include <engine/filesystem/startup/crash.h>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/path_text.h"
#include "engine/filesystem/log/message.h"
#include "engine/filesystem/log/sinks.h"
#include "engine/filesystem/startup/log.h"
#include "engine/platform/clock.h"
#include "engine/platform/crash.h"
#include "engine/platform/directories.h"
#include "engine/platform/files.h"
#include "engine/platform/process.h"
#include "engine/platform/threads.h"

namespace {

using platform::BoundedText;
using platform::path_buffer_size;

constexpr MessageSource source{"Crash", "engine/filesystem/kernelimports"};

struct DumpState {
    platform::Mutex lock;  // guards what follows, which is written before the handler is there and reads it
    char directory[path_buffer_size] = "";
    std::int64_t local_offset = 0;  // what local time is ahead of universal time
};
DumpState state;

std::int64_t local_offset_now() {
    const std::int64_t now = platform::now_utc();
    return platform::utc_to_local(now) - now;
}

/// The directory for dumps, made when it is missing: the log file's, else the one where a log file would be.
std::string dump_directory() {
    const fs::ErrorKeeper keeper;
    std::string directory = crash::log_directory();
    if (directory.empty()) directory = crash::below_write_path(crash::log_folder);
    fs::create_directories(directory);
    char spelled[path_buffer_size];
    return platform::resolve_case(directory.c_str(), spelled) ? spelled : directory;
}

/// Writes a dump under a name that nobody has. The next millisecond comes well within these attempts.
platform::Failure write_stamped(std::string_view directory, std::int64_t local_offset, platform::DumpRequest request,
                                char (&path)[path_buffer_size]) {
    constexpr int most_attempts = 1000;
    request.path = path;
    for (int attempt = 0; attempt < most_attempts; ++attempt) {
        BoundedText whole(path);
        crash::add_stamped_name(whole.add(directory), platform::to_calendar(platform::now_utc() + local_offset),
                                platform::dump_ending(), attempt != 0);
        if (whole.is_cut()) return platform::Failure::PATH_TOO_LONG;
        const platform::Failure failure = platform::write_dump(request);
        if (failure != platform::Failure::ALREADY_EXISTS) return failure;
    }
    return platform::Failure::ALREADY_EXISTS;
}

platform::Failure write_named(const char* native_path, platform::DumpRequest request, char (&path)[path_buffer_size]) {
    BoundedText whole(path);
    if (whole.add(native_path).is_cut()) return platform::Failure::PATH_TOO_LONG;
    request.path = path;
    return platform::write_dump(request);
}

bool write(const char* native_path, bool full) {
    return fs::guarded(native_path, false, [&] {
        const platform::DumpRequest request{.full = full, .crash = nullptr, .write_log = logging::write_recent_lines};
        char path[path_buffer_size] = "";
        const platform::Failure failure = native_path != nullptr
                                              ? write_named(native_path, request, path)
                                              : write_stamped(dump_directory(), local_offset_now(), request, path);
        if (failure == platform::Failure::NONE) {
            log_message(source, Log::ELevel::INFO, __LINE__, "The process is described in '%s'.\n", path);
            return true;
        }
        log_message(source, Log::ELevel::ERRR, __LINE__, "Cannot describe the process in '%s'.\n", path);
        return fs::refuse(fs::error_from_platform(failure), path, "The dump could not be written there.");
    });
}

/// Runs in a broken process: no memory, no locks, no library that may have either.
void on_crash(const platform::CrashContext* context) {
    char path[path_buffer_size];
    write_stamped(state.directory, state.local_offset,
                  {.full = false, .crash = context, .write_log = logging::write_recent_lines}, path);
}

bool catch_exceptions(const std::string& directory) {
    if (directory.size() >= path_buffer_size)
        return fs::refuse(EFSError::INVALID_NAME, directory.c_str(), "The directory for dumps has too long a name.");
    const platform::LockGuard guard(state.lock);
    platform::remove_crash_handler();
    BoundedText(state.directory).add(directory);
    state.local_offset = local_offset_now();
    if (platform::install_crash_handler(on_crash)) return true;
    return fs::refuse(EFSError::UNSUPPORTED, directory.c_str(), "The system installs no handler of crashes.");
}

}  // namespace

namespace crash {

void add_stamped_name(platform::BoundedText& out, const platform::CalendarTime& time, std::string_view ending,
                      bool with_process) {
    out.add("crash_").add_number(time.year, 10, 4);
    for (const int part : {time.month, time.day}) out.add_number(part, 10, 2);
    out.add('_');
    for (const int part : {time.hour, time.minute, time.second}) out.add_number(part, 10, 2);
    out.add_number(time.millisecond, 10, 3);
    if (with_process) out.add('_').add_number(platform::process_id());
    out.add(ending);
}

}  // namespace crash

fs::string CreateDumpFilename() {
    return fs::guarded(nullptr, fs::string(), [] {
        char name[64];
        BoundedText text(name);
        crash::add_stamped_name(text.add(crash::log_folder), platform::now_local(), platform::dump_ending(), false);
        return fs::string(name);
    });
}

bool GenerateDump(const char* native_path) { return write(native_path, false); }
bool WriteFullDump(const char* native_path) { return write(native_path, true); }

bool CrashCatchExceptions(bool on) {
    return fs::guarded(nullptr, false, [on] {
        if (on) return catch_exceptions(dump_directory());
        const platform::LockGuard guard(state.lock);
        platform::remove_crash_handler();
        return true;
    });
}

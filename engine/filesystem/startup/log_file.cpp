// The log file. It is a file of the virtual file system, written without a buffer of ours: when a message's call
// returns, the system has its line. It is written at its end, wherever that is, so that processes that share it after a
// fork do not write over each other. The lock makes two threads' lines come one after the other whatever kind of handle
// it is, and lets the file be closed while others log.
#include "engine/filesystem/startup/log.h"

#include <atomic>
#include <mutex>
#include <string_view>

#include <engine/filesystem/access.h>
#include <engine/filesystem/contract.h>
#include <engine/filesystem/registry.h>
#include <engine/filesystem/startup/crash.h>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/contract/open_file.h"
#include "engine/filesystem/handles/native_file.h"
#include "engine/filesystem/log/sinks.h"
#include "engine/filesystem/registry/registry.h"
#include "engine/platform/files.h"
#include "engine/platform/process.h"
#include "engine/platform/threads.h"

namespace crash {

namespace {

struct LogFile {
    platform::Mutex lock;     // guards what follows but the atomic ones, and all names until `is_open` is set
    SFsFile* file = nullptr;  // owned
    bool is_new = false;      // made by the opener, who may remove it
    bool at_line_start = true;
    bool lost_output = false;  // since the last that was written
    std::string virtual_name;
    std::string native_path;  // remembered, since the file system may be gone when the file is closed
    std::string name;
    std::atomic<bool> is_open{false};
    std::atomic<std::uint32_t> opener{0};  // the process that opened the file; 0 before that
};

// The last messages come late.
LogFile& log_file() { return platform::never_destroyed<LogFile>(); }

/// A child finds the lock taken for good where another thread of its parent was writing when it was forked. It goes on
/// without: the disk keeps lines that are written at the end apart.
std::unique_lock<platform::Mutex> lock_of(LogFile& log) {
    std::unique_lock guard(log.lock, std::try_to_lock);
    if (guard) return guard;
    const std::uint32_t opener = log.opener;
    if (opener == 0 || opener == platform::process_id()) guard.lock();
    return guard;
}

// Writing may itself log (a failure, say); such a message must not wait for the file that its own thread is writing.
constinit platform::PerThread<bool, struct WritingLogFile> is_writing;

/// False when not all of it was written.
bool put(LogFile& log, std::string_view text) {
    const std::uint64_t written = fs::write(log.file, text.data(), text.size());
    if (written != 0 && written <= text.size()) log.at_line_start = text[written - 1] == '\n';
    log.lost_output = written != text.size();
    return !log.lost_output;
}

void write_line(const char* text, std::size_t length) {
    if (is_writing) return;
    const fs::ErrorKeeper keeper;
    LogFile& log = log_file();
    const auto guard = lock_of(log);
    if (log.file == nullptr) return;
    is_writing = true;
    fs::guarded(nullptr, [&] {  // the file may be one of the host's own
        // What a full disk cut off must not run into the next line.
        const bool needs_line_end = log.lost_output && !log.at_line_start && text[0] != '\r';
        if (!needs_line_end || put(log, "\r\n")) put(log, {text, length});
    });
    is_writing = false;
}

/// Made, or emptied, and from then on written at its end alone where the file is one of the disk.
SFsFile* open_appending(const char* name) {
    SFsFile* const file = fs::open(name, EFSMode::WRITE, FFSOpenFlags::CREATE);
    if (auto* const native = dynamic_cast<Win32FileHandle*>(file)) native->append_only();
    return file;
}

/// Through the file management, so that the source forgets the file too; straight from the disk once the file system
/// is gone, or when the name means another file by now.
void remove_empty_file(const LogFile& log) {
    if (log.native_path.empty()) return;
    if (fs::is_initialized() && fs::full_path(log.virtual_name.c_str()) == log.native_path)
        fs::rem_file(log.virtual_name.c_str());
    const auto attributes = platform::get_attributes(log.native_path.c_str());
    if (attributes && !attributes->is_directory && attributes->size == 0)
        platform::remove_file(log.native_path.c_str());
}

}  // namespace

Opened open_log_file(const std::string& name, bool must_be_new) {
    const fs::ErrorKeeper keeper;
    // Files that another process made are on the disk alone, not in the source's table.
    const std::string on_disk = fs::is_full_path(name.c_str()) ? name : below_write_path(name);
    const bool existed = fs::native_does_file_exist(on_disk.c_str()) || fs::exists(name.c_str());
    if (existed && must_be_new) return Opened::TAKEN;
    LogFile& log = log_file();
    std::string virtual_name = name;
    std::string shown_name;
    shown_name.reserve(fs::path_capacity);  // a file that is made is not given up for want of memory
    fs::FilePtr file(open_appending(name.c_str()));
    if (file == nullptr) return fs::native_does_file_exist(on_disk.c_str()) ? Opened::TAKEN : Opened::NO;
    shown_name = fs::file_name(file.get());
    std::string native_path = fs::full_path(name.c_str());
    {
        const auto guard = lock_of(log);
        log.file = file.release();
        log.is_new = !existed;
        log.opener = platform::process_id();
        log.virtual_name.swap(virtual_name);
        log.name.swap(shown_name);
        log.native_path.swap(native_path);
    }
    log.is_open.store(true, std::memory_order_release);
    logging::state.write_to_file.store(write_line, std::memory_order_release);
    return Opened::YES;
}

void close_log_file() {
    logging::state.write_to_file.store(nullptr, std::memory_order_release);
    LogFile& log = log_file();
    log.is_open.store(false, std::memory_order_release);
    const fs::ErrorKeeper keeper;
    SFsFile* file = nullptr;
    {
        const auto guard = lock_of(log);
        std::swap(file, log.file);
    }
    if (file == nullptr) return;
    const bool is_empty = fs::length(file) == 0;
    fs::close(file);
    if (is_empty && log.is_new && log.opener == platform::process_id()) remove_empty_file(log);
}

std::string log_directory() {
    if (is_writing) return "";
    LogFile& log = log_file();
    const auto guard = lock_of(log);
    return log.native_path.substr(0, log.native_path.rfind('/') + 1);
}

std::string below_write_path(std::string_view name) {
    const fs::registry::SharedGuard guard;  // what write_path answers lives with its source
    return std::string(fs::write_path()).append(name);
}

}  // namespace crash

const char* CrashGetLogFileName() {
    const crash::LogFile& log = crash::log_file();
    return log.is_open.load(std::memory_order_acquire) ? log.name.c_str() : nullptr;
}

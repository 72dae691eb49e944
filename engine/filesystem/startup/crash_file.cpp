// The log file. It is a file of the virtual file system, written without a buffer of ours: when a message's call
// returns, the system has its line. The lock makes two threads' lines come one after the other whatever kind of handle
// it is, and lets the file be closed while others log.
#include "engine/filesystem/startup/crash_file.h"

#include <atomic>
#include <cstring>
#include <mutex>
#include <string>

#include <engine/filesystem/access.h>
#include <engine/filesystem/contract.h>
#include <engine/filesystem/registry.h>

#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/log/hooks.h"
#include "engine/platform/files.h"

namespace crash {

namespace {

struct LogFile {
    std::mutex lock;          // guards `file`
    SFsFile* file = nullptr;  // owned
    std::atomic<bool> is_open{false};
    bool is_ours = false;  // made by this process, hence ours to remove
    char virtual_name[name_capacity] = "";
    char native_path[name_capacity] = "";  // remembered, since the file system may be gone when the file is closed
    char native_directory[name_capacity] = "";
    char name[name_capacity] = "";
};

LogFile& log_file() {
    static LogFile& instance = *new LogFile;  // never destroyed: the last messages come late
    return instance;
}

// Writing may itself log (a failure, say); such a message must not wait for the file that its own thread is writing.
thread_local bool is_writing = false;

class FileHold {
public:
    FileHold() {
        log_file().lock.lock();
        is_writing = true;
    }
    ~FileHold() {
        is_writing = false;
        log_file().lock.unlock();
    }
    FileHold(const FileHold&) = delete;
    FileHold& operator=(const FileHold&) = delete;
};

void write_line(const char* text, std::size_t length) {
    if (is_writing) return;
    const fs::ErrorKeeper keeper;
    const FileHold hold;
    if (SFsFile* const file = log_file().file) fs::write(file, text, length);
}

void copy_text(char (&out)[name_capacity], const char* text) {
    const std::size_t length = strnlen(text, name_capacity - 1);
    std::memcpy(out, text, length);
    out[length] = '\0';
}

void remember_names(LogFile& log, const char* name, SFsFile* file) {
    copy_text(log.virtual_name, name);
    copy_text(log.name, fs::file_name(file));
    copy_text(log.native_path, fs::full_path(name).c_str());
    copy_text(log.native_directory, log.native_path);
    char* const slash = std::strrchr(log.native_directory, '/');
    if (slash != nullptr) slash[1] = '\0';
}

bool is_empty_file(const char* native_path) {
    const auto attributes = platform::get_attributes(native_path);
    return attributes && !attributes->is_directory && attributes->size == 0;
}

/// Through the file management, so that the source forgets the file too; straight from the disk once the file system
/// is gone, or when the name means another file by now.
void remove_empty_file(const LogFile& log) {
    if (log.native_path[0] == '\0') return;
    if (fs::is_initialized() && fs::full_path(log.virtual_name) == log.native_path) fs::rem_file(log.virtual_name);
    if (is_empty_file(log.native_path)) platform::remove_file(log.native_path);
}

}  // namespace

bool open_log_file(const char* name) {
    const fs::ErrorKeeper keeper;
    const bool existed = fs::exists(name);
    SFsFile* const file = fs::open(name, EFSMode::WRITE, FFSOpenFlags::CREATE);
    if (file == nullptr) return false;
    LogFile& log = log_file();
    {
        const FileHold hold;
        log.file = file;
        log.is_ours = !existed;
        remember_names(log, name, file);
    }
    log.is_open.store(true, std::memory_order_release);
    logging::start_up_values().write_to_file.store(write_line, std::memory_order_release);
    return true;
}

void close_log_file() {
    logging::start_up_values().write_to_file.store(nullptr, std::memory_order_release);
    LogFile& log = log_file();
    log.is_open.store(false, std::memory_order_release);
    const fs::ErrorKeeper keeper;
    SFsFile* file = nullptr;
    {
        const FileHold hold;
        std::swap(file, log.file);
    }
    if (file == nullptr) return;
    const bool is_empty = fs::length(file) == 0;
    fs::close(file);
    if (is_empty && log.is_ours) remove_empty_file(log);
}

const char* log_file_name() {
    const LogFile& log = log_file();
    return log.is_open.load(std::memory_order_acquire) ? log.name : nullptr;
}

const char* log_directory() { return log_file().native_directory; }

}  // namespace crash

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <mutex>
#include <utility>

#include <engine/filesystem/contract/error.h>
#include <engine/filesystem/log.h>
#include <engine/filesystem/registry.h>
#include <engine/filesystem_c.h>
#include <engine/kernel/lock.h>

#include "engine/filesystem/c_interface/call.h"
#include "engine/filesystem/log/message.h"
#include "engine/filesystem/startup/startup.h"
#include "engine/platform/files.h"
#include "engine/platform/threads.h"

// The C interface: the library for hosts that are not written in C++, or by another compiler. A layer over everything else
// that adds no behaviour of its own: it checks arguments, calls what the C++ interface calls, and answers in C's manner.
//
// Three things hold throughout. What the library stored as the thread's failure is the answer's reason, and a call that
// fails has one (call.h). No pointer of the library is given out as a handle (handles.h). Structures are copied as far as
// their struct_size goes, so that programs of before and after this version are served (call.h).

namespace {

using namespace fs::c;

constinit mt::detail::Mutex start_lock;  // one start or end at a time

bool is_directory(const char* root) {
    const auto attributes = platform::get_attributes(root);
    if (!attributes) return fs::refuse_by_disk(root, "cannot be mounted");
    return attributes->is_directory || fs::refuse(EFSError::NOT_FOUND, root, "The root is no directory.");
}

/// Inside of one the lock may be held already by whoever waits for the callback.
bool is_outside_of_callbacks() {
    return !InHost::is_here() || refuse_argument("A callback neither starts nor stops the file system.");
}

bool start(const enginefs_options* given) {
    enginefs_options options{};
    if (!take(given, options) || !are_given({options.root}) || !are_known(options.flags, source_flags)) return false;
    if (!is_outside_of_callbacks()) return false;
    const std::lock_guard guard(start_lock);
    if (fs::is_initialized())
        return fs::refuse(EFSError::ALREADY_EXISTS, options.root, "The file system runs already.");
    const fs::init_options known{.root = options.root,
                                 .cache_dir = options.cache_dir,
                                 .flags = as_source_flags(options.flags),
                                 .use_fallback = options.use_fallback != 0,
                                 .names = const_cast<const char**>(options.names)};
    // What mounts makes a root that is missing. One that is no full path has its own reason.
    if (fs::is_full_path(options.root) && !is_directory(options.root)) return false;
    return fs::start(known);
}

constexpr const char* error_names[] = {
    "OK",         "NOT_FOUND",   "ACCESS_DENIED", "IN_USE",           "ALREADY_EXISTS",
    "READ_ONLY",  "DISK_FULL",   "INVALID_NAME",  "INVALID_ARGUMENT", "NOT_INITIALIZED",
    "BAD_FORMAT", "UNSUPPORTED", "TOO_LARGE",     "OUT_OF_MEMORY",    "CANCELLED",
    "IO"};
static_assert(std::size(error_names) == EFSError::IO + 1);

/// Whom lines are told to.
struct Listener {
    mt::detail::Mutex lock;  // guards the rest, and is never held while the callback runs
    mt::detail::ConditionVariable idle;
    enginefs_log_callback callback = nullptr;
    void* user = nullptr;
    unsigned turn = 0;     // how often it was replaced
    unsigned running = 0;  // calls of it now
    unsigned older = 0;    // calls now of those before it
};
Listener& listener() { return platform::never_destroyed<Listener>(); }

/// How many log callbacks stand on the thread's stack.
constinit platform::PerThread<int, Listener> callbacks_here;

void tell(Log::ELevel::TYPE level, const char* category, const char* text) {
    Listener& to = listener();
    std::unique_lock guard(to.lock);
    const enginefs_log_callback callback = to.callback;
    void* const user = to.user;
    const unsigned turn = to.turn;
    if (callback == nullptr) return;
    ++to.running;
    guard.unlock();
    ++callbacks_here;
    try {
        const InHost in_host;
        callback(static_cast<int>(level), category, text, user);
    } catch (...) {  // NOLINT(bugprone-empty-catch): a log line fails nobody
    }
    --callbacks_here;
    guard.lock();
    if (turn == to.turn) {
        --to.running;
    } else if (--to.older == 0) {
        to.idle.notify_all();
    }
}

bool is_level(int level) {
    return static_cast<unsigned>(level) <= Log::ELevel::VERE || refuse_argument("There is no such level.");
}

}  // namespace

uint32_t enginefs_version() { return ENGINEFS_VERSION; }

int enginefs_init(const enginefs_options* options) {
    return status(nullptr, [&] { return start(options); });
}

int enginefs_shutdown() {
    return status(nullptr, [] {
        if (!is_outside_of_callbacks()) return false;
        const std::lock_guard guard(start_lock);
        fs::shutdown();
        return !fs::is_initialized();
    });
}

void enginefs_free(void* block) { std::free(block); }

int enginefs_last_error(enginefs_error* out) {
    const fs::ErrorKeeper keeper;
    const SFsError& error = fs::last_error();
    const int code = static_cast<int>(error.code);
    if (out != nullptr && !put(out, {.struct_size = 0,
                                     .code = code,
                                     .system_code = error.os_code,
                                     .reserved = 0,
                                     .path = error.path.c_str(),
                                     .text = error.text.c_str()}))
        return ENGINEFS_ERROR_INVALID_ARGUMENT;
    return code;
}

void enginefs_clear_error() { fs::clear_error(); }

const char* enginefs_error_name(int code) {
    return code >= 0 && static_cast<std::size_t>(code) < std::size(error_names) ? error_names[code] : "UNKNOWN";
}

void enginefs_set_log(enginefs_log_callback callback, void* user) {
    Listener& to = listener();
    std::unique_lock guard(to.lock);
    to.callback = callback;
    to.user = user;
    ++to.turn;
    to.older += std::exchange(to.running, 0);
    LogSetPrintCallback(callback != nullptr ? tell : nullptr);
    if (callbacks_here == 0) to.idle.wait(guard, [&] { return to.older == 0; });
}

int enginefs_log_level(int level) {
    Log::Settings& settings = Log::Settings::Instance();
    const int before = static_cast<int>(settings.GetLevel());
    if (level != -1 && is_level(level)) settings.SetLevel(static_cast<Log::ELevel::TYPE>(level));
    return before;
}

int enginefs_log(int level, const char* category, const char* text) {
    return status(nullptr, [&] {
        if (!are_given({text}) || !is_level(level)) return false;
        if (category == nullptr) category = "";
        if (level == Log::ELevel::FATL && std::strcmp(category, "EXIT") == 0)
            return refuse_argument("A fatal line of this category ends the process.");
        log_message({.category = category, .file = nullptr}, static_cast<Log::ELevel::TYPE>(level), 0, "%s", text);
        return true;
    });
}

#include <cstring>
#include <mutex>
#include <utility>

#include <engine/filesystem/log.h>
#include <engine/filesystem_c.h>
#include <engine/kernel/lock.h>

#include "engine/filesystem/c_interface/call.h"
#include "engine/filesystem/c_interface/host.h"
#include "engine/filesystem/log/message.h"
#include "engine/platform/threads.h"

namespace {

using namespace fs::c;

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
Listener& listener() {
    static platform::NeverDestroyed<Listener> instance;
    return instance.value;
}

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

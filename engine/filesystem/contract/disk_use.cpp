// Uses of the disk by threads that must not use it: counted, logged and reported.
#include "engine/filesystem/contract/disk_use_scope.h"

#include <cstdio>
#include <mutex>
#include <set>
#include <string>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/log/message.h"
#include "engine/platform/threads.h"

namespace fs {

namespace {

constexpr MessageSource log_source{"FileSystem", "engine/filesystem/loading"};
constexpr std::size_t most_names = 4096;  // that are remembered as logged

struct Uses {
    platform::Mutex lock;  // guards all of it
    std::set<std::string> logged;
    disk_report report = nullptr;
    void* user = nullptr;
    std::uint64_t count = 0;
};

Uses& uses() { return platform::never_destroyed<Uses>(); }

constinit platform::PerThread<bool, struct CountingDiskUse> is_counting;  // within a use that counts

// Libraries are loaded by the main thread.
const std::uint64_t main_thread = platform::current_thread_id();

void tell(SFsDiskUse use) {
    Uses& known = uses();
    bool is_news = false;  // the log has not had the name yet
    disk_report report = nullptr;
    void* user = nullptr;
    {
        const std::lock_guard guard(known.lock);
        use.count = ++known.count;
        is_news = known.logged.size() < most_names && known.logged.insert(use.name).second;
        report = known.report;
        user = known.user;
    }
    const auto thread = static_cast<unsigned long long>(platform::current_thread_id());
    char who[32] = "main thread";
    if (thread != main_thread) std::snprintf(who, sizeof who, "thread %llu", thread);
    if (is_news)
        log_message(log_source, Log::ELevel::WARN, __LINE__, "%s %s %s, %u ms\n", who, use.action, use.name,
                    static_cast<unsigned>(use.microseconds / 1000));
    if (report != nullptr) report(use, user);
}

}  // namespace

void DiskUse::Begin(const char* name) {
    if (is_counting || name == nullptr) return;
    is_counting = true;
    name_ = name;
    began_ = std::chrono::steady_clock::now();
}

/// A failure that the use has stored stays the thread's last.
void DiskUse::End() {
    const ErrorKeeper keeper;
    const auto time = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - began_);
    const auto microseconds = static_cast<std::uint64_t>(time.count());
    guarded(name_, [&] { tell({.action = action_, .name = name_, .microseconds = microseconds, .count = 0}); });
    is_counting = false;
}

void forbid_disk(bool on) { DiskUse::is_forbidden = on; }

void set_disk_report(disk_report report, void* user) {
    Uses& known = uses();
    const std::lock_guard guard(known.lock);
    known.report = report;
    known.user = user;
}

}  // namespace fs

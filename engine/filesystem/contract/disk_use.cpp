#include "engine/filesystem/contract/disk_use.h"

#include <chrono>
#include <cstdio>
#include <mutex>
#include <set>
#include <string>

#include "engine/filesystem/contract/guarded.h"
#include "engine/filesystem/log/message.h"
#include "engine/platform/never_destroyed.h"
#include "engine/platform/threads.h"

namespace fs {

namespace {

constexpr MessageSource log_source{"FileSystem", "engine/filesystem/loading"};
constexpr std::size_t most_names = 4096;  // that are remembered as logged

struct Uses {
    std::mutex lock;  // guards all of it
    std::set<std::string> logged;
    disk_report report = nullptr;
    void* user = nullptr;
    std::uint64_t count = 0;
};

Uses& uses() {
    static platform::NeverDestroyed<Uses> instance;
    return instance.value;
}

thread_local bool is_counting = false;  // within a use that counts

// Libraries are loaded by the main thread.
const std::uint64_t main_thread = platform::current_thread_id();

std::int64_t now() {
    const auto time = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(time).count();
}

const char* word_for(DiskUse::Action action) {
    switch (action) {
        case DiskUse::Action::OPEN:
            return "opened";
        case DiskUse::Action::READ:
            return "read";
        case DiskUse::Action::LIST:
            return "listed";
    }
    return "";
}

/// Counts the use and says whether the log has not had its name yet.
bool count_use(const char* name, SFsDiskUse& use, disk_report& report, void*& user) {
    Uses& known = uses();
    const std::lock_guard guard(known.lock);
    use.count = ++known.count;
    report = known.report;
    user = known.user;
    return known.logged.size() < most_names && known.logged.insert(name).second;
}

void tell(SFsDiskUse use) {
    disk_report report = nullptr;
    void* user = nullptr;
    const bool is_news = count_use(use.name, use, report, user);
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
    began_ = now();
}

/// A failure that the use has stored stays the thread's last.
void DiskUse::End() {
    const ErrorKeeper keeper;
    const auto microseconds = static_cast<std::uint64_t>(now() - began_) / 1000;
    guarded(name_,
            [&] { tell({.action = word_for(action_), .name = name_, .microseconds = microseconds, .count = 0}); });
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

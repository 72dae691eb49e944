#include "engine/filesystem/sources/directory/mount/ahead.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <new>
#include <thread>
#include <utility>

#include "engine/filesystem/sources/directory/mount/recorded.h"
#include "engine/platform/clock.h"

namespace fs {

namespace {

constexpr std::size_t worth_a_thread = 32;  // directories
constexpr std::size_t window = 8;           // how many of the next directories are listed ahead
constexpr std::size_t slot_limit = 32;      // a scan in the depth leaves those of the upper directories waiting

// A directory's time stamp counts in steps of up to two seconds on some file systems: a change within that time of the
// last one may leave no trace.
constexpr std::int64_t stamp_step = 20'000'000;

// The times are taken before the directory is read, so that a change meanwhile makes them look old.
platform::DirectoryTimes recorded_times(const platform::PathAt& path) {
    platform::DirectoryTimes times;
    const bool is_trusted =
        platform::get_directory_times(path, times) && times.written <= platform::now_utc() - stamp_step;
    return is_trusted ? times : dir_listing::untrusted_times;
}

}  // namespace

ListingAhead::~ListingAhead() {
    {
        const std::lock_guard guard(lock_);
        is_stopping_ = true;
    }
    has_work_.notify_one();
    thread_.Join();
}

void ListingAhead::list_now(const std::string& path, Listed& out) const {
    const platform::PathAt at = path_at(path.c_str(), root_.text.size(), root_.handle.get());
    if (with_times_) out.times = recorded_times(at);
    out.is_complete = platform::list_directory(at, out.items);
    if (!out.is_complete) out.error = platform::last_error();
}

std::size_t ListingAhead::add(const Directory& parent, const platform::DirectoryListing& items) {
    std::vector<Directory> found;
    for (const platform::DirectoryItem& item : items.items()) {
        if (!item.is_directory || is_passed_over(item)) continue;
        std::string path;
        path.reserve(parent.path.size() + item.length + 1);
        path.append(parent.path).append(item.name, item.length).append("/");
        found.push_back({.path = std::move(path), .is_link = item.is_link});
    }
    if (found.empty()) return 0;
    std::size_t waiting = 0;
    {
        const std::lock_guard guard(lock_);
        waiting_.insert(waiting_.end(), std::make_move_iterator(found.rbegin()), std::make_move_iterator(found.rend()));
        waiting = waiting_.size();
        if (is_worth_waking()) is_idle_ = false;
    }
    has_work_.notify_one();
    if (!was_started_ && waiting >= worth_a_thread) {
        was_started_ = true;  // a start that fails is no failure: nothing is listed ahead then
        const auto run = [](void* self) { static_cast<ListingAhead*>(self)->work(); };
        if (std::thread::hardware_concurrency() > 1) thread_.Start("fs listing", run, this);
    }
    return found.size();
}

/// One directory alone is listed sooner than a sleeping thread wakes.
bool ListingAhead::is_worth_waking() const {
    if (!is_idle_) return false;
    const auto first = waiting_.end() - static_cast<std::ptrdiff_t>(std::min(window, waiting_.size()));
    return static_cast<std::size_t>(std::count_if(first, waiting_.end(), std::mem_fn(&Directory::may_be_listed))) >=
           window / 2;
}

ListingAhead::Directory ListingAhead::take_next() {
    const std::lock_guard guard(lock_);
    if (taken_ != nullptr) free_.push_back(taken_);
    Directory next = std::move(waiting_.back());
    waiting_.pop_back();
    taken_ = next.slot;
    if (is_worth_waking()) {
        is_idle_ = false;
        has_work_.notify_one();
    }
    return next;
}

const ListingAhead::Listed& ListingAhead::list(const Directory& directory) {
    Slot* const slot = directory.slot;
    if (slot == nullptr) {
        list_now(directory.path, own_);
        return own_;
    }
    std::unique_lock guard(lock_);
    while (!slot->is_done) {
        // Instead of waiting for the other thread, the next directory behind is listed.
        if (Slot* const other = begin_another()) {
            guard.unlock();
            list_now(other->path, other->listed);
            guard.lock();
            other->is_done = true;
        } else {
            is_listed_.wait(guard, [&] { return slot->is_done; });
        }
    }
    return slot->listed;
}

/// A slot for the next directory that nobody lists; null when there is none, or when there are too many listings about.
ListingAhead::Slot* ListingAhead::begin_another() {
    const auto end = waiting_.rbegin() + static_cast<std::ptrdiff_t>(std::min(window, waiting_.size()));
    const auto next = std::find_if(waiting_.rbegin(), end, std::mem_fn(&Directory::may_be_listed));
    if (next == end) return nullptr;
    if (free_.empty()) {
        if (slots_.size() == slot_limit) return nullptr;
        free_.reserve(slots_.size() + 1);
        slots_.push_back(std::make_unique<Slot>());
        free_.push_back(slots_.back().get());
    }
    Slot* const slot = free_.back();
    slot->path = next->path;
    slot->is_done = false;
    free_.pop_back();
    return next->slot = slot;
}

// Without memory for a slot the thread ends, and the scan goes on alone.
void ListingAhead::work() try {
    std::unique_lock guard(lock_);
    while (!is_stopping_) {
        Slot* const slot = begin_another();
        if (slot == nullptr) {
            is_idle_ = true;
            has_work_.wait(guard, [&] { return !is_idle_ || is_stopping_; });
            continue;
        }
        guard.unlock();
        list_now(slot->path, slot->listed);
        guard.lock();
        slot->is_done = true;
        is_listed_.notify_one();
    }
} catch (const std::bad_alloc&) {
}

}  // namespace fs

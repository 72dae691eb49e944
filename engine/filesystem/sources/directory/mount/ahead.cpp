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

void ListingAhead::list(const NativePath& path, Listed& out) const {
    if (with_times_) out.times = recorded_times(path.at(root_));
    out.is_complete = platform::list_directory(path.at(root_), out.items);
    if (!out.is_complete) out.error = platform::last_error();
}

void ListingAhead::prefetch(const NativePath& parent, std::string_view name, bool is_link) {
    std::string path;
    path.reserve(parent.length + name.size() + 1);
    path.append(parent.view()).append(name).append("/");
    const bool fits = path.size() <= platform::max_path_bytes;
    told_.push_back({std::move(path), parent.root_length, fits && !is_link});
}

void ListingAhead::start_prefetching() {
    if (told_.empty()) return;
    std::size_t count = 0;
    {
        const std::lock_guard guard(lock_);
        pending_.insert(pending_.end(), std::make_move_iterator(told_.rbegin()), std::make_move_iterator(told_.rend()));
        count = pending_.size();
        if (is_worth_waking()) is_idle_ = false;
    }
    has_work_.notify_one();
    told_.clear();
    if (was_started_ || count < worth_a_thread) return;
    was_started_ = true;  // a start that fails is no failure: nothing is listed ahead then
    if (std::thread::hardware_concurrency() < 2) return;
    thread_.Start(
        "fs listing", [](void* self) { static_cast<ListingAhead*>(self)->work(); }, this);
}

/// One directory alone is listed sooner than a sleeping thread wakes.
bool ListingAhead::is_worth_waking() const {
    if (!is_idle_) return false;
    const auto first = pending_.end() - static_cast<std::ptrdiff_t>(std::min(window, pending_.size()));
    return static_cast<std::size_t>(std::count_if(first, pending_.end(), std::mem_fn(&Pending::waits))) >= window / 2;
}

ListingAhead::Slot* ListingAhead::take_next() {
    if (asked_for_ != nullptr) free_.push_back(asked_for_);
    asked_for_ = pending_.back().slot;
    pending_.pop_back();
    if (is_worth_waking()) {
        is_idle_ = false;
        has_work_.notify_one();
    }
    return asked_for_;
}

void ListingAhead::skip() {
    const std::lock_guard guard(lock_);
    take_next();  // which nobody lists: see may_be_ahead
}

const ListingAhead::Listed& ListingAhead::next(const NativePath& path) {
    std::unique_lock guard(lock_);
    Slot* const slot = take_next();
    if (slot == nullptr) {
        guard.unlock();
        return list_now(path);
    }
    while (!slot->is_done) {
        // Instead of waiting for the other thread, the next directory behind is listed.
        if (Slot* const other = begin_another()) {
            guard.unlock();
            list(other->path, other->listed);
            guard.lock();
            other->is_done = true;
        } else {
            is_listed_.wait(guard, [&] { return slot->is_done; });
        }
    }
    return slot->listed;
}

const ListingAhead::Listed& ListingAhead::list_now(const NativePath& path) {
    list(path, own_);
    return own_;
}

/// A slot for the next directory that nobody lists; null when there is none, or when there are too many listings about.
ListingAhead::Slot* ListingAhead::begin_another() {
    const auto end = pending_.rbegin() + static_cast<std::ptrdiff_t>(std::min(window, pending_.size()));
    const auto pending = std::find_if(pending_.rbegin(), end, std::mem_fn(&Pending::waits));
    if (pending == end) return nullptr;
    if (free_.empty()) {
        if (slots_.size() == slot_limit) return nullptr;
        free_.reserve(slots_.size() + 1);
        slots_.push_back(std::make_unique<Slot>());
        free_.push_back(slots_.back().get());
    }
    Slot* const slot = free_.back();
    free_.pop_back();
    slot->is_done = false;
    slot->path.cut(0);
    slot->path.root_length = pending->root_length;
    static_cast<void>(slot->path.append(pending->path));  // fits, or it would not be listed ahead
    return pending->slot = slot;
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
        list(slot->path, slot->listed);
        guard.lock();
        slot->is_done = true;
        is_listed_.notify_one();
    }
} catch (const std::bad_alloc&) {
}

}  // namespace fs

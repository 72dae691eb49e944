#include "engine/filesystem/sources/directory/mount/ahead.h"

#include <algorithm>
#include <iterator>
#include <thread>
#include <utility>

#include "engine/filesystem/sources/directory/mount/recorded.h"
#include "engine/platform/clock.h"

namespace fs {

namespace {

constexpr std::size_t worth_a_thread = 32;  // directories
constexpr std::size_t window = 8;           // how many of the next directories are listed ahead
constexpr std::size_t most_ahead = 32;      // a scan in the depth leaves those of the upper directories waiting

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

void ListingAhead::list_now(Directory& directory) const {
    const platform::PathAt at = path_at(directory.path.c_str(), root_.text.size(), root_.handle.get());
    if (with_times_) directory.times = recorded_times(at);
    directory.is_complete = platform::list_directory(at, directory.items);
    if (!directory.is_complete) directory.error = platform::last_error();
}

std::size_t ListingAhead::add(const Directory& parent) {
    std::vector<DirectoryPtr> found;
    for (const platform::DirectoryItem& item : parent.items.items()) {
        if (!item.is_directory || is_passed_over(item)) continue;
        auto directory = std::make_unique<Directory>();
        directory->path.reserve(parent.path.size() + item.length + 1);
        directory->path.append(parent.path).append(item.name, item.length).append("/");
        directory->is_link = item.is_link;
        found.push_back(std::move(directory));
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
    const auto may_be_listed = [](const DirectoryPtr& directory) { return directory->may_be_listed(); };
    return static_cast<std::size_t>(std::count_if(first, waiting_.end(), may_be_listed)) >= window / 2;
}

ListingAhead::DirectoryPtr ListingAhead::take_next() {
    const std::lock_guard guard(lock_);
    DirectoryPtr next = std::move(waiting_.back());
    waiting_.pop_back();
    if (next->is_begun) --ahead_;
    if (is_worth_waking()) {
        is_idle_ = false;
        has_work_.notify_one();
    }
    return next;
}

void ListingAhead::list(Directory& directory) {
    std::unique_lock guard(lock_);
    if (!directory.is_begun) {
        guard.unlock();
        return list_now(directory);
    }
    while (!directory.is_done) {
        // Instead of waiting for the other thread, the next directory behind is listed.
        if (Directory* const other = begin_another()) {
            guard.unlock();
            list_now(*other);
            guard.lock();
            other->is_done = true;
        } else {
            is_listed_.wait(guard, [&] { return directory.is_done; });
        }
    }
}

/// The next directory that nobody lists; null when there is none, or when there are too many listings about.
ListingAhead::Directory* ListingAhead::begin_another() {
    if (ahead_ == most_ahead) return nullptr;
    const auto end = waiting_.rbegin() + static_cast<std::ptrdiff_t>(std::min(window, waiting_.size()));
    const auto next =
        std::find_if(waiting_.rbegin(), end, [](const DirectoryPtr& directory) { return directory->may_be_listed(); });
    if (next == end) return nullptr;
    ++ahead_;
    (*next)->is_begun = true;
    return next->get();
}

void ListingAhead::work() {
    std::unique_lock guard(lock_);
    while (!is_stopping_) {
        Directory* const directory = begin_another();
        if (directory == nullptr) {
            is_idle_ = true;
            has_work_.wait(guard, [&] { return !is_idle_ || is_stopping_; });
            continue;
        }
        guard.unlock();
        list_now(*directory);
        guard.lock();
        directory->is_done = true;
        is_listed_.notify_one();
    }
}

}  // namespace fs

#include "engine/filesystem/sources/directory/listing_ahead.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

#include "engine/filesystem/sources/listing/listing.h"
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
    if (!thread_.IsStarted()) return;
    {
        const std::lock_guard guard(lock_);
        is_stopping_ = true;
    }
    work_.Set();
    thread_.Join();
}

void ListingAhead::list(const NativePath& path, Listed& out) const {
    if (with_times_) out.times = recorded_times(path.at(root_));
    out.is_complete = platform::list_directory(path.at(root_), out.items);
}

bool ListingAhead::expect(const NativePath& parent, std::string_view name, bool is_link) try {
    std::string path;
    path.reserve(parent.length + name.size() + 1);
    path.append(parent.view()).append(name).append("/");
    const bool fits = path.size() <= platform::max_path_bytes;
    told_.push_back({std::move(path), parent.root_length, fits && !is_link});
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

bool ListingAhead::release_expected() try {
    if (told_.empty()) return true;
    {
        const std::lock_guard guard(lock_);
        expected_.insert(expected_.end(), std::make_move_iterator(told_.rbegin()),
                         std::make_move_iterator(told_.rend()));
        wake_when_worth_it();
    }
    told_.clear();
    if (!was_started_ && expected_.size() >= worth_a_thread) start();
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

/// A start that fails is no failure: nothing is listed ahead then.
void ListingAhead::start() {
    was_started_ = true;
    if (std::thread::hardware_concurrency() < 2) return;
    thread_.Start("fs listing", run, this);
}

ListingAhead::Slot* ListingAhead::take_next() {
    const std::lock_guard guard(lock_);
    if (asked_for_ != nullptr) free_.push_back(asked_for_);
    asked_for_ = expected_.back().slot;
    expected_.pop_back();
    awaited_ = nullptr;  // or the next use of its slot would signal once too often
    wake_when_worth_it();
    return asked_for_;
}

const ListingAhead::Listed& ListingAhead::next(const NativePath& path) {
    Slot* const slot = take_next();
    if (slot == nullptr) return list_now(path);
    Slot* other = nullptr;
    while (!is_done_or_awaited(*slot, other)) {
        list(other->path, other->listed);
        finish(*other);
    }
    if (awaited_ != nullptr) done_.Wait();
    return slot->listed;
}

/// Instead of waiting for the other thread, the next directory behind is listed: false then, and `other` is to be listed.
bool ListingAhead::is_done_or_awaited(Slot& slot, Slot*& other) {
    const std::lock_guard guard(lock_);
    if (slot.is_done) return true;
    Expected* const expected = find_work();
    other = expected != nullptr ? begin(*expected) : nullptr;
    if (other != nullptr) return false;
    awaited_ = &slot;
    return true;
}

const ListingAhead::Listed& ListingAhead::list_now(const NativePath& path) {
    list(path, own_);
    return own_;
}

/// One directory alone is listed sooner than a sleeping thread wakes.
void ListingAhead::wake_when_worth_it() {
    if (!is_idle_) return;
    const std::size_t count = std::min(window, expected_.size());
    const auto waits = [](const Expected& expected) { return expected.may_be_ahead && expected.slot == nullptr; };
    if (static_cast<std::size_t>(
            std::count_if(expected_.end() - static_cast<std::ptrdiff_t>(count), expected_.end(), waits)) < window / 2) {
        return;
    }
    is_idle_ = false;
    work_.Set();
}

ListingAhead::Expected* ListingAhead::find_work() {
    const std::size_t count = std::min(window, expected_.size());
    for (std::size_t i = 1; i <= count; ++i) {
        Expected& expected = expected_[expected_.size() - i];
        if (expected.may_be_ahead && expected.slot == nullptr) return &expected;
    }
    return nullptr;
}

/// Null when there are too many listings about, or no memory for one more.
ListingAhead::Slot* ListingAhead::begin(Expected& expected) try {
    if (free_.empty()) {
        if (slots_.size() == slot_limit) return nullptr;
        free_.reserve(slots_.size() + 1);
        slots_.push_back(std::make_unique<Slot>());
        free_.push_back(slots_.back().get());
    }
    Slot* const slot = free_.back();
    free_.pop_back();
    slot->is_done = false;
    slot->path.length = expected.path.size();
    slot->path.root_length = expected.root_length;
    std::memcpy(slot->path.text, expected.path.c_str(), expected.path.size() + 1);
    expected.slot = slot;
    return slot;
} catch (const std::bad_alloc&) {
    return nullptr;
}

void ListingAhead::finish(Slot& slot) {
    const std::lock_guard guard(lock_);
    slot.is_done = true;
    if (awaited_ == &slot) done_.Set();
}

void ListingAhead::work() {
    for (;;) {
        Slot* slot = nullptr;
        {
            const std::lock_guard guard(lock_);
            if (is_stopping_) return;
            Expected* const expected = find_work();
            if (expected != nullptr) slot = begin(*expected);
            is_idle_ = slot == nullptr;
        }
        if (slot == nullptr) {
            work_.Wait();
        } else {
            list(slot->path, slot->listed);
            finish(*slot);
        }
    }
}

}  // namespace fs

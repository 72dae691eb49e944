// Locks, events and semaphores over the kernel's "sleep while this word has that value" call.
//
// Each object is one atomic word. All ordering comes from the acquire and release operations on it; the kernel is only
// asked to put a thread to sleep or to wake one, so a wake that comes too often is harmless: every waiter looks again.
// A word of 64 bits sleeps on one of its halves, which keeps those who wait for different things apart.
#include "engine/platform/sync.h"

#include <immintrin.h>

#include <bit>
#include <cstdlib>
#include <mutex>
#include <new>

#include "engine/platform/posix/futex.h"

namespace platform {

namespace {

static_assert(sizeof(SlimLock) == sizeof(void*) && std::atomic<std::uint64_t>::is_always_lock_free);
static_assert(std::endian::native == std::endian::little, "the halves of a word are found by address");

const void* low_half(const std::atomic<std::uint64_t>& word) { return &word; }
const void* high_half(const std::atomic<std::uint64_t>& word) {
    return reinterpret_cast<const unsigned char*>(&word) + sizeof(std::uint32_t);
}
std::uint32_t low_value(std::uint64_t word) { return static_cast<std::uint32_t>(word); }
std::uint32_t high_value(std::uint64_t word) { return static_cast<std::uint32_t>(word >> 32); }

// SlimLock: the low half says who holds it (the number of readers, or the writer's bit), the high half who waits (the
// number of writers, and whether readers sleep). Readers enter only while no writer waits, so writers cannot starve.
// Writers sleep on the low half, readers on the high one. Whoever makes the low half zero wakes the next.
constexpr std::uint64_t one_reader = 1;
constexpr std::uint64_t writer_holds = 0x8000'0000;
constexpr std::uint64_t held = 0xFFFF'FFFF;
constexpr std::uint64_t one_waiting_writer = std::uint64_t{1} << 32;
constexpr std::uint64_t readers_sleep = std::uint64_t{1} << 63;
constexpr std::uint64_t waiting_writers = ~held & ~readers_sleep;

// Holds and hand-overs are short: some looks cost less than a sleep and the call that ends it.
constexpr int looks_before_sleep = 100;
// A signal that stays is waited for a little longer than a sleeping thread takes to answer; one that a worker takes, only
// as long as whoever keeps it busy needs to come back, since a worker that looks may keep that one from running.
constexpr int looks_for_manual_signal = 300;
constexpr int looks_for_automatic_signal = 50;

void pause_briefly() { _mm_pause(); }

bool shuts_readers_out(std::uint64_t state) { return (state & (writer_holds | waiting_writers)) != 0; }

// Returns true when the lock was taken; otherwise `state` is a value that shuts readers out.
bool try_enter_shared(SlimLock& lock, std::uint64_t& state) {
    while (!shuts_readers_out(state)) {
        if (lock.state.compare_exchange_weak(state, state + one_reader, std::memory_order_acquire,
                                             std::memory_order_relaxed)) {
            return true;
        }
    }
    return false;
}

void wait_shared(SlimLock& lock, std::uint64_t state) {
    for (int look = 0; look < looks_before_sleep; ++look) {
        state = lock.state.load(std::memory_order_relaxed);
        if (try_enter_shared(lock, state)) return;
    }
    for (;;) {
        if (try_enter_shared(lock, state)) return;
        const std::uint64_t asleep = state | readers_sleep;
        if (state != asleep && !lock.state.compare_exchange_weak(state, asleep, std::memory_order_relaxed)) continue;
        futex_wait(high_half(lock.state), high_value(asleep), 0);
        state = lock.state.load(std::memory_order_relaxed);
    }
}

// Adds this writer to those who wait and returns the state after that.
std::uint64_t count_waiting_writer(SlimLock& lock) {
    return lock.state.fetch_add(one_waiting_writer, std::memory_order_relaxed) + one_waiting_writer;
}

void wait_exclusive(SlimLock& lock) {
    for (int look = 0; look < looks_before_sleep; ++look) {
        if (try_lock_exclusive(lock)) return;
    }
    std::uint64_t state = count_waiting_writer(lock);
    for (;;) {
        while ((state & held) == 0) {
            const std::uint64_t taken = (state | writer_holds) - one_waiting_writer;
            if (lock.state.compare_exchange_weak(state, taken, std::memory_order_acquire, std::memory_order_relaxed)) {
                return;
            }
        }
        futex_wait(low_half(lock.state), low_value(state), 0);
        state = lock.state.load(std::memory_order_relaxed);
    }
}

// Called by whoever found that nobody holds the lock any more and somebody waits.
void wake_next(SlimLock& lock, std::uint64_t state) {
    if ((state & waiting_writers) != 0) {
        futex_wake(low_half(lock.state), 1);
        return;
    }
    lock.state.fetch_and(~readers_sleep, std::memory_order_relaxed);
    futex_wake(high_half(lock.state), futex_all);
}

}  // namespace

void lock_shared(SlimLock& lock) {
    std::uint64_t state = lock.state.load(std::memory_order_relaxed);
    if (!try_enter_shared(lock, state)) wait_shared(lock, state);
}

void unlock_shared(SlimLock& lock) {
    const std::uint64_t state = lock.state.fetch_sub(one_reader, std::memory_order_release) - one_reader;
    if (state != 0 && (state & held) == 0) wake_next(lock, state);
}

bool try_lock_exclusive(SlimLock& lock) {
    std::uint64_t state = lock.state.load(std::memory_order_relaxed);
    return (state & held) == 0 &&
           lock.state.compare_exchange_strong(state, state | writer_holds, std::memory_order_acquire,
                                              std::memory_order_relaxed);
}

void lock_exclusive(SlimLock& lock) {
    if (!try_lock_exclusive(lock)) wait_exclusive(lock);
}

void unlock_exclusive(SlimLock& lock) {
    const std::uint64_t state = lock.state.fetch_sub(writer_holds, std::memory_order_release) - writer_holds;
    if (state != 0) wake_next(lock, state);
}

struct CriticalSection {
    std::recursive_mutex mutex;
};

// Never null by contract, so without memory for a lock the process ends here rather than run unlocked.
CriticalSection* create_critical_section() noexcept {
    auto* const section = new (std::nothrow) CriticalSection;
    if (section == nullptr) std::abort();
    return section;
}

void destroy_critical_section(CriticalSection* section) { delete section; }
void enter(CriticalSection* section) { section->mutex.lock(); }
bool try_enter(CriticalSection* section) { return section->mutex.try_lock(); }
void leave(CriticalSection* section) { section->mutex.unlock(); }

struct Event {
    std::atomic<std::uint32_t> state{0};  // unset, set, or unset and somebody may sleep
    const bool manual_reset;
};

namespace {

constexpr std::uint32_t unset = 0;
constexpr std::uint32_t set = 1;
constexpr std::uint32_t awaited = 2;

// `after` is what an automatic reset leaves: whoever has slept cannot know whether others still do.
bool take_signal(Event& event, std::uint32_t after) {
    if (event.manual_reset) return event.state.load(std::memory_order_acquire) == set;
    std::uint32_t on = set;
    return event.state.compare_exchange_strong(on, after, std::memory_order_acquire, std::memory_order_relaxed);
}

bool look_for_signal(Event& event) {
    const int looks = event.manual_reset ? looks_for_manual_signal : looks_for_automatic_signal;
    for (int look = 0; look < looks; ++look) {
        if (take_signal(event, unset)) return true;
        pause_briefly();
    }
    return false;
}

// Says that somebody sleeps, so that only then setting costs a call of the kernel. False when the event is set.
bool announce_sleeper(Event& event) {
    std::uint32_t off = unset;
    return event.state.compare_exchange_strong(off, awaited, std::memory_order_relaxed) || off == awaited;
}

}  // namespace

Event* create_event(bool manual_reset, bool signalled) {
    return new (std::nothrow) Event{.state = signalled ? set : unset, .manual_reset = manual_reset};
}

void destroy_event(Event* event) { delete event; }

void set_event(Event* event) {
    // A waiter may see the signal and destroy the event at once: after the exchange only the address is used.
    const bool all = event->manual_reset;
    const void* const word = &event->state;
    if (event->state.exchange(set, std::memory_order_release) == awaited) futex_wake(word, all ? futex_all : 1);
}

void reset_event(Event* event) {
    std::uint32_t on = set;
    event->state.compare_exchange_strong(on, unset, std::memory_order_relaxed);
}

bool wait_event(Event* event, std::uint32_t timeout_ms) {
    if (take_signal(*event, unset)) return true;
    if (timeout_ms == 0) return false;
    if (look_for_signal(*event)) return true;
    const std::uint64_t deadline = deadline_after(timeout_ms);
    for (bool in_time = true; in_time;) {
        if (announce_sleeper(*event)) in_time = futex_wait(&event->state, awaited, deadline);
        if (take_signal(*event, awaited)) return true;
    }
    return false;
}

// The low half counts what may be taken, the high half those who wait for it.
struct Semaphore {
    std::atomic<std::uint64_t> state{0};
    const std::uint32_t maximum;
};

namespace {

constexpr std::uint64_t one_waiter = std::uint64_t{1} << 32;
constexpr std::uint32_t largest_maximum = 0x7FFFFFFF;  // as on Windows

// Takes one, and `also` (nothing or the caller's place among the waiters) with it.
bool take_count(Semaphore& semaphore, std::uint64_t also) {
    std::uint64_t state = semaphore.state.load(std::memory_order_relaxed);
    while (low_value(state) != 0) {
        if (semaphore.state.compare_exchange_weak(state, state - 1 - also, std::memory_order_acquire,
                                                  std::memory_order_relaxed)) {
            return true;
        }
    }
    return false;
}

}  // namespace

Semaphore* create_semaphore(std::uint32_t initial, std::uint32_t maximum) {
    if (maximum == 0 || maximum > largest_maximum || initial > maximum) return nullptr;
    return new (std::nothrow) Semaphore{.state = initial, .maximum = maximum};
}

void destroy_semaphore(Semaphore* semaphore) { delete semaphore; }

bool release_semaphore(Semaphore* semaphore, std::uint32_t count) {
    if (count == 0) return false;
    const void* const word = low_half(semaphore->state);
    std::uint64_t state = semaphore->state.load(std::memory_order_relaxed);
    do {
        if (count > semaphore->maximum - low_value(state)) return false;
    } while (!semaphore->state.compare_exchange_weak(state, state + count, std::memory_order_release,
                                                     std::memory_order_relaxed));
    if (high_value(state) != 0) futex_wake(word, count);
    return true;
}

bool wait_semaphore(Semaphore* semaphore, std::uint32_t timeout_ms) {
    if (take_count(*semaphore, 0)) return true;
    if (timeout_ms == 0) return false;
    const std::uint64_t deadline = deadline_after(timeout_ms);
    semaphore->state.fetch_add(one_waiter, std::memory_order_relaxed);
    for (;;) {
        if (take_count(*semaphore, one_waiter)) return true;
        if (!futex_wait(low_half(semaphore->state), 0, deadline)) break;
    }
    if (take_count(*semaphore, one_waiter)) return true;
    semaphore->state.fetch_sub(one_waiter, std::memory_order_relaxed);
    return false;
}

}  // namespace platform

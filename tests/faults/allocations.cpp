#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

#include "engine/platform/threads.h"
#include "tests/faults/stage.h"

// The linker sends our calls of the C allocator through the functions named __wrap_ (see tests/CMakeLists.txt), and
// operator new is replaced for the whole program.

namespace {

constinit std::atomic<std::int64_t> calls_left{0};  // 0: no order
constinit std::atomic<std::uint32_t> hits{0};
constinit std::atomic<bool> lasting{false};

#ifdef _WIN32
constinit platform::PerThread<int, struct InRunTime> in_run_time;
#else
constexpr int in_run_time = 0;
#endif

bool strikes() {
    if (in_run_time != 0) return false;
    if (calls_left.load(std::memory_order_relaxed) <= 0) return false;
    const std::int64_t left = calls_left.fetch_sub(1);
    if (left != 1) return false;
    if (lasting.load(std::memory_order_relaxed)) calls_left.store(1);
    ++hits;
    return true;
}

}  // namespace

extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* block, std::size_t size);

void* __wrap_malloc(std::size_t size) { return strikes() ? nullptr : __real_malloc(size); }
void* __wrap_calloc(std::size_t count, std::size_t size) { return strikes() ? nullptr : __real_calloc(count, size); }
void* __wrap_realloc(void* block, std::size_t size) { return strikes() ? nullptr : __real_realloc(block, size); }
}

#ifdef _WIN32
// The run-time library is linked statically and takes memory when it locks for the first time and for the first exception
// of a thread. Without any it ends the process.
extern "C" {
void* __real___emutls_get_address(void* variable);
int __real_pthread_mutex_lock(void* mutex);

void* __wrap___emutls_get_address(void* variable) {
    ++in_run_time;
    void* const address = __real___emutls_get_address(variable);
    --in_run_time;
    return address;
}
int __wrap_pthread_mutex_lock(void* mutex) {
    ++in_run_time;
    const int result = __real_pthread_mutex_lock(mutex);
    --in_run_time;
    return result;
}
}
#endif

void* operator new(std::size_t size) {
    void* const block = strikes() ? nullptr : __real_malloc(size != 0 ? size : 1);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return strikes() ? nullptr : __real_malloc(size != 0 ? size : 1);
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }

namespace test {

void fail_allocation(std::uint32_t nth, bool from_then_on) {
    calls_left.store(0);
    hits.store(0);
    lasting.store(from_then_on);
    calls_left.store(nth);
}

std::uint32_t allocation_hits() { return hits.load(); }

}  // namespace test

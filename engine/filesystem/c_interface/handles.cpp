#include "engine/filesystem/c_interface/handles.h"

#include <atomic>
#include <mutex>
#include <utility>

#include <engine/kernel/lock.h>

#include "engine/filesystem/contract/failure.h"

// A handle is made of three numbers: the place in the table (22 bits, in the low 24), the kind (8 bits), and how often the
// place was given out (32 bits). A place holds the whole handle while it is open, so that one comparison tells. The table
// grows by chunks that stay where they are: whoever looks a handle up takes no lock and never meets freed memory.

namespace fs::c::handles {

namespace {

constexpr std::uint32_t places_of_chunk = 1024;
constexpr std::uint32_t most_chunks = 4096;
constexpr int kind_shift = 24;
constexpr int turn_shift = 32;

struct Place {
    std::atomic<Handle> handle{0};  // 0: free
    std::atomic<void*> object{nullptr};
    std::uint32_t number = 0;  // never changes
    std::uint32_t turn = 0;    // guarded by the lock, as the next
    Place* next_free = nullptr;
};

struct Table {
    mt::detail::Mutex lock;  // guards everything but what a lookup reads
    std::atomic<Place*> chunks[most_chunks]{};
    std::uint32_t chunk_count = 0;
    Place* free = nullptr;
};
constinit Table table;  // never emptied, so that late callers find it

Place* place_of(Handle handle, std::uint8_t kind) {
    if (static_cast<std::uint8_t>(handle >> kind_shift) != kind) return nullptr;
    const std::uint32_t number = static_cast<std::uint32_t>(handle) & ((1u << kind_shift) - 1);
    if (number >= places_of_chunk * most_chunks) return nullptr;
    Place* const chunk = table.chunks[number / places_of_chunk].load(std::memory_order_acquire);
    if (chunk == nullptr) return nullptr;
    Place& place = chunk[number % places_of_chunk];
    return place.handle.load(std::memory_order_acquire) == handle ? &place : nullptr;
}

/// With the lock held.
void add_chunk() {
    if (table.chunk_count == most_chunks) {
        set_error(EFSError::OUT_OF_MEMORY, nullptr, "Too many handles are open.");
        throw StoredFailure();
    }
    auto* const chunk = new Place[places_of_chunk];
    for (std::uint32_t i = places_of_chunk; i-- > 0;) {
        chunk[i].number = table.chunk_count * places_of_chunk + i;
        chunk[i].next_free = std::exchange(table.free, &chunk[i]);
    }
    table.chunks[table.chunk_count++].store(chunk, std::memory_order_release);
}

void refuse_handle(Handle handle) {
    refuse(EFSError::INVALID_ARGUMENT, nullptr,
           handle == 0 ? "The handle is null." : "The handle is not open, or it is of another kind.");
}

}  // namespace

Handle add(std::uint8_t kind, void* object) {
    const std::lock_guard guard(table.lock);
    if (table.free == nullptr) add_chunk();
    Place& place = *std::exchange(table.free, table.free->next_free);
    const Handle handle = Handle{++place.turn} << turn_shift | Handle{kind} << kind_shift | place.number;
    place.object.store(object, std::memory_order_relaxed);
    place.handle.store(handle, std::memory_order_release);
    return handle;
}

void* find(Handle handle, std::uint8_t kind) noexcept {
    Place* const place = place_of(handle, kind);
    if (place != nullptr) return place->object.load(std::memory_order_acquire);
    refuse_handle(handle);
    return nullptr;
}

void* end(Handle handle, std::uint8_t kind) noexcept {
    const std::lock_guard guard(table.lock);
    Place* const place = place_of(handle, kind);
    if (place == nullptr) return refuse_handle(handle), nullptr;
    place->handle.store(0, std::memory_order_release);
    place->next_free = std::exchange(table.free, place);
    return place->object.load(std::memory_order_relaxed);
}

void set(Handle handle, void* object) noexcept {
    const std::lock_guard guard(table.lock);
    Place* const place = place_of(handle, static_cast<std::uint8_t>(handle >> kind_shift));
    if (place != nullptr) place->object.store(object, std::memory_order_release);
}

}  // namespace fs::c::handles

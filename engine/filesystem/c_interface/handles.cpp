#include "engine/filesystem/c_interface/handles.h"

#include <atomic>
#include <mutex>

#include <engine/kernel/lock.h>

#include "engine/filesystem/contract/guarded.h"

// A handle is made of three numbers: the place in the table (22 bits, in the low 24), the kind (8 bits), and how often the
// place was given out (32 bits). A place holds the whole handle while it is open, so that one comparison tells. The table
// grows by chunks that stay where they are: whoever looks a handle up takes no lock and never meets freed memory.

namespace fs::c::handles {

namespace {

constexpr std::uint32_t places_of_chunk = 1024;
constexpr std::uint32_t chunk_count = 4096;
constexpr std::uint32_t no_place = ~std::uint32_t{0};
constexpr int kind_shift = 24;
constexpr int turn_shift = 32;

struct Place {
    std::atomic<Handle> handle{0};  // 0: free
    std::atomic<void*> object{nullptr};
    std::uint32_t turn = 0;              // guarded by the lock, as the next
    std::uint32_t next_free = no_place;  // while it is free
};

struct Table {
    mt::detail::Mutex lock;  // guards everything but what a lookup reads
    std::atomic<Place*> chunks[chunk_count]{};
    std::uint32_t used = 0;  // places that were ever given out
    std::uint32_t free = no_place;
};
constinit Table table;  // never emptied, so that late callers find it

Place* place_at(std::uint32_t number) {
    if (number >= places_of_chunk * chunk_count) return nullptr;
    Place* const chunk = table.chunks[number / places_of_chunk].load(std::memory_order_acquire);
    return chunk != nullptr ? chunk + number % places_of_chunk : nullptr;
}

Place* place_of(Handle handle, std::uint8_t kind) {
    if (static_cast<std::uint8_t>(handle >> kind_shift) != kind) return nullptr;
    Place* const place = place_at(static_cast<std::uint32_t>(handle & ((1u << kind_shift) - 1)));
    return place != nullptr && place->handle.load(std::memory_order_acquire) == handle ? place : nullptr;
}

/// With the lock held.
std::uint32_t take_place() {
    if (table.free != no_place) {
        const std::uint32_t number = table.free;
        table.free = place_at(number)->next_free;
        return number;
    }
    const std::uint32_t number = table.used;
    if (number == places_of_chunk * chunk_count) {
        set_error(EFSError::OUT_OF_MEMORY, nullptr, "Too many handles are open.");
        throw StoredFailure();
    }
    if (number % places_of_chunk == 0)
        table.chunks[number / places_of_chunk].store(new Place[places_of_chunk], std::memory_order_release);
    ++table.used;
    return number;
}

void refuse_handle(Handle handle) {
    refuse(EFSError::INVALID_ARGUMENT, nullptr,
           handle == 0 ? "The handle is null." : "The handle is not open, or it is of another kind.");
}

}  // namespace

Handle add(std::uint8_t kind, void* object) {
    const std::lock_guard guard(table.lock);
    const std::uint32_t number = take_place();
    Place& place = *place_at(number);
    const Handle handle = Handle{++place.turn} << turn_shift | Handle{kind} << kind_shift | number;
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
    place->next_free = table.free;
    table.free = static_cast<std::uint32_t>(handle & ((1u << kind_shift) - 1));
    return place->object.load(std::memory_order_relaxed);
}

void set(Handle handle, void* object) noexcept {
    const std::lock_guard guard(table.lock);
    Place* const place = place_of(handle, static_cast<std::uint8_t>(handle >> kind_shift));
    if (place != nullptr) place->object.store(object, std::memory_order_release);
}

}  // namespace fs::c::handles

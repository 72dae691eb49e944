#pragma once

#include <utility>

#include <engine/filesystem/contract/source.h>

// What keeps a source alive while something of it is used without the registry's lock.

namespace fs::registry {

struct PinCount;

/// While a pin stands, its source is not destroyed: whoever removes it waits. Empty or of one source.
class Pin {
public:
    Pin() = default;
    /// With the registry's lock held in any form, which keeps the source in the list. Throws std::bad_alloc.
    explicit Pin(CFSSource& source);
    Pin(Pin&& other) noexcept : count_(std::exchange(other.count_, nullptr)) {}
    Pin& operator=(Pin&& other) noexcept;
    ~Pin() { Drop(); }

    void Drop() noexcept;
    bool IsEmpty() const noexcept { return count_ == nullptr; }
    /// Whether somebody waits for the pin to be dropped, since the source was removed.
    bool IsSourceGoing() const noexcept;
    bool Holds(const CFSSource& source) const noexcept;

private:
    PinCount* count_ = nullptr;
};

/// Called with a source that was taken out of the list, before its pins are waited for.
using RemovalHook = void (*)(CFSSource& source);
void set_removal_hook(RemovalHook hook);

/// Waits until nobody has a pin on a source that was taken out of the list. Without the registry's lock, since who has
/// the pin may ask for it.
void wait_for_pins(CFSSource& source);

}  // namespace fs::registry

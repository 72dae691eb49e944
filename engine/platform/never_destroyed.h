#pragma once

namespace platform {

/// For the state of a subsystem that the last callers of the process still use: as a static variable of a function it is
/// made at its first use and never destroyed.
template <typename T>
union NeverDestroyed {
    NeverDestroyed() : value() {}
    ~NeverDestroyed() {}  // NOLINT(modernize-use-equals-default): a default one would be deleted
    T value;
};

}  // namespace platform

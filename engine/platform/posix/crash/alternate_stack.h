#pragma once

namespace platform {

/// A stack for signal handlers of the thread that makes it, where the thread has none yet: without one the handler of a
/// stack that is used up could not run. Given back by the destructor, on the same thread.
class AlternateStack {
public:
    AlternateStack();
    AlternateStack(const AlternateStack&) = delete;
    AlternateStack& operator=(const AlternateStack&) = delete;
    ~AlternateStack();
    /// Leaves it to the thread for good.
    void keep() { memory_ = nullptr; }

private:
    void* memory_ = nullptr;
};

}  // namespace platform

#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

#include "engine/platform/threads.h"

namespace logging {

/// Lets readers run beside one changer of some atomic words without waiting for it: who met a change reads again.
class ChangeCount {
public:
    template <class Read>
    auto read(Read read) const {
        // A change takes nanoseconds. Whoever meets one this often is being starved, and goes on with the last answer.
        constexpr int most_attempts = 64;
        for (int attempt = 1;; ++attempt) {
            const std::uint32_t before = changes_;
            const auto answer = read();
            if (((before & 1) == 0 && changes_ == before) || attempt == most_attempts) return answer;
        }
    }

    /// One change at a time, of whatever in the log.
    template <class Change>
    auto change(Change change) {
        const std::lock_guard guard(lock());
        const Mark mark(changes_);
        return change();
    }

private:
    // Outside of `change`, of which there is one for each kind of change.
    static platform::Mutex& lock() {
        static platform::NeverDestroyed<platform::Mutex> instance;
        return instance.value;
    }

    struct Mark {
        explicit Mark(std::atomic<std::uint32_t>& changes) : changes_(changes) { ++changes_; }
        ~Mark() { ++changes_; }
        std::atomic<std::uint32_t>& changes_;
    };

    std::atomic<std::uint32_t> changes_{0};  // odd while a change is under way
};

}  // namespace logging

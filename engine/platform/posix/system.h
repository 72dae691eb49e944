#pragma once

#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <utility>

#include "engine/platform/clock.h"
#include "engine/platform/error.h"

// What every call of the system needs: its errors, descriptors and times.

namespace platform {

/// The one place that says what an errno means to callers.
Failure failure_of(int os_code);
/// An errno that means this, for failures on order; EIO where there is none.
int os_code_of(Failure failure);

/// Records the failure that an errno means, and answers false.
bool fail_os(int os_code);

/// Calls `call` again as long as a signal interrupts it. It answers as system calls do: below zero with errno set.
template <class Call>
auto retry_interrupted(Call call) {
    for (;;) {
        const auto result = call();
        if (result >= 0 || errno != EINTR) return result;
    }
}

/// Closes a descriptor when it goes out of scope.
class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { reset(-1); }

    bool valid() const { return number_ >= 0; }
    int number() const { return number_; }
    void reset(int number) {
        if (valid()) ::close(number_);
        number_ = number;
    }
    int release() { return std::exchange(number_, -1); }

private:
    int number_;
};

inline std::int64_t to_ns(const timespec& time) { return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec; }
std::int64_t to_file_time(const timespec& time);
timespec from_file_time(std::int64_t time);

}  // namespace platform

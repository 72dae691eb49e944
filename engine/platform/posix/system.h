#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <string_view>
#include <utility>

#include "engine/platform/clock.h"
#include "engine/platform/error.h"

// What every call of the system needs: its errors, descriptors and times.

namespace platform {

/// An errno that means this, for failures on order; EIO where there is none.
int os_code_of(Failure failure);

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

/// Hands the bytes of a file over in pieces, as far as it can be read. Takes no memory.
template <class Take>
void read_pieces(const char* path, Take take) {
    const Descriptor file(::open(path, O_RDONLY | O_CLOEXEC));
    char piece[4096];
    while (file.valid()) {
        const auto got = retry_interrupted([&] { return ::read(file.number(), piece, sizeof piece); });
        if (got <= 0) return;
        take(std::string_view(piece, static_cast<std::size_t>(got)));
    }
}

inline std::int64_t to_ns(const timespec& time) { return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec; }
std::int64_t to_file_time(const timespec& time);
timespec from_file_time(std::int64_t time);

}  // namespace platform

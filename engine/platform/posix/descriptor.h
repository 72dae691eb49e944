#pragma once

#include <unistd.h>

#include <utility>

namespace platform {

/// Closes a descriptor when it goes out of scope.
class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (valid()) ::close(number_);
    }
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

}  // namespace platform

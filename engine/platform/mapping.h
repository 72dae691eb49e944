#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

namespace platform {

class File;

/// Part of an open file as memory that the system fills when it is touched. Read-only; movable; may be empty. The file may
/// be closed meanwhile, but while it is open its sharing keeps this process's writers away.
class Mapping {
public:
    Mapping() = default;
    /// Empty on failure; last_error() says why. `size` is not 0, and the file has that many bytes at `offset`.
    Mapping(const File& file, std::uint64_t offset, std::uint64_t size);
    Mapping(Mapping&& other) noexcept
        : start_(std::exchange(other.start_, nullptr)), length_(other.length_), skip_(other.skip_) {}
    Mapping& operator=(Mapping&& other) noexcept {
        std::swap(start_, other.start_);
        std::swap(length_, other.length_);
        std::swap(skip_, other.skip_);
        return *this;
    }
    ~Mapping() { Unmap(); }

    bool IsEmpty() const { return start_ == nullptr; }
    const void* Data() const { return static_cast<const char*>(start_) + skip_; }
    /// Fetches every byte now. False, with last_error() set, when the file does not give them all (any more), where touching
    /// them would end the process, or when the system cannot tell.
    bool Populate() const;

private:
    void Unmap();

    void* start_ = nullptr;
    std::size_t length_ = 0;
    std::size_t skip_ = 0;  // bytes before the first one asked for, since systems map whole pages
};

}  // namespace platform

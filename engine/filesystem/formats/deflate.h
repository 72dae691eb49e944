#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

namespace fs {

/// Deflates whole blocks of memory (raw, without a header), keeping its state and buffer for the next one.
class Deflater {
public:
    Deflater();
    ~Deflater();
    Deflater(const Deflater&) = delete;
    Deflater& operator=(const Deflater&) = delete;

    /// `level` from 1 to 12. False when the result would not be smaller; otherwise it is in data() until the next call.
    /// May throw std::bad_alloc.
    bool deflate(const void* data, std::size_t size, int level);
    const std::uint8_t* data() const { return buffer_.get(); }
    std::size_t size() const { return size_; }

private:
    struct State;
    struct Free {
        void operator()(std::uint8_t* bytes) const { std::free(bytes); }
    };

    void reserve(std::size_t size);

    std::unique_ptr<State> state_;
    std::unique_ptr<std::uint8_t, Free> buffer_;  // not cleared beforehand, as a vector would be
    std::size_t capacity_ = 0;
    std::size_t size_ = 0;
};

/// The data as a deflate stream that only copies: 5 bytes more for each 64 KiB. May throw std::bad_alloc.
std::vector<std::uint8_t> deflate_by_copying(const void* data, std::size_t size);
/// How long that is.
std::uint64_t size_deflated_by_copying(std::uint64_t size);

}  // namespace fs

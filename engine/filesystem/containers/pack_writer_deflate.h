#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace fs {

/// CRC-32 of zip files.
std::uint32_t crc32_of(const void* data, std::size_t size);

/// Deflates whole blocks of memory (raw, without a header), keeping its state and buffer for the next one.
class Deflater {
public:
    Deflater();
    ~Deflater();
    Deflater(const Deflater&) = delete;
    Deflater& operator=(const Deflater&) = delete;

    enum class Result { SMALLER, NOT_SMALLER, NO_MEMORY };
    /// `level` from 1 to 12. With SMALLER the bytes are in data() until the next call.
    Result deflate(const void* data, std::size_t size, int level);
    const std::uint8_t* data() const { return buffer_.get(); }
    std::size_t size() const { return size_; }

private:
    struct State;
    struct Free {
        void operator()(std::uint8_t* bytes) const { std::free(bytes); }
    };

    bool reserve(std::size_t size);

    std::unique_ptr<State> state_;
    std::unique_ptr<std::uint8_t, Free> buffer_;
    std::size_t capacity_ = 0;
    std::size_t size_ = 0;
};

}  // namespace fs

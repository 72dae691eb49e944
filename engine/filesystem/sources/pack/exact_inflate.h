#pragma once

#include <cstdint>

#include <zlib.h>

namespace fs {

struct PackedInput;

/// Decodes a deflate stream by zlib in the steps that reading a pack is defined by: input in pieces of 16 KiB, one call
/// of the decoder a step. Bytes that the pack does not have (any more) are zeros.
class ExactInflate {
public:
    explicit ExactInflate(const PackedInput& input) : input_(input) {}
    ~ExactInflate() { end(); }
    ExactInflate(const ExactInflate&) = delete;
    ExactInflate& operator=(const ExactInflate&) = delete;

    void restart();
    /// One step: at most `room` bytes into `out`. False for a damaged stream, from then on until a restart.
    bool decode(std::uint8_t* out, std::uint32_t room, std::uint32_t& produced);
    /// Packed bytes that the decoder has taken.
    std::uint64_t consumed() const { return stream_.total_in; }

private:
    void end();
    void refill();

    const PackedInput& input_;
    z_stream stream_{};
    bool open_ = false;
};

}  // namespace fs

#pragma once

#include <cstdint>

#include "engine/filesystem/sources/pack/codes.h"

namespace fs {

class PackStore;

/// Where a deflate stream's packed bytes come from: a window over the pack that moves forward.
struct PackedInput {
    const PackStore& store;
    const std::uint64_t offset;  // in the pack
    const std::uint32_t packed_size;
    std::uint8_t* const window;  // of `capacity` bytes; not used for a pack in memory
    const std::uint32_t capacity;
};

/// Decodes a deflate stream block by block of 32 KiB into a ring of two, which is all the history that the stream can
/// refer to: nothing is copied aside, and decoding goes about half as fast again as through a general stream decoder.
///
/// It refuses every stream that zlib refuses, and some that it takes. After a refusal it is of no more use: who must
/// know exactly what a damaged stream gives decodes it with zlib from the start.
class RingInflate {
public:
    static constexpr std::uint32_t block_size = 32768;
    static constexpr std::uint32_t ring_size = 2 * block_size;

    /// Everything that decoding goes on from, at the beginning of a block.
    struct Snapshot;

    /// `ring` holds ring_size bytes and may be read for 8 more.
    RingInflate(const PackedInput& input, std::uint8_t* ring) : input_(input), ring_(ring) {}

    void start();
    /// Decodes the next block into its half of the ring, odd blocks into the second. `produced` is less than a block at
    /// the end of the stream alone. False when the stream is refused, or the pack does not give its bytes.
    bool decode_block(std::uint32_t& produced);

    /// Between blocks.
    void save(Snapshot& out) const;
    void restore(const Snapshot& from);

private:
    enum class Mode : std::uint8_t { HEADER, STORED, CODES, DONE };

    /// What lies between two calls, apart from the tables.
    struct State {
        std::uint64_t bits = 0;  // of the input that was taken up and not decoded yet, the next one lowest
        std::uint64_t total_out = 0;
        std::uint32_t bit_count = 0;
        std::uint32_t stored_left = 0;  // of a stored block
        std::uint32_t match_left = 0;   // of a match that the last block's end cut off
        std::uint32_t match_distance = 0;
        std::uint16_t literal_count = 0;  // code lengths of the present block
        std::uint16_t distance_count = 0;
        Mode mode = Mode::HEADER;
        bool last = false;  // the present block is the stream's last
    };

    std::uint32_t consumed() const;
    bool load_window();
    void seek_input(std::uint32_t at);
    bool next_byte();
    void fill_bits();
    bool take_bits(std::uint32_t count, std::uint32_t& value);
    bool read_header();
    bool read_stored_header();
    bool read_dynamic_header();
    bool read_code_lengths(const std::uint32_t* table, std::uint32_t count);
    bool set_fixed_codes();
    bool build_tables();
    bool copy_stored();
    bool decode_codes();
    bool decode_fast();
    bool decode_one();
    bool look_up(const std::uint32_t* table, std::uint32_t root_bits, std::uint32_t& code);
    bool begin_match(std::uint32_t length, std::uint32_t distance);
    void continue_match();

    const PackedInput input_;
    std::uint8_t* const ring_;
    const std::uint8_t* next_ = nullptr;  // input that was loaded and not taken up yet
    const std::uint8_t* end_ = nullptr;
    std::uint32_t loaded_ = 0;  // offset in the packed bytes of `end_`
    std::uint32_t base_ = 0;    // place in the ring of the block under way
    std::uint32_t out_ = 0;     // bytes of it that are decoded
    State state_;
    std::uint8_t lengths_[literal_symbols + distance_symbols] = {};
    std::uint32_t literals_[literal_table_size];
    std::uint32_t distances_[distance_table_size];
};

struct RingInflate::Snapshot {
    State state;
    std::uint32_t consumed;
    std::uint8_t lengths[literal_symbols + distance_symbols];
    std::uint8_t history[block_size];  // the block before
};

}  // namespace fs

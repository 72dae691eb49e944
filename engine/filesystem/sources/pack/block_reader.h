#pragma once

#include <cstdint>

#include "engine/filesystem/sources/pack/entry_reader.h"

namespace fs {

/// Reads one entry in blocks of 32 KiB, of which the two latest are kept: what is common to stored and compressed
/// entries. Which bytes a read gives, also after seeks and where the entry is damaged, is decided here.
///
/// Words: a block is full when it holds 32 KiB; the current block is the one that reading stands in; its read position
/// may lag behind the position asked for, and the next read catches up by decoding.
class BlockReader : public EntryReader {
public:
    static constexpr std::uint32_t block_size = 32768;
    static constexpr std::uint32_t input_size = 16384;  // the decoder takes its input in pieces of this size

    std::uint64_t read(std::uint64_t position, std::uint8_t* buffer, std::uint64_t count) final;
    /// Goes to the block of `position` when it is one of the two.
    void seek(std::uint64_t position) final;
    PackFault fault() const final { return fault_; }

protected:
    static constexpr std::uint64_t no_block = ~std::uint64_t{0};

    struct Block {
        std::uint32_t read = 0;
        std::uint32_t fill = 0;
        std::uint64_t number = no_block;
    };

    /// Takes the decoder back to the entry's start.
    virtual void restart() = 0;
    /// Decodes into block `index` behind its fill, once; adds what came to the fill. False when the decoder failed.
    virtual bool decode_into(int index) = 0;
    /// Hands over `count` bytes of block `index` from its read position; a null `buffer` drops them.
    virtual void deliver(int index, std::uint8_t* buffer, std::uint32_t count) = 0;
    /// Called when a read is over, for what `deliver` put off. False when the blocks are not to be kept.
    virtual bool finish_read() { return true; }
    /// Called before the first decoding into block `index`, which has its number and no bytes yet.
    virtual void begin_block(int /*index*/) {}
    /// Takes the decoder to the beginning of a block at or before `number`, and behind `after` unless that is no_block,
    /// if it can do better than decoding on. The block's number, or no_block when nothing was done.
    virtual std::uint64_t jump(std::uint64_t /*number*/, std::uint64_t /*after*/) { return no_block; }

    void set_fault(PackFault fault) {
        if (fault_ == PackFault::NONE) fault_ = fault;
    }

    Block blocks_[2];

private:
    void reset_blocks(std::uint64_t number);
    void approach(std::uint64_t position);
    void enter_next_block();
    std::uint64_t decode(std::uint8_t* buffer, std::uint64_t count);

    int current_ = 0;
    bool started_ = false;
    PackFault fault_ = PackFault::NONE;
};

}  // namespace fs

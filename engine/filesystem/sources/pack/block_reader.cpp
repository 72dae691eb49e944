#include "engine/filesystem/sources/pack/block_reader.h"

#include <algorithm>

namespace fs {

namespace {

std::uint64_t block_of(std::uint64_t position) { return position / BlockReader::block_size; }
std::uint32_t place_in_block(std::uint64_t position) {
    return static_cast<std::uint32_t>(position % BlockReader::block_size);
}

}  // namespace

std::uint64_t BlockReader::read(std::uint64_t position, std::uint8_t* buffer, std::uint64_t count) {
    fault_ = PackFault::NONE;
    if (!started_) {
        started_ = true;
        restart();
        reset_blocks(0);
    }
    approach(position);
    Block& block = blocks_[current_];
    std::uint64_t delivered = count;
    if (block.fill - block.read >= count) {
        deliver(current_, buffer, static_cast<std::uint32_t>(count));
        block.read += static_cast<std::uint32_t>(count);
    } else {
        delivered = decode(buffer, count);
    }
    if (!finish_read()) started_ = false;
    return delivered;
}

void BlockReader::seek(std::uint64_t position) {
    if (!started_) return;
    const std::uint64_t number = block_of(position);
    for (int index = 0; index < 2; ++index) {
        if (blocks_[index].number != number) continue;
        current_ = index;
        blocks_[index].read = std::min(place_in_block(position), blocks_[index].fill);
        return;
    }
}

/// Makes the current block's read position the one asked for, as far as the entry allows.
void BlockReader::approach(std::uint64_t position) {
    const std::uint64_t number = block_of(position);
    const Block& block = blocks_[current_];
    if (number == block.number && place_in_block(position) == block.read) return;
    if (number < block.number) {
        std::uint64_t start = jump(number, no_block);
        if (start == no_block) {
            restart();
            start = 0;
        }
        reset_blocks(start);
    } else if (number != block.number) {
        const std::uint64_t start = jump(number, block.number);
        if (start != no_block) reset_blocks(start);
    }
    const Block& from = blocks_[current_];
    decode(nullptr, position - (from.number * block_size + from.read));
}

void BlockReader::reset_blocks(std::uint64_t number) {
    current_ = 0;
    blocks_[0] = {.read = 0, .fill = 0, .number = number};
    blocks_[1] = {.read = 0, .fill = 0, .number = no_block};
    begin_block(0);
}

/// The other block becomes the current one. It may hold the next block already, from before a seek back.
void BlockReader::enter_next_block() {
    const std::uint64_t number = blocks_[current_].number + 1;
    current_ ^= 1;
    Block& block = blocks_[current_];
    block.read = 0;
    if (block.number == number) return;
    block.number = number;
    block.fill = 0;
    begin_block(current_);
}

/// Delivers (or drops) `count` bytes from the current block's read position on. What was delivered before damage was
/// met does not count: the answer is then 0.
std::uint64_t BlockReader::decode(std::uint8_t* buffer, std::uint64_t count) {
    std::uint64_t delivered = 0;
    for (;;) {
        Block& held = blocks_[current_];
        const auto ready =
            static_cast<std::uint32_t>(std::min<std::uint64_t>(held.fill - held.read, count - delivered));
        if (ready != 0) deliver(current_, buffer ? buffer + delivered : nullptr, ready);
        held.read += ready;
        delivered += ready;
        if (delivered == count) return delivered;
        if (held.fill == block_size) enter_next_block();
        if (!decode_into(current_)) return 0;
        if (blocks_[current_].fill == blocks_[current_].read) return delivered;
    }
}

}  // namespace fs

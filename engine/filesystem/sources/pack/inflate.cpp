#include "engine/filesystem/sources/pack/inflate.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace fs {

namespace {

constexpr std::uint32_t largest_window = 64 * 1024;

std::uint32_t window_size(const PackedData& data) {
    return std::clamp(data.packed_size, BlockReader::input_size, largest_window);
}

}  // namespace

std::size_t InflateReader::memory_size(const PackedData& data) { return RingInflate::ring_size + window_size(data); }

InflateReader::InflateReader(PackArchive& archive, std::uint32_t entry, const PackedData& data, std::uint8_t* memory)
    : memory_(memory),
      input_{archive.store(), data.offset, data.packed_size, memory + RingInflate::ring_size, window_size(data)},
      snapshots_(archive.snapshots().of(entry, data.size)),
      ring_(input_, memory) {}

void InflateReader::restart() {
    if (exact_) {
        exact_->restart();
    } else {
        ring_.start();
    }
}

BlockReader::Step InflateReader::decode_into(int index) {
    if (exact_) return decode_exactly(index);
    Block& block = blocks_[index];
    if (block.fill != 0) return Step::DONE;  // the ring decodes whole blocks: there is nothing to add to this one
    if (ring_.decode_block(block.fill)) return Step::DONE;
    block.fill = 0;
    if (!become_exact(block.number)) return Step::DAMAGED;
    return decode_exactly(index);
}

BlockReader::Step InflateReader::decode_exactly(int index) {
    Block& block = blocks_[index];
    std::uint32_t produced = 0;
    if (!exact_->decode(block_bytes(index) + block.fill, block_size - block.fill, produced)) return Step::DAMAGED;
    block.fill += produced;
    return Step::DONE;
}

/// Takes zlib to the beginning of the block that the ring could not decode; its half of the ring is free for that.
bool InflateReader::become_exact(std::uint32_t number) {
    exact_.reset(new (std::nothrow) ExactInflate(input_));
    if (!exact_) return false;
    exact_->restart();
    std::uint8_t* scratch = memory_.get() + std::size_t{number % 2} * block_size;
    for (std::uint64_t left = std::uint64_t{number} * block_size; left != 0;) {
        std::uint32_t produced = 0;
        // Never beyond the end of a block, where the reader's own steps would have ended.
        const auto room = static_cast<std::uint32_t>((left - 1) % block_size + 1);
        const std::uint64_t before = exact_->consumed();
        if (!exact_->decode(scratch, room, produced)) return false;
        if (produced == 0 && exact_->consumed() == before) return false;
        left -= produced;
    }
    return true;
}

void InflateReader::deliver(int index, std::uint8_t* buffer, std::uint32_t count) {
    if (buffer) std::memcpy(buffer, block_bytes(index) + blocks_[index].read, count);
}

void InflateReader::begin_block(int index) {
    const std::uint32_t number = blocks_[index].number;
    if (snapshots_ && !exact_ && snapshots_->wants(number)) snapshots_->add(number, ring_);
}

std::uint32_t InflateReader::jump(std::uint32_t number, std::uint32_t after) {
    if (!snapshots_ || exact_) return no_block;
    std::uint32_t found = 0;
    const auto snapshot = snapshots_->find(number, after == no_block ? 0 : after + 1, found);
    if (!snapshot) return no_block;
    ring_.restore(*snapshot);
    return found;
}

}  // namespace fs

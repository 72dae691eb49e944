#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>

#include "engine/filesystem/sources/pack/archive.h"
#include "engine/filesystem/sources/pack/block_reader.h"
#include "engine/filesystem/sources/pack/exact_inflate.h"
#include "engine/filesystem/sources/pack/ring_inflate.h"

namespace fs {

/// Reads a deflated entry. A good one is decoded by RingInflate; once that refuses, the entry is decoded again by zlib,
/// step by step as the reader is defined, because where a damaged entry stops giving bytes depends on its steps.
class InflateReader final : public BlockReader {
public:
    /// `memory` holds memory_size(data) bytes and becomes the reader's own.
    InflateReader(PackArchive& archive, std::uint32_t entry, const PackedData& data, std::uint8_t* memory);

    static std::size_t memory_size(const PackedData& data);

protected:
    void restart() override;
    Step decode_into(int index) override;
    void deliver(int index, std::uint8_t* buffer, std::uint32_t count) override;
    void begin_block(int index) override;
    std::uint32_t jump(std::uint32_t number, std::uint32_t after) override;

private:
    struct Free {
        void operator()(std::uint8_t* bytes) const { std::free(bytes); }
    };

    /// Odd blocks are decoded into the second half of the ring.
    std::uint8_t* block_bytes(int index) const {
        return memory_.get() + std::size_t{blocks_[index].number % 2} * block_size;
    }
    Step decode_exactly(int index);
    bool become_exact(std::uint32_t number);

    const std::unique_ptr<std::uint8_t, Free> memory_;  // the ring, then the window over the packed bytes
    const PackedInput input_;
    std::shared_ptr<EntrySnapshots> snapshots_;  // null for a small entry
    RingInflate ring_;
    std::unique_ptr<ExactInflate> exact_;  // null until the ring has refused
};

}  // namespace fs

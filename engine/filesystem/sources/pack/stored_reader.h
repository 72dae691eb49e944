#pragma once

#include <cstdint>

#include "engine/filesystem/sources/pack/block_reader.h"

namespace fs {

/// Reads a stored entry. Its blocks are only counted, since the pack has their bytes: a block is a run of the input, and
/// long reads go straight from the pack into the caller's buffer.
///
/// On purpose, going back to the start leaves the input where it is: a stored entry reads on from the later input after
/// a seek behind its two blocks.
class StoredReader final : public BlockReader {
public:
    StoredReader(const PackStore& store, const PackedData& data) : input_(store, data) {}

protected:
    void restart() override {}
    bool decode_into(int index) override;
    void deliver(int index, std::uint8_t* buffer, std::uint32_t count) override;
    bool finish_read() override;
    void begin_block(int index) override { origins_[index] = consumed_; }

private:
    void fetch_run();

    PackedBytes input_;
    std::uint32_t consumed_ = 0;          // input that went into blocks
    std::uint32_t origins_[2] = {};       // where each block's bytes begin in the input
    std::uint8_t* run_buffer_ = nullptr;  // what `deliver` has put together and fetch_run reads
    std::uint32_t run_offset_ = 0;
    std::uint64_t run_size_ = 0;
};

/// Reads a stored entry at the position asked for.
class ExactStoredReader final : public EntryReader {
public:
    ExactStoredReader(const PackStore& store, const PackedData& data) : input_(store, data) {}

    std::uint64_t read(std::uint64_t position, std::uint8_t* buffer, std::uint64_t count) override;
    PackFault fault() const override { return fault_; }

private:
    PackedBytes input_;
    PackFault fault_ = PackFault::NONE;
};

}  // namespace fs

#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>

#include "engine/filesystem/sources/pack/archive.h"
#include "engine/filesystem/sources/pack/block_reader.h"

namespace fs {

/// Reads a stored entry. Its blocks are only counted, since their bytes can be had from the pack again: a block is a
/// run of the input, and long reads go straight from the pack into the caller's buffer.
///
/// On purpose, going back to the start leaves the input where it is: a stored entry reads on from the later input after
/// a seek behind its two blocks.
class StoredReader final : public BlockReader {
public:
    StoredReader(PackArchive& archive, const PackedData& data) : archive_(archive), data_(data) {}

protected:
    void restart() override {}
    Step decode_into(int index) override;
    void deliver(int index, std::uint8_t* buffer, std::uint32_t count) override;
    void flush() override;
    void begin_block(int index) override { origins_[index] = consumed_; }

private:
    struct Free {
        void operator()(std::uint8_t* bytes) const { std::free(bytes); }
    };
    static constexpr std::uint32_t window_capacity = block_size;

    void fetch(std::uint32_t offset, std::uint8_t* buffer, std::uint64_t size);
    void fill_from_pack(std::uint32_t offset, std::uint8_t* buffer, std::uint64_t size);
    bool load_window(std::uint32_t offset);

    PackArchive& archive_;
    const PackedData data_;
    std::uint32_t consumed_ = 0;          // input that went into blocks
    std::uint32_t origins_[2] = {};       // where each block's bytes begin in the input
    std::uint8_t* run_buffer_ = nullptr;  // what `deliver` has put together and `flush` fetches
    std::uint32_t run_offset_ = 0;
    std::uint64_t run_size_ = 0;
    std::unique_ptr<std::uint8_t, Free> window_;  // input around the latest short read; null until there is one
    std::uint32_t window_start_ = 0;
    std::uint32_t window_size_ = 0;
};

}  // namespace fs

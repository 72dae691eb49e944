#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>

#include <zlib.h>

#include "engine/filesystem/sources/pack_archive.h"
#include "engine/filesystem/sources/pack_blocks.h"

namespace fs {

/// Reads a deflated entry.
class InflateReader final : public BlockReader {
public:
    InflateReader(PackArchive& archive, std::uint32_t entry, const PackedData& data);
    ~InflateReader() override;

    /// Whether the memory for input and blocks could be had.
    bool valid() const { return memory_ != nullptr; }

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

    std::uint8_t* block_bytes(int index) { return memory_.get() + static_cast<std::size_t>(index) * block_size; }
    void end_stream();
    void refill();
    std::uint8_t* find_input(std::uint32_t consumed, std::uint32_t wanted);

    PackArchive& archive_;
    const PackedData data_;
    std::shared_ptr<EntrySnapshots> snapshots_;
    std::unique_ptr<std::uint8_t, Free> memory_;  // two blocks, then the input window
    std::uint32_t window_capacity_;
    std::uint32_t window_start_ = 0;  // offset in the packed bytes of the window's first one
    std::uint32_t window_size_ = 0;
    z_stream stream_{};
    bool stream_open_ = false;
};

}  // namespace fs

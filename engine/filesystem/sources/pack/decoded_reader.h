#pragma once

#include <cstdint>
#include <memory>

#include "engine/filesystem/formats/zstd.h"
#include "engine/filesystem/sources/pack/block_reader.h"
#include "engine/filesystem/sources/pack/checkpoints.h"

namespace fs {

/// Reads a compressed entry, whichever decoder it takes. A seek goes on from the nearest place where decoding can begin: a
/// checkpoint, a zstd frame, or the entry's start.
class DecodedReader final : public BlockReader {
public:
    /// May throw std::bad_alloc.
    DecodedReader(PackArchive& archive, std::uint32_t entry, const PackedData& data);

protected:
    void restart() override;
    bool decode_into(int index) override;
    void deliver(int index, std::uint8_t* buffer, std::uint32_t count) override;
    bool finish_read() override;
    void begin_block(int index) override;
    std::uint64_t jump(std::uint64_t number, std::uint64_t after) override;

private:
    void load_frames(std::uint32_t size);
    void go_to_input(std::uint32_t offset);
    bool refill();
    std::uint64_t jump_to_frame(std::uint64_t number, std::uint64_t after);

    PackedBytes input_;
    const std::unique_ptr<Decoder> decoder_;
    const std::unique_ptr<std::uint8_t[]> bytes_;    // of both blocks
    std::shared_ptr<EntryCheckpoints> checkpoints_;  // null for an entry that is small or has frames
    ZstdSeekTable frames_;
    const std::uint8_t* next_ = nullptr;  // input that was handed out and not taken yet
    std::size_t left_ = 0;
    std::uint32_t loaded_ = 0;  // where in the packed bytes that ends
    bool started_ = false;      // the decoder could begin
    bool tainted_ = false;      // it was fed zeros in place of bytes that could not be read
};

}  // namespace fs

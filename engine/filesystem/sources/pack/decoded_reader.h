#pragma once

#include <cstdint>
#include <memory>

#include "engine/filesystem/formats/zstd.h"
#include "engine/filesystem/sources/pack/checkpoints.h"
#include "engine/filesystem/sources/pack/entry_reader.h"

namespace fs {

/// Reads a compressed entry, whichever decoder it takes, in blocks of 32 KiB, of which the two latest are kept; of a long
/// read whole blocks go straight to the caller. A seek goes on from the nearest place where decoding can begin: a
/// checkpoint, a zstd frame, or the entry's start.
///
/// Words: a block is full when it holds 32 KiB; the current block is the one that reading stands in; its read position
/// may lag behind the position asked for, and the next read catches up by decoding.
class DecodedReader final : public EntryReader {
public:
    /// May throw std::bad_alloc.
    DecodedReader(PackArchive& archive, std::uint32_t entry, const PackedData& data);

    std::uint64_t read(std::uint64_t position, std::uint8_t* buffer, std::uint64_t count) override;
    /// Goes to the block of `position` when it is one of the two.
    void seek(std::uint64_t position) override;

private:
    static constexpr std::uint64_t no_block = ~std::uint64_t{0};

    struct Block {
        std::uint32_t read = 0;
        std::uint32_t fill = 0;
        std::uint64_t number = no_block;
    };

    void load_frames(std::uint32_t size);
    void approach(std::uint64_t position);
    bool jump(std::uint64_t number, std::uint64_t after);
    bool jump_to_frame(std::uint64_t number, std::uint64_t after);
    void start_at(std::uint64_t number, std::uint32_t offset, const Decoder::Checkpoint* state = nullptr);
    void enter_next_block();
    void leave_checkpoint();
    std::uint64_t decode(std::uint8_t* buffer, std::uint64_t count);
    bool decode_blocks(std::uint8_t* buffer, std::uint64_t room, std::uint64_t& made);
    bool decode_some(std::uint8_t* out, std::uint32_t room, std::uint32_t& made);
    bool refill(std::uint32_t most);
    std::uint8_t* current_bytes() { return bytes_.get() + std::size_t{block_size} * current_; }

    PackedBytes input_;
    const std::unique_ptr<Decoder> decoder_;
    const std::unique_ptr<std::uint8_t[]> bytes_;  // of both blocks
    PackCheckpoints& checkpoints_;
    std::shared_ptr<EntryCheckpoints> own_checkpoints_;  // null for an entry that is small or has frames
    ZstdSeekTable frames_;
    Block blocks_[2];
    unsigned current_ = 0;
    const std::uint8_t* next_ = nullptr;  // input that was handed out and not taken yet
    std::size_t left_ = 0;
    std::uint32_t loaded_ = 0;  // where in the packed bytes that ends
    bool is_good_ = false;      // decoding can go on from here
    bool tainted_ = false;      // the decoder was fed zeros in place of bytes that could not be read
};

}  // namespace fs

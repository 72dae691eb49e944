#include "engine/filesystem/sources/pack/decoded_reader.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "engine/filesystem/formats/inflate.h"
#include "engine/filesystem/sources/pack/stored_reader.h"

namespace fs {

std::unique_ptr<EntryReader> EntryReader::create(PackArchive& archive, std::uint32_t entry, const PackedData& data,
                                                 bool exact_seeks) {
    if (data.method != EFSPackMethod::STORE) return std::make_unique<DecodedReader>(archive, entry, data);
    if (exact_seeks) return std::make_unique<ExactStoredReader>(archive.store(), data);
    return std::make_unique<StoredReader>(archive.store(), data);
}

DecodedReader::DecodedReader(PackArchive& archive, std::uint32_t entry, const PackedData& data)
    : input_(archive.store(), data),
      decoder_(data.method == EFSPackMethod::ZSTD ? make_zstd_decoder() : make_inflater()),
      bytes_(new std::uint8_t[std::size_t{2} * block_size]) {
    if (data.method == EFSPackMethod::ZSTD) {
        load_frames(data.size);
    } else {
        checkpoints_ = archive.checkpoints().of(entry, data.size);
    }
}

/// Only frames that begin where a block does are of use.
void DecodedReader::load_frames(std::uint32_t size) {
    if (input_.size() < ZstdSeekTable::footer_size) return;
    std::uint8_t footer[ZstdSeekTable::footer_size];
    input_.copy(input_.size() - sizeof footer, footer, sizeof footer);
    const std::uint64_t table_size = ZstdSeekTable::size_by_footer(footer);
    if (table_size == 0 || table_size > input_.size()) return;
    const std::unique_ptr<std::uint8_t[]> table(new std::uint8_t[static_cast<std::size_t>(table_size)]);
    input_.copy(static_cast<std::uint32_t>(input_.size() - table_size), table.get(), table_size);
    frames_.read(table.get(), table_size, input_.size(), size);
    if (input_.take_fault() != PackFault::NONE || frames_.frame_size % block_size != 0) frames_.starts.clear();
}

void DecodedReader::go_to_input(std::uint32_t offset) {
    loaded_ = offset;
    left_ = 0;
    tainted_ = false;
}

void DecodedReader::restart() {
    started_ = decoder_->start();
    go_to_input(0);
}

/// False when the packed bytes are all taken.
bool DecodedReader::refill() {
    left_ = std::min(input_.size() - loaded_, input_size);
    if (left_ == 0) return false;
    next_ = input_.view(loaded_, static_cast<std::uint32_t>(left_));
    loaded_ += static_cast<std::uint32_t>(left_);
    const PackFault fault = input_.take_fault();
    set_fault(fault);
    tainted_ = tainted_ || fault != PackFault::NONE;
    return true;
}

bool DecodedReader::decode_into(int index) {
    Block& block = blocks_[index];
    const std::uint32_t room = block_size - block.fill;
    if (room == 0) return true;
    if (!started_) set_fault(PackFault::NO_MEMORY);
    if (!started_) return false;
    DecoderBuffers buffers{.out = bytes_.get() + std::size_t{block_size} * static_cast<unsigned>(index) + block.fill,
                           .out_size = room};
    Decoder::Result result = Decoder::Result::MORE;
    bool has_input = true;
    // A piece of input may make nothing yet.
    while (result == Decoder::Result::MORE && buffers.out_size == room && has_input) {
        if (left_ == 0) has_input = refill();
        buffers.in = next_;
        buffers.in_size = left_;
        result = decoder_->decode(buffers);
        next_ = buffers.in;
        left_ = buffers.in_size;
    }
    if (result == Decoder::Result::DAMAGED || result == Decoder::Result::NO_MEMORY) {
        set_fault(result == Decoder::Result::DAMAGED ? PackFault::DAMAGED : PackFault::NO_MEMORY);
        return false;  // the bytes before the damage do not count
    }
    block.fill += room - static_cast<std::uint32_t>(buffers.out_size);
    return true;
}

void DecodedReader::deliver(int index, std::uint8_t* buffer, std::uint32_t count) {
    if (!buffer) return;
    std::memcpy(buffer, bytes_.get() + std::size_t{block_size} * static_cast<unsigned>(index) + blocks_[index].read,
                count);
}

/// What was made of zeros is forgotten, so that the next read asks the disk again.
bool DecodedReader::finish_read() { return !tainted_; }

void DecodedReader::begin_block(int index) {
    const std::uint64_t number = blocks_[index].number;
    if (!checkpoints_ || tainted_ || !checkpoints_->wants(static_cast<std::uint32_t>(number))) return;
    try {
        EntryCheckpoint checkpoint{.state = decoder_->save(), .consumed = loaded_ - static_cast<std::uint32_t>(left_)};
        if (checkpoint.state) checkpoints_->add(static_cast<std::uint32_t>(number), std::move(checkpoint));
    } catch (const std::bad_alloc&) {  // then a seek will take longer
    }
}

std::uint64_t DecodedReader::jump(std::uint64_t number, std::uint64_t after) {
    if (!frames_.starts.empty()) return jump_to_frame(number, after);
    if (!checkpoints_) return no_block;
    std::uint32_t found = 0;
    const auto last_passed = static_cast<std::uint32_t>(after == no_block ? 0 : after);
    const EntryCheckpoint checkpoint = checkpoints_->find(static_cast<std::uint32_t>(number), last_passed, found);
    if (!checkpoint.state) return no_block;
    started_ = decoder_->restore(*checkpoint.state);
    go_to_input(checkpoint.consumed);
    return found;
}

std::uint64_t DecodedReader::jump_to_frame(std::uint64_t number, std::uint64_t after) {
    const std::uint64_t frame = number * block_size / frames_.frame_size;
    const std::uint64_t first = frame * frames_.frame_size / block_size;
    if (frame >= frames_.starts.size() || (after != no_block && first <= after)) return no_block;
    started_ = decoder_->start();
    go_to_input(frames_.starts[static_cast<std::size_t>(frame)]);
    return first;
}

}  // namespace fs

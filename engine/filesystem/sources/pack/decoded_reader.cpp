#include "engine/filesystem/sources/pack/decoded_reader.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "engine/filesystem/formats/deflate.h"
#include "engine/filesystem/sources/pack/stored_reader.h"

namespace fs {

std::unique_ptr<EntryReader> EntryReader::create(PackArchive& archive, std::uint32_t entry, const PackedData& data,
                                                 bool exact_seeks) {
    if (data.method != EFSPackMethod::STORE) return std::make_unique<DecodedReader>(archive, entry, data);
    return std::make_unique<StoredReader>(archive.store(), data, exact_seeks);
}

DecodedReader::DecodedReader(PackArchive& archive, std::uint32_t entry, const PackedData& data)
    : input_(archive.store(), data),
      decoder_(data.method == EFSPackMethod::ZSTD ? make_zstd_decoder() : make_inflater()),
      bytes_(new std::uint8_t[std::size_t{2} * block_size]),
      checkpoints_(archive.checkpoints()) {
    if (data.method == EFSPackMethod::ZSTD) {
        load_frames(data.size);
    } else {
        own_checkpoints_ = checkpoints_.of(entry, data.size);
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

std::uint64_t DecodedReader::read(std::uint64_t position, std::uint8_t* buffer, std::uint64_t count) {
    fault_ = PackFault::NONE;
    // An exception leaves no state to go on from. What was made of zeros is forgotten too, so that the next read asks the
    // disk again.
    if (!std::exchange(is_good_, false)) start_at(0, 0);
    approach(position);
    const std::uint64_t delivered = decode(buffer, count);
    is_good_ = !tainted_;
    return delivered;
}

void DecodedReader::seek(std::uint64_t position) {
    for (unsigned index = 0; index < 2; ++index) {
        if (blocks_[index].number != position / block_size) continue;
        current_ = index;
        blocks_[index].read = std::min(static_cast<std::uint32_t>(position % block_size), blocks_[index].fill);
        return;
    }
}

/// Makes the current block's read position the one asked for, as far as the entry allows.
void DecodedReader::approach(std::uint64_t position) {
    const std::uint64_t number = position / block_size;
    const Block before = blocks_[current_];
    if (number < before.number) {
        if (!jump(number, no_block)) start_at(0, 0);
    } else if (number > before.number) {
        jump(number, before.number);
    }
    const Block& from = blocks_[current_];
    decode(nullptr, position - (from.number * block_size + from.read));
}

/// Goes to the beginning of a block at or before `number`, and behind `after` unless that is no_block, if that is better
/// than decoding on.
bool DecodedReader::jump(std::uint64_t number, std::uint64_t after) {
    if (!frames_.starts.empty()) return jump_to_frame(number, after);
    if (!own_checkpoints_) return false;
    std::uint32_t found = 0;
    const auto last_passed = static_cast<std::uint32_t>(after == no_block ? 0 : after);
    const EntryCheckpoint checkpoint =
        checkpoints_.find(*own_checkpoints_, static_cast<std::uint32_t>(number), last_passed, found);
    if (!checkpoint.state) return false;
    start_at(found, checkpoint.consumed, checkpoint.state.get());
    return true;
}

bool DecodedReader::jump_to_frame(std::uint64_t number, std::uint64_t after) {
    const std::uint64_t frame = number * block_size / frames_.frame_size;
    const std::uint64_t first = frame * frames_.frame_size / block_size;
    if (frame >= frames_.starts.size() || (after != no_block && first <= after)) return false;
    start_at(first, frames_.starts[static_cast<std::size_t>(frame)]);
    return true;
}

/// Goes to the beginning of a block, which `offset` in the packed bytes and the decoder's `state` there lead to; null where
/// a stream begins.
void DecodedReader::start_at(std::uint64_t number, std::uint32_t offset, const Decoder::Checkpoint* state) {
    if (!(state ? decoder_->restore(*state) : decoder_->start())) throw std::bad_alloc();
    loaded_ = offset;
    left_ = 0;
    tainted_ = false;
    current_ = 0;
    blocks_[0] = {.read = 0, .fill = 0, .number = number};
    blocks_[1] = {};
}

/// The other block becomes the current one. It may hold the next block already, from before a seek back.
void DecodedReader::enter_next_block() {
    const std::uint64_t number = blocks_[current_].number + 1;
    current_ ^= 1;
    Block& block = blocks_[current_];
    block.read = 0;
    if (block.number == number) return;
    block.number = number;
    block.fill = 0;
    leave_checkpoint();
}

/// At the beginning of the current block.
void DecodedReader::leave_checkpoint() {
    const auto number = static_cast<std::uint32_t>(blocks_[current_].number);
    if (!own_checkpoints_ || tainted_ || !checkpoints_.wants(*own_checkpoints_, number)) return;
    try {
        EntryCheckpoint checkpoint{.state = decoder_->save(), .consumed = loaded_ - static_cast<std::uint32_t>(left_)};
        if (checkpoint.state) checkpoints_.add(*own_checkpoints_, number, std::move(checkpoint));
    } catch (const std::bad_alloc&) {  // then a seek will take longer
    }
}

/// Delivers (or drops) `count` bytes from the current block's read position on. What was delivered before damage was
/// met does not count: the answer is then 0.
std::uint64_t DecodedReader::decode(std::uint8_t* buffer, std::uint64_t count) {
    std::uint64_t delivered = 0;
    for (;;) {
        Block& held = blocks_[current_];
        const auto ready =
            static_cast<std::uint32_t>(std::min<std::uint64_t>(held.fill - held.read, count - delivered));
        if (buffer && ready != 0) std::memcpy(buffer + delivered, current_bytes() + held.read, ready);
        held.read += ready;
        delivered += ready;
        if (delivered == count) return delivered;
        if (held.fill == block_size) enter_next_block();
        Block& next = blocks_[current_];
        if (buffer && next.fill == 0 && count - delivered >= std::uint64_t{2} * block_size) {
            std::uint64_t made = 0;
            if (!decode_blocks(buffer + delivered, count - delivered, made)) return 0;
            if (made == 0) return delivered;
            delivered += made;
            continue;
        }
        std::uint32_t made = 0;
        if (!decode_some(current_bytes() + next.fill, block_size - next.fill, made)) return 0;
        next.fill += made;
        if (next.fill == next.read) return delivered;
    }
}

/// Decodes as many whole blocks as `room` has, up to the next checkpoint's place, where the caller wants them; the last
/// becomes the current block. False when the entry is damaged.
bool DecodedReader::decode_blocks(std::uint8_t* buffer, std::uint64_t room, std::uint64_t& made) {
    Block& block = blocks_[current_];
    std::uint64_t count = room / block_size;
    if (own_checkpoints_)
        count = std::min(count, own_checkpoints_->interval - block.number % own_checkpoints_->interval);
    const std::uint64_t wanted = count * block_size;
    bool is_whole = true;
    for (std::uint32_t step = 1; is_whole && step != 0 && made < wanted; made += step) {
        step = 0;
        is_whole = decode_some(buffer + made, static_cast<std::uint32_t>(wanted - made), step);
    }
    if (made == 0) return is_whole;
    const std::uint64_t before = (made - 1) / block_size * block_size;
    block.number += before / block_size;
    block.read = block.fill = static_cast<std::uint32_t>(made - before);
    std::memcpy(current_bytes(), buffer + before, block.fill);
    blocks_[current_ ^ 1] = {};
    return is_whole;
}

/// What one piece of input gives, at most `room` bytes; none at the end. False when the entry is damaged.
// NOLINTNEXTLINE(readability-non-const-parameter): the decoder writes there
bool DecodedReader::decode_some(std::uint8_t* out, std::uint32_t room, std::uint32_t& made) {
    if (room == 0) return true;
    DecoderBuffers buffers{.out = out, .out_size = room};
    Decoder::Result result = Decoder::Result::MORE;
    bool has_input = true;
    // A piece of input may make nothing yet.
    while (result == Decoder::Result::MORE && buffers.out_size == room && has_input) {
        if (left_ == 0) has_input = refill(room > block_size ? PackedBytes::longest_view : input_size);
        buffers.in = next_;
        buffers.in_size = left_;
        result = decoder_->decode(buffers);
        next_ = buffers.in;
        left_ = buffers.in_size;
    }
    if (result == Decoder::Result::NO_MEMORY) throw std::bad_alloc();
    if (result == Decoder::Result::DAMAGED) {
        if (fault_ == PackFault::NONE) fault_ = PackFault::DAMAGED;
        return false;  // the bytes before the damage do not count
    }
    made = room - static_cast<std::uint32_t>(buffers.out_size);
    return true;
}

/// False when the packed bytes are all taken.
bool DecodedReader::refill(std::uint32_t most) {
    left_ = std::min(input_.size() - loaded_, most);
    if (left_ == 0) return false;
    next_ = input_.view(loaded_, static_cast<std::uint32_t>(left_));
    const PackFault fault = input_.take_fault();
    if (fault != PackFault::NONE && left_ > input_size)
        return refill(input_size);  // what is missing may not be needed yet
    loaded_ += static_cast<std::uint32_t>(left_);
    if (fault_ == PackFault::NONE) fault_ = fault;
    tainted_ = tainted_ || fault != PackFault::NONE;
    return true;
}

}  // namespace fs

#include "engine/filesystem/sources/pack/archive.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "engine/filesystem/contract/failure.h"
#include "engine/filesystem/formats/deflate.h"
#include "engine/filesystem/formats/zstd.h"

// Words: a block is full when it holds 32 KiB; the current block is the one that reading stands in; its read position
// may lag behind the position asked for, and the next read catches up by decoding.

namespace fs {

namespace {

/// The packed bytes of one entry, read through a window. What the pack does not have (any more), or what cannot be
/// read, are zeros; such bytes are handed out once and never kept.
class PackedBytes {
public:
    static constexpr std::uint32_t longest_view = 64 * 1024;

    /// May throw std::bad_alloc.
    PackedBytes(const PackStore& store, const PackedData& data)
        : store_(store), data_(data), capacity_(std::clamp(data.packed_size, 1u, longest_view)) {
        if (!store.view(data.offset, data.packed_size)) window_.reset(new std::uint8_t[capacity_]);
    }

    std::uint32_t size() const { return data_.packed_size; }
    /// `size` bytes from `offset` on, which the entry has; at most `longest_view`. They stay until the next call.
    const std::uint8_t* view(std::uint32_t offset, std::uint32_t size) {
        if (!window_) return store_.view(data_.offset + offset, size);
        const bool is_held = offset >= start_ && offset - start_ <= held_ && size <= held_ - (offset - start_);
        if (is_held) return window_.get() + (offset - start_);
        start_ = offset;
        held_ = read(offset, window_.get(), std::min(data_.packed_size - offset, capacity_), size);
        return window_.get();
    }
    /// The same of any number, copied.
    void copy(std::uint32_t offset, std::uint8_t* out, std::uint64_t size) {
        constexpr std::uint32_t shortest_read = 16 * 1024;  // into other memory than the window
        if (size >= shortest_read) {
            read(offset, out, size, size);
        } else if (size != 0) {
            std::memcpy(out, view(offset, static_cast<std::uint32_t>(size)), static_cast<std::size_t>(size));
        }
    }
    /// What went wrong since the last call of this.
    PackFault take_fault() { return std::exchange(fault_, PackFault::NONE); }

private:
    /// Reads up to `size` bytes, of which `needed` are waited for: what is missing of those is a fault. The number of
    /// good bytes.
    std::uint32_t read(std::uint32_t offset, std::uint8_t* out, std::uint64_t size, std::uint64_t needed) {
        const std::uint64_t start = data_.offset + offset;
        const std::uint64_t got = store_.read(start, out, size);
        const std::uint64_t good = got == PackStore::failed ? 0 : got;
        if (good < needed) {
            const bool by_disk =
                got == PackStore::failed || store_.read(start + good, out + good, 1) == PackStore::failed;
            fault_ = by_disk ? PackFault::IO : PackFault::PACK_IS_SHORT;
            std::memset(out + good, 0, static_cast<std::size_t>(needed - good));
        }
        return static_cast<std::uint32_t>(good);
    }

    const PackStore& store_;
    const PackedData data_;
    const std::uint32_t capacity_;
    std::unique_ptr<std::uint8_t[]> window_;  // null for a pack in memory
    std::uint32_t start_ = 0;                 // offset in the packed bytes of the window's first
    std::uint32_t held_ = 0;
    PackFault fault_ = PackFault::NONE;
};

/// Reads a stored entry, straight from the pack into the caller's buffer.
///
/// Without exact seeks it reads, on purpose, as if it had the two blocks of a compressed entry and a seek behind them
/// went back to the first block but left the input where it is: reading then goes on from later input.
class StoredReader final : public EntryReader {
public:
    StoredReader(const PackStore& store, const PackedData& data, bool exact_seeks)
        : input_(store, data), exact_seeks_(exact_seeks) {}

    std::uint64_t read(std::uint64_t position, std::uint8_t* buffer, std::uint64_t count) override {
        if (!exact_seeks_) pass(position, position + count);
        const std::uint64_t offset = shift_ + position;
        const std::uint64_t size = input_.size();
        const std::uint64_t delivered = offset < size ? std::min(count, size - offset) : 0;
        input_.copy(static_cast<std::uint32_t>(offset), buffer, delivered);
        fault_ = input_.take_fault();
        return delivered;
    }
    void seek(std::uint64_t position) override {
        const std::uint64_t number = position / block_size;
        if (number <= latest_ && number + 1 >= latest_) current_ = number;
    }

private:
    std::uint64_t consumed() const { return shift_ + latest_ * block_size + fill_; }
    /// Counts what filling blocks up to `end` would take of the input.
    void pass(std::uint64_t position, std::uint64_t end) {
        if (position / block_size < current_) {
            shift_ = consumed();
            current_ = latest_ = fill_ = 0;
        }
        for (;;) {
            const std::uint64_t fill = current_ < latest_ ? block_size : fill_;
            if (current_ * block_size + fill >= end) return;
            if (fill == block_size) {
                if (++current_ > latest_) {
                    latest_ = current_;
                    fill_ = 0;
                }
            } else if (consumed() == input_.size()) {
                return;
            }
            // The latest block may be full already, from before a seek back; the piece then waits for the next one.
            const std::uint64_t piece = std::min<std::uint64_t>(input_.size() - consumed(), input_size);
            if (piece <= block_size - fill_) fill_ += piece;
        }
    }

    PackedBytes input_;
    const bool exact_seeks_;
    std::uint64_t shift_ = 0;    // where in the input the entry begins by now
    std::uint64_t current_ = 0;  // the block that reading stands in: the latest, or the one before it
    std::uint64_t latest_ = 0;
    std::uint64_t fill_ = 0;  // of the latest; the one before is full
};

/// Reads a compressed entry, whichever decoder it takes, in blocks of which the two latest are kept; of a long read
/// whole blocks go straight to the caller. A seek goes on from the nearest place where decoding can begin: a
/// checkpoint, a zstd frame, or the entry's start.
class DecodedReader final : public EntryReader {
public:
    /// May throw std::bad_alloc.
    DecodedReader(PackArchive& archive, std::uint32_t file, const PackedData& data)
        : input_(archive.store, data),
          decoder_(data.method == EFSPackMethod::ZSTD ? make_zstd_decoder() : make_inflater()),
          bytes_(new std::uint8_t[std::size_t{2} * block_size]),
          checkpoints_(archive.checkpoints) {
        if (data.method == EFSPackMethod::ZSTD) {
            ErrorScope scope;
            load_frames(data.size);
            scope.forget();  // without frames a seek only takes longer
        } else {
            own_checkpoints_ = checkpoints_.of(file, data.size);
        }
    }

    std::uint64_t read(std::uint64_t position, std::uint8_t* buffer, std::uint64_t count) override {
        fault_ = PackFault::NONE;
        // An exception leaves no state to go on from. What was made of zeros is forgotten too, so that the next read asks
        // the disk again.
        if (!std::exchange(is_good_, false)) start_at(0, 0);
        approach(position);
        const std::uint64_t delivered = decode(buffer, count);
        is_good_ = !tainted_;
        return delivered;
    }
    /// Goes to the block of `position` when it is one of the two.
    void seek(std::uint64_t position) override {
        for (unsigned index = 0; index < 2; ++index) {
            if (blocks_[index].number != position / block_size) continue;
            current_ = index;
            blocks_[index].read = std::min(static_cast<std::uint32_t>(position % block_size), blocks_[index].fill);
            return;
        }
    }

private:
    static constexpr std::uint64_t no_block = ~std::uint64_t{0};

    struct Block {
        std::uint32_t read = 0;
        std::uint32_t fill = 0;
        std::uint64_t number = no_block;
    };

    /// Only frames that begin where a block does are of use.
    void load_frames(std::uint32_t size) {
        if (input_.size() < ZstdSeekTable::footer_size) return;
        std::uint8_t footer[ZstdSeekTable::footer_size];
        input_.copy(input_.size() - sizeof footer, footer, sizeof footer);
        const std::uint64_t table_size = ZstdSeekTable::size_by_footer(footer);
        if (input_.take_fault() != PackFault::NONE || table_size == 0 || table_size > input_.size()) return;
        const std::unique_ptr<std::uint8_t[]> table(new std::uint8_t[static_cast<std::size_t>(table_size)]);
        input_.copy(static_cast<std::uint32_t>(input_.size() - table_size), table.get(), table_size);
        frames_.read(table.get(), table_size, input_.size(), size);
        if (input_.take_fault() != PackFault::NONE || frames_.frame_size % block_size != 0) frames_.starts.clear();
    }
    /// Makes the current block's read position the one asked for, as far as the entry allows.
    void approach(std::uint64_t position) {
        const std::uint64_t number = position / block_size;
        const std::uint64_t before = blocks_[current_].number;
        if (number > before) jump(number, before);
        if (number < before && !jump(number, 0)) start_at(0, 0);
        const Block& from = blocks_[current_];
        decode(nullptr, position - (from.number * block_size + from.read));
    }
    /// Goes to the beginning of a block at or before `number` and behind `after`. False when decoding can begin at none.
    bool jump(std::uint64_t number, std::uint64_t after) {
        if (!frames_.starts.empty()) return jump_to_frame(number, after);
        if (!own_checkpoints_) return false;
        const EntryCheckpoint checkpoint = checkpoints_.find(*own_checkpoints_, number, after);
        if (!checkpoint.state) return false;
        start_at(checkpoint.block, checkpoint.consumed, checkpoint.state.get());
        return true;
    }
    bool jump_to_frame(std::uint64_t number, std::uint64_t after) {
        const std::uint64_t frame = number * block_size / frames_.frame_size;
        const std::uint64_t first = frame * frames_.frame_size / block_size;
        if (frame >= frames_.starts.size() || first <= after) return false;
        start_at(first, frames_.starts[static_cast<std::size_t>(frame)]);
        return true;
    }
    /// Goes to the beginning of a block, which `offset` in the packed bytes and the decoder's `state` there lead to; null
    /// where a stream begins.
    void start_at(std::uint64_t number, std::uint32_t offset, const Decoder::Checkpoint* state = nullptr) {
        if (!(state ? decoder_->restore(*state) : decoder_->start())) throw std::bad_alloc();
        loaded_ = offset;
        left_ = 0;
        tainted_ = false;
        current_ = 0;
        blocks_[0] = {.read = 0, .fill = 0, .number = number};
        blocks_[1] = {};
    }
    /// The other block becomes the current one. It may hold the next block already, from before a seek back.
    void enter_next_block() {
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
    void leave_checkpoint() {
        const auto number = static_cast<std::uint32_t>(blocks_[current_].number);
        if (!own_checkpoints_ || tainted_ || !checkpoints_.wants(*own_checkpoints_, number)) return;
        try {
            EntryCheckpoint checkpoint{
                .state = decoder_->save(), .consumed = loaded_ - static_cast<std::uint32_t>(left_), .block = number};
            if (checkpoint.state) checkpoints_.add(*own_checkpoints_, std::move(checkpoint));
        } catch (const std::bad_alloc&) {  // then a seek will take longer
        }
    }
    /// Delivers (or drops) `count` bytes from the current block's read position on. What was delivered before damage was
    /// met does not count: the answer is then 0.
    std::uint64_t decode(std::uint8_t* buffer, std::uint64_t count) {
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
    bool decode_blocks(std::uint8_t* buffer, std::uint64_t room, std::uint64_t& made) {
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
    bool decode_some(std::uint8_t* out, std::uint32_t room, std::uint32_t& made) {
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
    bool refill(std::uint32_t most) {
        left_ = std::min(input_.size() - loaded_, most);
        if (left_ == 0) return false;
        ErrorScope scope;
        next_ = input_.view(loaded_, static_cast<std::uint32_t>(left_));
        const PackFault fault = input_.take_fault();
        if (fault != PackFault::NONE && left_ > input_size) {
            scope.forget();
            return refill(input_size);  // what is missing may not be needed yet
        }
        loaded_ += static_cast<std::uint32_t>(left_);
        if (fault_ == PackFault::NONE) fault_ = fault;
        tainted_ = tainted_ || fault != PackFault::NONE;
        return true;
    }
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

}  // namespace

std::unique_ptr<EntryReader> EntryReader::create(PackArchive& archive, std::uint32_t file, bool exact_seeks) {
    const PackedData data = archive.data_of(file);
    if (data.method != EFSPackMethod::STORE) return std::make_unique<DecodedReader>(archive, file, data);
    return std::make_unique<StoredReader>(archive.store, data, exact_seeks);
}

}  // namespace fs

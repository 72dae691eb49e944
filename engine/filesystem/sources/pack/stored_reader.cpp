#include "engine/filesystem/sources/pack/stored_reader.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "engine/filesystem/sources/pack/inflate.h"

namespace fs {

BlockReader::Step StoredReader::decode_into(int index) {
    Block& block = blocks_[index];
    const std::uint32_t piece = std::min(data_.packed_size - consumed_, input_size);
    // A block kept from before a seek back may be full already; the piece then waits for the next one.
    if (piece > block_size - block.fill) return Step::DONE;
    block.fill += piece;
    consumed_ += piece;
    return Step::DONE;
}

void StoredReader::deliver(int index, std::uint8_t* buffer, std::uint32_t count) {
    if (!buffer) return;
    const std::uint32_t offset = origins_[index] + blocks_[index].read;
    const bool goes_on = run_size_ != 0 && run_offset_ + run_size_ == offset;
    if (!goes_on) {
        flush();
        run_buffer_ = buffer;
        run_offset_ = offset;
    }
    run_size_ += count;
}

void StoredReader::flush() {
    if (run_size_ != 0) fetch(run_offset_, run_buffer_, run_size_);
    run_size_ = 0;
}

void StoredReader::fetch(std::uint32_t offset, std::uint8_t* buffer, std::uint64_t size) {
    if (size >= input_size || archive_.store().view(data_.offset + offset, size))
        return fill_from_pack(offset, buffer, size);
    const bool held = offset >= window_start_ && offset - window_start_ <= window_size_ &&
                      size <= window_size_ - (offset - window_start_);
    if (!held && !load_window(offset)) return fill_from_pack(offset, buffer, size);
    std::memcpy(buffer, window_.get() + (offset - window_start_), static_cast<std::size_t>(size));
}

/// Bytes that the pack does not have (any more) are zeros.
void StoredReader::fill_from_pack(std::uint32_t offset, std::uint8_t* buffer, std::uint64_t size) {
    const std::uint64_t got = archive_.store().read(data_.offset + offset, buffer, size);
    std::memset(buffer + got, 0, static_cast<std::size_t>(size - got));
}

/// The input from `offset` on, as far as the window holds; at least what a short read takes.
bool StoredReader::load_window(std::uint32_t offset) {
    if (!window_) window_.reset(static_cast<std::uint8_t*>(std::malloc(window_capacity)));
    if (!window_) return false;
    window_start_ = offset;
    window_size_ = std::min(data_.packed_size - offset, window_capacity);
    fill_from_pack(window_start_, window_.get(), window_size_);
    return true;
}

std::unique_ptr<BlockReader> BlockReader::create(PackArchive& archive, std::uint32_t entry, const PackedData& data) {
    if (data.stored) return std::unique_ptr<BlockReader>(new (std::nothrow) StoredReader(archive, data));
    auto* memory = static_cast<std::uint8_t*>(std::malloc(InflateReader::memory_size(data)));
    if (!memory) return nullptr;
    auto* reader = new (std::nothrow) InflateReader(archive, entry, data, memory);
    if (!reader) std::free(memory);
    return std::unique_ptr<BlockReader>(reader);
}

}  // namespace fs

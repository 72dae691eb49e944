#include "engine/filesystem/sources/pack/stored_reader.h"

#include <algorithm>

namespace fs {

bool StoredReader::decode_into(int index) {
    Block& block = blocks_[index];
    const std::uint32_t piece = std::min(input_.size() - consumed_, input_size);
    // A block kept from before a seek back may be full already; the piece then waits for the next one.
    if (piece > block_size - block.fill) return true;
    block.fill += piece;
    consumed_ += piece;
    return true;
}

void StoredReader::deliver(int index, std::uint8_t* buffer, std::uint32_t count) {
    if (!buffer) return;
    const std::uint32_t offset = origins_[index] + blocks_[index].read;
    const bool goes_on = run_size_ != 0 && run_offset_ + run_size_ == offset;
    if (!goes_on) {
        fetch_run();
        run_buffer_ = buffer;
        run_offset_ = offset;
    }
    run_size_ += count;
}

void StoredReader::fetch_run() {
    input_.copy(run_offset_, run_buffer_, run_size_);
    run_size_ = 0;
}

bool StoredReader::finish_read() {
    fetch_run();
    set_fault(input_.take_fault());
    return true;
}

std::uint64_t ExactStoredReader::read(std::uint64_t position, std::uint8_t* buffer, std::uint64_t count) {
    const std::uint64_t size = input_.size();
    const std::uint64_t delivered = position < size ? std::min(count, size - position) : 0;
    input_.copy(static_cast<std::uint32_t>(position), buffer, delivered);
    fault_ = input_.take_fault();
    return delivered;
}

}  // namespace fs

#include "engine/filesystem/sources/pack/stored_reader.h"

#include <algorithm>

namespace fs {

std::uint64_t StoredReader::read(std::uint64_t position, std::uint8_t* buffer, std::uint64_t count) {
    if (!exact_seeks_) pass(position, position + count);
    const std::uint64_t offset = shift_ + position;
    const std::uint64_t size = input_.size();
    const std::uint64_t delivered = offset < size ? std::min(count, size - offset) : 0;
    input_.copy(static_cast<std::uint32_t>(offset), buffer, delivered);
    fault_ = input_.take_fault();
    return delivered;
}

void StoredReader::seek(std::uint64_t position) {
    const std::uint64_t number = position / block_size;
    if (number <= latest_ && number + 1 >= latest_) current_ = number;
}

/// Counts what filling blocks up to `end` would take of the input.
void StoredReader::pass(std::uint64_t position, std::uint64_t end) {
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

}  // namespace fs

#pragma once

#include <cstdint>

#include "engine/filesystem/sources/pack/entry_reader.h"

namespace fs {

/// Reads a stored entry, straight from the pack into the caller's buffer.
///
/// Without exact seeks it reads, on purpose, as if it had the two blocks of a compressed entry and a seek behind them
/// went back to the first block but left the input where it is: reading then goes on from later input.
class StoredReader final : public EntryReader {
public:
    StoredReader(const PackStore& store, const PackedData& data, bool exact_seeks)
        : input_(store, data), exact_seeks_(exact_seeks) {}

    std::uint64_t read(std::uint64_t position, std::uint8_t* buffer, std::uint64_t count) override;
    void seek(std::uint64_t position) override;

private:
    std::uint64_t consumed() const { return shift_ + latest_ * block_size + fill_; }
    void pass(std::uint64_t position, std::uint64_t end);

    PackedBytes input_;
    const bool exact_seeks_;
    std::uint64_t shift_ = 0;    // where in the input the entry begins by now
    std::uint64_t current_ = 0;  // the block that reading stands in: the latest, or the one before it
    std::uint64_t latest_ = 0;
    std::uint64_t fill_ = 0;  // of the latest; the one before is full
};

}  // namespace fs

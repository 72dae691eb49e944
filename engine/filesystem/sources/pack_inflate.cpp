#include "engine/filesystem/sources/pack_inflate.h"

#include <algorithm>
#include <cstring>

// The decoder is fed in pieces of 16 KiB that begin at multiples of 16 KiB of the packed bytes, also after a jump:
// where a damaged stream stops giving bytes depends on where its pieces end. They are read from the pack several at a
// time.

namespace fs {

namespace {

constexpr std::uint32_t window_size = 4 * BlockReader::input_size;

}  // namespace

InflateReader::InflateReader(PackArchive& archive, std::uint32_t entry, const PackedData& data)
    : archive_(archive), data_(data), snapshots_(archive.snapshots().of(entry, data.size)) {
    window_capacity_ = data.packed_size > input_size ? window_size : input_size;
    memory_.reset(static_cast<std::uint8_t*>(std::malloc(2 * std::size_t{block_size} + window_capacity_)));
}

InflateReader::~InflateReader() { end_stream(); }

void InflateReader::end_stream() {
    if (stream_open_) inflateEnd(&stream_);
    stream_open_ = false;
}

void InflateReader::restart() {
    if (stream_open_ && inflateReset(&stream_) == Z_OK) {
        stream_.avail_in = 0;
    } else {
        end_stream();
        stream_ = z_stream{};
        stream_open_ = inflateInit2(&stream_, -MAX_WBITS) == Z_OK;
    }
    if (stream_open_) refill();
}

/// The next piece of input. Bytes that the pack does not have (any more) are zeros.
void InflateReader::refill() {
    const auto consumed = static_cast<std::uint32_t>(stream_.total_in);
    const std::uint32_t wanted = std::min(data_.packed_size - consumed, input_size - consumed % input_size);
    stream_.next_in = find_input(consumed, wanted);
    stream_.avail_in = wanted;
}

std::uint8_t* InflateReader::find_input(std::uint32_t consumed, std::uint32_t wanted) {
    std::uint8_t* window = memory_.get() + 2 * std::size_t{block_size};
    const bool held = consumed >= window_start_ && consumed - window_start_ <= window_size_ &&
                      wanted <= window_size_ - (consumed - window_start_);
    if (held) return window + (consumed - window_start_);
    window_start_ = consumed;
    window_size_ = std::min(data_.packed_size - consumed, window_capacity_ - consumed % input_size);
    const std::uint64_t got = archive_.store().read(data_.offset + consumed, window, window_size_);
    std::memset(window + got, 0, static_cast<std::size_t>(window_size_ - got));
    return window;
}

BlockReader::Step InflateReader::decode_into(int index) {
    if (!stream_open_) return Step::DAMAGED;
    Block& block = blocks_[index];
    stream_.next_out = block_bytes(index) + block.fill;
    stream_.avail_out = block_size - block.fill;
    if (stream_.avail_in == 0) refill();
    const int result = inflate(&stream_, Z_SYNC_FLUSH);
    if (stream_.msg || result == Z_STREAM_ERROR || result == Z_MEM_ERROR) return Step::DAMAGED;
    block.fill = block_size - stream_.avail_out;
    return Step::DONE;
}

void InflateReader::deliver(int index, std::uint8_t* buffer, std::uint32_t count) {
    if (buffer) std::memcpy(buffer, block_bytes(index) + blocks_[index].read, count);
}

void InflateReader::begin_block(int index) {
    const std::uint32_t number = blocks_[index].number;
    if (!snapshots_ || !stream_open_ || !snapshots_->wants(number)) return;
    if (stream_.total_out == std::uint64_t{number} * block_size) snapshots_->add(number, stream_);
}

std::uint32_t InflateReader::jump(std::uint32_t number, std::uint32_t after) {
    if (!snapshots_) return no_block;
    z_stream* snapshot = nullptr;
    const std::uint32_t found = snapshots_->find(number, snapshot);
    if (!snapshot || (after != no_block && found <= after + 1)) return no_block;
    end_stream();
    stream_ = z_stream{};
    stream_open_ = inflateCopy(&stream_, snapshot) == Z_OK;
    if (!stream_open_) return no_block;
    stream_.avail_in = 0;
    refill();
    return found;
}

}  // namespace fs

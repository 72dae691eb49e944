#include <new>

#include "engine/filesystem/streams/gzip_state.h"

namespace fs {

namespace {

constexpr unsigned char end_byte = 255;

enum HeaderFlag : unsigned char { HEADER_CRC = 2, EXTRA_FIELD = 4, FILE_NAME = 8, COMMENT = 16, RESERVED = 0xE0 };

}  // namespace

/// Reads up to `blocks` blocks. False, with the failure noted, when not a byte is left.
bool izipped_buffer_file::refill(std::uint32_t blocks) {
    if (zip_->z_eof) return false;
    if (blocks > 1 && zip_->ahead == nullptr)
        zip_->ahead = new (std::nothrow) Bytef[std::size_t{State::most_blocks} * State::buffer_size];
    if (zip_->ahead == nullptr) blocks = 1;
    Bytef* const into = blocks > 1 ? zip_->ahead : zip_->buffer;
    std::uint32_t total = 0;
    for (std::uint32_t block = 0; block < blocks && total == block * State::buffer_size; ++block) {
        const std::uint64_t got = read_data(into + total, State::buffer_size);
        if (got <= State::buffer_size) total += static_cast<std::uint32_t>(got);  // a caller's storage may say anything
    }
    zip_->gathered = total;
    zip_->stream.next_in = into;
    zip_->stream.avail_in = total;
    if (total != 0) return true;
    zip_->z_eof = true;
    zip_->fail(Z_ERRNO, EFSError::BAD_FORMAT, "The gzip member ends too early.");
    return false;
}

unsigned char izipped_buffer_file::get_byte() {
    if (zip_ == nullptr || zip_->writing || zip_->z_eof) return end_byte;
    if (zip_->stream.avail_in == 0 && !refill(1)) return end_byte;
    --zip_->stream.avail_in;
    return *zip_->stream.next_in++;
}

std::uint32_t izipped_buffer_file::get_long() {
    std::uint32_t value = 0;
    unsigned char byte = 0;
    for (int shift = 0; shift < 32; shift += 8) {
        byte = get_byte();
        value |= static_cast<std::uint32_t>(byte) << shift;
    }
    if (zip_ != nullptr && byte == end_byte && zip_->z_err == Z_ERRNO && zip_->z_eof) zip_->z_err = Z_DATA_ERROR;
    return value;
}

// A byte of 255 is not the end: only z_eof tells.
void izipped_buffer_file::skip_bytes(std::uint32_t count) {
    while (count-- != 0 && !zip_->z_eof) get_byte();
}

void izipped_buffer_file::skip_text() {
    while (get_byte() != 0 && !zip_->z_eof) continue;
}

bool izipped_buffer_file::check_header() {
    if (zip_ == nullptr || zip_->writing) return false;
    const bool magic = get_byte() == gz_magic[0] && get_byte() == gz_magic[1];
    const unsigned char method = magic ? get_byte() : 0;
    const unsigned char flags = magic ? get_byte() : 0;
    if (method != Z_DEFLATED || (flags & RESERVED) != 0) {
        zip_->fail(Z_DATA_ERROR, EFSError::BAD_FORMAT, "No gzip member that is known begins here.");
        return false;
    }
    skip_bytes(6);  // time, extra flags, operating system
    if ((flags & EXTRA_FIELD) != 0) {
        const std::uint32_t low = get_byte();
        skip_bytes(low | static_cast<std::uint32_t>(get_byte()) << 8);
    }
    if ((flags & FILE_NAME) != 0) skip_text();
    if ((flags & COMMENT) != 0) skip_text();
    if ((flags & HEADER_CRC) != 0) skip_bytes(2);
    zip_->z_err = Z_OK;
    if (zip_->z_eof) zip_->fail(Z_DATA_ERROR, EFSError::BAD_FORMAT, "The header of the gzip member is cut off.");
    return zip_->z_err == Z_OK;
}

bool izipped_buffer_file::begin_reading() {
    if (!check_header()) return false;
    zip_->start = get_current_pos() - zip_->stream.avail_in;
    return true;
}

}  // namespace fs

#include "engine/filesystem/streams/gzip_state.h"

namespace fs {

namespace {

constexpr unsigned char end_byte = 255;

enum HeaderFlag : unsigned char { HEADER_CRC = 2, EXTRA_FIELD = 4, FILE_NAME = 8, COMMENT = 16, RESERVED = 0xE0 };

}  // namespace

/// Reads the next block. False, with the failure noted, when not a byte is left.
bool izipped_buffer_file::refill() {
    if (zip_->z_eof) return false;
    const std::uint64_t got = read_data(zip_->buffer, State::buffer_size);
    zip_->next_in = zip_->buffer;
    zip_->left_in =
        got <= State::buffer_size ? static_cast<std::uint32_t>(got) : 0;  // a caller's storage may say anything
    if (zip_->left_in != 0) return true;
    zip_->z_eof = true;
    zip_->fail(Z_ERRNO, EFSError::BAD_FORMAT, "The gzip member ends too early.");
    return false;
}

unsigned char izipped_buffer_file::get_byte() {
    if (zip_ == nullptr || zip_->writing || zip_->z_eof) return end_byte;
    if (zip_->left_in == 0 && !refill()) return end_byte;
    --zip_->left_in;
    return *zip_->next_in++;
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
    zip_->start = get_current_pos() - zip_->left_in;
    return true;
}

}  // namespace fs

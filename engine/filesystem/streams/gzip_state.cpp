#include "engine/filesystem/streams/gzip_state.h"

#include "engine/filesystem/contract/set_error.h"

namespace fs {

namespace {

constexpr int raw_window_bits = -15;
constexpr int memory_level = 8;

}  // namespace

bool izipped_buffer_file::State::begin() {
    z_err = writing ? deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, raw_window_bits, memory_level,
                                   Z_DEFAULT_STRATEGY)
                    : inflateInit2(&stream, raw_window_bits);
    begun = z_err == Z_OK;
    stream.next_out = buffer;
    stream.avail_out = writing ? buffer_size : 0;
    return begun;
}

int izipped_buffer_file::State::end() {
    if (!begun) return Z_OK;
    begun = false;
    return writing ? deflateEnd(&stream) : inflateEnd(&stream);
}

void izipped_buffer_file::State::fail(int result, EFSError::TYPE code, const char* text) {
    z_err = result;
    if (reason == EFSError::NONE) {
        reason = code;
        words = text;
    }
    tell();
}

void izipped_buffer_file::State::tell() const {
    if (reason != EFSError::NONE) set_error(reason, "", words);
}

}  // namespace fs

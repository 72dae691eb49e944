#include "engine/filesystem/streams/gzip_state.h"

#include "engine/filesystem/contract/error.h"

namespace fs {

namespace {

constexpr int raw_window_bits = -15;
constexpr int memory_level = 8;

}  // namespace

bool izipped_buffer_file::State::begin() {
    if (!writing) {
        decoder = make_inflater();
        return decoder->start();
    }
    z_err = deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, raw_window_bits, memory_level, Z_DEFAULT_STRATEGY);
    stream.next_out = buffer;
    stream.avail_out = buffer_size;
    return z_err == Z_OK;
}

int izipped_buffer_file::State::end() { return stream.state == nullptr ? Z_OK : deflateEnd(&stream); }

bool izipped_buffer_file::State::is_broken() const {
    if (z_err != Z_DATA_ERROR && z_err != Z_ERRNO) return false;
    tell();
    return true;
}

void izipped_buffer_file::State::fail(int result, EFSError::TYPE code, const char* text) {
    z_err = result;
    if (reason == EFSError::NONE) {
        reason = code;
        words = text;
    }
    tell();
}

void izipped_buffer_file::State::note(Decoder::Result result) {
    switch (result) {
        case Decoder::Result::MORE:
            return;
        case Decoder::Result::END:
            z_err = Z_STREAM_END;
            return;
        case Decoder::Result::DAMAGED:
            return fail(Z_DATA_ERROR, EFSError::BAD_FORMAT, "The gzip member is damaged.");
        case Decoder::Result::NO_MEMORY:
            return fail(Z_MEM_ERROR, EFSError::OUT_OF_MEMORY, "There is no memory for decoding the gzip member.");
    }
}

void izipped_buffer_file::State::tell() const {
    if (reason != EFSError::NONE) set_error(reason, "", words);
}

}  // namespace fs

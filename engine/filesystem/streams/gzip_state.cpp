#include "engine/filesystem/streams/gzip_state.h"

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

void izipped_buffer_file::State::add_to_crc(const void* data, std::size_t size) {
#if defined(ENGINE_HAS_LIBDEFLATE)
    crc = libdeflate_crc32(crc, data, size);
#else
    crc = static_cast<std::uint32_t>(crc32_z(crc, static_cast<const Bytef*>(data), size));
#endif
}

}  // namespace fs

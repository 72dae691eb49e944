#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "engine/filesystem/formats/codec.h"

namespace fs {

/// To raw deflate (RFC 1951), levels 1 to 12 (9 where only zlib is there); of at most 4 GiB. May throw std::bad_alloc.
std::unique_ptr<Compressor> make_deflater();

/// The data as a deflate stream that only copies: 5 bytes more for each 64 KiB. May throw std::bad_alloc.
std::vector<std::uint8_t> deflate_by_copying(const void* data, std::size_t size);
/// How long that is.
std::uint64_t size_deflated_by_copying(std::uint64_t size);

/// A decoder of raw deflate, by ISA-L, which is the fastest, or by zlib where the library was built without. Both give the
/// same bytes for a good stream; of damaged ones each takes some that the other refuses, so that only a checksum tells. May
/// throw std::bad_alloc.
std::unique_ptr<Decoder> make_inflater();

/// The same for whole buffers. May throw std::bad_alloc.
std::unique_ptr<BufferDecoder> make_buffer_inflater();

/// One call of such an inflater, for zlib streams (RFC 1950) of at most `capacity` bytes. The length in `length`; false when
/// the stream is damaged or does not fit. Throws std::bad_alloc.
bool inflate_zlib_stream(const void* packed, std::size_t packed_size, void* out, std::size_t capacity,
                         std::size_t& length);

}  // namespace fs

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "engine/filesystem/formats/decoder.h"

namespace fs {

/// The libraries that decode deflate streams. Both give the same bytes for a good stream; of damaged ones each takes
/// some that the other refuses, so that only a checksum tells.
enum class InflateEngine : std::uint8_t { ZLIB, ISAL };

/// Whether the library was built with it; zlib always is there.
bool has_inflate_engine(InflateEngine engine);
/// The fastest there is.
InflateEngine best_inflate_engine();

/// A decoder of raw deflate (RFC 1951). May throw std::bad_alloc.
std::unique_ptr<Decoder> make_inflater(InflateEngine engine = best_inflate_engine());

/// The same for whole buffers. May throw std::bad_alloc.
std::unique_ptr<BufferDecoder> make_buffer_inflater();

/// One call of such an inflater, for zlib streams (RFC 1950) of at most `capacity` bytes. The length in `length`; false when
/// the stream is damaged or does not fit. Throws std::bad_alloc.
bool inflate_zlib_stream(const void* packed, std::size_t packed_size, void* out, std::size_t capacity,
                         std::size_t& length);

}  // namespace fs

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "engine/filesystem/formats/compressor.h"

namespace fs {

/// To raw deflate (RFC 1951), levels 1 to 12 (9 where only zlib is there); of at most 4 GiB. May throw std::bad_alloc.
std::unique_ptr<Compressor> make_deflater();

/// The data as a deflate stream that only copies: 5 bytes more for each 64 KiB. May throw std::bad_alloc.
std::vector<std::uint8_t> deflate_by_copying(const void* data, std::size_t size);
/// How long that is.
std::uint64_t size_deflated_by_copying(std::uint64_t size);

}  // namespace fs

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "engine/filesystem/formats/codec.h"

namespace fs {

// Zstandard (RFC 8878), as entries of packs hold it: one frame, or frames of equal size followed by a table of them in a
// skippable frame, as zstd's seekable format has it, so that reading can begin at each.

/// Whether the library was built with it. Without, the functions below answer null; with it they may throw std::bad_alloc.
bool has_zstd();

/// A decoder of frames that follow one another. It never tells END: a frame more may always come. May throw
/// std::bad_alloc.
std::unique_ptr<Decoder> make_zstd_decoder();

/// The same for whole buffers.
std::unique_ptr<BufferDecoder> make_buffer_zstd_decoder();
/// At levels 1 to 22: up to 1 MiB as one frame, more as frames of 1 MiB and a table.
std::unique_ptr<Compressor> make_zstd_compressor();

/// Where the frames of an entry begin.
struct ZstdSeekTable {
    std::uint32_t frame_size = 0;  // plain bytes of each frame but the last, which may have less
    std::vector<std::uint32_t> starts;

    static constexpr std::size_t footer_size = 9;

    /// How many bytes at the end of the packed bytes the table takes, told by the last `footer_size` of them; 0 when there
    /// is no table.
    static std::uint64_t size_by_footer(const std::uint8_t* footer);
    /// Reads a table of that size. False, with no frames, when it does not fit the entry or its frames are not equal.
    bool read(const std::uint8_t* table, std::uint64_t table_size, std::uint64_t packed_size, std::uint64_t size);
};

}  // namespace fs

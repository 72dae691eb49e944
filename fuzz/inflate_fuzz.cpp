// Any bytes as a deflate stream, in small pieces, beside zlib in one call: what zlib takes, the decoder takes and
// gives the same; before a stream's damage both give the same.
#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include <zlib.h>

#include "engine/filesystem/formats/deflate.h"
#include "fuzz/require.h"

namespace {

constexpr std::size_t most_output = 200000;

std::vector<std::uint8_t> by_zlib(const std::uint8_t* data, std::size_t size, bool& good) {
    std::vector<std::uint8_t> out(most_output);
    z_stream stream{};
    require(inflateInit2(&stream, -MAX_WBITS) == Z_OK);
    stream.next_in = const_cast<Bytef*>(data);
    stream.avail_in = static_cast<uInt>(size);
    stream.next_out = out.data();
    stream.avail_out = static_cast<uInt>(out.size());
    good = inflate(&stream, Z_FINISH) == Z_STREAM_END;
    out.resize(stream.total_out);
    inflateEnd(&stream);
    return out;
}

/// In pieces whose sizes the input gives; now and then from a checkpoint.
std::vector<std::uint8_t> in_pieces(const std::uint8_t* data, std::size_t size, bool& ended) {
    std::vector<std::uint8_t> found;
    auto decoder = fs::make_inflater();
    require(decoder->start());
    const std::size_t in_piece = 1 + data[0] * std::size_t{37};
    std::vector<std::uint8_t> out(1 + data[size - 1] * std::size_t{129});
    auto result = fs::Decoder::Result::MORE;
    std::size_t at = 0;
    for (int step = 1; result == fs::Decoder::Result::MORE && found.size() < most_output; ++step) {
        const std::size_t piece = std::min(in_piece, size - at);
        fs::DecoderBuffers buffers{.in = data + at, .in_size = piece, .out = out.data(), .out_size = out.size()};
        result = decoder->decode(buffers);
        require(buffers.in_size <= piece && buffers.in == data + at + (piece - buffers.in_size));
        const std::size_t made = out.size() - buffers.out_size;
        found.insert(found.end(), out.begin(), out.begin() + static_cast<std::ptrdiff_t>(made));
        if (made == 0 && buffers.in_size == piece && result == fs::Decoder::Result::MORE) break;
        at += piece - buffers.in_size;
        const auto checkpoint = step % 5 == 0 ? decoder->save() : nullptr;
        if (!checkpoint) continue;
        decoder = fs::make_inflater();
        require(decoder->start() && decoder->restore(*checkpoint));
    }
    ended = result == fs::Decoder::Result::END;
    return found;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    bool good = false;
    const std::vector<std::uint8_t> expected = by_zlib(data, size, good);
    bool ended = false;
    const std::vector<std::uint8_t> found = in_pieces(data, size, ended);
    if (good) require(ended && found == expected);
    const auto both = static_cast<std::ptrdiff_t>(std::min(found.size(), expected.size()));
    require(std::equal(found.begin(), found.begin() + both, expected.begin()));
    const auto whole = fs::make_buffer_inflater();
    std::vector<std::uint8_t> out(expected.size());
    if (good) require(whole->decode(data, size, out.data(), out.size()) && out == expected);
    return 0;
}

// The pack's own inflate beside zlib on any bytes: it gives the same bytes, or refuses.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <zlib.h>

#include "engine/filesystem/sources/pack/ring_inflate.h"
#include "engine/filesystem/sources/pack/store.h"

namespace {

constexpr std::size_t most_output = 200000;

void require(bool holds) {
    if (!holds) std::abort();
}

const std::string& stream_path() {
    static const std::string path =
        (std::filesystem::temp_directory_path() / ("inflate_fuzz_" + std::to_string(std::random_device{}()))).string();
    return path;
}

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::FILE* file = std::fopen(stream_path().c_str(), "wb");
    if (!file) return 0;
    const bool whole = std::fwrite(data, 1, size, file) == size;
    if (std::fclose(file) != 0 || !whole) return 0;
    fs::PackStore store;
    if (!store.open(stream_path().c_str(), size % 2 == 0)) return 0;

    constexpr std::uint32_t window = 64;  // small, so that every place is a seam between two
    std::vector<std::uint8_t> memory(fs::RingInflate::ring_size + window);
    const fs::PackedInput input{store, 0, static_cast<std::uint32_t>(size), memory.data() + fs::RingInflate::ring_size,
                                window};
    const auto ring = std::make_unique<fs::RingInflate>(input, memory.data());
    ring->start();
    std::vector<std::uint8_t> found;
    bool accepted = true;
    std::uint32_t produced = fs::RingInflate::block_size;
    for (std::uint32_t block = 0; accepted && produced == fs::RingInflate::block_size && found.size() < most_output;
         ++block) {
        accepted = ring->decode_block(produced);
        const std::uint8_t* bytes = memory.data() + block % 2 * fs::RingInflate::block_size;
        if (accepted) found.insert(found.end(), bytes, bytes + produced);
    }
    bool good = false;
    const std::vector<std::uint8_t> expected = by_zlib(data, size, good);
    if (accepted && found.size() < most_output) require(good && found == expected);
    const auto both = static_cast<std::ptrdiff_t>(std::min(found.size(), expected.size()));
    require(std::equal(found.begin(), found.begin() + both, expected.begin()));
    return 0;
}

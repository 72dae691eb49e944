// Walks a chunk file as a reader does that trusts it: into every chunk that is not a data chunk, over the others.
#include <cstdint>

#include <engine/filesystem/streams/chunk.h>
#include <engine/filesystem/streams/memory.h>

#include "fuzz/require.h"

namespace {

constexpr int deepest = 50;
constexpr int most_chunks = 1000;

void walk(fs::ifile& stream, std::uint64_t end, int depth, int& chunks) {
    while (stream.tell() < end && ++chunks < most_chunks) {
        const std::uint64_t start = stream.tell();
        {
            fs::chunk_load chunk(stream);
            require(chunk.match(chunk.id, chunk.version, nullptr));
            if (!chunk.is_data_chunk() && depth < deepest) walk(stream, chunk.end, depth + 1, chunks);
            if ((chunk.version & 0xFF) == 0x52) chunk.rewind();
        }
        if (stream.tell() <= start) break;  // a chunk that was rewound
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ztl::vector<unsigned char> bytes(data, data + size);
    int chunks = 0;
    fs::vectorfile vector;
    vector.open_from_memory(EFSMode::READ, &bytes, false);
    walk(vector, size, 0, chunks);
    require(bytes.size() == size);

    fs::memfile block;
    block.open_from_memory(EFSMode::READ, bytes.data(), bytes.size(), false);
    chunks = 0;
    walk(block, size, 0, chunks);
    require(block.tell() <= size);
    return 0;
}

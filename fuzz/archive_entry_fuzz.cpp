// Entries of the archive in memory whose bytes and recorded lengths are anything. The first bytes of the input give the
// recorded length and whether a valid stream is made of the rest. The source refuses a length that no deflated bytes of
// that size can reach, and opens every other entry that the archive can decompress.
#include <cstdint>
#include <memory>
#include <vector>

#include <zlib.h>

#include <engine/filesystem/sources/memory_archive.h>

#include "fuzz/require.h"

namespace {

constexpr std::uint64_t best_ratio = 1032;  // of deflate

std::vector<std::uint8_t> zipped(const std::uint8_t* data, std::size_t size) {
    uLongf length = compressBound(static_cast<uLong>(size));
    std::vector<std::uint8_t> out(length);
    compress(out.data(), &length, data, static_cast<uLong>(size));
    out.resize(length);
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 3) return 0;
    const std::uint64_t recorded = data[0] | std::uint64_t{data[1]} << 8;
    const bool valid = data[2] % 4 == 0;
    std::vector<std::uint8_t> bytes(data + 3, data + size);
    if (valid) bytes = zipped(data + 3, size - 3);

    std::vector<std::uint8_t> memory(bytes.size() + 10);
    fs::ZippedDataArchive archive;
    require(archive.BindArchiveToMemory(memory.data(), memory.size()));
    require(archive.AddEntry("Before", "12", 2, 2));
    require(archive.AddEntry("Entry", bytes.data(), bytes.size(), recorded));
    require(!archive.AddEntry("entry", bytes.data(), bytes.size(), recorded));

    fs::CMemZip_dir source(&archive);
    const std::unique_ptr<SFsFile> file(source.open_read(fs::path("entry", true), FFSOpenFlags::NONE));
    if (file) require(file->length() == recorded);

    require(archive.RemoveEntry("before"));
    std::vector<std::uint8_t> buffer(recorded + 1);
    std::uint32_t length = 0;
    const bool good = archive.ReadEntryAsZippedData("ENTRY", buffer.data(), recorded, &length);
    if (valid) require(good == (recorded >= size - 3));
    const bool reachable = recorded / best_ratio <= bytes.size();
    require((file != nullptr) == (good && reachable) && length <= recorded);
    require(buffer[recorded] == 0);
    return 0;
}

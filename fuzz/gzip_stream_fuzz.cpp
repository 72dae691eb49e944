// A gzip member, read with seeks in between. The first bytes say how; the rest is the member. Whatever is vouched for
// must be what zlib makes of the same bytes.
#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include <engine/filesystem/streams/memory.h>

#include "fuzz/require.h"

namespace {

constexpr std::size_t control_bytes = 8;
constexpr std::size_t plain_limit = 1 << 20;

/// zlib's own decoding of the first member. False when it refuses.
bool decode(const std::uint8_t* data, std::size_t size, std::string& plain) {
    z_stream stream = {};
    if (inflateInit2(&stream, 31) != Z_OK) return false;
    plain.resize(plain_limit);
    stream.next_in = const_cast<Bytef*>(data);
    stream.avail_in = static_cast<uInt>(size);
    stream.next_out = reinterpret_cast<Bytef*>(plain.data());
    stream.avail_out = static_cast<uInt>(plain.size());
    const int result = inflate(&stream, Z_FINISH);
    plain.resize(stream.total_out);
    inflateEnd(&stream);
    return result == Z_STREAM_END;
}

void check_against_zlib(fs::vectorfile& stream, const std::uint8_t* data, std::size_t size) {
    std::string expected;
    if (!decode(data, size, expected)) return;
    // Ours is good wherever zlib's decoder is: it also compares what we do not.
    std::string plain(expected.size() + 1, '\0');
    require(stream.seek(0, EFSSeek::BEGIN));
    const std::uint64_t got = stream.read(plain.data(), plain.size());
    require(got == expected.size() && std::memcmp(plain.data(), expected.data(), got) == 0);
    require(stream.check_zip_crc());
}

void wander(fs::vectorfile& stream, const std::uint8_t* control) {
    std::uint8_t buffer[512];
    for (std::size_t i = 0; i < control_bytes; ++i) {
        const std::uint64_t before = stream.tell();
        switch (control[i] & 3) {
            case 0:
                stream.read(buffer, control[i] * 2u);
                break;
            case 1:
                stream.seek(control[i] * 16, EFSSeek::BEGIN);
                break;
            case 2:
                stream.seek(static_cast<std::int8_t>(control[i]) * 8, EFSSeek::CURRENT);
                break;
            default:
                stream.check_zip_crc();
                break;
        }
        // Once broken, a stream stays so.
        require(before != UINT64_MAX || stream.tell() == UINT64_MAX || !stream.is_zipped());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < control_bytes) return 0;
    ztl::vector<unsigned char> member(data + control_bytes, data + size);
    fs::vectorfile stream;
    if (stream.open_from_memory(EFSMode::READ, &member, true)) {
        check_against_zlib(stream, member.data(), member.size());
        wander(stream, data);
    } else {
        require(!stream.is_zipped() && stream.tell() == 0);
    }
    require(member.size() == size - control_bytes);
    return 0;
}

// Whole entries deflated, or put into a deflate stream as they are.
#include "engine/filesystem/formats/deflate.h"

#include <algorithm>
#include <new>

#if ENGINE_HAS_LIBDEFLATE
#include <libdeflate.h>
#else
#include <zlib.h>
#endif

#include "engine/kernel/bytes.h"

namespace fs {

namespace {

constexpr std::size_t most_copied = 0xFFFF;  // by one block of a deflate stream
constexpr std::size_t block_header_size = 5;

#if ENGINE_HAS_LIBDEFLATE

struct FreeCompressor {
    void operator()(libdeflate_compressor* compressor) const { libdeflate_free_compressor(compressor); }
};

class Deflater final : public Compressor {
public:
    std::vector<std::uint8_t> compress(const void* data, std::size_t size, int level, std::size_t most) override {
        if (!compressor_ || level != level_) compressor_.reset(libdeflate_alloc_compressor(level));
        if (!compressor_) throw std::bad_alloc();
        level_ = level;
        std::vector<std::uint8_t> out(most);
        out.resize(libdeflate_deflate_compress(compressor_.get(), data, size, out.data(), most));
        out.shrink_to_fit();
        return out;
    }

private:
    std::unique_ptr<libdeflate_compressor, FreeCompressor> compressor_;
    int level_ = 0;
};

#else

class Deflater final : public Compressor {
public:
    std::vector<std::uint8_t> compress(const void* data, std::size_t size, int level, std::size_t most) override {
        z_stream stream{};
        std::vector<std::uint8_t> out(most);
        if (deflateInit2(&stream, std::min(level, 9), Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) != Z_OK)
            throw std::bad_alloc();
        stream.next_in = static_cast<Bytef*>(const_cast<void*>(data));
        stream.avail_in = static_cast<uInt>(size);
        stream.next_out = out.data();
        stream.avail_out = static_cast<uInt>(most);
        const bool fits = ::deflate(&stream, Z_FINISH) == Z_STREAM_END;
        deflateEnd(&stream);
        out.resize(fits ? most - stream.avail_out : 0);
        out.shrink_to_fit();
        return out;
    }
};

#endif

}  // namespace

std::unique_ptr<Compressor> make_deflater() { return std::make_unique<Deflater>(); }

std::uint64_t size_deflated_by_copying(std::uint64_t size) {
    return size + std::max<std::uint64_t>(1, (size + most_copied - 1) / most_copied) * block_header_size;
}

std::vector<std::uint8_t> deflate_by_copying(const void* data, std::size_t size) {
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    std::vector<std::uint8_t> out;
    out.reserve(static_cast<std::size_t>(size_deflated_by_copying(size)));
    do {
        const std::size_t piece = std::min(size, most_copied);
        std::uint8_t header[block_header_size] = {static_cast<std::uint8_t>(piece == size)};  // whether it is the last
        kernel::store_u16(header + 1, static_cast<std::uint16_t>(piece));
        kernel::store_u16(header + 3, static_cast<std::uint16_t>(~piece));
        out.insert(out.end(), header, header + block_header_size);
        out.insert(out.end(), bytes, bytes + piece);
        bytes += piece;
        size -= piece;
    } while (size != 0);
    return out;
}

}  // namespace fs

#include "engine/filesystem/formats/deflate.h"

#include <algorithm>
#include <limits>
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

}  // namespace

// A result that is not smaller than the data is of no use, so there never is more room than that.

#if ENGINE_HAS_LIBDEFLATE

struct Deflater::State {
    libdeflate_compressor* compressor = nullptr;
    int level = 0;

    ~State() { libdeflate_free_compressor(compressor); }
    bool prepare(int wanted) {
        if (compressor && level == wanted) return true;
        libdeflate_free_compressor(compressor);
        compressor = libdeflate_alloc_compressor(wanted);
        level = wanted;
        return compressor != nullptr;
    }
    /// 0 when it does not fit into `room`.
    std::size_t compress(const void* data, std::size_t size, std::uint8_t* out, std::size_t room) {
        return libdeflate_deflate_compress(compressor, data, size, out, room);
    }
};

#else

struct Deflater::State {
    z_stream stream{};
    bool open = false;

    ~State() { close(); }
    void close() {
        if (open) deflateEnd(&stream);
        open = false;
    }
    bool prepare(int level) {
        close();
        stream = z_stream{};
        open = deflateInit2(&stream, std::min(level, 9), Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) == Z_OK;
        return open;
    }
    /// zlib counts in 32 bits, which hold every size that a pack can.
    std::size_t compress(const void* data, std::size_t size, std::uint8_t* out, std::size_t room) {
        stream.next_in = static_cast<Bytef*>(const_cast<void*>(data));
        stream.avail_in = static_cast<uInt>(size);
        stream.next_out = out;
        stream.avail_out = static_cast<uInt>(room);
        return ::deflate(&stream, Z_FINISH) == Z_STREAM_END ? room - stream.avail_out : 0;
    }
};

#endif

Deflater::Deflater() : state_(std::make_unique<State>()) {}
Deflater::~Deflater() = default;

void Deflater::reserve(std::size_t size) {
    if (size <= capacity_) return;
    buffer_.reset();
    capacity_ = 0;
    buffer_.reset(static_cast<std::uint8_t*>(std::malloc(size)));
    if (!buffer_) throw std::bad_alloc();
    capacity_ = size;
}

bool Deflater::deflate(const void* data, std::size_t size, int level) {
    if (size < 2 || size > std::numeric_limits<std::uint32_t>::max()) return false;
    if (!state_->prepare(std::clamp(level, 1, 12))) throw std::bad_alloc();
    reserve(size);
    size_ = state_->compress(data, size, buffer_.get(), size - 1);
    return size_ != 0;
}

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

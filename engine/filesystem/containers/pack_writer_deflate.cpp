#include "engine/filesystem/containers/pack_writer_deflate.h"

#include <algorithm>
#include <limits>
#include <new>

#if defined(ENGINE_HAS_LIBDEFLATE)
#include <libdeflate.h>
#endif
#include <zlib.h>

namespace fs {

// A result that is not smaller than the data is of no use, so there never is more room than that.

#if defined(ENGINE_HAS_LIBDEFLATE)

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

std::uint32_t crc32_of(const void* data, std::size_t size) { return libdeflate_crc32(0, data, size); }

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

std::uint32_t crc32_of(const void* data, std::size_t size) {
    return static_cast<std::uint32_t>(crc32_z(crc32_z(0, nullptr, 0), static_cast<const Bytef*>(data), size));
}

#endif

Deflater::Deflater() : state_(new (std::nothrow) State) {}
Deflater::~Deflater() = default;

bool Deflater::reserve(std::size_t size) {
    if (size <= capacity_) return true;
    buffer_.reset();
    buffer_.reset(static_cast<std::uint8_t*>(std::malloc(size)));
    capacity_ = buffer_ ? size : 0;
    return buffer_ != nullptr;
}

Deflater::Result Deflater::deflate(const void* data, std::size_t size, int level) {
    if (size < 2 || size > std::numeric_limits<std::uint32_t>::max()) return Result::NOT_SMALLER;
    if (!state_ || !state_->prepare(std::clamp(level, 1, 12)) || !reserve(size)) return Result::NO_MEMORY;
    size_ = state_->compress(data, size, buffer_.get(), size - 1);
    return size_ != 0 ? Result::SMALLER : Result::NOT_SMALLER;
}

}  // namespace fs

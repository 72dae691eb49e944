#include "engine/filesystem/formats/inflate.h"

#include <algorithm>
#include <limits>
#include <new>

#include <zlib.h>

#if ENGINE_HAS_LIBDEFLATE
#include <libdeflate.h>
#endif

#include "engine/filesystem/formats/inflate_isal.h"

namespace fs {

namespace {

uInt clamped(std::size_t size) {
    return static_cast<uInt>(std::min<std::size_t>(size, std::numeric_limits<uInt>::max()));
}

/// A stream of zlib that ends with its object.
class ZlibStream {
public:
    ZlibStream() = default;
    ~ZlibStream() { end(); }
    ZlibStream(const ZlibStream&) = delete;
    ZlibStream& operator=(const ZlibStream&) = delete;

    bool begin(int window_bits) {
        if (open_) return inflateReset(&raw) == Z_OK;
        raw = z_stream{};
        open_ = inflateInit2(&raw, window_bits) == Z_OK;
        return open_;
    }
    bool copy(const ZlibStream& from) {
        end();
        open_ = inflateCopy(&raw, const_cast<z_stream*>(&from.raw)) == Z_OK;
        return open_;
    }
    bool open() const { return open_; }

    z_stream raw{};

private:
    void end() {
        if (open_) inflateEnd(&raw);
        open_ = false;
    }

    bool open_ = false;
};

class ZlibInflater final : public Decoder {
public:
    bool start() override { return stream_.begin(-MAX_WBITS); }
    Result decode(DecoderBuffers& buffers) override;
    std::shared_ptr<const Checkpoint> save() const override;
    bool restore(const Checkpoint& from) override { return stream_.copy(static_cast<const Kept&>(from).stream); }

private:
    struct Kept final : Checkpoint {
        std::size_t bytes() const override { return sizeof(*this) + (48u << 10); }  // its window, and its tables
        ZlibStream stream;
    };

    ZlibStream stream_;
};

Decoder::Result ZlibInflater::decode(DecoderBuffers& buffers) {
    if (!stream_.open()) return Result::NO_MEMORY;
    z_stream& raw = stream_.raw;
    raw.next_in = const_cast<Bytef*>(buffers.in);
    raw.avail_in = clamped(buffers.in_size);
    raw.next_out = buffers.out;
    raw.avail_out = clamped(buffers.out_size);
    const int result = ::inflate(&raw, Z_SYNC_FLUSH);
    buffers.in_size -= static_cast<std::size_t>(raw.next_in - buffers.in);
    buffers.in = raw.next_in;
    buffers.out_size -= static_cast<std::size_t>(raw.next_out - buffers.out);
    buffers.out = raw.next_out;
    if (result == Z_STREAM_END) return Result::END;
    if (result == Z_MEM_ERROR) return Result::NO_MEMORY;
    return result == Z_OK || result == Z_BUF_ERROR ? Result::MORE : Result::DAMAGED;
}

std::shared_ptr<const Decoder::Checkpoint> ZlibInflater::save() const {
    auto kept = std::make_shared<Kept>();
    if (!kept->stream.copy(stream_)) throw std::bad_alloc();
    return kept;
}

#if ENGINE_HAS_LIBDEFLATE

struct FreeDecompressor {
    void operator()(libdeflate_decompressor* raw) const { libdeflate_free_decompressor(raw); }
};

class BufferInflater final : public BufferDecoder {
public:
    BufferInflater() : raw_(libdeflate_alloc_decompressor()) {
        if (!raw_) throw std::bad_alloc();
    }
    bool decode(const void* packed, std::size_t packed_size, void* out, std::size_t out_size) override {
        return libdeflate_deflate_decompress(raw_.get(), packed, packed_size, out, out_size, nullptr) ==
               LIBDEFLATE_SUCCESS;
    }

private:
    const std::unique_ptr<libdeflate_decompressor, FreeDecompressor> raw_;
};

#else

class BufferInflater final : public BufferDecoder {
public:
    bool decode(const void* packed, std::size_t packed_size, void* out, std::size_t out_size) override {
        DecoderBuffers buffers{.in = static_cast<const std::uint8_t*>(packed),
                               .in_size = packed_size,
                               .out = static_cast<std::uint8_t*>(out),
                               .out_size = out_size};
        if (!stream_->start()) return false;
        Decoder::Result result = stream_->decode(buffers);
        // A stream may still have its end to tell when its last byte is out.
        if (result == Decoder::Result::MORE && buffers.out_size == 0) result = stream_->decode(buffers);
        return result == Decoder::Result::END && buffers.out_size == 0;
    }

private:
    const std::unique_ptr<Decoder> stream_ = make_inflater();
};

#endif

}  // namespace

bool has_inflate_engine(InflateEngine engine) { return engine == InflateEngine::ZLIB || isal_is_built_in; }
InflateEngine best_inflate_engine() { return isal_is_built_in ? InflateEngine::ISAL : InflateEngine::ZLIB; }

std::unique_ptr<Decoder> make_inflater(InflateEngine engine) {
    if (engine == InflateEngine::ISAL && isal_is_built_in) return make_isal_inflater();
    return std::make_unique<ZlibInflater>();
}

std::unique_ptr<BufferDecoder> make_buffer_inflater() { return std::make_unique<BufferInflater>(); }

bool inflate_zlib_stream(const void* packed, std::size_t packed_size, void* out, std::size_t capacity,
                         std::size_t& length) {
    ZlibStream stream;
    unsigned char nothing = 0;  // zlib wants an address even where nothing goes
    if (!stream.begin(MAX_WBITS)) throw std::bad_alloc();
    stream.raw.next_in = static_cast<Bytef*>(const_cast<void*>(packed));
    stream.raw.avail_in = clamped(packed_size);
    stream.raw.next_out = out ? static_cast<Bytef*>(out) : &nothing;
    stream.raw.avail_out = out ? clamped(capacity) : 0;
    const int result = ::inflate(&stream.raw, Z_FINISH);
    if (result == Z_MEM_ERROR) throw std::bad_alloc();
    const bool whole = result == Z_STREAM_END;
    length = whole ? stream.raw.total_out : 0;
    return whole;
}

}  // namespace fs

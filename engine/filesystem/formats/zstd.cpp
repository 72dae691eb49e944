#include "engine/filesystem/formats/zstd.h"

#include <algorithm>
#include <new>

#if ENGINE_HAS_ZSTD
#include <zstd.h>
#endif

#include "engine/kernel/bytes.h"

// The table behind the frames: the header of a skippable frame, a row for each frame (its packed and its plain size, with
// one flag also a checksum), and a footer of the number of frames, the flags and a signature.

namespace fs {

namespace {

constexpr std::uint32_t skippable_signature = 0x184D2A5E;
constexpr std::uint32_t table_signature = 0x8F92EAB1;
constexpr std::size_t frame_header_size = 8;
constexpr std::size_t row_size = 8;
constexpr std::uint8_t has_checksums = 0x80;

std::size_t row_size_by(std::uint8_t flags) { return (flags & has_checksums) != 0 ? row_size + 4 : row_size; }

}  // namespace

std::uint64_t ZstdSeekTable::size_by_footer(const std::uint8_t* footer) {
    if (kernel::load_u32(footer + 5) != table_signature || (footer[4] & ~has_checksums) != 0) return 0;
    return frame_header_size + std::uint64_t{kernel::load_u32(footer)} * row_size_by(footer[4]) + footer_size;
}

bool ZstdSeekTable::read(const std::uint8_t* table, std::uint64_t table_size, std::uint64_t packed_size,
                         std::uint64_t size) {
    const std::uint8_t* footer = table + table_size - footer_size;
    const std::uint32_t count = kernel::load_u32(footer);
    const std::uint8_t* row = table + frame_header_size;
    std::uint64_t packed = 0;
    std::uint64_t plain = 0;
    bool fits = kernel::load_u32(table) == skippable_signature && count != 0 &&
                kernel::load_u32(table + 4) == table_size - frame_header_size;
    starts.clear();
    for (std::uint32_t i = 0; i < count && fits; ++i, row += row_size_by(footer[4])) {
        const std::uint32_t frame = kernel::load_u32(row + 4);
        if (i == 0) frame_size = frame;
        fits = packed < packed_size && (i + 1 < count ? frame == frame_size : frame <= frame_size);
        starts.push_back(static_cast<std::uint32_t>(packed));
        packed += kernel::load_u32(row);
        plain += frame;
    }
    fits = fits && packed + table_size == packed_size && plain == size;
    if (!fits) starts.clear();
    return fits;
}

#if ENGINE_HAS_ZSTD

namespace {

constexpr std::size_t frame_plain_size = 1024 * 1024;
constexpr std::size_t no_memory = std::size_t{0} - 64;  // how a call answers ZSTD_error_memory_allocation; it stays so

struct FreeContext {
    void operator()(ZSTD_DCtx* context) const { ZSTD_freeDCtx(context); }
    void operator()(ZSTD_CCtx* context) const { ZSTD_freeCCtx(context); }
};

template <typename Context>
std::unique_ptr<Context, FreeContext> owned(Context* context) {
    if (!context) throw std::bad_alloc();
    return std::unique_ptr<Context, FreeContext>(context);
}

class ZstdDecoder final : public Decoder {
public:
    bool start() override {
        ZSTD_DCtx_reset(context_.get(), ZSTD_reset_session_only);
        result_ = Result::MORE;
        return true;
    }
    Result decode(DecoderBuffers& buffers) override;

private:
    const std::unique_ptr<ZSTD_DCtx, FreeContext> context_ = owned(ZSTD_createDCtx());
    Result result_ = Result::MORE;
};

Decoder::Result ZstdDecoder::decode(DecoderBuffers& buffers) {
    ZSTD_inBuffer in{buffers.in, buffers.in_size, 0};
    ZSTD_outBuffer out{buffers.out, buffers.out_size, 0};
    for (bool goes_on = true; result_ == Result::MORE && goes_on;) {
        const std::size_t before = in.pos + out.pos;
        const std::size_t hint = ZSTD_decompressStream(context_.get(), &out, &in);
        // Its window takes memory with each frame that has a larger one.
        if (ZSTD_isError(hint) != 0) result_ = hint == no_memory ? Result::NO_MEMORY : Result::DAMAGED;
        goes_on = in.pos + out.pos != before && out.pos != out.size;
    }
    buffers.in += in.pos;
    buffers.in_size -= in.pos;
    buffers.out += out.pos;
    buffers.out_size -= out.pos;
    return result_;
}

void append_u32(std::vector<std::uint8_t>& out, std::size_t value) {
    kernel::append_number(out, static_cast<std::uint32_t>(value));
}

void append_table(std::vector<std::uint8_t>& out, const std::vector<std::uint8_t>& rows) {
    append_u32(out, skippable_signature);
    append_u32(out, rows.size() + ZstdSeekTable::footer_size);
    out.insert(out.end(), rows.begin(), rows.end());
    append_u32(out, rows.size() / row_size);
    out.push_back(0);
    append_u32(out, table_signature);
}

class BufferZstdDecoder final : public BufferDecoder {
public:
    bool decode(const void* packed, std::size_t packed_size, void* out, std::size_t out_size) override {
        return ZSTD_decompressDCtx(context_.get(), out, out_size, packed, packed_size) == out_size;
    }

private:
    const std::unique_ptr<ZSTD_DCtx, FreeContext> context_ = owned(ZSTD_createDCtx());
};

class ZstdCompressor final : public Compressor {
public:
    std::vector<std::uint8_t> compress(const void* data, std::size_t size, int level, std::size_t most) override;

private:
    const std::unique_ptr<ZSTD_CCtx, FreeContext> context_ = owned(ZSTD_createCCtx());
};

std::vector<std::uint8_t> ZstdCompressor::compress(const void* data, std::size_t size, int level, std::size_t most) {
    std::vector<std::uint8_t> out;
    std::vector<std::uint8_t> rows;
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    for (std::size_t at = 0; at < size; at += frame_plain_size) {
        const std::size_t piece = std::min(size - at, frame_plain_size);
        const std::size_t start = out.size();
        out.resize(start + ZSTD_compressBound(piece));
        const std::size_t packed =
            ZSTD_compressCCtx(context_.get(), out.data() + start, out.size() - start, bytes + at, piece, level);
        if (ZSTD_isError(packed) != 0) throw std::bad_alloc();  // the one reason that is left
        out.resize(start + packed);
        append_u32(rows, packed);
        append_u32(rows, piece);
        if (out.size() > most) return {};
    }
    if (size > frame_plain_size) append_table(out, rows);
    if (out.size() > most) return {};
    out.shrink_to_fit();
    return out;
}

}  // namespace

bool has_zstd() { return true; }
std::unique_ptr<Decoder> make_zstd_decoder() { return std::make_unique<ZstdDecoder>(); }
std::unique_ptr<BufferDecoder> make_buffer_zstd_decoder() { return std::make_unique<BufferZstdDecoder>(); }
std::unique_ptr<Compressor> make_zstd_compressor() { return std::make_unique<ZstdCompressor>(); }

#else

bool has_zstd() { return false; }
std::unique_ptr<Decoder> make_zstd_decoder() { return nullptr; }
std::unique_ptr<BufferDecoder> make_buffer_zstd_decoder() { return nullptr; }
std::unique_ptr<Compressor> make_zstd_compressor() { return nullptr; }

#endif

}  // namespace fs

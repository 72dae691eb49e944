// Deflate streams decoded, by pieces and whole, by the fastest library that there is.
#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

#include <zlib.h>

#if ENGINE_HAS_ISAL
#include <igzip_lib.h>
#endif
#if ENGINE_HAS_LIBDEFLATE
#include <libdeflate.h>
#endif

#include "engine/filesystem/formats/deflate.h"

namespace fs {

namespace {

std::uint32_t clamped(std::size_t size) {
    return static_cast<std::uint32_t>(std::min<std::size_t>(size, std::numeric_limits<std::uint32_t>::max()));
}

/// Lets a library go on in the buffers, and answers what `step` answers; both libraries name the fields alike.
template <typename Stream, typename Step>
auto advance(Stream& stream, DecoderBuffers& buffers, const Step& step) {
    stream.next_in = const_cast<std::uint8_t*>(buffers.in);
    stream.avail_in = clamped(buffers.in_size);
    stream.next_out = buffers.out;
    stream.avail_out = clamped(buffers.out_size);
    const auto result = step();
    buffers.in_size -= static_cast<std::size_t>(stream.next_in - buffers.in);
    buffers.in = stream.next_in;
    buffers.out_size -= static_cast<std::size_t>(stream.next_out - buffers.out);
    buffers.out = stream.next_out;
    return result;
}

/// A stream of zlib that ends with its object.
struct ZlibStream {
    ZlibStream() = default;
    ~ZlibStream() { inflateEnd(&raw); }
    ZlibStream(const ZlibStream&) = delete;
    ZlibStream& operator=(const ZlibStream&) = delete;

    bool is_open() const { return raw.state != nullptr; }
    bool begin(int window_bits) { return (is_open() ? inflateReset(&raw) : inflateInit2(&raw, window_bits)) == Z_OK; }
    bool copy(const ZlibStream& from) {
        inflateEnd(&raw);
        return inflateCopy(&raw, const_cast<z_stream*>(&from.raw)) == Z_OK;
    }
    int inflate(DecoderBuffers& buffers, int flush) {
        return advance(raw, buffers, [&] { return ::inflate(&raw, flush); });
    }

    z_stream raw{};
};

/// Inflates a stream in one call. False, with no length, when it is damaged or does not fit.
bool inflate_whole(ZlibStream& stream, int window_bits, const void* packed, std::size_t packed_size, void* out,
                   std::size_t capacity, std::size_t& length) {
    std::uint8_t nothing = 0;  // zlib wants an address even where nothing goes
    if (out == nullptr) capacity = 0;
    DecoderBuffers buffers{.in = static_cast<const std::uint8_t*>(packed),
                           .in_size = packed_size,
                           .out = out != nullptr ? static_cast<std::uint8_t*>(out) : &nothing,
                           .out_size = capacity};
    const int result = stream.begin(window_bits) ? stream.inflate(buffers, Z_FINISH) : Z_MEM_ERROR;
    if (result == Z_MEM_ERROR) throw std::bad_alloc();
    length = result == Z_STREAM_END ? capacity - buffers.out_size : 0;
    return result == Z_STREAM_END;
}

#if ENGINE_HAS_ISAL

/// ISA-L decodes ahead into a buffer inside its state and hands out from there. So it may meet damage before the bytes in
/// front of it are asked for: those are handed out here first. And it takes whole words of input: what it holds beyond
/// need goes back to the caller, who may find something else behind the stream.
class Inflater final : public Decoder {
public:
    bool start() override {
        isal_inflate_init(&state_);
        damaged_ = false;
        return true;
    }
    Result decode(DecoderBuffers& buffers) override;
    std::shared_ptr<const Checkpoint> save() const override;
    bool restore(const Checkpoint& from) override;

private:
    static constexpr std::size_t history = ISAL_DEF_HIST_SIZE;
    static constexpr std::size_t plain_size = offsetof(inflate_state, tmp_out_buffer);

    /// Everything in front of the buffer, deflated, for most of it is tables; and the part of the buffer that is history or
    /// was not handed out.
    struct Kept final : Checkpoint {
        std::size_t bytes() const override { return sizeof(*this) + 96 + plain.size() + ahead.size(); }

        std::vector<std::uint8_t> plain;
        std::vector<std::uint8_t> ahead;
    };

    std::size_t ahead_start() const;
    bool done() const { return state_.block_state == ISAL_BLOCK_FINISH; }
    void give_back_input();
    void take_what_is_left(DecoderBuffers& buffers);

    inflate_state state_;  // 87 KB; start() initialises what has to be
    bool damaged_ = false;
};

Decoder::Result Inflater::decode(DecoderBuffers& buffers) {
    if (!damaged_ && !done()) {
        damaged_ = advance(state_, buffers, [&] {
            const bool fails = isal_inflate(&state_) < 0;
            const bool starved = state_.avail_out != 0 && !done();
            if (!fails && !starved) give_back_input();
            return fails;
        });
    }
    if (damaged_) {
        take_what_is_left(buffers);
        return buffers.out_size == 0 ? Result::MORE : Result::DAMAGED;
    }
    return done() ? Result::END : Result::MORE;
}

/// Never more than came in with this call: a decoder that got stuck needed at least a bit of what came next. While half a
/// block header waits in a buffer of its own, which goes on behind these bytes, they stay.
void Inflater::give_back_input() {
    if (state_.read_in_length < 8 || state_.tmp_in_size != 0) return;
    const int bytes = state_.read_in_length / 8;
    state_.next_in -= bytes;
    state_.avail_in += static_cast<std::uint32_t>(bytes);
    state_.read_in_length -= bytes * 8;
    state_.read_in &= (std::uint64_t{1} << state_.read_in_length) - 1;
}

void Inflater::take_what_is_left(DecoderBuffers& buffers) {
    const auto left = static_cast<std::size_t>(std::max(0, state_.tmp_out_valid - state_.tmp_out_processed));
    const std::size_t size = std::min(left, buffers.out_size);
    if (size == 0) return;
    std::memcpy(buffers.out, state_.tmp_out_buffer + state_.tmp_out_processed, size);
    state_.tmp_out_processed += static_cast<std::int32_t>(size);
    buffers.out += size;
    buffers.out_size -= size;
}

std::size_t Inflater::ahead_start() const {
    const auto valid = static_cast<std::size_t>(state_.tmp_out_valid);
    return std::min(static_cast<std::size_t>(state_.tmp_out_processed), valid - std::min(valid, history));
}

std::shared_ptr<const Decoder::Checkpoint> Inflater::save() const {
    if (damaged_) return nullptr;
    auto kept = std::make_shared<Kept>();
    kept->plain = make_deflater()->compress(&state_, plain_size, 1, plain_size);
    if (kept->plain.empty()) return nullptr;
    kept->ahead.assign(state_.tmp_out_buffer + ahead_start(), state_.tmp_out_buffer + state_.tmp_out_valid);
    return kept;
}

bool Inflater::restore(const Checkpoint& from) {
    const auto& kept = static_cast<const Kept&>(from);
    if (!make_buffer_inflater()->decode(kept.plain.data(), kept.plain.size(), &state_, plain_size)) return false;
    std::copy(kept.ahead.begin(), kept.ahead.end(), state_.tmp_out_buffer + ahead_start());  // there may be none
    damaged_ = false;
    return true;
}

#else

class Inflater final : public Decoder {
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

Decoder::Result Inflater::decode(DecoderBuffers& buffers) {
    const int result = stream_.is_open() ? stream_.inflate(buffers, Z_SYNC_FLUSH) : Z_MEM_ERROR;
    if (result == Z_STREAM_END) return Result::END;
    if (result == Z_MEM_ERROR) return Result::NO_MEMORY;
    return result == Z_OK || result == Z_BUF_ERROR ? Result::MORE : Result::DAMAGED;
}

std::shared_ptr<const Decoder::Checkpoint> Inflater::save() const {
    auto kept = std::make_shared<Kept>();
    if (!kept->stream.copy(stream_)) throw std::bad_alloc();
    return kept;
}

#endif

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
        std::size_t length = 0;
        return inflate_whole(stream_, -MAX_WBITS, packed, packed_size, out, out_size, length) && length == out_size;
    }

private:
    ZlibStream stream_;
};

#endif

}  // namespace

std::unique_ptr<Decoder> make_inflater() {
    return std::unique_ptr<Decoder>(new Inflater);  // make_unique would clear all of it
}
std::unique_ptr<BufferDecoder> make_buffer_inflater() { return std::make_unique<BufferInflater>(); }

bool inflate_zlib_stream(const void* packed, std::size_t packed_size, void* out, std::size_t capacity,
                         std::size_t& length) {
    ZlibStream stream;
    return inflate_whole(stream, MAX_WBITS, packed, packed_size, out, capacity, length);
}

}  // namespace fs

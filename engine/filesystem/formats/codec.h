#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace fs {

/// Compresses whole entries, whichever library stands behind it, keeping its state for the next one.
/// Threads  one at a time.
class Compressor {
public:
    virtual ~Compressor() = default;

    /// What the data becomes at a level of the method's own, from 1 on; empty when that is longer than `most` bytes. May
    /// throw std::bad_alloc.
    virtual std::vector<std::uint8_t> compress(const void* data, std::size_t size, int level, std::size_t most) = 0;
};

/// What a decoder may take and where its output goes. Both ends move on as it works.
struct DecoderBuffers {
    const std::uint8_t* in = nullptr;
    std::size_t in_size = 0;
    std::uint8_t* out = nullptr;
    std::size_t out_size = 0;
};

/// Decodes one compressed stream piece by piece, whichever library stands behind it.
/// Threads  one at a time.
class Decoder {
public:
    enum class Result : std::uint8_t {
        MORE,       // the room is filled, or all input is taken
        END,        // the stream ends here; what follows it is left in the input
        DAMAGED,    // the bytes before the damage came out; until the next start there will be no more
        NO_MEMORY,  // likewise
    };

    /// A state in the middle of a stream, to go on from with any decoder of the same kind.
    class Checkpoint {
    public:
        virtual ~Checkpoint() = default;
        virtual std::size_t bytes() const = 0;
    };

    virtual ~Decoder() = default;

    /// Goes to the beginning of a stream; to be called before the first decode. False without memory.
    virtual bool start() = 0;
    /// Goes on until the room is filled, the input is taken, or the stream ends. Room for nothing, or no input, is
    /// allowed: output may have waited inside.
    virtual Result decode(DecoderBuffers& buffers) = 0;

    /// The present state; null where there is no way to keep one. May throw std::bad_alloc.
    virtual std::shared_ptr<const Checkpoint> save() const { return nullptr; }
    /// Goes to a saved state, of the same kind of decoder. False, or std::bad_alloc, without memory: then only start()
    /// helps.
    virtual bool restore(const Checkpoint& /*from*/) { return false; }
};

/// Decodes whole buffers in one call, the fastest way there is, keeping its state for the next one.
/// Threads  one at a time.
class BufferDecoder {
public:
    virtual ~BufferDecoder() = default;
    /// Whether the packed bytes are good and make exactly `out_size` bytes.
    virtual bool decode(const void* packed, std::size_t packed_size, void* out, std::size_t out_size) = 0;
};

}  // namespace fs

#include "engine/filesystem/sources/pack/whole_decoders.h"

#include <algorithm>
#include <cstdlib>
#include <new>

#include "engine/filesystem/sources/pack/archive.h"

#if defined(ENGINE_HAS_LIBDEFLATE)

#include <libdeflate.h>

namespace fs {

namespace {

constexpr std::size_t most_idle = 2;
constexpr std::size_t kept_capacity = 4 * 1024 * 1024;  // a larger buffer is not kept for the next entry
constexpr std::uint32_t most_packed = 256 * 1024 * 1024;

}  // namespace

struct WholeDecoders::Decoder {
    struct FreeDecoder {
        void operator()(libdeflate_decompressor* decoder) const { libdeflate_free_decompressor(decoder); }
    };
    struct FreeBytes {
        void operator()(std::uint8_t* bytes) const { std::free(bytes); }
    };

    bool reserve(std::size_t size) {
        if (size <= capacity) return true;
        packed.reset();
        capacity = (size + 0xFFFF) & ~std::size_t{0xFFFF};
        packed.reset(static_cast<std::uint8_t*>(std::malloc(capacity)));
        if (!packed) capacity = 0;
        return packed != nullptr;
    }

    /// The packed bytes of an entry; null when the pack does not have them all.
    const std::uint8_t* load(const PackStore& store, const PackedData& data) {
        if (const std::uint8_t* bytes = store.view(data.offset, data.packed_size)) return bytes;
        const bool held = data.offset <= store.length() && data.packed_size <= store.length() - data.offset;
        if (!held || !reserve(data.packed_size)) return nullptr;
        return store.read(data.offset, packed.get(), data.packed_size) == data.packed_size ? packed.get() : nullptr;
    }

    std::unique_ptr<libdeflate_decompressor, FreeDecoder> inflater{libdeflate_alloc_decompressor()};
    std::unique_ptr<std::uint8_t, FreeBytes> packed;
    std::size_t capacity = 0;
};

WholeDecoders::WholeDecoders() { idle_.reserve(most_idle); }
WholeDecoders::~WholeDecoders() = default;

std::unique_ptr<WholeDecoders::Decoder> WholeDecoders::take() {
    {
        const std::lock_guard guard(lock_);
        if (!idle_.empty()) {
            std::unique_ptr<Decoder> decoder = std::move(idle_.back());
            idle_.pop_back();
            return decoder;
        }
    }
    std::unique_ptr<Decoder> decoder(new (std::nothrow) Decoder);
    return decoder && decoder->inflater ? std::move(decoder) : nullptr;
}

void WholeDecoders::give_back(std::unique_ptr<Decoder> decoder) {
    if (decoder->capacity > kept_capacity) {
        decoder->packed.reset();
        decoder->capacity = 0;
    }
    const std::lock_guard guard(lock_);
    if (idle_.size() < most_idle) idle_.push_back(std::move(decoder));
}

bool WholeDecoders::decode(const PackArchive& archive, const PackedData& data, std::uint8_t* buffer) {
    if (data.packed_size == 0 || data.packed_size > most_packed) return false;
    std::unique_ptr<Decoder> decoder = take();
    if (!decoder) return false;
    const std::uint8_t* packed = decoder->load(archive.store(), data);
    std::size_t size = 0;
    const bool good = packed && libdeflate_deflate_decompress(decoder->inflater.get(), packed, data.packed_size, buffer,
                                                              data.size, &size) == LIBDEFLATE_SUCCESS;
    give_back(std::move(decoder));
    return good && size == data.size;
}

}  // namespace fs

#else

namespace fs {

struct WholeDecoders::Decoder {};

WholeDecoders::WholeDecoders() = default;
WholeDecoders::~WholeDecoders() = default;
bool WholeDecoders::decode(const PackArchive&, const PackedData&, std::uint8_t*) { return false; }

}  // namespace fs

#endif

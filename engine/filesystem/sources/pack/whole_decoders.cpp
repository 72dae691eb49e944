#include "engine/filesystem/sources/pack/whole_decoders.h"

#include <utility>

#include "engine/filesystem/contract/set_error.h"
#include "engine/filesystem/formats/deflate.h"
#include "engine/filesystem/formats/zstd.h"
#include "engine/filesystem/sources/pack/archive.h"

namespace fs {

namespace {

constexpr std::size_t most_idle = 2;
constexpr std::size_t kept_capacity = 4 * 1024 * 1024;  // what has a larger buffer is not kept
constexpr std::uint32_t most_packed = 256 * 1024 * 1024;

}  // namespace

struct WholeDecoders::Worker {
    /// The packed bytes of an entry; null when the pack does not give them all.
    const std::uint8_t* load(const PackStore& store, const PackedData& data) {
        if (const std::uint8_t* bytes = store.view(data.offset, data.packed_size)) return bytes;
        if (data.offset > store.length() || data.packed_size > store.length() - data.offset) return nullptr;
        if (data.packed_size > capacity) {
            packed.reset();
            capacity = std::size_t{data.packed_size | 0xFFFF} + 1;
            packed.reset(new std::uint8_t[capacity]);  // what throws ends this worker
        }
        ErrorScope scope;
        const bool is_whole = store.read(data.offset, packed.get(), data.packed_size) == data.packed_size;
        scope.forget();  // whether the blocks fail too is what counts
        return is_whole ? packed.get() : nullptr;
    }

    bool decode(const PackedData& data, const std::uint8_t* bytes, std::uint8_t* out) {
        const bool is_zstd = data.method == EFSPackMethod::ZSTD;
        std::unique_ptr<BufferDecoder>& decoder = is_zstd ? zstd : inflater;
        if (!decoder) decoder = is_zstd ? make_buffer_zstd_decoder() : make_buffer_inflater();
        return decoder->decode(bytes, data.packed_size, out, data.size);
    }

    std::unique_ptr<BufferDecoder> inflater;
    std::unique_ptr<BufferDecoder> zstd;
    std::unique_ptr<std::uint8_t[]> packed;
    std::size_t capacity = 0;
};

WholeDecoders::WholeDecoders() { idle_.reserve(most_idle); }
WholeDecoders::~WholeDecoders() = default;

std::unique_ptr<WholeDecoders::Worker> WholeDecoders::take() {
    {
        const platform::LockGuard guard(lock_);
        if (!idle_.empty()) {
            std::unique_ptr<Worker> worker = std::move(idle_.back());
            idle_.pop_back();
            return worker;
        }
    }
    return std::make_unique<Worker>();
}

void WholeDecoders::give_back(std::unique_ptr<Worker> worker) {
    const platform::LockGuard guard(lock_);
    if (worker->capacity <= kept_capacity && idle_.size() < most_idle) idle_.push_back(std::move(worker));
}

bool WholeDecoders::decode(const PackStore& store, const PackedData& data, std::uint8_t* buffer) {
    if (data.packed_size == 0 || data.packed_size > most_packed) return false;
    std::unique_ptr<Worker> worker = take();
    const std::uint8_t* bytes = worker->load(store, data);
    const bool good = bytes && worker->decode(data, bytes, buffer);
    give_back(std::move(worker));
    return good;
}

}  // namespace fs

#include "compressor.h"

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

#if defined(ENGINE_HAS_LIBDEFLATE)
#include <libdeflate.h>
#else
#include <zlib.h>
#endif

namespace {

constexpr std::uint64_t most_held = 256u << 20;
constexpr std::size_t most_ahead = 4096;

#if defined(ENGINE_HAS_LIBDEFLATE)

std::uint32_t crc_of(const std::vector<char>& data) { return libdeflate_crc32(0, data.data(), data.size()); }

struct FreeCompressor {
    void operator()(libdeflate_compressor* compressor) const { libdeflate_free_compressor(compressor); }
};

/// Deflates into `out`; false when the result would not be smaller.
class Deflater {
public:
    bool run(int level, const std::vector<char>& in, std::vector<char>& out) {
        if (level != level_) compressor_.reset(libdeflate_alloc_compressor(level));
        level_ = level;
        if (compressor_ == nullptr) return false;
        out.resize(in.size());
        out.resize(libdeflate_deflate_compress(compressor_.get(), in.data(), in.size(), out.data(), out.size()));
        return !out.empty() && out.size() < in.size();
    }

private:
    int level_ = -1;
    std::unique_ptr<libdeflate_compressor, FreeCompressor> compressor_;
};

#else

std::uint32_t crc_of(const std::vector<char>& data) {
    return static_cast<std::uint32_t>(crc32_z(0, reinterpret_cast<const Bytef*>(data.data()), data.size()));
}

class Deflater {
public:
    bool run(int level, const std::vector<char>& in, std::vector<char>& out) {
        z_stream stream{};
        if (deflateInit2(&stream, std::min(level, 9), Z_DEFLATED, -MAX_WBITS, 9, Z_DEFAULT_STRATEGY) != Z_OK)
            return false;
        out.resize(in.size());
        stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(in.data()));
        stream.avail_in = static_cast<uInt>(in.size());
        stream.next_out = reinterpret_cast<Bytef*>(out.data());
        stream.avail_out = static_cast<uInt>(out.size());
        const bool whole = deflate(&stream, Z_FINISH) == Z_STREAM_END;
        out.resize(stream.total_out);
        deflateEnd(&stream);
        return whole && out.size() < in.size();
    }
};

#endif

/// A deflate stream that only copies: what packs badly can be sought in all the same.
std::vector<char> copying_stream(const std::vector<char>& plain) {
    constexpr std::size_t longest = 65535;
    std::vector<char> out;
    out.reserve(plain.size() + (plain.size() / longest + 1) * 5);
    for (std::size_t at = 0; at < plain.size(); at += longest) {
        const std::size_t size = std::min(longest, plain.size() - at);
        const bool last = at + size == plain.size();
        for (const std::size_t byte : {std::size_t{last}, size, size >> 8, ~size, ~size >> 8})
            out.push_back(static_cast<char>(byte));
        out.insert(out.end(), plain.data() + at, plain.data() + at + size);
    }
    return out;
}

void compress(PackedFile& file, const PackPlan& plan, Deflater& deflater) {
    constexpr std::size_t block = 32768;  // what is no longer can be sought in anyway
    file.crc = crc_of(file.plain);
    if (plan.level == 0 || file.plain.empty()) return;
    // For zstd a quick look says whether the file is worth it.
    const bool is_zstd = plan.method == EFSPackMethod::ZSTD;
    file.deflated =
        deflater.run(is_zstd ? 1 : plan.level, file.plain, file.packed) &&
        file.packed.size() * std::uint64_t{100} <= file.plain.size() * static_cast<std::uint64_t>(100 - plan.worth);
    if (file.deflated && is_zstd) {
        file.deflated = false;
        file.method = EFSPackMethod::ZSTD;
    } else if (!file.deflated && file.plain.size() > block) {
        file.packed = copying_stream(file.plain);
        file.deflated = true;
    }
    (file.deflated ? file.plain : file.packed) = std::vector<char>();
}

}  // namespace

Compressor::Compressor(std::size_t count, Load load, PlanOf plan_of)
    : count_(count), load_(std::move(load)), plan_of_(std::move(plan_of)), files_(count), ready_(count) {
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    try {
        while (threads_.size() < cores) threads_.emplace_back([this] { work(); });
    } catch (const std::exception&) {
        // The system gives no more threads: those that started do the work, or take() itself.
    }
}

Compressor::~Compressor() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    for (std::thread& thread : threads_) thread.join();
}

PackedFile Compressor::take(std::size_t index) {
    if (threads_.empty()) return make(index);
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return ready_[index]; });
    PackedFile file = std::move(files_[index]);
    held_ -= file.plain.size() + file.packed.size();
    taken_ = index + 1;
    lock.unlock();
    changed_.notify_all();
    return file;
}

/// Waits until another file may be begun. The one that is waited for may always be, or nothing would move.
bool Compressor::next_index(std::size_t& index) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] {
        if (stopping_ || next_ == count_ || next_ == taken_) return true;
        return held_ < most_held && next_ - taken_ < most_ahead;
    });
    if (stopping_ || next_ == count_) return false;
    index = next_++;
    return true;
}

PackedFile Compressor::make(std::size_t index) const {
    thread_local Deflater deflater;
    try {
        PackedFile file;
        load_(index, file);
        if (file.error.empty()) compress(file, plan_of_(index), deflater);
        return file;
    } catch (const std::bad_alloc&) {
        return {.error = "no memory"};  // short enough to take none
    }
}

void Compressor::work() {
    std::size_t index = 0;
    while (next_index(index)) {
        PackedFile file = make(index);
        {
            const std::lock_guard lock(mutex_);
            held_ += file.plain.size() + file.packed.size();
            files_[index] = std::move(file);
            ready_[index] = true;
        }
        changed_.notify_all();
    }
}

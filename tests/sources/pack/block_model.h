#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <zlib.h>

namespace packs {

/// What reading an entry of a pack is defined to do, written down as plainly as it can be: two blocks of 32 KiB, input
/// by 16 KiB, everything in memory, nothing shared, no shortcut. The real reader must not be told from it.
class BlockModel {
public:
    BlockModel(const std::string& packed, std::uint32_t size, bool stored)
        : packed_(packed), size_(size), stored_(stored) {}
    ~BlockModel() {
        if (started_ && !stored_) inflateEnd(&stream_);
    }
    BlockModel(const BlockModel&) = delete;
    BlockModel& operator=(const BlockModel&) = delete;

    std::uint64_t position() const { return position_; }

    std::uint64_t read(char* buffer, std::uint64_t count) {
        if (position_ > size_) return 0;
        count = std::min(count, size_ - position_);
        if (!started_) start();
        if (position_ / 32768 != now().number || position_ % 32768 != now().read) {
            if (position_ / 32768 < now().number) {
                if (!stored_) inflateEnd(&stream_);
                start();
            }
            decode(nullptr, position_ - (now().number * 32768 + now().read));
        }
        std::uint64_t got = count;
        if (now().fill - now().read >= count) {
            std::memcpy(buffer, now().bytes + now().read, count);
            now().read += static_cast<std::uint32_t>(count);
        } else {
            got = decode(buffer, count);
        }
        position_ += got;
        return got;
    }

    void seek(std::int64_t offset, int origin) {
        position_ = static_cast<std::uint64_t>(offset) + (origin == 0 ? 0 : origin == 1 ? position_ : size_);
        const std::uint64_t number = position_ / 32768;
        for (int i = 0; i < 2; ++i) {
            if (blocks_[i].number != number) continue;
            current_ = i;
            now().read = std::min(static_cast<std::uint32_t>(position_ % 32768), now().fill);
            return;
        }
    }

private:
    struct Block {
        char bytes[32768];
        std::uint32_t read = 0, fill = 0;
        std::uint64_t number = 0;
    };
    Block& now() { return blocks_[current_]; }

    void start() {
        started_ = true;
        if (!stored_) {
            stream_ = z_stream{};
            inflateInit2(&stream_, -15);
        }
        refill();
        current_ = 0;
        blocks_[0].read = blocks_[0].fill = blocks_[0].number = 0;
        blocks_[1].read = blocks_[1].fill = 0;
        blocks_[1].number = ~std::uint64_t{0};
    }

    void refill() {
        const std::size_t wanted = std::min<std::size_t>(packed_.size() - stream_.total_in, 16384);
        stream_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(packed_.data())) + stream_.total_in;
        stream_.avail_in = static_cast<uInt>(wanted);
    }

    std::uint64_t decode(char* out, std::uint64_t count) {
        std::uint64_t done = 0;
        for (;;) {
            const auto n = static_cast<std::uint32_t>(std::min<std::uint64_t>(count - done, now().fill - now().read));
            if (out) std::memcpy(out + done, now().bytes + now().read, n);
            now().read += n;
            done += n;
            if (done == count) return done;
            if (now().fill == 32768) {
                const std::uint64_t next = now().number + 1;
                current_ ^= 1;
                now().read = 0;
                if (now().number != next) now().fill = 0;
                now().number = next;
            }
            stream_.next_out = reinterpret_cast<Bytef*>(now().bytes) + now().fill;
            stream_.avail_out = 32768 - now().fill;
            if (stream_.avail_in == 0) refill();
            if (stored_) {
                copy();
            } else {
                const int result = inflate(&stream_, Z_SYNC_FLUSH);
                if (stream_.msg || result == Z_STREAM_ERROR) return 0;
            }
            now().fill = 32768 - stream_.avail_out;
            if (now().fill == now().read) return done;
        }
    }

    /// All of the input at once, unless a block that was kept is full already.
    void copy() {
        if (stream_.avail_in > stream_.avail_out) return;
        std::memcpy(stream_.next_out, stream_.next_in, stream_.avail_in);
        stream_.avail_out -= stream_.avail_in;
        stream_.total_in += stream_.avail_in;
        stream_.avail_in = 0;
    }

    const std::string packed_;
    const std::uint64_t size_;
    const bool stored_;
    bool started_ = false;
    int current_ = 0;
    Block blocks_[2] = {};
    std::uint64_t position_ = 0;
    z_stream stream_{};
};

}  // namespace packs

#include "engine/filesystem/sources/pack/exact_inflate.h"

#include <algorithm>
#include <cstring>

#include "engine/filesystem/sources/pack/block_reader.h"
#include "engine/filesystem/sources/pack/ring_inflate.h"
#include "engine/filesystem/sources/pack/store.h"

namespace fs {

void ExactInflate::end() {
    if (open_) inflateEnd(&stream_);
    open_ = false;
}

void ExactInflate::restart() {
    end();
    stream_ = z_stream{};
    open_ = inflateInit2(&stream_, -MAX_WBITS) == Z_OK;
    if (open_) refill();
}

/// The next piece of input, into the window: a pack in memory is copied from too, since this is no good entry anyway.
void ExactInflate::refill() {
    const auto consumed = static_cast<std::uint32_t>(stream_.total_in);
    const std::uint32_t wanted = std::min(input_.packed_size - consumed, BlockReader::input_size);
    const std::uint64_t got = input_.store.read(input_.offset + consumed, input_.window, wanted);
    std::memset(input_.window + got, 0, static_cast<std::size_t>(wanted - got));
    stream_.next_in = input_.window;
    stream_.avail_in = wanted;
}

bool ExactInflate::decode(std::uint8_t* out, std::uint32_t room, std::uint32_t& produced) {
    if (!open_) return false;
    stream_.next_out = out;
    stream_.avail_out = room;
    if (stream_.avail_in == 0) refill();
    const int result = inflate(&stream_, Z_SYNC_FLUSH);
    produced = room - stream_.avail_out;
    return !stream_.msg && result != Z_STREAM_ERROR && result != Z_MEM_ERROR;
}

}  // namespace fs

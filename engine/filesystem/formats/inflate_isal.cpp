#include "engine/filesystem/formats/inflate_isal.h"

#if ENGINE_HAS_ISAL

#include <algorithm>
#include <cstring>
#include <limits>
#include <vector>

#include <igzip_lib.h>

#include "engine/filesystem/formats/deflate.h"
#include "engine/filesystem/formats/inflate.h"

// ISA-L decodes ahead into a buffer inside its state and hands out from there. So it may meet damage before the bytes in
// front of it are asked for: those are handed out here first. And it takes whole words of input: what it holds beyond
// need goes back to the caller, who may find something else behind the stream.

namespace fs {

namespace {

constexpr std::size_t history = ISAL_DEF_HIST_SIZE;
constexpr std::size_t plain_size = offsetof(inflate_state, tmp_out_buffer);

class IsalInflater final : public Decoder {
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

std::uint32_t clamped(std::size_t size) {
    return static_cast<std::uint32_t>(std::min<std::size_t>(size, std::numeric_limits<std::uint32_t>::max()));
}

Decoder::Result IsalInflater::decode(DecoderBuffers& buffers) {
    if (!damaged_ && !done()) {
        state_.next_in = const_cast<std::uint8_t*>(buffers.in);
        state_.avail_in = clamped(buffers.in_size);
        state_.next_out = buffers.out;
        state_.avail_out = clamped(buffers.out_size);
        damaged_ = isal_inflate(&state_) < 0;
        const bool starved = state_.avail_out != 0 && !done();
        if (!damaged_ && !starved) give_back_input();
        buffers.in_size -= static_cast<std::size_t>(state_.next_in - buffers.in);
        buffers.in = state_.next_in;
        buffers.out_size -= static_cast<std::size_t>(state_.next_out - buffers.out);
        buffers.out = state_.next_out;
    }
    if (damaged_) {
        take_what_is_left(buffers);
        return buffers.out_size == 0 ? Result::MORE : Result::DAMAGED;
    }
    return done() ? Result::END : Result::MORE;
}

/// Never more than came in with this call: a decoder that got stuck needed at least a bit of what came next. While half a
/// block header waits in a buffer of its own, which goes on behind these bytes, they stay.
void IsalInflater::give_back_input() {
    if (state_.read_in_length < 8 || state_.tmp_in_size != 0) return;
    const int bytes = state_.read_in_length / 8;
    state_.next_in -= bytes;
    state_.avail_in += static_cast<std::uint32_t>(bytes);
    state_.read_in_length -= bytes * 8;
    state_.read_in &= (std::uint64_t{1} << state_.read_in_length) - 1;
}

void IsalInflater::take_what_is_left(DecoderBuffers& buffers) {
    const auto left = static_cast<std::size_t>(std::max(0, state_.tmp_out_valid - state_.tmp_out_processed));
    const std::size_t size = std::min(left, buffers.out_size);
    if (size == 0) return;
    std::memcpy(buffers.out, state_.tmp_out_buffer + state_.tmp_out_processed, size);
    state_.tmp_out_processed += static_cast<std::int32_t>(size);
    buffers.out += size;
    buffers.out_size -= size;
}

std::size_t IsalInflater::ahead_start() const {
    const auto valid = static_cast<std::size_t>(state_.tmp_out_valid);
    return std::min(static_cast<std::size_t>(state_.tmp_out_processed), valid - std::min(valid, history));
}

std::shared_ptr<const Decoder::Checkpoint> IsalInflater::save() const {
    if (damaged_) return nullptr;
    auto kept = std::make_shared<Kept>();
    kept->plain = make_deflater()->compress(&state_, plain_size, 1, plain_size);
    if (kept->plain.empty()) return nullptr;
    kept->ahead.assign(state_.tmp_out_buffer + ahead_start(), state_.tmp_out_buffer + state_.tmp_out_valid);
    return kept;
}

bool IsalInflater::restore(const Checkpoint& from) {
    const auto& kept = static_cast<const Kept&>(from);
    if (!make_buffer_inflater()->decode(kept.plain.data(), kept.plain.size(), &state_, plain_size)) return false;
    std::copy(kept.ahead.begin(), kept.ahead.end(), state_.tmp_out_buffer + ahead_start());  // there may be none
    damaged_ = false;
    return true;
}

}  // namespace

std::unique_ptr<Decoder> make_isal_inflater() {
    return std::unique_ptr<Decoder>(new IsalInflater);  // make_unique would clear all of it
}

}  // namespace fs

#endif

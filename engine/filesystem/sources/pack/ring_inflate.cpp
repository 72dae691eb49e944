#include "engine/filesystem/sources/pack/ring_inflate.h"

#include <algorithm>
#include <cstring>

#include "engine/filesystem/sources/pack/bytes.h"
#include "engine/filesystem/sources/pack/store.h"

// Two loops decode the same thing. The fast one runs while input and the block have room for whatever one step can take
// or give, so that it need not look; the careful one takes one symbol at a time and stops anywhere.

namespace fs {

namespace {

constexpr std::uint32_t longest_match = 258;
constexpr std::uint32_t copy_step = 8;
// One step of the fast loop: three literals and a match, whose copying may write beyond its end.
constexpr std::uint32_t step_output = 3 + longest_match + copy_step;
constexpr std::ptrdiff_t step_input = 24;  // three times eight bytes are loaded at most

std::uint32_t low_bits(std::uint64_t bits, std::uint32_t count) {
    return static_cast<std::uint32_t>(bits & ((std::uint64_t{1} << count) - 1));
}

/// The bits of the fast loop. Above `bit_count` there may be more of the same input, which refill puts there again.
struct FastBits {
    std::uint64_t bits;
    std::uint32_t bit_count;  // below 64
    const std::uint8_t* next;

    /// To at least 56 bits.
    void refill() {
        bits |= get_u64(next) << bit_count;
        next += (63 - bit_count) >> 3;
        bit_count |= 56;
    }
    void drop(std::uint32_t count) {
        bits >>= count;
        bit_count -= count;
    }
    std::uint32_t take(std::uint32_t count) {
        const std::uint32_t value = low_bits(bits, count);
        drop(count);
        return value;
    }
    /// Takes the code whose entry in the root table is `code`.
    std::uint32_t finish_code(const std::uint32_t* table, std::uint32_t code) {
        drop(code_bits(code));
        if ((code & Code::subtable) == 0) return code;
        const std::uint32_t rest = table[code_value(code) + low_bits(bits, code_extra(code))];
        drop(code_bits(rest));
        return rest;
    }
};

/// Copies a match inside the ring, `to` being what comes next and `from` anywhere. May write up to 7 bytes more.
void copy_in_ring(std::uint8_t* ring, std::uint32_t to, std::uint32_t from, std::uint32_t length,
                  std::uint32_t distance) {
    constexpr std::uint32_t mask = RingInflate::ring_size - 1;
    if (from + length > RingInflate::ring_size) {
        for (std::uint32_t i = 0; i < length; ++i) ring[to + i] = ring[(from + i) & mask];
        return;
    }
    std::uint8_t* target = ring + to;
    const std::uint8_t* source = ring + from;
    if (distance >= copy_step) {
        for (std::uint32_t i = 0; i < length; i += copy_step) std::memcpy(target + i, source + i, copy_step);
    } else if (distance == 1) {
        std::memset(target, *source, length);
    } else {
        for (std::uint32_t i = 0; i < length; ++i) target[i] = source[i];
    }
}

}  // namespace

// Input.

/// Packed bytes that are used up, in whole bytes.
std::uint32_t RingInflate::consumed() const { return loaded_ - static_cast<std::uint32_t>(end_ - next_); }

void RingInflate::seek_input(std::uint32_t at) {
    loaded_ = at;
    next_ = end_ = nullptr;
}

bool RingInflate::load_window() {
    const std::uint32_t left = input_.packed_size - loaded_;
    if (left == 0) return false;
    const std::uint64_t place = input_.offset + loaded_;
    next_ = input_.store.view(place, left);
    std::uint32_t size = left;
    if (!next_) {
        size = std::min(left, input_.capacity);
        next_ = input_.window;
        if (input_.store.read(place, input_.window, size) != size) size = 0;
    }
    end_ = next_ + size;
    loaded_ += size;
    return size != 0;
}

bool RingInflate::next_byte() {
    if (next_ == end_ && !load_window()) return false;
    state_.bits |= std::uint64_t{*next_++} << state_.bit_count;
    state_.bit_count += 8;
    return true;
}

/// As many bits as there are, up to 63. Those behind the input's end look like zeros.
void RingInflate::fill_bits() {
    while (state_.bit_count < 56 && next_byte()) {
    }
}

bool RingInflate::take_bits(std::uint32_t count, std::uint32_t& value) {
    while (state_.bit_count < count) {
        if (!next_byte()) return false;
    }
    value = low_bits(state_.bits, count);
    state_.bits >>= count;
    state_.bit_count -= count;
    return true;
}

// Headers.

void RingInflate::start() {
    state_ = State{};
    seek_input(0);
}

bool RingInflate::read_header() {
    if (state_.last) {
        state_.mode = Mode::DONE;
        return true;
    }
    std::uint32_t header = 0;
    if (!take_bits(3, header)) return false;
    state_.last = (header & 1) != 0;
    switch (header >> 1) {
        case 0:
            return read_stored_header();
        case 1:
            return set_fixed_codes();
        case 2:
            return read_dynamic_header();
        default:
            return false;
    }
}

bool RingInflate::read_stored_header() {
    std::uint32_t padding = 0;
    std::uint32_t length = 0;
    std::uint32_t inverse = 0;
    if (!take_bits(state_.bit_count % 8, padding) || !take_bits(16, length) || !take_bits(16, inverse)) return false;
    if (length != (inverse ^ 0xFFFF)) return false;
    state_.stored_left = length;
    state_.mode = Mode::STORED;
    return true;
}

bool RingInflate::set_fixed_codes() {
    std::fill_n(lengths_, 144, std::uint8_t{8});
    std::fill_n(lengths_ + 144, 112, std::uint8_t{9});
    std::fill_n(lengths_ + 256, 24, std::uint8_t{7});
    std::fill_n(lengths_ + 280, 8, std::uint8_t{8});
    std::fill_n(lengths_ + 288, 32, std::uint8_t{5});
    state_.literal_count = literal_symbols;
    state_.distance_count = distance_symbols;
    return build_tables();
}

bool RingInflate::read_dynamic_header() {
    static constexpr std::uint8_t order[length_symbols] = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                                           11, 4,  12, 3, 13, 2, 14, 1, 15};
    std::uint32_t counts = 0;
    if (!take_bits(14, counts)) return false;
    const std::uint32_t literal_count = 257 + (counts & 31);
    const std::uint32_t distance_count = 1 + (counts >> 5 & 31);
    if (literal_count > 286 || distance_count > 30) return false;
    std::uint8_t own_lengths[length_symbols] = {};
    for (std::uint32_t i = 0; i < 4 + (counts >> 10); ++i) {
        std::uint32_t length = 0;
        if (!take_bits(3, length)) return false;
        own_lengths[order[i]] = static_cast<std::uint8_t>(length);
    }
    std::uint32_t table[1u << length_root_bits];
    if (!build_length_table(own_lengths, table)) return false;
    if (!read_code_lengths(table, literal_count + distance_count) || lengths_[256] == 0) return false;
    state_.literal_count = static_cast<std::uint16_t>(literal_count);
    state_.distance_count = static_cast<std::uint16_t>(distance_count);
    return build_tables();
}

/// The lengths of both codes, one behind the other, with runs written short.
bool RingInflate::read_code_lengths(const std::uint32_t* table, std::uint32_t count) {
    for (std::uint32_t have = 0; have < count;) {
        std::uint32_t code = 0;
        std::uint32_t extra = 0;
        if (!look_up(table, length_root_bits, code)) return false;
        const std::uint32_t symbol = code_value(code);
        if (symbol < 16) {
            lengths_[have++] = static_cast<std::uint8_t>(symbol);
            continue;
        }
        if (symbol == 16 && have == 0) return false;
        const std::uint8_t length = symbol == 16 ? lengths_[have - 1] : std::uint8_t{0};
        if (!take_bits(symbol == 16 ? 2 : symbol == 17 ? 3 : 7, extra)) return false;
        const std::uint32_t run = extra + (symbol == 18 ? 11 : 3);
        if (run > count - have) return false;
        std::fill_n(lengths_ + have, run, length);
        have += run;
    }
    return true;
}

bool RingInflate::build_tables() {
    state_.mode = Mode::CODES;
    return build_literal_table(lengths_, state_.literal_count, literals_) &&
           build_distance_table(lengths_ + state_.literal_count, state_.distance_count, distances_);
}

// Data.

bool RingInflate::decode_block(std::uint32_t& produced) {
    base_ = static_cast<std::uint32_t>(state_.total_out / block_size % 2) * block_size;
    out_ = 0;
    while (out_ < block_size && state_.mode != Mode::DONE) {
        bool good = false;
        switch (state_.mode) {
            case Mode::HEADER:
                good = read_header();
                break;
            case Mode::STORED:
                good = copy_stored();
                break;
            case Mode::CODES:
                good = decode_codes();
                break;
            case Mode::DONE:
                break;
        }
        if (!good) return false;
    }
    state_.total_out += out_;
    produced = out_;
    return true;
}

bool RingInflate::copy_stored() {
    while (state_.stored_left != 0 && out_ < block_size) {
        std::uint32_t byte = 0;
        std::uint32_t run = 1;
        if (state_.bit_count != 0) {
            take_bits(8, byte);
            ring_[base_ + out_] = static_cast<std::uint8_t>(byte);
        } else {
            if (next_ == end_ && !load_window()) return false;
            run = static_cast<std::uint32_t>(
                std::min<std::ptrdiff_t>(end_ - next_, std::min(state_.stored_left, block_size - out_)));
            std::memcpy(ring_ + base_ + out_, next_, run);
            next_ += run;
        }
        out_ += run;
        state_.stored_left -= run;
    }
    if (state_.stored_left == 0) state_.mode = Mode::HEADER;
    return true;
}

bool RingInflate::decode_codes() {
    continue_match();
    while (out_ < block_size && state_.mode == Mode::CODES) {
        const bool has_room = block_size - out_ >= step_output && end_ - next_ >= step_input;
        if (!(has_room ? decode_fast() : decode_one())) return false;
    }
    return true;
}

/// Takes the next code off the bits. False where no code begins so, or the input ends in it.
bool RingInflate::look_up(const std::uint32_t* table, std::uint32_t root_bits, std::uint32_t& code) {
    fill_bits();
    code = table[low_bits(state_.bits, root_bits)];
    std::uint32_t used = code_bits(code);
    if ((code & Code::subtable) != 0) {
        code = table[code_value(code) + low_bits(state_.bits >> used, code_extra(code))];
        used += code_bits(code);
    }
    if (used > state_.bit_count) return false;
    state_.bits >>= used;
    state_.bit_count -= used;
    return (code & Code::special) == 0 || (code & Code::block_end) != 0;
}

bool RingInflate::decode_one() {
    std::uint32_t code = 0;
    std::uint32_t extra = 0;
    if (!look_up(literals_, literal_root_bits, code)) return false;
    if ((code & Code::literal) != 0) {
        ring_[base_ + out_++] = static_cast<std::uint8_t>(code_value(code));
        return true;
    }
    if ((code & Code::special) != 0) {
        state_.mode = Mode::HEADER;
        return true;
    }
    if (!take_bits(code_extra(code), extra)) return false;
    const std::uint32_t length = code_value(code) + extra;
    if (!look_up(distances_, distance_root_bits, code) || !take_bits(code_extra(code), extra)) return false;
    return begin_match(length, code_value(code) + extra);
}

bool RingInflate::begin_match(std::uint32_t length, std::uint32_t distance) {
    if (distance > state_.total_out + out_) return false;
    state_.match_left = length;
    state_.match_distance = distance;
    continue_match();
    return true;
}

/// As much of the match as the block has room for, byte by byte: it may end anywhere.
void RingInflate::continue_match() {
    for (; state_.match_left != 0 && out_ < block_size; --state_.match_left, ++out_) {
        ring_[base_ + out_] = ring_[(base_ + out_ - state_.match_distance) & (ring_size - 1)];
    }
}

bool RingInflate::decode_fast() {
    // What is touched at every step is kept in locals.
    FastBits in{state_.bits, state_.bit_count, next_};
    const std::uint8_t* const in_limit = end_ - step_input;
    std::uint32_t out = base_ + out_;
    const std::uint32_t out_limit = base_ + block_size - step_output;
    bool good = true;
    while (out <= out_limit && in.next <= in_limit) {
        in.refill();
        std::uint32_t code = literals_[low_bits(in.bits, literal_root_bits)];
        for (int i = 0; i < 2 && (code & Code::literal) != 0; ++i) {  // 11 bits at most, each: one refill serves them
            in.drop(code_bits(code));
            ring_[out++] = static_cast<std::uint8_t>(code_value(code));
            code = literals_[low_bits(in.bits, literal_root_bits)];
        }
        code = in.finish_code(literals_, code);
        if ((code & Code::literal) != 0) {
            ring_[out++] = static_cast<std::uint8_t>(code_value(code));
            continue;
        }
        if ((code & Code::special) != 0) {
            good = (code & Code::block_end) != 0;
            state_.mode = Mode::HEADER;
            break;
        }
        const std::uint32_t length = code_value(code) + in.take(code_extra(code));
        in.refill();
        code = in.finish_code(distances_, distances_[low_bits(in.bits, distance_root_bits)]);
        const std::uint32_t distance = code_value(code) + in.take(code_extra(code));
        good = (code & Code::special) == 0 && distance <= state_.total_out + (out - base_);
        if (!good) break;
        copy_in_ring(ring_, out, (out - distance) & (ring_size - 1), length, distance);
        out += length;
    }
    state_.bits = in.bits & ((std::uint64_t{1} << in.bit_count) - 1);
    state_.bit_count = in.bit_count;
    next_ = in.next;
    out_ = out - base_;
    return good;
}

// Snapshots.

void RingInflate::save(Snapshot& out) const {
    out.state = state_;
    out.consumed = consumed();
    std::memcpy(out.lengths, lengths_, sizeof lengths_);
    const std::uint32_t place = static_cast<std::uint32_t>((state_.total_out / block_size + 1) % 2) * block_size;
    std::memcpy(out.history, ring_ + place, block_size);
}

void RingInflate::restore(const Snapshot& from) {
    state_ = from.state;
    seek_input(from.consumed);
    std::memcpy(lengths_, from.lengths, sizeof lengths_);
    const std::uint32_t place = static_cast<std::uint32_t>((state_.total_out / block_size + 1) % 2) * block_size;
    std::memcpy(ring_ + place, from.history, block_size);
    if (state_.mode == Mode::CODES) build_tables();
}

}  // namespace fs

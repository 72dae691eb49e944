#include "engine/filesystem/sources/pack/codes.h"

#include <algorithm>

// Codes are given to symbols in the order of their lengths and, between equal lengths, of the symbols, counting up; a
// stream holds them with the first bit lowest, so a table is indexed by the code's bits in reverse.

namespace fs {

namespace {

constexpr std::uint32_t longest = 15;

constexpr std::uint16_t length_bases[29] = {3,  4,  5,  6,  7,  8,  9,  10, 11,  13,  15,  17,  19,  23, 27,
                                            31, 35, 43, 51, 59, 67, 83, 99, 115, 131, 163, 195, 227, 258};
constexpr std::uint8_t length_extra[29] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                           2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
constexpr std::uint16_t distance_bases[30] = {1,    2,    3,    4,    5,    7,    9,    13,    17,    25,
                                              33,   49,   65,   97,   129,  193,  257,  385,   513,   769,
                                              1025, 1537, 2049, 3073, 4097, 6145, 8193, 12289, 16385, 24577};

std::uint32_t entry(std::uint32_t value, std::uint32_t extra, std::uint32_t kind) {
    return value << 16 | extra << 4 | kind;
}

std::uint32_t literal_entry(std::uint32_t symbol) {
    if (symbol < 256) return entry(symbol, 0, Code::literal);
    if (symbol == 256) return entry(0, 0, Code::special | Code::block_end);
    if (symbol > 285) return entry(0, 0, Code::special);
    return entry(length_bases[symbol - 257], length_extra[symbol - 257], 0);
}

std::uint32_t distance_entry(std::uint32_t symbol) {
    if (symbol > 29) return entry(0, 0, Code::special);
    return entry(distance_bases[symbol], symbol < 4 ? 0 : symbol / 2 - 1, 0);
}

std::uint32_t length_entry(std::uint32_t symbol) { return entry(symbol, 0, 0); }

std::uint32_t reversed(std::uint32_t code, std::uint32_t bits) {
    std::uint32_t out = 0;
    for (std::uint32_t i = 0; i < bits; ++i) out |= (code >> i & 1) << (bits - 1 - i);
    return out;
}

/// How many codes have each length, and what the first code of each length is.
struct Lengths {
    std::uint32_t counts[longest + 1] = {};
    std::uint32_t next[longest + 2] = {};
    std::int32_t left = 1;  // codes of the greatest length that are not given away; below 0 when there are too many

    Lengths(const std::uint8_t* lengths, std::uint32_t count) {
        for (std::uint32_t i = 0; i < count; ++i) ++counts[lengths[i]];
        counts[0] = 0;
        for (std::uint32_t length = 1; length <= longest; ++length) {
            next[length + 1] = (next[length] + counts[length]) << 1;
            left = left * 2 - static_cast<std::int32_t>(counts[length]);
            if (left < 0) return;
        }
    }
};

class TableBuilder {
public:
    TableBuilder(std::uint32_t* table, std::uint32_t root_bits) : table_(table), root_bits_(root_bits) {}

    /// The codes of `lengths` make up the whole of the table.
    void build(const std::uint8_t* lengths, std::uint32_t count, Lengths codes,
               std::uint32_t (*entry_of)(std::uint32_t)) {
        std::uint16_t places[literal_symbols];
        for (std::uint32_t symbol = 0; symbol < count; ++symbol) {
            if (lengths[symbol] != 0)
                places[symbol] = static_cast<std::uint16_t>(reversed(codes.next[lengths[symbol]]++, lengths[symbol]));
        }
        place_subtables(lengths, count, places);
        for (std::uint32_t symbol = 0; symbol < count; ++symbol) {
            if (lengths[symbol] != 0) put(places[symbol], lengths[symbol], entry_of(symbol));
        }
    }

private:
    std::uint32_t root_mask() const { return (1u << root_bits_) - 1; }

    /// Each root that long codes share gets room behind the table for the longest of them.
    void place_subtables(const std::uint8_t* lengths, std::uint32_t count, const std::uint16_t* places) {
        std::uint32_t end = 1u << root_bits_;
        for (std::uint32_t length = longest; length > root_bits_; --length) {
            for (std::uint32_t symbol = 0; symbol < count; ++symbol) {
                if (lengths[symbol] != length) continue;
                std::uint32_t& root = table_[places[symbol] & root_mask()];
                if ((root & Code::subtable) != 0) continue;  // placed for a longer one
                root = entry(end, length - root_bits_, Code::special | Code::subtable) | root_bits_;
                end += 1u << (length - root_bits_);
            }
        }
    }

    void put(std::uint32_t place, std::uint32_t length, std::uint32_t what) {
        if (length <= root_bits_) {
            for (std::uint32_t at = place; at < 1u << root_bits_; at += 1u << length) table_[at] = what | length;
            return;
        }
        const std::uint32_t root = table_[place & root_mask()];
        const std::uint32_t rest = length - root_bits_;
        for (std::uint32_t at = place >> root_bits_; at < 1u << code_extra(root); at += 1u << rest) {
            table_[code_value(root) + at] = what | rest;
        }
    }

    std::uint32_t* table_;
    std::uint32_t root_bits_;
};

}  // namespace

bool build_literal_table(const std::uint8_t* lengths, std::uint32_t count, std::uint32_t* table) {
    const Lengths codes(lengths, count);
    if (codes.left != 0) return false;
    std::fill_n(table, 1u << literal_root_bits, 0u);
    TableBuilder(table, literal_root_bits).build(lengths, count, codes, literal_entry);
    return true;
}

bool build_distance_table(const std::uint8_t* lengths, std::uint32_t count, std::uint32_t* table) {
    const Lengths codes(lengths, count);
    if (codes.left < 0) return false;
    const bool one_or_none = codes.counts[1] <= 1 && std::count(lengths, lengths + count, 0) + codes.counts[1] == count;
    if (codes.left != 0 && !one_or_none) return false;
    // What no code stands for is taken for a mistake as soon as it is met.
    const std::uint32_t blank = one_or_none ? entry(0, 0, Code::special) | 1 : 0;
    std::fill_n(table, 1u << distance_root_bits, blank);
    TableBuilder(table, distance_root_bits).build(lengths, count, codes, distance_entry);
    return true;
}

bool build_length_table(const std::uint8_t* lengths, std::uint32_t* table) {
    const Lengths codes(lengths, length_symbols);
    if (codes.left != 0) return false;
    TableBuilder(table, length_root_bits).build(lengths, length_symbols, codes, length_entry);
    return true;
}

}  // namespace fs

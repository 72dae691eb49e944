#pragma once

#include <cstdint>

namespace fs {

/// One entry of a decoding table: what the next bits of a deflate stream stand for. 32 bits:
/// 0-3 bits of the code (behind those of the root table, in a subtable), 4-7 extra bits (of a subtable: its index bits),
/// 8-9 kind, 16-31 value.
struct Code {
    static constexpr std::uint32_t literal = 0x100;    // value: the byte
    static constexpr std::uint32_t special = 0x200;    // value: one of the below, or a subtable's place
    static constexpr std::uint32_t subtable = 0x400;   // with special
    static constexpr std::uint32_t block_end = 0x800;  // with special
    // Neither: value is the base of a length or distance. Special alone: no code begins with these bits.
};

inline std::uint32_t code_bits(std::uint32_t code) { return code & 15; }
inline std::uint32_t code_extra(std::uint32_t code) { return code >> 4 & 15; }
inline std::uint32_t code_value(std::uint32_t code) { return code >> 16; }

inline constexpr std::uint32_t literal_root_bits = 11;
inline constexpr std::uint32_t distance_root_bits = 9;
inline constexpr std::uint32_t length_root_bits = 7;  // of the code in which the code lengths are written
inline constexpr std::uint32_t literal_symbols = 288;
inline constexpr std::uint32_t distance_symbols = 32;
inline constexpr std::uint32_t length_symbols = 19;
// A root table and, behind each root that is shared by two codes or more, the longest subtable there can be.
inline constexpr std::uint32_t literal_table_size = (1u << literal_root_bits) + literal_symbols / 2 * 16;
inline constexpr std::uint32_t distance_table_size = (1u << distance_root_bits) + distance_symbols / 2 * 64;

// Build a decoding table from the lengths of all codes. False for a set of lengths that is refused: too many codes for
// their lengths or too few, but for a distance code with one code or none.
bool build_literal_table(const std::uint8_t* lengths, std::uint32_t count, std::uint32_t* table);
bool build_distance_table(const std::uint8_t* lengths, std::uint32_t count, std::uint32_t* table);
/// The value of an entry is the symbol.
bool build_length_table(const std::uint8_t* lengths, std::uint32_t* table);

}  // namespace fs

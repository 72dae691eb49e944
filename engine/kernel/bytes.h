#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

namespace kernel {

// Numbers in files, least significant byte first, wherever they lie. Compilers make one load or store of each: of the
// folds below, while they keep a loop over the bytes as a loop.

template <typename Number>
constexpr Number load_number(const std::uint8_t* bytes) {
    return [&]<std::size_t... at>(std::index_sequence<at...>) {
        return static_cast<Number>((... | (std::uint64_t{bytes[at]} << 8 * at)));
    }
    (std::make_index_sequence<sizeof(Number)>());
}
constexpr std::uint16_t load_u16(const std::uint8_t* bytes) { return load_number<std::uint16_t>(bytes); }
constexpr std::uint32_t load_u32(const std::uint8_t* bytes) { return load_number<std::uint32_t>(bytes); }
constexpr std::uint64_t load_u64(const std::uint8_t* bytes) { return load_number<std::uint64_t>(bytes); }

template <typename Number>
constexpr void store_number(std::uint8_t* bytes, Number value) {
    [&]<std::size_t... at>(std::index_sequence<at...>) {
        ((bytes[at] = static_cast<std::uint8_t>(std::uint64_t{value} >> 8 * at)), ...);
    }
    (std::make_index_sequence<sizeof(Number)>());
}
constexpr void store_u16(std::uint8_t* bytes, std::uint16_t value) { store_number(bytes, value); }
constexpr void store_u32(std::uint8_t* bytes, std::uint32_t value) { store_number(bytes, value); }
constexpr void store_u64(std::uint8_t* bytes, std::uint64_t value) { store_number(bytes, value); }

/// Appends a number, as wide as its type, to a string or vector of bytes.
template <typename Bytes, typename Number>
void append_number(Bytes& out, Number value) {
    std::uint8_t bytes[sizeof value];
    store_number(bytes, value);
    out.insert(out.end(), bytes, bytes + sizeof bytes);
}

/// CRC-32 as RFC 1952 has it. `crc` is that of the bytes before, 0 at first; `data` may be null when `size` is 0.
std::uint32_t crc32(std::uint32_t crc, const void* data, std::size_t size);

}  // namespace kernel

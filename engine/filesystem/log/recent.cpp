// A ring of words. Each piece of output takes whole words, filled up with zeros, which readers leave out; so claiming
// room is one addition, and a reader in a broken process meets nothing but atomic words.
#include "engine/filesystem/log/recent.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>

#include "engine/kernel/bytes.h"

namespace logging {

namespace {

constexpr std::size_t word_count = 16384;
static_assert(word_count * 8 >= recent_line_count * (recent_line_limit + 8), "the lines that are promised must fit");

struct Ring {
    std::atomic<std::uint64_t> words[word_count];
    std::atomic<std::uint64_t> next;  // words ever claimed
};
constinit Ring ring{};

void remember_piece(const char* text, std::size_t length) {
    const auto store = [](std::uint64_t at, const void* bytes) {
        // The first character in the lowest byte on every machine, since readers take words apart by shifting.
        ring.words[at % word_count].store(kernel::load_u64(static_cast<const std::uint8_t*>(bytes)),
                                          std::memory_order_relaxed);
    };
    const std::size_t rest = length % 8;
    std::uint64_t at = ring.next.fetch_add(length / 8 + (rest != 0), std::memory_order_relaxed);
    for (; length >= 8; length -= 8, text += 8) store(at++, text);
    if (rest == 0) return;
    char last[8] = "";
    std::memcpy(last, text, rest);
    store(at, last);
}

/// Calls `use` for each character of the ring from the word `first` on, zeros left out.
template <class Use>
void for_each_character(std::uint64_t first, std::uint64_t end, Use use) {
    for (std::uint64_t at = first; at < end; ++at) {
        const std::uint64_t word = ring.words[at % word_count].load(std::memory_order_relaxed);
        for (int shift = 0; shift < 64; shift += 8) {
            if (const char c = static_cast<char>(word >> shift & 0xFF); c != '\0') use(c);
        }
    }
}

}  // namespace

void remember_output(const char* text, std::size_t length) {
    if (length <= recent_line_limit) return remember_piece(text, length);
    while (length > 0) {
        const void* const newline = std::memchr(text, '\n', length);
        const std::size_t line =
            newline == nullptr ? length : static_cast<std::size_t>(static_cast<const char*>(newline) - text) + 1;
        if (line <= recent_line_limit) {
            remember_piece(text, line);
        } else {
            remember_piece(text, recent_line_limit - 2);
            remember_piece("\r\n", 2);
        }
        text += line;
        length -= line;
    }
}

void write_recent_lines(void (*write)(const char* text, std::size_t length, void* user), void* user) {
    const std::uint64_t end = ring.next.load(std::memory_order_relaxed);
    const std::uint64_t first = end > word_count ? end - word_count : 0;
    int lines = 0;
    for_each_character(first, end, [&](char c) { lines += c == '\n'; });
    int skip = std::max(0, lines - recent_line_count);
    if (first > 0 && skip == 0) skip = 1;  // the oldest line has lost its start

    char piece[512];
    std::size_t used = 0;
    for_each_character(first, end, [&](char c) {
        if (skip > 0) {
            skip -= c == '\n';
            return;
        }
        piece[used++] = c;
        if (used < sizeof(piece)) return;
        write(piece, used, user);
        used = 0;
    });
    if (used > 0) write(piece, used, user);
}

}  // namespace logging

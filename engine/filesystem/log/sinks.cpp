// Hands finished output to file, console and callbacks, and keeps the last of it for crash reports.
#include "engine/filesystem/log/sinks.h"

#include <algorithm>

#include "engine/kernel/bytes.h"
#include "engine/platform/process.h"

namespace logging {

constinit State state;

namespace {

void call(const std::atomic<LogPrintCallback>& callback, const Message& message, std::string_view output) {
    if (const LogPrintCallback print = callback.load(std::memory_order_acquire)) {
        print(message.level, message.category, output.data());
    }
}

// The last output is kept in a ring of words. Each piece of it takes whole words, filled up with zeros, which readers leave
// out; so claiming room is one addition, and a reader in a broken process meets nothing but atomic words.

/// Longer lines are kept without their end.
constexpr std::size_t recent_line_limit = 512;
constexpr std::size_t word_count = 16384;
static_assert(word_count * 8 >= recent_line_count * (recent_line_limit + 8), "the lines that are promised must fit");

struct Ring {
    std::atomic<std::uint64_t> words[word_count];
    std::atomic<std::uint64_t> next;  // words ever claimed
};
constinit Ring ring{};

void remember_piece(std::string_view text) {
    std::uint64_t at = ring.next.fetch_add((text.size() + 7) / 8, std::memory_order_relaxed);
    const auto store = [&at](const char* bytes) {
        // The first character in the lowest byte on every machine, since readers take words apart by shifting.
        ring.words[at++ % word_count].store(kernel::load_u64(reinterpret_cast<const std::uint8_t*>(bytes)),
                                            std::memory_order_relaxed);
    };
    for (; text.size() >= 8; text.remove_prefix(8)) store(text.data());
    if (text.empty()) return;
    char last[8] = "";
    text.copy(last, text.size());
    store(last);
}

void remember(std::string_view output) {
    if (output.size() <= recent_line_limit) return remember_piece(output);
    while (!output.empty()) {
        const std::size_t length = std::min(output.find('\n'), output.size() - 1) + 1;
        if (length <= recent_line_limit) {
            remember_piece(output.substr(0, length));
        } else {
            remember_piece(output.substr(0, recent_line_limit - 2));
            remember_piece("\r\n");
        }
        output.remove_prefix(length);
    }
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

void ensure_started() {
    const StartUp phase = state.phase.load(std::memory_order_acquire);
    if (phase == StartUp::COMPLETE || phase == StartUp::CLOSED) return;
    const auto run = state.run.load(std::memory_order_acquire);
    if (run != nullptr) run();
}

void send(const Message& message, std::string_view output) {
    remember(output);
    if ((message.action & CLFilterAction::LOGFILE) != 0) {
        ensure_started();
        const auto write = state.write_to_file.load(std::memory_order_acquire);
        if (write != nullptr && !output.empty()) write(output.data(), output.size());
        call(state.file_callback, message, output);
    }
    if ((message.action & CLFilterAction::CONSOLE) != 0) {
        call(state.console_callback, message, output);
        void* const console = state.console.load(std::memory_order_acquire);
        if (console != nullptr && !output.empty()) platform::write_console(console, output.data(), output.size());
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

LogPrintCallback LogSetPrintCallback(LogPrintCallback callback) {
    return logging::state.console_callback.exchange(callback, std::memory_order_acq_rel);
}

LogPrintCallback CrashSetPrintCallback(LogPrintCallback callback) {
    return logging::state.file_callback.exchange(callback, std::memory_order_acq_rel);
}

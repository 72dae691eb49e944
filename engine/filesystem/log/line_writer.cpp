// A header stands before each output line, padded to the widest header so far, so that texts stand under each other.
// A line stays open when its text did not end in a newline; the next message of the same level and category may go on
// with it. Everything here is on the hot path: numbers and padding are written by hand.
#include "engine/filesystem/log/line_writer.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <cstring>

#include "engine/filesystem/log/levels.h"
#include "engine/platform/clock.h"

namespace logging {

namespace {

constexpr std::array<char, 256> make_label_table() {
    std::array<char, 256> table{};
    for (std::size_t c = 0; c < table.size(); ++c)
        table[c] = is_label_character(static_cast<char>(c)) ? static_cast<char>(c) : '_';
    return table;
}
constexpr std::array<char, 256> label_table = make_label_table();

constexpr std::int64_t ticks_per_second = 10'000'000;

/// The local hour, minute and second, a byte each. Turning the clock into local time costs more than a whole log line, so
/// it is done once for each second; what is kept is one word, with that second above, so that its parts belong together.
std::uint64_t local_second(std::int64_t second) {
    constinit static std::atomic<std::uint64_t> cached{0};
    std::uint64_t word = cached.load(std::memory_order_relaxed);
    if (word >> 24 == static_cast<std::uint64_t>(second)) return word;
    const platform::CalendarTime local = platform::to_calendar(platform::utc_to_local(second * ticks_per_second));
    word = static_cast<std::uint64_t>(second) << 24 | static_cast<std::uint64_t>(local.hour) << 16 |
           static_cast<std::uint64_t>(local.minute) << 8 | static_cast<std::uint64_t>(local.second);
    cached.store(word, std::memory_order_relaxed);
    return word;
}

char* put_two_digits(char* out, int value) {
    *out++ = static_cast<char>('0' + value / 10);
    *out++ = static_cast<char>('0' + value % 10);
    return out;
}

/// "{hh:mm:ss.mmm} "
char* put_time(char* out) {
    const std::int64_t now = platform::now_utc();
    const std::uint64_t local = local_second(now / ticks_per_second);
    const auto millisecond = static_cast<int>(now % ticks_per_second / (ticks_per_second / 1000));
    for (int shift = 16; shift >= 0; shift -= 8) {
        *out++ = shift == 16 ? '{' : ':';
        out = put_two_digits(out, static_cast<int>(local >> shift & 0xFF));
    }
    *out++ = '.';
    *out++ = static_cast<char>('0' + millisecond / 100);
    out = put_two_digits(out, millisecond % 100);
    *out++ = '}';
    *out++ = ' ';
    return out;
}

char* put_text(char* out, const char* text) {
    while (*text != '\0') *out++ = *text++;
    return out;
}

char* put_category(char* out, const char* category) {
    out = put_text(out, ": [");
    for (std::size_t i = 0; i < category_name_length && category[i] != '\0'; ++i) {
        *out++ = label_table[static_cast<unsigned char>(category[i])];
    }
    return put_text(out, "] ");
}

/// ">file(line): ", the file cut so that all of it stays within position_limit.
char* put_position(char* out, const char* file, int line) {
    constexpr std::size_t longest_rest = sizeof(">(-2147483648): ");
    const std::size_t length = strnlen(file, position_limit - longest_rest);
    *out++ = '>';
    std::memcpy(out, file, length);
    out += length;
    *out++ = '(';
    out = std::to_chars(out, out + 12, line).ptr;
    return put_text(out, "): ");
}

}  // namespace

LineWriter::LineWriter(const Message& message, const LineState& state, char* output, std::size_t capacity)
    : message_(message), state_(state), mode_(message.mode), output_(output), capacity_(capacity) {
    const CategoryKey category = category_key(message.category);
    if (state_.level == static_cast<std::uint32_t>(message.level) && state_.category == category) return;
    state_.level = message.level;
    state_.category = category;
    mode_ = CLLineMode::NEW_LINE;
}

bool LineWriter::write(const char* text, std::size_t length) {
    if (state_.open && mode_ == CLLineMode::NEW_LINE) {
        put("\r\n", 2);
        state_.open = false;
    }
    std::size_t at = 0;
    while (at < length && size_ < limit()) {
        if (!fits(header_limit + 4)) return false;
        if (!state_.open) open_line();
        if (text[at] == '\n') {
            end_line(at > 0 && text[at - 1] == '\r');
            ++at;
            continue;
        }
        const std::size_t copied = copy_run(text + at, length - at);
        if (copied == 0) return false;
        at += copied;
    }
    output_[size_] = '\0';
    return true;
}

/// Copies up to the next newline or the limit; 0 when the buffer is too small for it.
std::size_t LineWriter::copy_run(const char* text, std::size_t length) {
    const void* const newline = std::memchr(text, '\n', length);
    if (newline != nullptr) length = static_cast<std::size_t>(static_cast<const char*>(newline) - text);
    // Behind a header that reached over the limit one character still follows.
    length = std::min(length, size_ < limit() ? limit() - size_ : 1);
    if (!fits(length)) return 0;
    put(text, length);
    return length;
}

void LineWriter::put(const char* text, std::size_t length) {
    std::memcpy(output_ + size_, text, length);
    size_ += length;
}

void LineWriter::open_line() {
    write_header();
    put(mode_ != CLLineMode::CONTINUATION_LINE && first_line_ ? "> " : "| ", 2);
    state_.open = true;
}

void LineWriter::write_header() {
    char* const start = output_ + size_;
    char* out = start;
    if (message_.file != nullptr && Log::Settings::Instance().IsMessageSource()) {
        out = put_position(out, message_.file, message_.line);
    }
    out = put_time(out);
    out = put_text(out, level_tag(message_.level));
    out = put_category(out, message_.category);
    const auto width = static_cast<std::uint32_t>(out - start);
    if (width < state_.widest_header) {
        std::memset(out, ' ', state_.widest_header - width);
    } else {
        state_.widest_header = width;
    }
    size_ += state_.widest_header;
}

void LineWriter::end_line(bool has_return) {
    has_return ? put("\n", 1) : put("\r\n", 2);
    state_.open = false;
    first_line_ = false;
}

}  // namespace logging

// The one writer of messages: formats one, gives each of its lines a header, and sends them. Texts and lines are written into
// buffers on the stack: small ones first, which nearly every message fits, so that logging is safe on small stacks; only
// what is longer takes the large ones.
//
// A header is padded to the widest header so far, so that texts stand under each other. A line stays open when its text did
// not end in a newline; the next message of the same level and category may go on with it. Everything here is on the hot
// path: numbers and padding are written by hand.
#include "engine/filesystem/log/message.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <charconv>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>

#include "engine/filesystem/log/sinks.h"
#include "engine/platform/clock.h"
#include "engine/platform/process.h"

namespace logging {

namespace {

using LineWords = std::array<std::uint64_t, sizeof(LineState) / 8>;
constinit std::atomic<std::uint64_t> line_words[LineWords().size()];

constexpr std::size_t message_limit = 65536;
/// No header is longer: a position longer than its share is cut.
constexpr std::size_t position_limit = 1024;
constexpr std::size_t header_limit = position_limit + 64;
/// Room in which every message can be written: the limit is looked at before a header, not after it.
constexpr std::size_t output_capacity = message_limit + header_limit + 8;

constexpr std::array<char, 256> label_table = [] {
    std::array<char, 256> table{};
    for (std::size_t c = 0; c < table.size(); ++c)
        table[c] = is_label_character(static_cast<char>(c)) ? static_cast<char>(c) : '_';
    return table;
}();

/// The local hour, minute and second, a byte each. Turning the clock into local time costs more than a whole log line, so
/// it is done once for each second; what is kept is one word, with that second above, so that its parts belong together.
std::uint64_t local_second(std::int64_t second) {
    constinit static std::atomic<std::uint64_t> cached{0};
    std::uint64_t word = cached.load(std::memory_order_relaxed);
    if (word >> 24 == static_cast<std::uint64_t>(second)) return word;
    const platform::CalendarTime local =
        platform::to_calendar(platform::utc_to_local(second * platform::ticks_per_second));
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
    const std::uint64_t local = local_second(now / platform::ticks_per_second);
    const auto millisecond = static_cast<int>(now % platform::ticks_per_second / platform::ticks_per_ms);
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

char* put_text(char* out, std::string_view text) { return std::copy(text.begin(), text.end(), out); }

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
    *out++ = '>';
    out = put_text(out, {file, strnlen(file, position_limit - longest_rest)});
    *out++ = '(';
    out = std::to_chars(out, out + 12, line).ptr;
    return put_text(out, "): ");
}

/// Lays out the text of a message in lines with their headers, behind the line that `line` tells of, and brings that
/// forward.
class LineWriter {
public:
    LineWriter(const Message& message, LineState& line, std::span<char> output)
        : message_(message), line_(line), mode_(message.mode), output_(output.data()), capacity_(output.size()) {
        const CategoryKey category = category_key(message.category);
        if (line.level == static_cast<std::uint32_t>(message.level) && line.category == category) return;
        line.level = message.level;
        line.category = category;
        mode_ = CLLineMode::NEW_LINE;
    }

    std::optional<std::size_t> write(std::string_view text) {
        if (line_.is_open != 0 && mode_ == CLLineMode::NEW_LINE) end_line("\r\n");
        for (std::size_t at = 0; at < text.size() && size_ < limit();) {
            if (!fits(header_limit + 4)) return std::nullopt;
            if (line_.is_open == 0) open_line();
            if (text[at] == '\n') {
                end_line(at > 0 && text[at - 1] == '\r' ? "\n" : "\r\n");
                is_first_ = false;
                ++at;
                continue;
            }
            const std::size_t run = run_length(text.substr(at));
            if (!fits(run)) return std::nullopt;
            put(text.substr(at, run));
            at += run;
        }
        output_[size_] = '\0';
        return size_;
    }

private:
    bool fits(std::size_t count) const { return count < capacity_ - size_; }
    std::size_t limit() const { return message_limit - (line_.widest_header + 4); }

    /// Up to the next newline or the limit. Behind a header that reached over the limit one character still follows.
    std::size_t run_length(std::string_view text) const {
        return std::min({text.find('\n'), text.size(), size_ < limit() ? limit() - size_ : 1});
    }

    void put(std::string_view text) {
        std::memcpy(output_ + size_, text.data(), text.size());
        size_ += text.size();
    }

    void open_line() {
        write_header();
        put(mode_ != CLLineMode::CONTINUATION_LINE && is_first_ ? "> " : "| ");
        line_.is_open = 1;
    }

    void end_line(std::string_view ending) {
        put(ending);
        line_.is_open = 0;
    }

    void write_header() {
        char* const start = output_ + size_;
        char* out = start;
        if (message_.file != nullptr && Log::Settings::Instance().IsMessageSource()) {
            out = put_position(out, message_.file, message_.line);
        }
        out = put_time(out);
        out = put_text(out, level_tag(message_.level));
        out = put_category(out, message_.category);
        const auto width = static_cast<std::uint32_t>(out - start);
        if (width < line_.widest_header) {
            std::memset(out, ' ', line_.widest_header - width);
        } else {
            line_.widest_header = width;
        }
        size_ += line_.widest_header;
    }

    const Message& message_;
    LineState& line_;
    CLLineMode::ENUM mode_;
    bool is_first_ = true;  // line of the message
    char* const output_;
    const std::size_t capacity_;
    std::size_t size_ = 0;
};

constexpr std::size_t small_capacity = 1024;

void end_process_if_asked(const Message& message, const char* text) {
    if (message.level != Log::ELevel::FATL || std::strcmp(message.category, "EXIT") != 0) return;
    constexpr std::uint32_t hand_task_modal_foreground_topmost = 0x00052010;
    if (state.message_boxes.load(std::memory_order_relaxed)) {
        platform::show_message(text, "CrashExit...", hand_task_modal_foreground_topmost, platform::Answer::OK);
    }
    platform::exit_process(-1);
}

/// Formats, lays out and sends one message in buffers of this size. False, and nothing has happened, when they are too
/// small for it.
template <std::size_t text_capacity, std::size_t line_capacity>
[[gnu::noinline]] bool write_in(const Message& message, const char* format, va_list args) {
    char text[text_capacity];
    const int length = kernel::format_text(text, text_capacity, format, args);
    if (length >= static_cast<int>(text_capacity) && text_capacity < message_limit) return false;
    // What cannot be formatted (a wide character that no text can hold, say) is shown as it was written, not lost.
    const std::string_view shown = length < 0 ? format : text;
    char output[line_capacity];
    LineState line = load_line_state();
    const auto size = LineWriter(message, line, output).write(shown);
    if (!size) return false;
    store_line_state(line);
    send(message, {output, *size});
    end_process_if_asked(message, shown.data());
    return true;
}

}  // namespace

LineState load_line_state() {
    LineWords words;
    for (std::size_t i = 0; i < words.size(); ++i) words[i] = line_words[i].load(std::memory_order_relaxed);
    return std::bit_cast<LineState>(words);
}

void store_line_state(const LineState& line) {
    const auto words = std::bit_cast<LineWords>(line);
    for (std::size_t i = 0; i < words.size(); ++i) line_words[i].store(words[i], std::memory_order_relaxed);
}

}  // namespace logging

void _CLogV(Log::ELevel::TYPE level, const char* category, const char* file, int line, CLFilterAction::ENUM action,
            CLLineMode::ENUM mode, const char* format, va_list args) {
    const logging::Message message{.level = level,
                                   .category = category == nullptr ? "" : category,
                                   .file = file,
                                   .line = line,
                                   .action = action,
                                   .mode = mode};
    if (format == nullptr) format = "";
    va_list again;
    va_copy(again, args);
    if (!logging::write_in<logging::small_capacity, logging::small_capacity + 3 * logging::header_limit>(
            message, format, args)) {
        logging::write_in<logging::message_limit, logging::output_capacity>(message, format, again);
    }
    va_end(again);
}

void _CLog(Log::ELevel::TYPE level, const char* category, const char* file, int line, CLFilterAction::ENUM action,
           CLLineMode::ENUM mode, const char* format, ...) {
    va_list args;
    va_start(args, format);
    _CLogV(level, category, file, line, action, mode, format, args);
    va_end(args);
}

void _CLog(Log::ELevel::TYPE level, const char* category, const char* file, int line, CLFilterAction::ENUM action,
           CLLineMode::ENUM mode, const ztl::string_base<char>& text) {
    _CLog(level, category, file, line, action, mode, "%s", text.c_str());
}

bool is_logged(const MessageSource& source, Log::ELevel::TYPE level) {
    return Log::Settings::Instance().GetCategoryLevel(source.category) >= level;
}

void log_message(const MessageSource& source, Log::ELevel::TYPE level, int line, const char* format, ...) {
    if (!is_logged(source, level)) return;
    const CLFilterAction::ENUM action = _CLFilter(logging::level_id(level));
    va_list args;
    va_start(args, format);
    _CLogV(level, source.category, source.file, line, action, CLLineMode::NEW_LINE, format, args);
    va_end(args);
}

// The one writer of messages. A message is formatted and laid out in buffers on the stack: small ones first, which
// nearly every message fits, so that logging is safe on small stacks; only what is longer takes the large ones.
#include <engine/filesystem/log.h>

#include <cstring>
#include <string_view>

#include "engine/filesystem/log/line_writer.h"
#include "engine/filesystem/log/recent.h"
#include "engine/filesystem/log/state.h"
#include "engine/kernel/format.h"
#include "engine/platform/process.h"

namespace {

using logging::LineState;
using logging::LineWriter;
using logging::Message;
using logging::state;

constexpr std::size_t small_text_capacity = 1024;
constexpr std::size_t small_output_capacity = small_text_capacity + 3 * logging::header_limit;

LineState load_line_state() {
    LineState line;
    line.level = state.previous_level.load(std::memory_order_relaxed);
    for (int i = 0; i < 2; ++i) line.category.words[i] = state.previous_category[i].load(std::memory_order_relaxed);
    line.widest_header = state.widest_header.load(std::memory_order_relaxed);
    line.open = state.line_open.load(std::memory_order_relaxed);
    return line;
}

void store_line_state(const LineState& line) {
    state.previous_level.store(line.level, std::memory_order_relaxed);
    for (int i = 0; i < 2; ++i) state.previous_category[i].store(line.category.words[i], std::memory_order_relaxed);
    state.widest_header.store(line.widest_header, std::memory_order_relaxed);
    state.line_open.store(line.open, std::memory_order_relaxed);
}

void call(const std::atomic<LogPrintCallback>& callback, const Message& message, const char* output) {
    if (const LogPrintCallback print = callback.load(std::memory_order_acquire)) {
        print(message.level, message.category, output);
    }
}

void write_to_file(const Message& message, const char* output, std::size_t size) {
    logging::ensure_started();
    const auto write = state.start_up.write_to_file.load(std::memory_order_acquire);
    if (write != nullptr && size > 0) write(output, size);
    call(state.file_callback, message, output);
}

void write_to_console(const Message& message, const char* output, std::size_t size) {
    call(state.console_callback, message, output);
    void* const console = state.start_up.console.load(std::memory_order_acquire);
    if (console != nullptr && size > 0) platform::write_console(console, output, size);
}

void end_process_if_asked(const Message& message, const char* text) {
    if (message.level != Log::ELevel::FATL || std::strcmp(message.category, "EXIT") != 0) return;
    constexpr std::uint32_t hand_task_modal_foreground_topmost = 0x00052010;
    if (state.start_up.message_boxes.load(std::memory_order_relaxed)) {
        platform::show_message(text, "CrashExit...", hand_task_modal_foreground_topmost, platform::Answer::OK);
    }
    platform::exit_process(-1);
}

/// Lays out and routes a text, which a terminator follows. False when `output` is too small; nothing has happened then.
bool emit(const Message& message, std::string_view text, char* output, std::size_t capacity) {
    LineWriter writer(message, load_line_state(), output, capacity);
    if (!writer.write(text.data(), text.size())) return false;
    store_line_state(writer.state());
    logging::remember_output(output, writer.size());
    if ((message.action & CLFilterAction::LOGFILE) != 0) write_to_file(message, output, writer.size());
    if ((message.action & CLFilterAction::CONSOLE) != 0) write_to_console(message, output, writer.size());
    end_process_if_asked(message, text.data());
    return true;
}

bool emit_small(const Message& message, std::string_view text) {
    char output[small_output_capacity];
    return emit(message, text, output, sizeof(output));
}

[[gnu::noinline]] void emit_large(const Message& message, std::string_view text) {
    char output[logging::output_capacity];
    emit(message, text, output, sizeof(output));
}

/// A text that needs no formatting, and hence no copy; longer ones than a message may be are cut by being copied.
bool emit_plain(const Message& message, const char* text) {
    if (text == nullptr) text = "(null)";
    const std::size_t length = strnlen(text, logging::message_limit);
    if (length == logging::message_limit) return false;
    if (length >= small_text_capacity || !emit_small(message, {text, length})) emit_large(message, {text, length});
    return true;
}

bool format_small(const Message& message, const char* format, va_list args) {
    char text[small_text_capacity];
    const int length = kernel::format_text(text, sizeof(text), format, args);
    // What cannot be formatted (a wide character that no text can hold, say) is shown as it was written, not lost.
    if (length < 0) return emit_plain(message, format);
    return length < static_cast<int>(sizeof(text)) && emit_small(message, text);
}

[[gnu::noinline]] void format_large(const Message& message, const char* format, va_list args) {
    char text[logging::message_limit];
    kernel::format_text(text, sizeof(text), format, args);
    emit_large(message, text);
}

void format_message(const Message& message, const char* format, va_list args) {
    va_list again;
    va_copy(again, args);
    const bool is_plain = std::strcmp(format, "%s") == 0;
    const bool is_done =
        is_plain ? emit_plain(message, va_arg(args, const char*)) : format_small(message, format, args);
    if (!is_done) format_large(message, format, again);
    va_end(again);
}

}  // namespace

void _CLogV(Log::ELevel::TYPE level, const char* category, const char* file, int line, CLFilterAction::ENUM action,
            CLLineMode::ENUM mode, const char* format, va_list args) {
    const Message message{.level = level,
                          .category = category == nullptr ? "" : category,
                          .file = file,
                          .line = line,
                          .action = action,
                          .mode = mode};
    format_message(message, format == nullptr ? "" : format, args);
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

LogPrintCallback LogSetPrintCallback(LogPrintCallback callback) {
    return state.console_callback.exchange(callback, std::memory_order_acq_rel);
}

LogPrintCallback CrashSetPrintCallback(LogPrintCallback callback) {
    return state.file_callback.exchange(callback, std::memory_order_acq_rel);
}

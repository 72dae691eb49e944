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

constexpr std::size_t small_capacity = 1024;

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

/// Formats, lays out and routes one message in buffers of this size. False, and nothing has happened, when they are too
/// small for it.
template <std::size_t text_capacity, std::size_t output_capacity>
[[gnu::noinline]] bool write_in(const Message& message, const char* format, va_list args) {
    char text[text_capacity];
    const int length = kernel::format_text(text, text_capacity, format, args);
    if (length >= static_cast<int>(text_capacity) && text_capacity < logging::message_limit) return false;
    // What cannot be formatted (a wide character that no text can hold, say) is shown as it was written, not lost.
    const std::string_view shown = length < 0 ? format : text;
    char output[output_capacity];
    LineWriter writer(message, load_line_state(), output, output_capacity);
    if (!writer.write(shown.data(), shown.size())) return false;
    store_line_state(writer.state());
    logging::remember_output(output, writer.size());
    if ((message.action & CLFilterAction::LOGFILE) != 0) write_to_file(message, output, writer.size());
    if ((message.action & CLFilterAction::CONSOLE) != 0) write_to_console(message, output, writer.size());
    end_process_if_asked(message, shown.data());
    return true;
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
    if (format == nullptr) format = "";
    va_list again;
    va_copy(again, args);
    if (!write_in<small_capacity, small_capacity + 3 * logging::header_limit>(message, format, args)) {
        write_in<logging::message_limit, logging::output_capacity>(message, format, again);
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

LogPrintCallback LogSetPrintCallback(LogPrintCallback callback) {
    return state.console_callback.exchange(callback, std::memory_order_acq_rel);
}

LogPrintCallback CrashSetPrintCallback(LogPrintCallback callback) {
    return state.file_callback.exchange(callback, std::memory_order_acq_rel);
}

// The one writer of messages. A message is formatted and laid out in buffers on the stack: small ones first, which
// nearly every message fits, so that logging is safe on small stacks; only what is longer takes the large ones.
#include "engine/filesystem/log/message.h"

#include <cstring>
#include <string_view>

#include "engine/filesystem/log/line.h"
#include "engine/filesystem/log/recent.h"
#include "engine/filesystem/log/sinks.h"
#include "engine/platform/process.h"

namespace {

using logging::Message;

constexpr std::size_t small_capacity = 1024;

void end_process_if_asked(const Message& message, const char* text) {
    if (message.level != Log::ELevel::FATL || std::strcmp(message.category, "EXIT") != 0) return;
    constexpr std::uint32_t hand_task_modal_foreground_topmost = 0x00052010;
    if (logging::state.message_boxes.load(std::memory_order_relaxed)) {
        platform::show_message(text, "CrashExit...", hand_task_modal_foreground_topmost, platform::Answer::OK);
    }
    platform::exit_process(-1);
}

/// Formats, lays out and sends one message in buffers of this size. False, and nothing has happened, when they are too
/// small for it.
template <std::size_t text_capacity, std::size_t output_capacity>
[[gnu::noinline]] bool write_in(const Message& message, const char* format, va_list args) {
    char text[text_capacity];
    const int length = kernel::format_text(text, text_capacity, format, args);
    if (length >= static_cast<int>(text_capacity) && text_capacity < logging::message_limit) return false;
    // What cannot be formatted (a wide character that no text can hold, say) is shown as it was written, not lost.
    const std::string_view shown = length < 0 ? format : text;
    char output[output_capacity];
    logging::LineState line = logging::load_line_state();
    const auto size = logging::lay_out(message, shown, line, output);
    if (!size) return false;
    logging::store_line_state(line);
    logging::remember_output(output, *size);
    logging::send(message, {output, *size});
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

#include "engine/filesystem/log/message.h"

#include "engine/filesystem/log/levels.h"

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

// Changing a category's level, with the one message that the settings have to give. It stands apart from them, since
// messages ask the settings whether they may go out.
#include <engine/filesystem/log.h>

#include "engine/filesystem/log/message.h"

namespace Log {

namespace {

constexpr MessageSource source{"Logger", "engine/filesystem/logsettings"};
constexpr int refusal_line = 56;  // known to people who filter by it

}  // namespace

void Settings::SetCategoryLevel(const char* name, ELevel::TYPE level) {
    if (change_category(name, level)) return;
    log_message(source, ELevel::WARN, refusal_line,
                "Maximal explicit logging levels exceeded maximal count = %d\n"
                "Logging level for category '%s' not changed.\n",
                static_cast<int>(MAX_CATEGORIES_COUNT), name == nullptr ? "" : name);
}

}  // namespace Log

#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>

#include <engine/filesystem/api.h>
#include <engine/filesystem/log/assert.h>
#include <engine/kernel/ztl.h>

namespace Log {

/// How important a message is; larger is more verbose. INFO stands before WARN on purpose: a setting of INFO lets
/// information through and holds warnings back.
struct ELevel {
    enum TYPE : std::uint32_t {
        NONE = 0,
        FATL = 1,
        ERRR = 2,
        INFO = 3,
        WARN = 4,
        DEBG = 5,
        VERB = 6,
        VER1 = 7,
        VER2 = 8,
        VER3 = 9,
        VER4 = 10,
        VER5 = 11,
        VER6 = 12,
        VER7 = 13,
        VER8 = 14,
        VERE = 15,
    };
};

}  // namespace Log

/// Where a line goes; a bit set.
struct CLFilterAction {
    enum ENUM : std::uint32_t {
        NOWHERE = 0,
        CONSOLE = 1,  // the console and the log print callback
        LOGFILE = 2,  // the log file and the crash print callback
        BOTH = 3,
    };
};

/// What overrides the filter table.
struct CLFilterMode {
    enum ENUM : std::uint32_t {
        NORMAL = 0,
        ALL_CONSOLE = 1,
        ALL_LOGFILE = 2,
        ALL_NOWHERE = 3,
        NO_LOGFILE = 4,  // normal, without the log file
    };
};

/// How a message meets the line before it.
struct CLLineMode {
    enum ENUM : std::uint32_t {
        NEW_LINE = 0,
        CONTINUE = 1,           // goes on with the open line
        CONTINUATION_LINE = 2,  // a new line, marked "| "
    };
};

constexpr CLFilterAction::ENUM operator|(CLFilterAction::ENUM a, CLFilterAction::ENUM b) {
    return static_cast<CLFilterAction::ENUM>(static_cast<std::uint32_t>(a) | static_cast<std::uint32_t>(b));
}
constexpr CLFilterAction::ENUM operator&(CLFilterAction::ENUM a, CLFilterAction::ENUM b) {
    return static_cast<CLFilterAction::ENUM>(static_cast<std::uint32_t>(a) & static_cast<std::uint32_t>(b));
}
constexpr CLFilterAction::ENUM operator~(CLFilterAction::ENUM a) {
    return static_cast<CLFilterAction::ENUM>(~static_cast<std::uint32_t>(a));
}
constexpr CLFilterAction::ENUM& operator|=(CLFilterAction::ENUM& a, CLFilterAction::ENUM b) { return a = a | b; }

/// Receives finished output: level, category as given, text ("" when the message was empty).
using LogPrintCallback = void (*)(Log::ELevel::TYPE level, const char* category, const char* text);

/// Writes one message: formats it, gives each output line its header, and routes it by `action`.
///
/// Output   cut at 64 KiB. Null `category` and `format` are ""; null `file` means no position.
/// Level 1  in the category "EXIT" ends the process with exit code -1 (255 on Linux) after the message was written.
/// Threads  any thread; lines of several threads may interleave. Allocates nothing.
ENGINE_FS_API void _CLogV(Log::ELevel::TYPE level, const char* category, const char* file, int line,
                          CLFilterAction::ENUM action, CLLineMode::ENUM mode, const char* format, va_list args);
ENGINE_FS_API void _CLog(Log::ELevel::TYPE level, const char* category, const char* file, int line,
                         CLFilterAction::ENUM action, CLLineMode::ENUM mode, const char* format, ...);
/// Writes `text` as it stands.
ENGINE_FS_API void _CLog(Log::ELevel::TYPE level, const char* category, const char* file, int line,
                         CLFilterAction::ENUM action, CLLineMode::ENUM mode, const ztl::string_base<char>& text);

/// The action for a four-character code ('ERRR', first character most significant). Counts errors and warnings.
ENGINE_FS_API CLFilterAction::ENUM _CLFilter(std::uint32_t id);
ENGINE_FS_API CLFilterMode::ENUM _CLFilterGetMode();
ENGINE_FS_API void _CLFilterSetMode(CLFilterMode::ENUM mode);
/// Empties the filter table.
ENGINE_FS_API void _CLFilterClear();
/// Appends an entry: codes with (code & mask) == value get `action` besides what they have.
ENGINE_FS_API void _CLFilterAdd(std::uint32_t value, std::uint32_t mask, CLFilterAction::ENUM action);
/// Appends an entry from up to four characters, "?" matching any. A null or all-zero pattern adds nothing.
ENGINE_FS_API void _CLFilterAdd(const char* pattern, CLFilterAction::ENUM action);
/// Gives the first entry of exactly this value a new action; returns its old one, or NOWHERE when there is none.
ENGINE_FS_API CLFilterAction::ENUM _CLFilterUpdate(std::uint32_t value, CLFilterAction::ENUM action);

/// The level that a four-character code stands for; DEBG for one that is not known.
ENGINE_FS_API Log::ELevel::TYPE _CLogLevelFromId(std::uint32_t id);
/// The four characters of a code, each that is no letter, digit, "_" or "." replaced by "_".
ENGINE_FS_API ztl::string_base<char> _CLogCategoryFromLabel(std::uint32_t id);

/// Installs the callback for console lines, or for log file lines; returns the previous one. Null removes it.
ENGINE_FS_API LogPrintCallback LogSetPrintCallback(LogPrintCallback callback);
ENGINE_FS_API LogPrintCallback CrashSetPrintCallback(LogPrintCallback callback);

namespace Log {

/// Which messages are emitted at all. One object for the process, made on first use and never destroyed.
/// Threads  any; a reader sees each value before or after a change, never half of it.
class ENGINE_FS_API Settings {
public:
    static const std::uint64_t MAX_CATEGORIES_COUNT;   // 8
    static const std::uint64_t MAX_CATEGORY_NAME_LEN;  // 16; names are compared over this many bytes

    static Settings& Instance();

    Settings();
    Settings(const Settings& other);
    Settings& operator=(const Settings& other);
    Settings& operator=(Settings&& other) noexcept;

    /// The level of every category without an entry of its own; INFO at first.
    ELevel::TYPE GetLevel() const;
    void SetLevel(ELevel::TYPE level);

    /// Whether lines carry the source position of their message; false at first.
    bool IsMessageSource() const;
    void SetMessageSource(bool on);

    ELevel::TYPE GetCategoryLevel(const char* name) const;
    /// Gives a category a level of its own; NONE takes it away again. A ninth category is refused with a warning.
    void SetCategoryLevel(const char* name, ELevel::TYPE level);

private:
    struct State;
    State& state();
    const State& state() const;
    void copy(const Settings& other);

    alignas(std::uint64_t) unsigned char storage_[208];  // of the State
};

}  // namespace Log

// log-check: what each line of a logging configuration changes, which lines change nothing, and why.

#include <cstring>
#include <map>
#include <memory>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

#include <engine/filesystem.h>
#include <engine/kernel/parser.h>

#include "commands.h"
#include "names.h"
#include "report.h"

namespace {

constexpr std::uint64_t largest = 64u << 20;  // what the library reads

bool read_text(const char* name, std::string& out, void*) {
    const fs::file_ptr file(fs::open(name, EFSMode::READ));
    const std::uint64_t length = fs::length(file.get());
    if (file == nullptr || length > largest) return false;
    out.resize(static_cast<std::size_t>(length));
    return fs::read(file.get(), out.data(), length) == length;
}

struct ReleaseText {
    void operator()(kernel::CConfigText* text) const { text->Release(); }
};

/// What a level is called here. "" for a text that stands for none; one that begins with "n" asks for NONE.
std::string level_name(const char* text) {
    const Log::ELevel::TYPE level = CrashLevelFromName(text);
    if (level > Log::ELevel::VERB && level < Log::ELevel::VERE)
        return "verbose " + std::to_string(level - Log::ELevel::VERB);
    if (level == Log::ELevel::VERE) return "everything";
    if (level == Log::ELevel::NONE) return text[0] == 'n' || text[0] == 'N' ? "none" : "";
    constexpr const char* names[] = {"none", "fatal", "error", "info", "warn", "debug", "verbose"};
    return names[level];
}

constexpr bool is_fixed(std::string_view code) {
    return code == "FATL" || code == "INFO" || code == "ERRR" || code == "EXIT" || code == "DXGI";
}
constexpr bool waits_for_verbose(std::string_view code) { return code == "WARN" || code == "DEBG"; }
constexpr std::string_view console_codes[] = {"VERB", "VER0", "VER1", "VER2", "VER3", "VER4", "VER5", "VER6", "VER7",
                                              "VER8", "VER9", "VERE", "SESE", "SESI", "SESL", "SESW", "LLOG"};
constexpr std::string_view other_codes[] = {"FATL", "INFO", "ERRR", "EXIT", "DXGI", "WARN", "DEBG", "NONE", "CLOG"};

/// A pattern as it is compared: its last four characters against those of the code, wildcards at its end dropped.
struct Pattern {
    std::string text;  // four characters, "?" for any

    explicit Pattern(std::string_view given) {
        given = given.substr(0, 4);
        given = given.substr(0, given.find_last_not_of('?') + 1);
        text = std::string(4 - given.size(), '?') + std::string(given);
    }
    bool matches(std::string_view code) const {
        for (std::size_t i = 0; i < 4; ++i)
            if (text[i] != '?' && text[i] != code[i]) return false;
        return true;
    }
    bool names_one_code() const { return text.find('?') == std::string::npos; }
};

/// Goes through the commands in their order, as the library does when it applies them, and keeps what they come to.
class Checker {
public:
    explicit Checker(const std::string& file) : file_(file) {}

    bool check(const kernel::CConfigText& text) {
        for (std::uint32_t i = 0; i < text.CommandCount(); ++i) check_command(text.Command(i));
        for (const auto& [name, level] : categories_)
            if (level.value == level_.value) add_warning(level.line, ": it is the level of all others");
        for (const Line& line : lines_) print(line.place + ": " + line.text + "\n");
        for (std::uint32_t i = 0; i < text.ErrorCount(); ++i) {
            const kernel::SConfigError& error = text.Error(i);
            good_ = fail(place(error.file, error.line, error.column), error.text);
        }
        return good_;
    }

private:
    using Command = kernel::SConfigCommand;

    struct Line {
        std::string place;
        std::string text;
    };
    /// A value that commands set, and the line that set it last; -1: it is as it was at first.
    struct Setting {
        std::string value;
        int line = -1;
    };
    struct Permit {
        Pattern pattern;
        bool console;
        bool log_file;
    };

    void check_command(const Command& command) {
        for (std::uint32_t i = 0; i < command.value_count; ++i)
            if (command.values[i].type == kernel::EConfigValue::MISSING)
                return unusable(command,
                                "parameter " + std::to_string(i + 1) + " of " + command.keyword + " is missing");
        const std::string_view keyword = command.keyword;
        if (keyword == "Permit") return check_permit(command);
        if (keyword == "BrenixLogLevel") return check_level(command);
        if (keyword == "BrenixLogCategoryLevel") return check_category(command);
        set(command, sources_, command.values[0].integer != 0 ? "on" : "off", "source positions in messages");
    }

    void check_permit(const Command& command) {
        const std::string text = command.values[0].string;
        if (text.find_first_not_of('?') == std::string::npos)
            return unusable(command, "the pattern \"" + text + "\" names no message");
        if (text.size() > 4) return unusable(command, "the pattern \"" + text + "\" is longer than 4 characters");
        const Permit permit{Pattern(text), command.values[1].integer != 0, command.values[2].integer != 0};
        const char* const where = permit.console && permit.log_file ? "console and log file"
                                  : permit.console                  ? "console"
                                                                    : "log file";
        const std::string idle = why_idle(permit, text);
        if (!idle.empty()) return warn(command, "messages \"" + text + "\"", idle);
        says(command, "messages \"" + permit.pattern.text + "\" go to the " + where + " too");
        permits_.push_back(permit);
    }

    /// Why a filter entry changes nothing; "" when it does change something.
    std::string why_idle(const Permit& permit, const std::string& given) const {
        if (!permit.console && !permit.log_file) return "it permits neither console nor log file";
        std::size_t known = 0, fixed = 0, verbose = 0, on_console = 0;
        const auto look = [&](std::string_view code) {
            if (!permit.pattern.matches(code)) return;
            ++known;
            fixed += is_fixed(code);
            verbose += waits_for_verbose(code);
        };
        for (const std::string_view code : other_codes) look(code);
        for (const std::string_view code : console_codes) {
            look(code);
            on_console += permit.pattern.matches(code);
        }
        if (known == 0 && given.back() == '?')
            return "a \"?\" at the end is dropped, so it stands for \"" + permit.pattern.text +
                   "\", which is no code of the library; name each code";
        if (!permit.pattern.names_one_code()) return covered(permit);
        if (fixed != 0) return "these go to console and log file always, and the filter is not asked";
        if (verbose != 0) return "these go to the console, to the log file with -verbose, and the filter is not asked";
        if (on_console != 0 && !permit.log_file) return "these go to the console anyway";
        return covered(permit);
    }

    std::string covered(const Permit& permit) const {
        for (const Permit& before : permits_) {
            if (before.pattern.text != permit.pattern.text) continue;
            if (before.console >= permit.console && before.log_file >= permit.log_file)
                return "an earlier line permits this already";
        }
        return "";
    }

    void check_level(const Command& command) {
        const char* const given = command.values[0].string;
        const std::string name = level_name(given);
        if (name.empty()) return unusable(command, std::string("\"") + given + "\" is no level");
        const bool is_raised = CrashLevelFromName(given) < Log::ELevel::INFO;
        set(command, level_, is_raised ? name + ", raised to info when the log file is opened" : name, "the level");
    }

    void check_category(const Command& command) {
        const auto longest = static_cast<std::size_t>(Log::Settings::MAX_CATEGORY_NAME_LEN);
        const std::string given = command.values[0].string;
        const std::string category = given.substr(0, longest);  // as far as names are compared
        const std::string level = level_name(command.values[1].string);
        if (level.empty()) return unusable(command, std::string("\"") + command.values[1].string + "\" is no level");
        if (category.empty()) return unusable(command, "the category has no name");
        const std::string what = "the level of category \"" + category + "\"";
        if (level == "none") {
            const auto found = categories_.find(category);
            if (found == categories_.end()) return warn(command, what, "it has no level of its own");
            set(command, found->second, "that of all others", what);
            categories_.erase(found);
        } else if (categories_.count(category) == 0 && categories_.size() >= Log::Settings::MAX_CATEGORIES_COUNT) {
            unusable(command, "there is room for " + std::to_string(Log::Settings::MAX_CATEGORIES_COUNT) +
                                  " categories, and \"" + given + "\" is one more");
        } else {
            set(command, categories_[category], level, what);
        }
    }

    void set(const Command& command, Setting& setting, const std::string& value, const std::string& what) {
        if (setting.value == value) return warn(command, what + ": " + value, "it is so already");
        add_warning(setting.line, ": line " + std::to_string(command.line) + " sets it again");
        says(command, what + ": " + value);
        setting = {value, static_cast<int>(lines_.size()) - 1};
    }

    void says(const Command& command, const std::string& text) {
        lines_.push_back({place(command.file, command.line, command.column), text});
    }
    void warn(const Command& command, const std::string& what, const std::string& why) {
        says(command, what);
        add_warning(static_cast<int>(lines_.size()) - 1, ": " + why);
    }
    void add_warning(int line, const std::string& why) {
        if (line >= 0) lines_[static_cast<std::size_t>(line)].text += " (warning: changes nothing" + why + ")";
    }
    void unusable(const Command& command, const std::string& text) {
        good_ = fail(place(command.file, command.line, command.column), text);
    }
    std::string place(const char* file, std::uint32_t line, std::uint32_t column) const {
        return (file[0] != '\0' ? file : file_) + ":" + std::to_string(line) + ":" + std::to_string(column);
    }

    const std::string file_;
    std::vector<Line> lines_;
    Setting level_{"info"}, sources_{"off"};
    std::map<std::string, Setting> categories_;
    std::vector<Permit> permits_;
    bool good_ = true;
};

bool log_check(const Name& given) {
    const std::string& name = given.name;
    std::string text;
    fs::clear_error();
    if (!read_text(name.c_str(), text, nullptr))
        return fail_with_last_error(name, "it cannot be read, or is larger than 64 MiB");
    const std::unique_ptr<kernel::CConfigText, ReleaseText> parsed(kernel::CConfigText::Parse(
        CrashConfigKeywords(),
        {.text = text.data(), .length = text.size(), .file = name.c_str(), .reader = read_text, .user = nullptr}));
    if (parsed == nullptr) return fail(name, "there is no memory to read it");
    return Checker(name).check(*parsed);
}

}  // namespace

void add_log_commands(Commands& commands) {
    const auto check = commands.add("log-check",
                                    "Read a logging configuration; say what each line changes, which lines change "
                                    "nothing or cannot be used, and why",
                                    log_check);
    check
        ->add_option("FILE", check.given.name,
                     "Usually CrashLog.cfg; it and what it includes are looked up as the engine does")
        ->required();
}

// log-check: what a logging configuration sets, and what in it cannot be used.

#include <cstring>
#include <memory>
#include <set>
#include <string_view>

#include <CLI/CLI.hpp>

#include <engine/filesystem.h>
#include <engine/kernel/parser.h>

#include "commands.h"
#include "names.h"
#include "report.h"

namespace {

constexpr std::uint64_t largest = 64u << 20;  // what the library reads

bool read_text(const char* name, std::string& out, void*) {
    const FilePtr file(fs::open(name, EFSMode::READ));
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

/// Goes through the commands in their order, as the library does when it applies them.
class Checker {
public:
    explicit Checker(const std::string& file) : file_(file) {}

    bool check(const kernel::CConfigText& text) {
        for (std::uint32_t i = 0; i < text.CommandCount(); ++i) check_command(text.Command(i));
        for (std::uint32_t i = 0; i < text.ErrorCount(); ++i) {
            const kernel::SConfigError& error = text.Error(i);
            report(error.file, error.line, error.column, error.text);
        }
        return good_;
    }

private:
    using Values = const kernel::SConfigValue*;

    void check_command(const kernel::SConfigCommand& command) {
        for (std::uint32_t i = 0; i < command.value_count; ++i)
            if (command.values[i].type == kernel::EConfigValue::MISSING)
                return unusable(command,
                                "parameter " + std::to_string(i + 1) + " of " + command.keyword + " is missing");
        const std::string_view keyword = command.keyword;
        if (keyword == "Permit") return check_permit(command);
        if (keyword == "BrenixLogLevel") return check_level(command, command.values[0], "the level");
        if (keyword == "BrenixLogCategoryLevel") return check_category(command);
        says(command, std::string("source positions in messages: ") + (command.values[0].integer != 0 ? "on" : "off"));
    }

    void check_permit(const kernel::SConfigCommand& command) {
        const std::string pattern = command.values[0].string;
        if (pattern.find_first_not_of('?') == std::string::npos)
            return unusable(command, "the pattern \"" + pattern + "\" names no message");
        if (pattern.size() > 4) return unusable(command, "the pattern \"" + pattern + "\" is longer than 4 characters");
        const bool console = command.values[1].integer != 0;
        const bool log_file = command.values[2].integer != 0;
        const char* const where = console && log_file ? "console and log file" : console ? "console" : "log file";
        says(command,
             "messages \"" + pattern + "\" go to the " + (console || log_file ? where : "places of the defaults only"));
    }

    void check_level(const kernel::SConfigCommand& command, const kernel::SConfigValue& value,
                     const std::string& what) {
        const std::string name = level_name(value.string);
        if (name.empty()) return unusable(command, std::string("\"") + value.string + "\" is no level");
        const bool is_raised = CrashLevelFromName(value.string) < Log::ELevel::INFO;
        says(command, what + ": " + name + (is_raised ? ", raised to info when the log file is opened" : ""));
    }

    void check_category(const kernel::SConfigCommand& command) {
        const auto longest = static_cast<std::size_t>(Log::Settings::MAX_CATEGORY_NAME_LEN);
        const std::string given = command.values[0].string;
        const std::string category = given.substr(0, longest);  // as far as names are compared
        const std::string level = level_name(command.values[1].string);
        if (level.empty()) return check_level(command, command.values[1], "");
        if (category.empty()) return unusable(command, "the category has no name");
        if (level == "none") {
            categories_.erase(category);
        } else if (categories_.count(category) == 0 && categories_.size() >= Log::Settings::MAX_CATEGORIES_COUNT) {
            return unusable(command, "there is room for " + std::to_string(Log::Settings::MAX_CATEGORIES_COUNT) +
                                         " categories, and \"" + given + "\" is one more");
        } else {
            categories_.insert(category);
        }
        says(command,
             "the level of category \"" + category + "\": " + (level == "none" ? "that of all others" : level));
    }

    void says(const kernel::SConfigCommand& command, const std::string& text) {
        print(place(command.file, command.line, command.column) + ": " + text + "\n");
    }

    void unusable(const kernel::SConfigCommand& command, const std::string& text) {
        report(command.file, command.line, command.column, text);
    }

    void report(const char* file, std::uint32_t line, std::uint32_t column, const std::string& text) {
        good_ = fail(place(file, line, column), text);
    }

    std::string place(const char* file, std::uint32_t line, std::uint32_t column) const {
        return (file[0] != '\0' ? file : file_) + ":" + std::to_string(line) + ":" + std::to_string(column);
    }

    const std::string file_;
    std::set<std::string> categories_;
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
    const auto check = commands.add(
        "log-check",
        "Read a logging configuration, print what it sets and every place that cannot be used, with the reason",
        log_check);
    check
        ->add_option("FILE", check.given.name,
                     "Usually CrashLog.cfg; it and what it includes are looked up as the engine does")
        ->required();
}

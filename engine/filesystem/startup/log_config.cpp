// What the command line and the configuration file say about the log. The file is found, read whole, parsed and applied
// command by command.
#include "engine/filesystem/startup/log.h"

#include <algorithm>
#include <utility>

#include <engine/filesystem/access.h>
#include <engine/filesystem/contract.h>
#include <engine/filesystem/registry.h>
#include <engine/filesystem/startup/crash.h>
#include <engine/kernel/parser.h>

#include "engine/filesystem/contract/open_file.h"
#include "engine/kernel/text.h"
#include "engine/platform/files.h"
#include "engine/platform/process.h"

namespace crash {

namespace {

constexpr std::size_t value_limit = 260;

bool is_separator(char c) { return c == ' ' || c == '\t'; }

/// Whether `before`, what stands before a word, ends in a marker that starts the line or follows a blank.
bool ends_in_marker(std::string_view before) {
    for (const std::string_view marker : {"--", "-", "/"}) {
        if (!before.ends_with(marker)) continue;
        const std::string_view rest = before.substr(0, before.size() - marker.size());
        if (rest.empty() || is_separator(rest.back())) return true;
    }
    return false;
}

/// Calls `use` with what follows each marked occurrence of `word`, until it answers true.
template <class Use>
bool for_each_switch(std::string_view line, std::string_view word, Use use) {
    const auto is_same = [](char a, char b) { return kernel::fold(a) == kernel::fold(b); };
    for (auto from = line.begin();; ++from) {
        from = std::search(from, line.end(), word.begin(), word.end(), is_same);
        if (from == line.end()) return false;
        const auto at = static_cast<std::size_t>(from - line.begin());
        if (ends_in_marker(line.substr(0, at)) && use(line.substr(at + word.size()))) return true;
    }
}

using Log::ELevel;

constexpr const char* keywords =
    "!Permit(s,i,i)\r\n!BrenixLogLevel(s)\r\n!BrenixLogCategoryLevel(s,s)\r\n!BrenixLogMessageSource(i)";
constexpr std::uint64_t largest_configuration = 64u << 20;

/// All of an open file, whichever kind it is of. Line ends need no care: the parser takes returns for blanks.
template <class File>
std::optional<std::string> read_whole(File& file) {
    const std::uint64_t length = file.length();
    if (length > largest_configuration) return std::nullopt;
    std::string text(static_cast<std::size_t>(length), '\0');
    const std::uint64_t got = file.read(text.data(), length);
    if (got > length) return std::nullopt;
    text.resize(static_cast<std::size_t>(got));
    return text;
}

std::optional<std::string> read_text(const std::string& name) {
    const bool through_file_system = fs::is_initialized();
    const bool is_here = through_file_system ? fs::exists(name.c_str()) : fs::native_does_file_exist(name.c_str());
    const std::string path = is_here ? name : platform::executable_directory() + name;
    if (through_file_system) {
        const fs::FilePtr file(fs::open(path.c_str(), EFSMode::READ));
        return file == nullptr ? std::nullopt : read_whole(*file);
    }
    platform::File file = platform::File::open(path.c_str(), {});
    return file.valid() ? read_whole(file) : std::nullopt;
}

bool read_include(const char* name, std::string& out, void*) {
    std::optional<std::string> text = read_text(name);
    if (text) out = std::move(*text);
    return text.has_value();
}

std::string_view text_of(const kernel::SConfigValue& value) {
    return value.string == nullptr ? std::string_view() : value.string;
}

/// NONE for a name that is none.
ELevel::TYPE level_from_name(std::string_view name) {
    constexpr std::pair<char, ELevel::TYPE> first_letters[] = {
        {'a', ELevel::VERE}, {'x', ELevel::VERE}, {'d', ELevel::DEBG}, {'e', ELevel::ERRR},
        {'f', ELevel::FATL}, {'i', ELevel::INFO}, {'w', ELevel::WARN}, {'v', ELevel::VERB}};
    if (name.empty()) return ELevel::NONE;
    const auto* const found =
        std::ranges::find(first_letters, kernel::fold(name[0]), &std::pair<char, ELevel::TYPE>::first);
    if (found == std::end(first_letters)) return ELevel::NONE;
    if (found->second != ELevel::VERB || (name.size() != 2 && name.size() < 8)) return found->second;
    // "V3" or "Verbose3".
    const char digit = name.size() == 2 ? name[1] : name[7];
    if (digit >= '1' && digit <= '8')
        return static_cast<ELevel::TYPE>(ELevel::VER1 + static_cast<unsigned>(digit - '1'));
    const bool is_everything = digit == '9' || (name.size() != 2 && kernel::fold(digit) == 'e');
    return is_everything ? ELevel::VERE : ELevel::VERB;
}

void apply(const kernel::SConfigCommand& command) {
    const std::string_view keyword(command.keyword);
    const kernel::SConfigValue* const values = command.values;
    if (keyword == "Permit") {
        CLFilterAction::ENUM action = CLFilterAction::NOWHERE;
        if (values[1].integer != 0) action |= CLFilterAction::CONSOLE;
        if (values[2].integer != 0) action |= CLFilterAction::LOGFILE;
        _CLFilterAdd(values[0].string, action);
    } else if (keyword == "BrenixLogLevel") {
        Log::Settings::Instance().SetLevel(level_from_name(text_of(values[0])));
    } else if (keyword == "BrenixLogCategoryLevel") {
        Log::Settings::Instance().SetCategoryLevel(values[0].string, level_from_name(text_of(values[1])));
    } else if (keyword == "BrenixLogMessageSource") {
        Log::Settings::Instance().SetMessageSource(values[0].integer != 0);
    }
}

}  // namespace

bool has_switch(std::string_view command_line, std::string_view word) {
    return for_each_switch(command_line, word,
                           [](std::string_view rest) { return rest.empty() || is_separator(rest[0]); });
}

std::optional<std::string> option_value(std::string_view command_line, std::string_view name) {
    std::optional<std::string> result;
    for_each_switch(command_line, name, [&](std::string_view rest) {
        const std::string_view value = rest.substr(0, rest.find(' '));
        if (value.empty() || value.size() >= value_limit) return false;
        result = value;
        return true;
    });
    return result;
}

bool apply_configuration(const std::string& text, const char* file) {
    kernel::CConfigText* const parsed = kernel::CConfigText::Parse(
        keywords, {.text = text.data(), .length = text.size(), .file = file, .reader = read_include, .user = nullptr});
    if (parsed == nullptr) return false;
    for (std::uint32_t i = 0; i < parsed->CommandCount(); ++i) apply(parsed->Command(i));
    parsed->Release();
    return true;
}

bool read_configuration() try {
    const std::string name = option_value(platform::command_line(), "logcfg=").value_or("CrashLog.cfg");
    const std::optional<std::string> text = read_text(name);
    return text && !text->empty() && apply_configuration(*text, name.c_str());
} catch (...) {  // no memory, or a source of the host's own that throws
    return false;
}

}  // namespace crash

const char* CrashConfigKeywords() { return crash::keywords; }
Log::ELevel::TYPE CrashLevelFromName(const char* name) { return crash::level_from_name(name == nullptr ? "" : name); }

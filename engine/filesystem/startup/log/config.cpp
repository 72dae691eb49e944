// The logging configuration: found, read whole, parsed and applied command by command.
#include "engine/filesystem/startup/log/config.h"

#include <algorithm>
#include <new>
#include <optional>
#include <utility>

#include <engine/filesystem/access.h>
#include <engine/filesystem/contract.h>
#include <engine/filesystem/registry.h>
#include <engine/filesystem/startup/crash.h>
#include <engine/kernel/parser.h>

#include "engine/filesystem/contract/file.h"
#include "engine/kernel/text.h"
#include "engine/platform/files.h"
#include "engine/platform/process.h"

namespace crash {

namespace {

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

bool is_keyword(const kernel::SConfigCommand& command, const char* name) {
    return std::string_view(command.keyword) == name;
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
    const kernel::SConfigValue* const values = command.values;
    if (is_keyword(command, "Permit")) {
        CLFilterAction::ENUM action = CLFilterAction::NOWHERE;
        if (values[1].integer != 0) action |= CLFilterAction::CONSOLE;
        if (values[2].integer != 0) action |= CLFilterAction::LOGFILE;
        _CLFilterAdd(values[0].string, action);
    } else if (is_keyword(command, "BrenixLogLevel")) {
        Log::Settings::Instance().SetLevel(level_from_name(text_of(values[0])));
    } else if (is_keyword(command, "BrenixLogCategoryLevel")) {
        Log::Settings::Instance().SetCategoryLevel(values[0].string, level_from_name(text_of(values[1])));
    } else if (is_keyword(command, "BrenixLogMessageSource")) {
        Log::Settings::Instance().SetMessageSource(values[0].integer != 0);
    }
}

}  // namespace

bool apply_configuration(const std::string& text, const char* file) {
    kernel::CConfigText* const parsed = kernel::CConfigText::Parse(
        keywords, {.text = text.data(), .length = text.size(), .file = file, .reader = read_include, .user = nullptr});
    if (parsed == nullptr) return false;
    for (std::uint32_t i = 0; i < parsed->CommandCount(); ++i) apply(parsed->Command(i));
    parsed->Release();
    return true;
}

bool read_configuration(const std::string& name) try {
    const std::optional<std::string> text = read_text(name);
    return text && !text->empty() && apply_configuration(*text, name.c_str());
} catch (const std::bad_alloc&) {
    return false;
}

}  // namespace crash

const char* CrashConfigKeywords() { return crash::keywords; }
Log::ELevel::TYPE CrashLevelFromName(const char* name) { return crash::level_from_name(name == nullptr ? "" : name); }

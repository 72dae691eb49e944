// The logging configuration: found, read whole, parsed and applied command by command.
#include "engine/filesystem/startup/log/config.h"

#include <cstdio>
#include <memory>
#include <new>
#include <optional>

#include <engine/filesystem/access.h>
#include <engine/filesystem/contract.h>
#include <engine/filesystem/registry.h>
#include <engine/filesystem/startup/crash.h>
#include <engine/kernel/parser.h>

#include "engine/filesystem/contract/file_ptr.h"
#include "engine/platform/directories.h"
#include "engine/platform/files.h"
#include "engine/platform/process.h"

namespace crash {

namespace {

using Log::ELevel;

constexpr const char* keywords =
    "!Permit(s,i,i)\r\n!BrenixLogLevel(s)\r\n!BrenixLogCategoryLevel(s,s)\r\n!BrenixLogMessageSource(i)";
constexpr std::uint64_t largest_configuration = 64u << 20;

constexpr char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c; }

ELevel::TYPE verbose_level(char c, bool letter_e_counts) {
    if (c >= '1' && c <= '8') return static_cast<ELevel::TYPE>(static_cast<int>(ELevel::VER1) + (c - '1'));
    return c == '9' || (letter_e_counts && upper(c) == 'E') ? ELevel::VERE : ELevel::VERB;
}

struct CloseText {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

std::optional<std::string> read_through_file_system(const std::string& name) {
    const fs::FilePtr file(fs::open(name.c_str(), EFSMode::READ));
    if (file == nullptr) return std::nullopt;
    const std::uint64_t length = fs::length(file.get());
    if (length > largest_configuration) return std::nullopt;
    std::string text(static_cast<std::size_t>(length), '\0');
    const std::uint64_t got = fs::read(file.get(), text.data(), length);
    if (got > length) return std::nullopt;
    text.resize(static_cast<std::size_t>(got));
    return text;
}

/// As the C run-time reads text: on Windows it ends at a control-Z, and "\r\n" is one character.
std::optional<std::string> read_from_disk(const std::string& name) {
    char path[platform::path_buffer_size];
    if (!platform::resolve_case(name.c_str(), path)) return std::nullopt;
    const std::unique_ptr<std::FILE, CloseText> file(std::fopen(path, "rt"));
    if (file == nullptr) return std::nullopt;
    std::string text;
    char piece[16384];
    while (const std::size_t got = std::fread(piece, 1, sizeof(piece), file.get())) {
        if (text.size() + got > largest_configuration) return std::nullopt;
        text.append(piece, got);
    }
    return text;
}

bool is_file_on_disk(const std::string& name) {
    const auto attributes = platform::get_attributes(name.c_str());
    return attributes && !attributes->is_directory;
}

std::optional<std::string> read_text(const std::string& name) {
    const bool through_file_system = fs::is_initialized();
    const std::string beside = platform::executable_directory() + name;
    const bool is_here = through_file_system ? fs::exists(name.c_str()) : is_file_on_disk(name);
    const std::string& chosen = is_here ? name : beside;
    if (through_file_system) return read_through_file_system(chosen);
    // Opening a device or a pipe could block for ever.
    return is_file_on_disk(chosen) ? read_from_disk(chosen) : std::nullopt;
}

bool read_include(const char* name, std::string& out, void*) try {
    std::optional<std::string> text = read_text(name);
    if (text) out = std::move(*text);
    return text.has_value();
} catch (const std::bad_alloc&) {
    return false;
}

std::string_view text_of(const kernel::SConfigValue& value) {
    return value.string == nullptr ? std::string_view() : value.string;
}

bool is_keyword(const kernel::SConfigCommand& command, const char* name) {
    return std::string_view(command.keyword) == name;
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

ELevel::TYPE level_from_name(std::string_view name) {
    if (name.empty()) return ELevel::NONE;
    switch (upper(name[0])) {
        case 'A':
        case 'X':
            return ELevel::VERE;
        case 'D':
            return ELevel::DEBG;
        case 'E':
            return ELevel::ERRR;
        case 'F':
            return ELevel::FATL;
        case 'I':
            return ELevel::INFO;
        case 'W':
            return ELevel::WARN;
        case 'V':
            break;
        default:
            return ELevel::NONE;
    }
    if (name.size() == 2) return verbose_level(name[1], false);
    return name.size() >= 8 ? verbose_level(name[7], true) : ELevel::VERB;
}

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

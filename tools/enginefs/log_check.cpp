// log-check: what each line of a logging configuration changes, which lines change nothing, and why.

#include <algorithm>
#include <string_view>

#include <engine/kernel/parser.h>

#include "command.h"

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

/// The codes of the library's messages, by where they go without a filter entry.
enum class Goes { EVERYWHERE, CONSOLE_AND_VERBOSE_FILE, CONSOLE, NOWHERE };
constexpr struct {
    Goes where;
    std::string_view codes;
} known_codes[] = {
    {Goes::EVERYWHERE, "FATL INFO ERRR EXIT DXGI"},
    {Goes::CONSOLE_AND_VERBOSE_FILE, "WARN DEBG"},
    {Goes::CONSOLE, "VERB VER0 VER1 VER2 VER3 VER4 VER5 VER6 VER7 VER8 VER9 VERE SESE SESI SESL SESW LLOG"},
    {Goes::NOWHERE, "NONE CLOG"}};

/// A filter entry. The last four characters of its pattern are compared with those of the code, "?" with any.
struct Permit {
    std::string pattern;
    bool console;
    bool log_file;
};

/// Where what the pattern matches goes; nothing when it matches no code of the library.
std::optional<Goes> find_code(const std::string& pattern) {
    for (const auto& [where, codes] : known_codes)
        for (std::size_t at = 0; at < codes.size(); at += 5)
            if (std::ranges::equal(pattern, codes.substr(at, 4), [](char p, char c) { return p == '?' || p == c; }))
                return where;
    return std::nullopt;
}

/// Goes through the commands in their order, as the library does when it applies them, and keeps what they come to.
class Checker {
public:
    explicit Checker(const std::string& file) : file_(file) {}

    bool check(const kernel::CConfigText& text) {
        for (std::uint32_t i = 0; i < text.CommandCount(); ++i) check_command(text.Command(i));
        for (const auto& [name, level] : categories_)
            if (level.value == level_.value) warn(level.line, "it is the level of all others");
        Listing listing;
        for (const Line& line : lines_)
            listing.add({{"place", line.place}, {"says", line.text}, {"idle", line.idle}},
                        shown(line.place) + ": " + shown(line.text) +
                            (line.idle.empty() ? "" : " (warning: changes nothing: " + shown(line.idle) + ")"));
        for (std::uint32_t i = 0; i < text.ErrorCount(); ++i) fail_at(text.Error(i), text.Error(i).text);
        return listing.finish() && good_;
    }

private:
    using Command = kernel::SConfigCommand;

    struct Line {
        std::string place, text;
        std::string idle{};  // why it changes nothing
    };
    /// A value that commands set, and the line that set it last; none: it is as it was at first.
    struct Setting {
        std::string value;
        std::optional<std::size_t> line{};
    };

    void check_command(const Command& command) {
        for (std::uint32_t i = 0; i < command.value_count; ++i)
            if (command.values[i].type == kernel::EConfigValue::MISSING)
                return fail_at(command,
                               "parameter " + std::to_string(i + 1) + " of " + command.keyword + " is missing");
        const std::string_view keyword = command.keyword;
        if (keyword == "Permit") return check_permit(command);
        if (keyword == "BrenixLogLevel") return check_level(command);
        if (keyword == "BrenixLogCategoryLevel") return check_category(command);
        set(command, sources_, command.values[0].integer != 0 ? "on" : "off", "source positions in messages");
    }

    void check_permit(const Command& command) {
        const std::string given = command.values[0].string;
        const std::string quoted = "the pattern \"" + given + "\" ";
        const std::size_t length = given.find_last_not_of('?') + 1;  // wildcards at the end are dropped
        if (length == 0) return fail_at(command, quoted + "names no message");
        if (given.size() > 4) return fail_at(command, quoted + "is longer than 4 characters");
        const Permit permit{std::string(4 - length, '?') + given.substr(0, length), command.values[1].integer != 0,
                            command.values[2].integer != 0};
        const std::string idle = why_idle(permit, length != given.size());
        if (!idle.empty()) {
            say(command, "messages \"" + given + "\"");
            return warn(lines_.size() - 1, idle);
        }
        const char* const where = !permit.log_file ? "console" : !permit.console ? "log file" : "console and log file";
        say(command, "messages \"" + permit.pattern + "\" go to the " + where + " too");
        permits_.push_back(permit);
    }

    /// Why a filter entry changes nothing; "" when it does change something.
    std::string why_idle(const Permit& permit, bool is_cut) const {
        if (!permit.console && !permit.log_file) return "it permits neither console nor log file";
        const std::optional<Goes> where = find_code(permit.pattern);
        if (!where && is_cut)
            return "a \"?\" at the end is dropped, so it stands for \"" + permit.pattern +
                   "\", which is no code of the library; name each code";
        if (where && permit.pattern.find('?') == std::string::npos) {
            if (*where == Goes::EVERYWHERE)
                return "these go to console and log file always, and the filter is not asked";
            if (*where == Goes::CONSOLE_AND_VERBOSE_FILE)
                return "these go to the console, to the log file with -verbose, and the filter is not asked";
            if (*where == Goes::CONSOLE && !permit.log_file) return "these go to the console anyway";
        }
        const bool is_covered = std::ranges::any_of(permits_, [&](const Permit& before) {
            return before.pattern == permit.pattern && before.console >= permit.console &&
                   before.log_file >= permit.log_file;
        });
        return is_covered ? "an earlier line permits this already" : "";
    }

    /// The level that a parameter names; "", and said so, when it names none.
    std::string level_of(const Command& command, std::uint32_t parameter) {
        const char* const given = command.values[parameter].string;
        std::string name = level_name(given);
        if (name.empty()) fail_at(command, std::string("\"") + given + "\" is no level");
        return name;
    }

    void check_level(const Command& command) {
        const std::string name = level_of(command, 0);
        if (name.empty()) return;
        const bool is_raised = CrashLevelFromName(command.values[0].string) < Log::ELevel::INFO;
        set(command, level_, is_raised ? name + ", raised to info when the log file is opened" : name, "the level");
    }

    void check_category(const Command& command) {
        const std::string given = command.values[0].string;
        const std::string category = given.substr(0, Log::Settings::MAX_CATEGORY_NAME_LEN);  // as far as it is compared
        const std::string level = level_of(command, 1);
        if (level.empty()) return;
        if (category.empty()) return fail_at(command, "the category has no name");
        const std::string what = "the level of category \"" + category + "\"";
        const auto found = categories_.find(category);
        if (level == "none" && found == categories_.end()) {
            say(command, what);
            warn(lines_.size() - 1, "it has no level of its own");
        } else if (level == "none") {
            set(command, found->second, "that of all others", what);
            categories_.erase(found);
        } else if (found == categories_.end() && categories_.size() >= Log::Settings::MAX_CATEGORIES_COUNT) {
            fail_at(command, "there is room for " + std::to_string(Log::Settings::MAX_CATEGORIES_COUNT) +
                                 " categories, and \"" + given + "\" is one more");
        } else {
            set(command, categories_[category], level, what);
        }
    }

    void set(const Command& command, Setting& setting, const std::string& value, const std::string& what) {
        say(command, what + ": " + value);
        if (setting.value == value) return warn(lines_.size() - 1, "it is so already");
        if (setting.line) warn(*setting.line, "line " + std::to_string(command.line) + " sets it again");
        setting = {value, lines_.size() - 1};
    }

    void say(const Command& command, const std::string& text) { lines_.push_back({place_of(command), text}); }
    void warn(std::optional<std::size_t> line, const std::string& why) {
        if (line) lines_[*line].idle = why;
    }
    template <class Placed>
    void fail_at(const Placed& placed, const std::string& text) {
        good_ = fail(place_of(placed), text);
    }
    template <class Placed>
    std::string place_of(const Placed& placed) const {
        return (placed.file[0] != '\0' ? placed.file : file_) + ":" + std::to_string(placed.line) + ":" +
               std::to_string(placed.column);
    }

    const std::string file_;
    std::vector<Line> lines_;
    Setting level_{"info"}, sources_{"off"};
    std::map<std::string, Setting> categories_;
    std::vector<Permit> permits_;
    bool good_ = true;
};

bool log_check(const std::string& name) {
    std::string text;
    fs::clear_error();
    if (!read_text(name.c_str(), text, nullptr))
        return fail_to_read(name, "it cannot be read, or is larger than 64 MiB");
    const std::unique_ptr<kernel::CConfigText, ReleaseText> parsed(kernel::CConfigText::Parse(
        CrashConfigKeywords(),
        {.text = text.data(), .length = text.size(), .file = name.c_str(), .reader = read_text, .user = nullptr}));
    if (parsed == nullptr) return fail(name, "there is no memory to read it");
    return Checker(name).check(*parsed);
}

}  // namespace

void add_log_commands(Commands& commands) {
    const auto check =
        commands.add("log-check",
                     "Read logging configurations, usually CrashLog.cfg, which are looked up as the engine "
                     "does; say what each line changes, which lines change nothing or cannot be used, and why",
                     "FILE", log_check);
    commands.add_forms(check.app, "The places");
}

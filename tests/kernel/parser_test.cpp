#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>

#include <engine/kernel/parser.h>

namespace {

using kernel::CConfigText;
using kernel::EConfigValue;

constexpr const char* keywords = "!Permit(s,i,i)\r\n!Level(s)\r\n!Number(f)\r\n!Place(v,q)\r\n!Stop()";

struct Release {
    void operator()(CConfigText* text) const { text->Release(); }
};
using Parsed = std::unique_ptr<CConfigText, Release>;

std::map<std::string, std::string> include_files;
int reads = 0;

bool read_include(const char* name, std::string& out, void*) {
    ++reads;
    const auto found = include_files.find(name);
    if (found != include_files.end()) out = found->second;
    return found != include_files.end();
}

Parsed parse(const std::string& text) {
    // A block of its own lets the sanitizers see a single byte too many.
    const auto exact = std::make_unique<char[]>(text.size());
    text.copy(exact.get(), text.size());
    reads = 0;
    return Parsed(CConfigText::Parse(
        keywords,
        {.text = exact.get(), .length = text.size(), .file = "main", .reader = read_include, .user = nullptr}));
}

std::string show(const kernel::SConfigValue& value) {
    std::string text;
    const auto number = [](float f) { return std::to_string(f).substr(0, std::to_string(f).find('.') + 2); };
    switch (value.type) {
        case EConfigValue::MISSING:
            return value.integer == 0 && value.string == nullptr ? "-" : "not empty";
        case EConfigValue::STRING:
            return std::string("'") + value.string + "'";
        case EConfigValue::INT:
            return std::to_string(value.integer);
        case EConfigValue::FLOAT:
            return number(value.numbers[0]);
        case EConfigValue::VEC3:
        case EConfigValue::VEC4:
            break;
    }
    for (int i = 0; i < (value.type == EConfigValue::VEC3 ? 3 : 4); ++i)
        text += (i == 0 ? "" : ";") + number(value.numbers[i]);
    return "<" + text + ">";
}

std::string commands(const CConfigText& parsed) {
    std::string all;
    for (std::uint32_t i = 0; i < parsed.CommandCount(); ++i) {
        const kernel::SConfigCommand& command = parsed.Command(i);
        all += std::string(all.empty() ? "" : " ") + command.keyword;
        for (std::uint32_t at = 0; at < command.value_count; ++at)
            all += (at == 0 ? ":" : ",") + show(command.values[at]);
    }
    return all;
}

std::string errors(const CConfigText& parsed) {
    std::string all;
    for (std::uint32_t i = 0; i < parsed.ErrorCount(); ++i) {
        const kernel::SConfigError& error = parsed.Error(i);
        all += std::string(error.file) + ":" + std::to_string(error.line) + ":" + std::to_string(error.column) + " " +
               error.text + "\n";
    }
    return all;
}

TEST(ConfigText, GoodTextsGiveTheirCommandsInOrder) {
    const std::pair<const char*, const char*> cases[] = {
        {"", ""},
        {"!Permit(VE?\?, 1, 0)", "Permit:'VE?\?',1,0"},
        {"permit(\"VE?\?\",-1,+7)\r\nLEVEL ( Verbose5 )", "Permit:'VE?\?',-1,7 Level:'Verbose5'"},
        {"\xEF\xBB\xBF!Level(I)", "Level:'I'"},
        {"! Level(a) Level(b); Level(c)", "Level:'a' Level:'b' Level:'c'"},
        {"Permit(\n  a, // first\n  /* second\n */ 2\n  ,\n  3\n)", "Permit:'a',2,3"},
        {"Permit(a)", "Permit:'a',-,-"},
        {"Permit(,,5)", "Permit:-,-,5"},
        {"Level Stop() Stop", "Level:- Stop Stop"},
        {"Level(\"\")", "Level:''"},
        {"Level(\"a, (b) \\\"c\\\" \\\\ // \\x41\\t\\q\")", "Level:'a, (b) \"c\" \\ // A\t\\q'"},
        {"Level(out/logs/a.log)", "Level:'out/logs/a.log'"},
        {"Permit(1234,0x7fffffff,-2147483648)", "Permit:'1234',2147483647,-2147483648"},
        {"Permit(a,0xFFFFFFFF,\"12\")", "Permit:'a',-1,12"},
        {"Number(1.5) Number(-2e1) Number(+3)", "Number:1.5 Number:-20.0 Number:3.0"},
        {"Place((1, 2.5, -3), (1,2,3,4))", "Place:<1.0;2.5;-3.0>,<1.0;2.0;3.0;4.0>"},
        {"const(int, LIMIT, 5) Permit(LIMIT, limit, 1) Number(Limit)", "Permit:-,5,1 Number:5.0"},
        {"!const(vec3, UP, (0,1,0)) !const(string, who, \"a b\") Place(UP) Level(who)",
         "Place:<0.0;1.0;0.0>,- Level:'a b'"},
        {"!set(dir, out) !set(file, $dir/x) !set(DIR, in) Level(\"${file}.log $$dir\") Level(a$dir)",
         "Level:'out/x.log $dir' Level:'ain'"},
        {"!set(n, 7) Permit(a$, $n, ${n}${n})", "Permit:'a$',7,77"},
    };
    for (const auto& [text, expected] : cases) {
        const Parsed parsed = parse(text);
        EXPECT_EQ(commands(*parsed), expected) << text;
        const bool is_type_mismatch = std::string(text).find("Permit(LIMIT") != std::string::npos;
        EXPECT_EQ(parsed->ErrorCount(), is_type_mismatch ? 1u : 0u) << text << "\n" << errors(*parsed);
    }
}

TEST(ConfigText, MistakesAreToldWithTheirPlaceAndParsingGoesOn) {
    struct Case {
        const char* text;
        const char* expected_commands;
        const char* expected_errors;
    };
    const Case cases[] = {
        {"Unknown(a, (b), \"c)\") Level(x)", "Level:'x'", "main:1:1 This keyword is not known. (\"Unknown\")\n"},
        {"some words\nLevel(x)", "Level:'x'", "main:1:1 This keyword is not known. (\"some\")\n"},
        {"Unknown(\nLevel(x)", "Level:'x'", "main:1:1 This keyword is not known. (\"Unknown\")\n"},
        {"\n  Permit(a, b, 1.5)", "Permit:'a',-,-",
         "main:2:13 An integer of 32 bits is expected here. (\"b\")\nmain:2:16 An integer of 32 bits is expected here. "
         "(\"1.5\")\n"},
        {"Permit(a, 2147483648, 0x1FFFFFFFF)", "Permit:'a',-,-",
         "main:1:11 An integer of 32 bits is expected here. (\"2147483648\")\n"
         "main:1:23 An integer of 32 bits is expected here. (\"0x1FFFFFFFF\")\n"},
        {"Level(a b)\nLevel(c)", "Level:'a' Level:'c'", "main:1:9 A \",\" or \")\" is missing here. (\"b\")\n"},
        {"Level(a\nLevel(b)", "Level:'a' Level:'b'", "main:2:1 A \",\" or \")\" is missing here. (\"Level\")\n"},
        {"Level(a", "Level:'a'", "main:1:8 A \",\" or \")\" is missing here.\n"},
        {"Level(", "Level:-", "main:1:6 This bracket is not closed.\n"},
        {"Level(a, b, c)", "Level:'a'", "main:1:10 This keyword has fewer parameters. (\"Level\")\n"},
        {"Level(\"a)\nLevel(b)", "Level:'a)' Level:'b'",
         "main:1:7 A string is not closed on its line.\nmain:2:1 A \",\" or \")\" is missing here. (\"Level\")\n"},
        {"Level(a)\n  /* and\nso on", "Level:'a'", "main:2:3 A comment is not closed.\n"},
        {") Level(a)\n,,\nLevel(b)", "Level:'b'",
         "main:1:1 A keyword is expected here. (\")\")\nmain:2:1 A keyword is expected here. (\",\")\n"},
        {"Place((1,2), (1,2,x,4)) Number(nan) Number(+-1)", "Place:-,- Number:- Number:-",
         "main:1:7 A vector has another length here.\nmain:1:19 A number is expected here. (\"x\")\n"
         "main:1:32 A number is expected here. (\"nan\")\nmain:1:44 A number is expected here. (\"+-1\")\n"},
        {"Level((1,2,3)) Place(5, ((1)))\nStop", "Level:- Place:-,- Stop",
         "main:1:7 No vector is expected here.\nmain:1:22 A vector such as (1, 2, 3) is expected here. (\"5\")\n"
         "main:1:26 The bracket of a vector is not closed here. (\"(\")\n"},
        {"Level($nobody)", "Level:''", "main:1:7 A variable is not known. (\"$nobody\")\n"},
        {"set(a.b, 1) set(x) const(real, A, 1) const(int, A, 1) const(int, a, 2)", "",
         "main:1:5 A variable's name holds letters, digits and \"_\" only. (\"a.b\")\n"
         "main:1:13 A parameter is missing. (\"set\")\n"
         "main:1:26 A type is int, float, string, vec3 or vec4. (\"real\")\n"
         "main:1:66 This constant exists already. (\"a\")\n"},
    };
    for (const Case& row : cases) {
        const Parsed parsed = parse(row.text);
        EXPECT_EQ(commands(*parsed), row.expected_commands) << row.text;
        EXPECT_EQ(errors(*parsed), row.expected_errors) << row.text;
    }
    EXPECT_EQ(commands(*parse(std::string("Level(\"a\0b\") Level(c)\0Stop", 26))), "Level:'a' Level:'c' Stop");
}

TEST(ConfigText, CommandsKnowWhereTheyStand) {
    const Parsed parsed = parse("// one\n  !Stop\n");
    EXPECT_EQ(parsed->Command(0).line, 2u);
    EXPECT_EQ(parsed->Command(0).column, 4u);
    EXPECT_STREQ(parsed->Command(0).file, "main");
}

TEST(ConfigText, IncludesAreReadInPlaceAndBounded) {
    include_files = {{"a", "Level(a) !include \"b\"\nLevel(a2)"},
                     {"b", "set(v, 1) const(int, C, 2) Bad"},
                     {"loop", "include(LOOP)"}};
    for (int i = 0; i < 20; ++i) {
        const std::string next = "include(deep" + std::to_string(i + 1) + ")";
        include_files["deep" + std::to_string(i)] = next + "\n" + next;
    }
    EXPECT_EQ(commands(*parse("include(a) Permit($v, C)")), "Level:'a' Level:'a2' Permit:'1',2,-");
    EXPECT_EQ(errors(*parse("include(a)")), "b:1:28 This keyword is not known. (\"Bad\")\n");
    EXPECT_EQ(errors(*parse("include(none)\ninclude()")),
              "main:1:9 An included file cannot be read. (\"none\")\nmain:2:1 A parameter is missing. (\"include\")\n");
    EXPECT_EQ(errors(*parse("include(loop)")), "loop:1:9 A file includes itself. (\"LOOP\")\n");
    EXPECT_EQ(errors(*parse("include(main)")), "main:1:9 A file includes itself. (\"main\")\n");
    EXPECT_THAT(errors(*parse("include(deep0)")), testing::HasSubstr("Includes are nested too deep."));
    EXPECT_LE(reads, 256) << "two includes in each of ten levels would be a thousand";
}

TEST(ConfigText, VariablesCannotMakeMuchTextOfLittle) {
    std::string text = "set(a, xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx)\n";
    for (char c = 'b'; c < 'h'; ++c) {
        const std::string before = std::string("$") + static_cast<char>(c - 1);
        text += std::string("set(") + c + ", " + before + before + before + before + ")\n";
    }
    EXPECT_THAT(errors(*parse(text)), testing::HasSubstr("A variable's value is too long."));
    for (int i = 0; i < 1000; ++i) text += "Level($d)\n";
    const Parsed parsed = parse(text);
    EXPECT_EQ(parsed->CommandCount(), 1000u);
    EXPECT_THAT(errors(*parsed), testing::HasSubstr("Variables make more text than is allowed."));
}

TEST(ConfigText, ErrorsAreKeptUpToALimit) {
    std::string text;
    for (int i = 0; i < 5000; ++i) text += ")\n";
    EXPECT_EQ(parse(text + "Stop")->ErrorCount(), 1000u);
    EXPECT_EQ(parse(text + "Stop")->CommandCount(), 1u);
    EXPECT_EQ(Parsed(CConfigText::Parse(nullptr, {.text = nullptr, .length = 9}))->CommandCount(), 0u);
}

}  // namespace

#include <gmock/gmock.h>

#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>

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
    if (value.type == EConfigValue::MISSING) return value.integer == 0 && value.string == nullptr ? "-" : "not empty";
    if (value.type == EConfigValue::STRING) return std::string("'") + value.string + "'";
    if (value.type == EConfigValue::INT) return std::to_string(value.integer);
    std::ostringstream text;
    const int count = value.type == EConfigValue::FLOAT ? 1 : value.type == EConfigValue::VEC3 ? 3 : 4;
    for (int i = 0; i < count; ++i) text << (i == 0 ? "<" : ";") << value.numbers[i];
    return text.str() + ">";
}

/// What a text says: its commands in a row, then a line for each error.
std::string said(const std::string& text) {
    const Parsed parsed = parse(text);
    std::ostringstream all;
    for (std::uint32_t i = 0; i < parsed->CommandCount(); ++i) {
        const kernel::SConfigCommand& command = parsed->Command(i);
        all << (i == 0 ? "" : " ") << command.keyword;
        for (std::uint32_t at = 0; at < command.value_count; ++at)
            all << (at == 0 ? ":" : ",") << show(command.values[at]);
    }
    for (std::uint32_t i = 0; i < parsed->ErrorCount(); ++i) {
        const kernel::SConfigError& error = parsed->Error(i);
        all << "\n" << error.file << ":" << error.line << ":" << error.column << " " << error.text;
    }
    return all.str();
}

using Case = std::pair<std::string, std::string>;  // a text, and what it says

TEST(ConfigText, GoodTextsGiveTheirCommandsInOrder) {
    const Case cases[] = {
        {"", ""},
        {"permit(\"VE?\?\",-1,+7)\r\nLEVEL ( Verbose5 )", "Permit:'VE?\?',-1,7 Level:'Verbose5'"},
        {"\xEF\xBB\xBF!Level(I)", "Level:'I'"},
        {"! Level(a) Level(b); Level(c)", "Level:'a' Level:'b' Level:'c'"},
        {"Permit(\n  a, // first\n  /* second\n */ 2\n  ,\n  3\n)", "Permit:'a',2,3"},
        {"Permit(a) Permit(,,5)", "Permit:'a',-,- Permit:-,-,5"},
        {"Level Stop() Stop Level(\"\")", "Level:- Stop Stop Level:''"},
        {"Level(\"a, (b) \\\"c\\\" \\\\ // \\x41\\t\\q\")", "Level:'a, (b) \"c\" \\ // A\t\\q'"},
        {"Level(out/logs/a.log)", "Level:'out/logs/a.log'"},
        {"Permit(1234,0x7fffffff,-2147483648)", "Permit:'1234',2147483647,-2147483648"},
        {"Permit(a,0xFFFFFFFF,\"12\")", "Permit:'a',-1,12"},
        {"Number(1.5) Number(-2e1) Number(+3)", "Number:<1.5> Number:<-20> Number:<3>"},
        {"Place((1, 2.5, -3), (1,2,3,4))", "Place:<1;2.5;-3>,<1;2;3;4>"},
        {"const(int, LIMIT, 5) Permit(a, limit, 1) Number(Limit)", "Permit:'a',5,1 Number:<5>"},
        {"!const(vec3, UP, (0,1,0)) !const(string, who, \"a b\") Place(UP) Level(who)", "Place:<0;1;0>,- Level:'a b'"},
        {"!set(dir, out) !set(file, $dir/x) !set(DIR, in) Level(\"${file}.log $$dir\") Level(a$dir)",
         "Level:'out/x.log $dir' Level:'ain'"},
        {"!set(n, 7) Permit(a$, $n, ${n}${n})", "Permit:'a$',7,77"},
        {std::string("Level(c)\0Stop", 13), "Level:'c' Stop"},
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(said(text), expected) << text;
}

TEST(ConfigText, MistakesAreToldWithTheirPlaceAndParsingGoesOn) {
    const Case cases[] = {
        {"Unknown(a, (b), \"c)\") Level(x)", "Level:'x'\nmain:1:1 This keyword is not known. (\"Unknown\")"},
        {"\n  Permit(a, b, 1.5) Permit(c, 2147483648, 0x1FFFFFFFF)",
         "Permit:'a',-,- Permit:'c',-,-\nmain:2:13 An integer of 32 bits is expected here. (\"b\")\n"
         "main:2:16 An integer of 32 bits is expected here. (\"1.5\")\n"
         "main:2:31 An integer of 32 bits is expected here. (\"2147483648\")\n"
         "main:2:43 An integer of 32 bits is expected here. (\"0x1FFFFFFFF\")"},
        {"Level(a\nLevel(b)", "Level:'a' Level:'b'\nmain:2:1 A \",\" or \")\" is missing here. (\"Level\")"},
        {"Level(", "Level:-\nmain:1:6 This bracket is not closed."},
        {"Level(a, b, c)", "Level:'a'\nmain:1:10 This keyword has fewer parameters. (\"Level\")"},
        {"Level(\"a)\nLevel(b)",
         "Level:'a)' Level:'b'\nmain:1:7 A string is not closed on its line.\n"
         "main:2:1 A \",\" or \")\" is missing here. (\"Level\")"},
        {std::string("Level(\"a\0b\")", 12), "Level:'a'\nmain:1:7 A string holds a zero byte."},
        {"Level(a)\n  /* and\nso on", "Level:'a'\nmain:2:3 A comment is not closed."},
        {") Level(a)\n,,\nLevel(b)",
         "Level:'b'\nmain:1:1 A keyword is expected here. (\")\")\nmain:2:1 A keyword is expected here. (\",\")"},
        {"Place((1,2), (1,2,x,4)) Number(nan) Number(+-1)",
         "Place:-,- Number:- Number:-\nmain:1:7 A vector has another length here.\n"
         "main:1:19 A number is expected here. (\"x\")\nmain:1:32 A number is expected here. (\"nan\")\n"
         "main:1:44 A number is expected here. (\"+-1\")"},
        {"Level((1,2,3)) Place(5, ((1)))\nStop",
         "Level:- Place:-,- Stop\nmain:1:7 No vector is expected here.\n"
         "main:1:22 A vector such as (1, 2, 3) is expected here. (\"5\")\n"
         "main:1:26 The bracket of a vector is not closed here. (\"(\")"},
        {"Level($nobody)", "Level:''\nmain:1:7 A variable is not known. (\"$nobody\")"},
        {"const(int, N, 5) Level(n)", "Level:-\nmain:1:24 This constant is of another type. (\"n\")"},
        {"set(a.b, 1) set(x) const(real, A, 1) const(int, A, 1) const(int, a, 2)",
         "\nmain:1:5 A variable's name holds letters, digits and \"_\" only. (\"a.b\")\n"
         "main:1:13 A parameter is missing. (\"set\")\n"
         "main:1:26 A type is int, float, string, vec3 or vec4. (\"real\")\n"
         "main:1:66 This constant exists already. (\"a\")"},
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(said(text), expected) << text;
}

TEST(ConfigText, IncludesAreReadInPlaceAndBounded) {
    include_files = {{"a", "Level(a) !include \"b\"\nLevel(a2)"},
                     {"b", "set(v, 1) const(int, C, 2) Bad"},
                     {"loop", "include(LOOP)"}};
    for (int i = 0; i < 20; ++i) {
        const std::string next = "include(deep" + std::to_string(i + 1) + ")";
        include_files["deep" + std::to_string(i)] = next + "\n" + next;
    }
    const Case cases[] = {
        {"include(a) Permit($v, C)",
         "Level:'a' Level:'a2' Permit:'1',2,-\nb:1:28 This keyword is not known. (\"Bad\")"},
        {"include(none)\ninclude()",
         "\nmain:1:9 An included file cannot be read. (\"none\")\nmain:2:1 A parameter is missing. (\"include\")"},
        {"include(loop)", "\nloop:1:9 A file includes itself. (\"LOOP\")"},
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(said(text), expected) << text;
    EXPECT_THAT(said("include(deep0)"), testing::HasSubstr("Includes are nested too deep."));
    EXPECT_LE(reads, 256) << "two includes in each of ten levels would be a thousand";
    const auto throws = [](const char*, std::string&, void*) -> bool { throw 1; };
    EXPECT_EQ(CConfigText::Parse(keywords, {.text = "include(a)", .length = 10, .reader = throws}), nullptr);
}

TEST(ConfigText, LittleTextMakesNeitherMuchTextNorManyErrors) {
    std::string text = "set(a, " + std::string(64, 'x') + ")\n";
    for (char c = 'b'; c < 'h'; ++c) {
        const std::string before = std::string("$") + static_cast<char>(c - 1);
        text += std::string("set(") + c + ", " + before + before + before + before + ")\n";
    }
    EXPECT_THAT(said(text), testing::HasSubstr("A variable's value is too long."));
    for (int i = 0; i < 1000; ++i) text += "Level($d)\n";
    EXPECT_THAT(said(text), testing::HasSubstr("Variables make more text than is allowed."));
    for (int i = 0; i < 5000; ++i) text += ")\n";
    const Parsed parsed = parse(text + "// one\n  !Stop\n");
    EXPECT_EQ(parsed->ErrorCount(), 1000u);
    ASSERT_EQ(parsed->CommandCount(), 1001u);
    EXPECT_EQ(parsed->Command(1000).line, 6009u);
    EXPECT_EQ(parsed->Command(1000).column, 4u);
    EXPECT_STREQ(parsed->Command(1000).file, "main");
    EXPECT_EQ(Parsed(CConfigText::Parse(nullptr, {.text = nullptr, .length = 9}))->CommandCount(), 0u);
}

}  // namespace

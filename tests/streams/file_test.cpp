#include <engine/filesystem/streams/file.h>

#include <tuple>

#include "../log/log_fixture.h"

namespace {

struct DebugOutput : LogTest {
    DebugOutput() { _CLFilterSetMode(CLFilterMode::ALL_CONSOLE); }
};

TEST_F(DebugOutput, TurnsEachWriteIntoOneMessageOfItsLevel) {
    using enum Log::ELevel::TYPE;
    const std::tuple<Log::ELevel::TYPE, Log::ELevel::TYPE, const char*, std::size_t, bool> rows[] = {
        {DEBG, DEBG, "cat", 9, true},  {DEBG, INFO, "cat", 9, false},    {ERRR, INFO, nullptr, 5, true},
        {VERB, VERE, "cat", 9, false}, {INFO, INFO, "cat", 60000, true},
    };
    for (const auto& [level, setting, category, size, is_logged] : rows) {
        SCOPED_TRACE(level);
        console_lines.clear();
        Log::Settings::Instance().SetLevel(setting);
        fs::file_dbgoutput stream("other");
        stream.set_level_category(level, category);
        const std::string text = std::string(size, 'x') + "100%d";
        EXPECT_EQ(stream.write((text + "not this").c_str(), text.size()), text.size());
        ASSERT_EQ(console_lines.size(), is_logged ? 1u : 0u);
        if (!is_logged) continue;
        EXPECT_EQ(console_lines[0].level, level);
        EXPECT_EQ(console_lines[0].category, category == nullptr ? "" : category);
        EXPECT_TRUE(console_lines[0].text.ends_with(text)) << console_lines[0].text.substr(0, 100);
    }
}

}  // namespace

#include <gmock/gmock.h>

#include <engine/filesystem/streams/file.h>

#include "../log/log_fixture.h"
#include "kit.h"

namespace {

TEST(FileStream, OwnsItsHandle) {
    FileRecord first("abc");
    FileRecord second;
    {
        fs::file stream(new RecordingFile(first));
        EXPECT_STREQ(stream.name(), "");
        stream.close();
        EXPECT_EQ(first.bytes.use_count(), 1);
        EXPECT_FALSE(stream.is_handle_valid());
        EXPECT_TRUE(stream.eof()) << "one unknown length equals the other";
        EXPECT_TRUE(stream.open_from_handle(new RecordingFile(second)));
    }
    EXPECT_EQ(second.bytes.use_count(), 1);
}

struct DebugOutput : LogTest {
    DebugOutput() { _CLFilterSetMode(CLFilterMode::ALL_CONSOLE); }
};

TEST_F(DebugOutput, TurnsEachWriteIntoOneMessageOfItsLevel) {
    struct Row {
        const char* label;
        Log::ELevel::TYPE level;
        Log::ELevel::TYPE setting;
        std::size_t size;
        bool logged;
    };
    for (const Row& row : {Row{"admitted", Log::ELevel::DEBG, Log::ELevel::DEBG, 9, true},
                           Row{"below the setting", Log::ELevel::DEBG, Log::ELevel::INFO, 9, false},
                           Row{"error", Log::ELevel::ERRR, Log::ELevel::INFO, 0, true},
                           Row{"never from VERB on", Log::ELevel::VERB, Log::ELevel::VERE, 9, false},
                           Row{"long", Log::ELevel::INFO, Log::ELevel::INFO, 60000, true}}) {
        SCOPED_TRACE(row.label);
        console_lines.clear();
        Log::Settings::Instance().SetLevel(row.setting);
        fs::file_dbgoutput stream("other");
        stream.set_level_category(row.level, row.size == 0 ? nullptr : "cat");
        const std::string text = (std::string(row.size, 'x') + "100%d").substr(5);
        EXPECT_EQ(stream.write((text + "not this").c_str(), text.size()), text.size());
        ASSERT_EQ(console_lines.size(), row.logged ? 1u : 0u);
        if (!row.logged) continue;
        EXPECT_EQ(console_lines[0].level, row.level);
        EXPECT_EQ(console_lines[0].category, row.size == 0 ? "" : "cat");
        EXPECT_TRUE(console_lines[0].text.ends_with(text)) << console_lines[0].text.substr(0, 100);
    }
}

}  // namespace

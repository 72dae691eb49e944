#include <gmock/gmock.h>

#include <engine/filesystem/streams/file.h>

#include "../log/log_fixture.h"
#include "../support/temp_directory.h"
#include "recording_file.h"

namespace {

TEST(FileStream, AnswersWithoutAHandle) {
    fs::file stream;
    char byte = 0;
    EXPECT_FALSE(stream.is_handle_valid());
    EXPECT_EQ(stream.length(), UINT64_MAX);
    EXPECT_EQ(stream.tell(), UINT64_MAX);
    EXPECT_EQ(stream.read(&byte, 1), UINT64_MAX);
    EXPECT_EQ(stream.write(&byte, 1), UINT64_MAX);
    EXPECT_FALSE(stream.seek(0, EFSSeek::BEGIN));
    EXPECT_TRUE(stream.eof()) << "one unknown equals the other";
    EXPECT_EQ(stream.name(), nullptr);
    stream.set_eof();
    stream.close();
}

TEST(FileStream, OwnsItsHandle) {
    FileRecord first{.bytes = "abc"};
    FileRecord second{.bytes = "defg"};
    {
        fs::file stream(new RecordingFile(first));
        EXPECT_STREQ(stream.name(), "");
        stream.close();
        EXPECT_TRUE(first.closed);
        EXPECT_TRUE(stream.open_from_handle(new RecordingFile(second)));
        EXPECT_TRUE(stream.seek(-1, EFSSeek::END));
        stream.set_eof();
        EXPECT_TRUE(stream.eof());
    }
    EXPECT_TRUE(second.closed);
    EXPECT_EQ(second.bytes, "def");
}

TEST(FileStream, OpensNativePathsWithoutAskingSources) {
    const TempDirectory directory;
    directory.write("a.txt", "abc");
    fs::file_native stream;
    EXPECT_FALSE(stream.open((directory / "missing").c_str(), EFSMode::READ));
    ASSERT_TRUE(stream.open((directory / "a.txt").c_str(), EFSMode::READ));
    EXPECT_EQ(stream.length(), 3u);
}

struct DebugOutput : LogTest {
    DebugOutput() { _CLFilterSetMode(CLFilterMode::ALL_CONSOLE); }
};

TEST_F(DebugOutput, TurnsWritesIntoMessagesOfItsLevel) {
    struct Row {
        const char* label;
        Log::ELevel::TYPE level;
        Log::ELevel::TYPE setting;
        bool logged;
    };
    for (const Row& row : {Row{"admitted", Log::ELevel::DEBG, Log::ELevel::DEBG, true},
                           Row{"held back", Log::ELevel::DEBG, Log::ELevel::INFO, false},
                           Row{"error", Log::ELevel::ERRR, Log::ELevel::INFO, true},
                           Row{"never from VERB on", Log::ELevel::VERB, Log::ELevel::VERE, false}}) {
        SCOPED_TRACE(row.label);
        console_lines.clear();
        Log::Settings::Instance().SetLevel(row.setting);
        fs::file_dbgoutput stream("other");
        stream.set_level_category(row.level, "cat");
        EXPECT_EQ(stream.write("100% text\n", 10), 10u);
        ASSERT_EQ(console_lines.size(), row.logged ? 1u : 0u);
        if (!row.logged) continue;
        EXPECT_EQ(console_lines[0].level, row.level);
        EXPECT_EQ(console_lines[0].category, "cat");
        EXPECT_THAT(console_lines[0].text, testing::HasSubstr("> 100% text\r\n"));
    }
}

TEST_F(DebugOutput, TakesTextOfAnyLengthAndNoCategory) {
    fs::file_dbgoutput stream(Log::ELevel::INFO, nullptr);
    for (const std::size_t size : {0u, 4096u, 4097u, 60000u}) {
        EXPECT_EQ(stream.write(std::string(size, 'x').c_str(), size), size);
        EXPECT_EQ(console_lines.back().category, "");
        EXPECT_THAT(console_lines.back().text, testing::HasSubstr(std::string(size, 'x')));
    }
    char byte = 0;
    EXPECT_EQ(stream.read(&byte, 1), UINT64_MAX);
}

}  // namespace

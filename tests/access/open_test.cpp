#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <thread>

#include "tests/access/kit.h"
#include "tests/sources/kit.h"
#include "tests/support/child_process.h"

namespace {

using Flags = FFSOpenFlags;
using enum EFSMode::TYPE;
using namespace std::string_literals;

class Open : public OverMemory {};

TEST_F(Open, WritesWhereTheNameIsAndElseCreatesInTheFirstSource) {
    MemorySource* const second = mount_memory("/second/");
    MemorySource* const first = mount_memory("/first/");
    second->add("old.txt", "old");
    EXPECT_TRUE(save("Old.TXT", "new") && save("old.txt", "er", APPEND) && save("old.txt", "N", READ_WRITE));
    EXPECT_EQ(second->content("old.txt"), "Newer");
    EXPECT_TRUE(first->made.empty());
    EXPECT_TRUE(save("Sub\\Made.txt", "1") && save("Sub/Appended.txt", "2", APPEND) &&
                save("Sub/Both.txt", "3", READ_WRITE));
    EXPECT_THAT(first->made, ElementsAre("create_write Sub/Made.txt", "create_write Sub/Appended.txt",
                                         "create_read_write Sub/Both.txt"));
    EXPECT_EQ(first->content("sub/appended.txt"), "2");
    EXPECT_NE(fs::search_dir("sub"), nullptr);  // the directory joined the index, the file did not
    EXPECT_EQ(fs::search_dir("sub/made.txt"), nullptr);
    first->write_failure = IO;  // which says that somebody was asked
    for (const auto mode : {APPEND, READ_WRITE, static_cast<EFSMode::TYPE>(~0u)})
        EXPECT_EQ(why(fs::open_file("sub/made.txt", mode, Flags::GZIP_LEVEL1)), INVALID_ARGUMENT) << mode;
}

TEST_F(Open, BehindASourceThatHoldsTheNameAndFailsNothingIsWritten) {
    struct Row {
        const char* label;
        EFSMode::TYPE mode;
        EFSError::TYPE first_fails, second_fails;  // NONE: opens; others: holds the name, and fails so
        bool first_holds, second_holds;
        const char *first, *second;  // what they hold afterwards
        EFSError::TYPE code;         // NONE: the open succeeded
        enum { WRITABLE, UNWRITABLE, PROTECTED } first_is = WRITABLE;
    };
    const Row rows[] = {
        {"a failure of the creating source stands", APPEND, IO, NONE, true, false, "old", "(none)", IO},
        {"and does not send the bytes elsewhere", WRITE, ACCESS_DENIED, NONE, true, true, "old", "old", ACCESS_DENIED},
        {"what the disk has lost is made anew", WRITE, NOT_FOUND, NONE, true, false, "new", "(none)", NONE},
        {"but not for an append", APPEND, NOT_FOUND, NONE, true, false, "old", "(none)", NOT_FOUND},
        {"the next match serves both", WRITE, NOT_FOUND, NONE, true, true, "old", "new", NONE},
        {"a failure further down is passed over", APPEND, NONE, IO, false, true, "new", "old", NONE},
        {"the name is nowhere", READ_WRITE, NONE, NONE, false, false, "new", "(none)", NONE},
        {"shielded", WRITE, NONE, NONE, true, true, "old", "old", ACCESS_DENIED, Row::PROTECTED},
        {"not writable alone is passed over", WRITE, NONE, NONE, true, true, "old", "new", NONE, Row::UNWRITABLE},
        {"the first creates, or nobody", WRITE, NONE, NONE, false, false, "(none)", "(none)", READ_ONLY,
         Row::UNWRITABLE},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        MemorySource* const second = mount_memory("/second/");
        MemorySource* const first = mount_memory("/first/");
        if (row.first_holds) first->add("x.txt", "old");
        if (row.second_holds) second->add("x.txt", "old");
        first->write_failure = row.first_fails;
        second->write_failure = row.second_fails;
        first->is_writable = row.first_is == Row::WRITABLE;
        first->is_shielding = row.first_is == Row::PROTECTED;
        const bool is_saved = save("x.txt", "new", row.mode);
        EXPECT_EQ(fs::last_error().code, row.code) << "what failed on the way to a success is forgotten";
        EXPECT_EQ(why(is_saved), row.code);
        if (row.code != NONE) EXPECT_TRUE(first->made.empty());
        EXPECT_EQ(first->content("x.txt"), row.first);
        EXPECT_EQ(second->content("x.txt"), row.second);
        test::unmount_all();
    }
}

TEST_F(Open, ASaveIsReadBackByTheSameNameOrRefused) {
    MemorySource* const source = mount_memory("/a/");
    source->matches_by_end = true;
    source->add("profiles/save.dat", "old");
    EXPECT_TRUE(save("save.dat", "new"));
    for (const auto failure : {NOT_FOUND, READ_ONLY}) {
        source->write_failure = failure;
        EXPECT_EQ(why(save("save.dat", "lost")), failure);
    }
    EXPECT_TRUE(source->made.empty());
    source->write_failure = NONE;
    const fs::path held("save.dat", true);
    source->set_read_only(held, true);  // fails without a reason; reading would find the file
    EXPECT_EQ(why(save("save.dat", "lost", APPEND)), ACCESS_DENIED);
    source->set_read_only(held, false);
    EXPECT_TRUE(save("save.dat", "whole", WRITE, Flags::WHOLE_NAME));
    EXPECT_EQ(source->content("profiles/save.dat") + source->content("save.dat"), "newwhole");
    constexpr auto behind = FFSAddSourceFlags::AFTER_SAME_TYPE | FFSAddSourceFlags::WRITE_HERE;
    MemorySource* const creator = mount_memory("/b/", EFSSourceType::DIR, behind);
    source->add("profiles/b.dat", "old");
    source->write_failure = IN_USE;
    EXPECT_EQ(why(save("b.dat", "lost")), IN_USE);
    EXPECT_TRUE(creator->made.empty()) << "where it would never be read";
}

TEST_F(Open, RecordsWhatWasOpenedForReadingOnceAndInOrder) {
    MemorySource* const source = mount_memory("/a/");
    for (const char* name : {"x.txt", "dir/y.txt", "z.txt"}) source->add(name, "");
    load("x.txt");
    fs::record_access(true);
    for (const char* path : {"DIR/y.txt", "missing.txt", "x.txt", "dir\\Y.txt"}) load(path);
    save("z.txt", "");
    fs::record_access(false);
    load("z.txt");
    ztl::vector<fs::string> names;
    fs::get_access_record(names);
    EXPECT_THAT(names, ElementsAre("dir/y.txt", "x.txt"));
}

TEST_F(Open, QuestionsAskTheFirstHolderAndNativeOnesTheDisk) {
    for (const char* mount : {"/b/", "/a/"}) mount_memory(mount)->add("dir/x.txt", "");
    EXPECT_TRUE(fs::exists("Dir\\X.txt") && fs::does_file_exist("dir/x.txt"));
    EXPECT_EQ(fs::get_source_name("dir/x.txt") + fs::full_path("dir/x.txt"), "/a//a/dir/x.txt");
    for (const char* missing : {"dir/y.txt", "", static_cast<const char*>(nullptr)}) {
        EXPECT_FALSE(fs::exists(missing) || fs::does_file_exist(missing) || fs::does_dir_exist(missing));
        EXPECT_EQ(fs::get_source_name(missing) + fs::full_path(missing) + fs::root_path(missing), "");
        fs::precache_file(missing);
    }
    write_file("native.txt", "x");
    EXPECT_TRUE(fs::does_file_exist("native.txt") && fs::native_does_file_exist("native.txt"));
    EXPECT_FALSE(fs::exists("native.txt") || fs::does_dir_exist("native.txt") || fs::native_does_file_exist("."));
    EXPECT_TRUE(fs::does_dir_exist("."));
}

class WholeFile : public OverMemory {
protected:
    static std::wstring load_wide(const char* path) {
        wchar_t* const text = fs::load_wide_string(path);
        if (text == nullptr) return L"(none)";
        std::wstring out = text;
        std::free(text);
        return out;
    }

    MemorySource* const source_ = mount_memory("/a/");
};

TEST_F(WholeFile, IsReadIntoANewBlockOrTheCallersBuffer) {
    source_->add("x", "a\0b"s);
    source_->add("empty", "");
    std::uint64_t size = 99;
    for (const auto& [name, text] : {std::pair("X", "a\0b"s), std::pair("empty", ""s)}) {
        void* const data = fs::read(name, &size);
        ASSERT_NE(data, nullptr);
        EXPECT_EQ(std::string(static_cast<char*>(data), size), text);
        std::free(data);
    }
    size = 99;
    EXPECT_TRUE(fs::read("missing", &size) == nullptr && fs::read(nullptr, &size) == nullptr);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(fs::read(nullptr, &size, std::uint64_t{1}), ~std::uint64_t{0});
    char buffer[8] = "-------";
    fs::read(buffer, "x", &size);
    fs::read(buffer, "missing", &size);
    EXPECT_EQ(size, 3u) << "the second left it alone";
    EXPECT_EQ(std::string(buffer, 8), "a\0b----\0"s);
    fs::read(static_cast<void*>(nullptr), "x", &size);
    fs::read(buffer, "x", static_cast<std::uint64_t*>(nullptr));
}

TEST_F(WholeFile, ComesBackAsItWasSaved) {
    fs::string text = "kept";
    EXPECT_TRUE(fs::save_text_file("", "empty.txt") && fs::load_text_file(text, "empty.txt"));
    EXPECT_EQ(text, "kept");
    EXPECT_TRUE(fs::save_text_file("one\r\ntwo", "T.txt") && fs::load_text_file(text, "t.txt"));
    EXPECT_FALSE(fs::load_text_file(text, "missing") || fs::save_text_file("x", ""));
    EXPECT_EQ(text, "one\r\ntwo");

    void* data = source_;
    std::uint64_t size = 99;
    EXPECT_FALSE(fs::load_binary_file(&data, &size, "missing"));
    EXPECT_TRUE(data == nullptr && size == 0);
    EXPECT_TRUE(fs::save_binary_file("\0\1\2", 3, "b.bin") && fs::load_binary_file(&data, &size, "b.bin"));
    EXPECT_EQ(std::string(static_cast<char*>(data), size), "\0\1\2"s);
    std::free(data);
    EXPECT_TRUE(fs::save_binary_file(nullptr, 0, "b.bin"));
    EXPECT_EQ(source_->content("b.bin"), "");
    EXPECT_FALSE(fs::save_binary_file(nullptr, 5, "b.bin") || fs::load_binary_file(nullptr, &size, "b.bin"));
}

TEST_F(WholeFile, TextIsSavedUnderTheTimeOfDay) {
    EXPECT_TRUE(fs::save_text_file("dated", "Log", "TXT", "Out"));
    ASSERT_EQ(source_->made.size(), 1u);
    EXPECT_THAT(source_->made[0], testing::MatchesRegex("create_write Out/Log_20......_......\\.TXT"));
    EXPECT_FALSE(fs::save_text_file("x", std::string(300, 'n').c_str(), "txt", "out"));
    EXPECT_FALSE(fs::save_text_file("x", nullptr, nullptr, "d"));  // "d/_DATE_TIME." could not be kept on Windows
}

TEST_F(WholeFile, WideTextIsSavedAsMarkedUnitsAndReadAsTheseOrNarrowText) {
    const std::wstring half_a(1, static_cast<wchar_t>(0xD83D)), half_b(1, static_cast<wchar_t>(0xDE00));
    const std::pair<std::string, std::wstring> rows[] = {
        {"", L""},
        {"x", L""},  // a file of one byte is not looked at
        {"\xFF\xFE", L""},
        {"\xFF\xFE\x61\0b\0"s, L"ab"},
        {"\xFF\xFE\x61\0b"s, L"a"},  // half a unit is none
        {"\xFF\xFE\x3D\xD8\x00\xDE"s, L"\U0001F600"},
        {"\xFF\xFE\x3D\xD8\x61\0"s, half_a + L"a"},
        {"\xFF\xFE\x00\xDE"s, half_b},
        {"narrow", L"narrow"},
#if !defined(_WIN32)  // where narrow text is UTF-8, and bytes that are none are taken one for one
        {"a\0z"s, L"a"},
        {"a\u00e4\u20ac\U0010FFFFz", L"a\u00e4\u20ac\U0010FFFFz"},
        {"x\xE2\x82", L"x\u00e2\x82"},
        {"\xC0\xAF\xE0\x80\xAF\xF4\x90\x80\x80", L"\u00c0\u00af\u00e0\x80\u00af\u00f4\x90\x80\x80"},
        {"\xED\xA0\x80\xFF", L"\u00ed\u00a0\x80\u00ff"},
#endif
    };
    for (const auto& [bytes, text] : rows) {
        source_->add("w.txt", bytes);
        EXPECT_EQ(load_wide("w.txt"), text) << testing::PrintToString(bytes);
    }
    EXPECT_EQ(load_wide("missing"), L"(none)");
    EXPECT_TRUE(fs::save_wide_string(L"a\u20AC\U0001F600", "w.txt") && fs::save_wide_string(L"", "e.txt"));
    EXPECT_EQ(source_->content("w.txt"), "\xFF\xFE\x61\0\xAC\x20\x3D\xD8\x00\xDE"s);
    EXPECT_EQ(source_->content("e.txt"), "\xFF\xFE");
    EXPECT_FALSE(fs::save_wide_string(L"x", nullptr));
}

// A file opened with REPLACE: the old one stays, for everybody, until the new one is whole and closed.

class Replace : public OverDisk {
protected:
    void SetUp() override {
        home_.write("game/Saves/Slot.sav", "old");
        Start(true);
    }

    static SFsFile* begin(const char* name, const char* text = "the new one", Flags::FLAGS flags = Flags::CREATE) {
        SFsFile* const file = fs::open(name, EFSMode::WRITE, flags | Flags::REPLACE);
        if (file != nullptr) EXPECT_EQ(fs::write(file, text, std::strlen(text)), std::strlen(text));
        return file;
    }
    std::vector<std::string> on_disk() const {
        std::vector<std::string> names;
        const std::filesystem::path root = home_ / "game";
        for (const auto& item : std::filesystem::recursive_directory_iterator(root)) {
            if (!item.is_directory()) names.push_back(item.path().lexically_relative(root).generic_string());
        }
        return names;
    }
};

TEST_F(Replace, TheOldFileStaysUntilTheNewOneIsClosedAndWhenItFails) {
    home_.write("game/Saves/#Slot.sav", "what a killed process left, which is longer than the new one");
    SFsFile* file = begin("saves/slot.sav");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(load("saves/slot.sav"), "old") << "readers are not kept out";
    EXPECT_TRUE(fs::seek(file, 4, EFSSeek::BEGIN) && fs::set_eof(file));
    EXPECT_EQ(why(begin("saves/slot.sav")), IN_USE) << "two writers of one file";
    EXPECT_TRUE(fs::commit(file));
    EXPECT_EQ(home_.read("game/Saves/Slot.sav"), "the ");
    fs::close(begin("saves/slot.sav", "closed", Flags::NONE));
    fs::discard(begin("saves/slot.sav"));
    EXPECT_EQ(load("saves/slot.sav"), "closed");
    EXPECT_TRUE(fs::save_text_file("text", "saves/slot.sav", Flags::REPLACE));
    EXPECT_EQ(load("saves/slot.sav"), "text");
    fs::file_ptr reader = fs::open_file("saves/slot.sav", EFSMode::READ);
    EXPECT_EQ(why(fs::commit(begin("saves/slot.sav"))), IN_USE) << "as a file that is open is replaced on no system";
    reader.reset();
    ASSERT_TRUE(fs::read_only_set("saves/slot.sav"));
    EXPECT_EQ(why(begin("saves/slot.sav")), READ_ONLY);
    EXPECT_TRUE(fs::read_only_remove("saves/slot.sav"));
    for (const EFSMode::TYPE mode : {EFSMode::APPEND, EFSMode::READ_WRITE})
        EXPECT_EQ(why(fs::open("saves/slot.sav", mode, Flags::REPLACE)), INVALID_ARGUMENT);
    EXPECT_EQ(load("saves/slot.sav"), "text");
    EXPECT_THAT(on_disk(), ElementsAre("Saves/Slot.sav"));
}

TEST_F(Replace, ANewFileIsThereWhenItIsWhole) {
    SFsFile* file = begin("New/Fresh.sav");
    ASSERT_NE(file, nullptr);
    EXPECT_FALSE(fs::exists("new/fresh.sav"));
    EXPECT_TRUE(fs::commit(file));
    EXPECT_EQ(load("new/fresh.sav"), "the new one");
    EXPECT_NE(fs::search_dir("new"), nullptr);
    fs::discard(begin("new/other.sav"));
    EXPECT_FALSE(fs::exists("new/other.sav"));
    file = begin("new/late.sav");
    fs::shutdown();
    EXPECT_TRUE(fs::commit(file)) << "the source is gone";
    EXPECT_THAT(on_disk(), testing::UnorderedElementsAre("New/Fresh.sav", "New/late.sav", "Saves/Slot.sav"));
}

TEST_F(Replace, GoesWithGzipNativePathsAndTheMonitor) {
    const RecordingMonitor monitor;
    EXPECT_TRUE(fs::commit(begin("saves/slot.sav", "packed", Flags::GZIP_LEVEL5)));
    EXPECT_THAT(monitor.touched, ElementsAre(testing::StartsWith("Slot.sav ")));
    EXPECT_EQ(load("saves/slot.sav", Flags::GZIP), "packed");
    const std::string path = home_ / "outside.txt";
    const auto open = [&](Flags::FLAGS flags) { return fs::open_native(nullptr, path.c_str(), EFSMode::WRITE, flags); };
    EXPECT_EQ(open(Flags::REPLACE), nullptr) << "nothing to replace, and CREATE was not given";
    SFsFile* const file = open(Flags::REPLACE | Flags::CREATE);
    ASSERT_NE(file, nullptr);
    EXPECT_FALSE(home_.exists("outside.txt"));
    EXPECT_TRUE(fs::commit(file));
    EXPECT_TRUE(home_.exists("outside.txt"));
    EXPECT_TRUE(fs::commit(fs::open("saves/slot.sav", EFSMode::WRITE))) << "a file like any other is closed";
    EXPECT_FALSE(fs::commit(nullptr));
}

TEST_F(Replace, AHostsOwnSourceMayWriteBesideToo) {
    struct Own final : MemorySource {
        using MemorySource::MemorySource;
        SFsFile* create_write(const fs::path& p, Flags::FLAGS flags) override {
            const std::string native = std::string(path().PathName()) + p.FileName();
            return fs::open_native(this, native.c_str(), EFSMode::WRITE, flags | Flags::CREATE);
        }
    };
    fs::add_source(new Own((home_ / "game/").c_str(), EFSSourceType::PLS), FFSAddSourceFlags::NONE);
    EXPECT_TRUE(fs::commit(begin("own/fresh.sav")));
    EXPECT_EQ(home_.read("game/fresh.sav"), "the new one");
    EXPECT_NE(fs::search_dir("own"), nullptr);
}

std::string save_number(std::size_t number) { return std::string(100'000, static_cast<char>('a' + number % 26)); }

TEST(ReplaceChild, DISABLED_SavesUntilItIsKilled) {
    const std::string root = child_root();
    ASSERT_TRUE(fs::init({.root = root.c_str(), .use_fallback = false}));
    std::thread([] {
        std::this_thread::sleep_for(std::chrono::microseconds(std::random_device()() % 100'000));
#if defined(SIGKILL)
        std::raise(SIGKILL);
#else
        std::_Exit(EXIT_FAILURE);
#endif
    }).detach();
    for (std::size_t number = 0;; ++number) {
        ASSERT_TRUE(fs::save_text_file(save_number(number), "slot.sav", Flags::REPLACE));
        std::ofstream(root + "/saves", std::ios::app).put('.');
    }
}

TEST_F(Replace, EverySaveIsWholeWhenItsWriterIsKilled) {
    const std::string root = home_ / "killed";
    std::filesystem::create_directory(root);
    bool is_saved = false;
    while (home_.read("killed/saves").size() < 200) {
        run_children(1, "ReplaceChild.DISABLED_SavesUntilItIsKilled", root);
        if (!is_saved && !home_.exists("killed/slot.sav")) continue;  // killed before the first
        is_saved = true;
        const std::string found = home_.read("killed/slot.sav");
        ASSERT_EQ(found, save_number(static_cast<std::size_t>(found.empty() ? 0 : found[0] - 'a')));
    }
    ASSERT_TRUE(fs::add_source(root.c_str(), FFSAddSourceFlags::BEFORE_PACKS));
    EXPECT_TRUE(fs::save_text_file("the last", "slot.sav", Flags::REPLACE));
    EXPECT_EQ(home_.read("killed/slot.sav"), "the last");
    EXPECT_FALSE(home_.exists("killed/#slot.sav"));
}

#if !defined(_WIN32)
TEST_F(Replace, TheFileBehindALinkIsReplacedAndKeepsItsPermissions) {
    const std::string target = home_.write("elsewhere/slot.sav", "old");
    std::filesystem::permissions(target, std::filesystem::perms(0600));
    std::filesystem::create_symlink(target, home_ / "game/link.sav");
    fs::refresh();
    EXPECT_TRUE(fs::commit(begin("link.sav")));
    EXPECT_TRUE(std::filesystem::is_symlink(home_ / "game/link.sav"));
    EXPECT_EQ(read_file(target), "the new one");
    EXPECT_EQ(std::filesystem::status(target).permissions(), std::filesystem::perms(0600));
}
#endif

}  // namespace

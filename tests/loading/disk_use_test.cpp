#include <engine/filesystem.h>

#include <gmock/gmock.h>

#include <string>
#include <thread>
#include <vector>

#include "tests/support/temp_directory.h"

namespace {

using testing::ElementsAre;

constexpr auto mount_flags = FFSAddSourceFlags::RECURSIVE | FFSAddSourceFlags::INDEX_NAMES;

void note(const SFsDiskUse& use, void* user) {
    static_cast<std::vector<std::string>*>(user)->push_back(std::string(use.action) + " " + use.name);
    fs::string ignored;
    fs::load_text_file(ignored, "a.txt");  // not counted
}

/// Each use is told once, by what is outermost; other threads, and questions that tables answer, are not.
TEST(DiskUses, OfAThreadThatMustNotAreTold) {
    const TempDirectory directory;
    directory.write("a.txt", "text");
    ASSERT_TRUE(fs::init(directory.path().c_str(), mount_flags, "", false, false, nullptr));
    std::vector<std::string> told;
    fs::set_disk_report(&note, &told);
    fs::forbid_disk(true);
    fs::string text;
    EXPECT_TRUE(fs::exists("a.txt"));
    EXPECT_TRUE(fs::load_text_file(text, "a.txt") && text == "text");
    EXPECT_EQ(fs::open("none.txt", EFSMode::READ), nullptr);
    EXPECT_EQ(fs::last_error().code, EFSError::NOT_FOUND);
    fs::refresh("a.txt");
    std::thread([&] { fs::load_text_file(text, "a.txt"); }).join();
    fs::forbid_disk(false);
    fs::load_text_file(text, "a.txt");
    fs::set_disk_report(nullptr, nullptr);
    fs::shutdown();
    EXPECT_THAT(told, ElementsAre("opened a.txt", "read a.txt", "opened none.txt", "listed a.txt"));
}

}  // namespace

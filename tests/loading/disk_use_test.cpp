#include <engine/filesystem.h>

#include <gmock/gmock.h>

#include <string>
#include <thread>
#include <vector>

#include "tests/support/mounted_root.h"

namespace {

using testing::ElementsAre;

void note(const SFsDiskUse& use, void* user) {
    static_cast<std::vector<std::string>*>(user)->push_back(std::string(use.action) + " " + use.name);
    fs::string ignored;
    fs::load_text_file(ignored, "a.txt");  // not counted
}

class DiskUses : public MountedRoot {};

/// Each use is told once, by what is outermost; other threads, and questions that tables answer, are not.
TEST_F(DiskUses, OfAThreadThatMustNotAreTold) {
    directory_.write("a.txt", "text");
    fs::refresh();
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
    EXPECT_THAT(told, ElementsAre("opened a.txt", "read a.txt", "opened none.txt", "listed a.txt"));
}

}  // namespace

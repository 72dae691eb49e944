#include <engine/filesystem.h>
#include <engine/filesystem/comfort.h>
#include <engine/filesystem/contract/viewable_file.h>

#include <gmock/gmock.h>

#include <cstdlib>
#include <tuple>

#include "engine/platform/error.h"
#include "tests/support/failure.h"
#include "tests/support/mounted_root.h"
#include "tests/support/pack_file.h"

namespace {

class Views : public MountedRoot {
protected:
    void SetUp() override {
        directory_.write("loose.bin", text_);
        directory_.write("empty.bin", "");
        MountedRoot::SetUp();
        ASSERT_TRUE(write_pack(directory_ / "p.pak",
                               {{"first.bin", "1234567", 0}, {"stored.bin", text_, 0}, {"deflated.bin", text_}}));
    }
    void TearDown() override {
        platform::clear_faults();
        MountedRoot::TearDown();
    }
    bool Mount(FFSAddSourceFlags::ENUM more) {
        return fs::add_source((directory_ / "p.pak").c_str(), whole_tree | more);
    }
    static std::string Text(const SFsView& view) { return {static_cast<const char*>(view.data), view.size}; }

    const std::string text_ = std::string(100'000, 'x') + "end";
};

TEST_F(Views, ShowEveryKindOfFile) {
    const std::tuple<const char*, std::string, bool> rows[] = {{"loose.bin", text_, true},
                                                               {"stored.bin", text_, true},
                                                               {"deflated.bin", text_, false},
                                                               {"empty.bin", "", false}};
    SFsView view;
    for (const auto in_memory : {FFSAddSourceFlags::NONE, FFSAddSourceFlags::PACK_IN_MEMORY}) {
        ASSERT_TRUE(Mount(in_memory));
        for (const auto& [name, expected, is_mapped] : rows) {
            SCOPED_TRACE(name);
            for (const auto flags : {FFSMapFlags::NONE, FFSMapFlags::POPULATE, FFSMapFlags::NO_COPY}) {
                const bool copies = flags != FFSMapFlags::NO_COPY;
                EXPECT_EQ(test::why(fs::map(name, view, flags)),
                          is_mapped || copies ? EFSError::NONE : EFSError::UNSUPPORTED);
                EXPECT_EQ(view.is_mapped, is_mapped);
                EXPECT_EQ(Text(view), is_mapped || copies ? expected : "");
                for (int twice = 0; twice < 2; ++twice) fs::unmap(view);
                EXPECT_EQ(view.data, nullptr);
            }
        }
        ASSERT_TRUE(fs::rem_source((directory_ / "p.pak").c_str()));
    }
    platform::inject_fault(platform::FaultPoint::READ, 1, platform::Failure::IO, false);
    EXPECT_TRUE(fs::map("loose.bin", view) && !view.is_mapped && Text(view) == text_)
        << "copied where it cannot be mapped";
    fs::unmap(view);
    platform::inject_fault(platform::FaultPoint::READ, 1, platform::Failure::IO, true);
    EXPECT_EQ(test::why(fs::map("loose.bin", view)), EFSError::IO);
    platform::clear_faults();
    EXPECT_EQ(test::why(fs::map("none.bin", view)), EFSError::NOT_FOUND);
    EXPECT_FALSE(fs::map(nullptr, view));
}

TEST_F(Views, OutliveTheirSourceAndKeepWritersAway) {
    ASSERT_TRUE(Mount(FFSAddSourceFlags::NONE));
    SFsView stored;
    SFsView loose;
    ASSERT_TRUE(fs::map("stored.bin", stored) && fs::map("loose.bin", loose));
    ASSERT_TRUE(fs::rem_source((directory_ / "p.pak").c_str()));
    EXPECT_EQ(fs::open("loose.bin", EFSMode::WRITE), nullptr);
    EXPECT_EQ(fs::last_error().code, EFSError::IN_USE);
    fs::shutdown();
    EXPECT_TRUE(Text(stored) == text_ && Text(loose) == text_);
    fs::unmap(stored);
    fs::unmap(loose);
    Start();
    fs::close(fs::open("loose.bin", EFSMode::WRITE));
    EXPECT_TRUE(std::filesystem::is_empty(directory_ / "loose.bin"));
}

/// On Windows nobody can do that. What had grown used to give more bytes than were mapped.
TEST_F(Views, AFileThatGrewOrWasCutUnderAViewGivesNoByteThatIsNotMapped) {
    const fs::file_ptr file = fs::open_file("loose.bin", EFSMode::READ);
    auto* const viewable = dynamic_cast<fs::ViewableFile*>(file.get());
    std::uint64_t size = 0;
    ASSERT_TRUE(viewable != nullptr && viewable->view(size, false) != nullptr);
    std::error_code refused;
    std::filesystem::resize_file(directory_ / "loose.bin", 2 * size, refused);
    std::uint64_t grown = 0;
    EXPECT_NE(viewable->view(grown, false), nullptr);
    EXPECT_EQ(grown, size);
    if (std::getenv("ENGINE_TEST_EMULATOR") != nullptr) GTEST_SKIP() << "not available: qemu fetches no page for us";
    std::filesystem::resize_file(directory_ / "loose.bin", 10, refused);
    fs::clear_error();
    EXPECT_EQ(viewable->view(size, true) != nullptr, static_cast<bool>(refused));
    EXPECT_EQ(fs::last_error().code, refused ? EFSError::NONE : EFSError::IO);
}

}  // namespace

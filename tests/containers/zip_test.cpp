#include <memory>
#include <optional>

#include <gtest/gtest.h>

#include <engine/filesystem/access/open.h>
#include <engine/filesystem/access/whole_file.h>
#include <engine/filesystem/containers/zip.h>
#include <engine/filesystem/contract/error.h>
#include <engine/filesystem/startup.h>

#include "engine/platform/faults.h"
#include "tests/sources/pack/fixture.h"
#include "tests/support/temp_directory.h"

namespace {

class Zip : public testing::Test {
protected:
    Zip() { EXPECT_TRUE(fs::init(root_.path().c_str(), FFSAddSourceFlags::NONE, "", false, false, nullptr)); }
    ~Zip() override { fs::shutdown(); }

    /// The entry's content, "(absent)" when it is not there, "(no pack)" when the file cannot be mounted.
    std::string entry(const char* file, const char* name) {
        CZip_dir pack;
        const std::string path = root_ / file;
        pack.set_native_spelling(path.c_str());
        if (!pack.init(fs::path(path.c_str(), true), FFSAddSourceFlags::PACK_IN_MEMORY, nullptr)) return "(no pack)";
        return packs::content(pack, name);
    }

    const TempDirectory root_;
};

TEST_F(Zip, WritesAnArchiveThatIsAPack) {
    const std::string large = packs::noise(300000, 1);
    void* zip = MiniZ::ZipCreate("Out/New.pak");
    ASSERT_TRUE(zip);
    EXPECT_TRUE(MiniZ::ZipAddData(zip, "Dir/Large.bin", large.data(), static_cast<unsigned>(large.size())));
    EXPECT_TRUE(MiniZ::ZipAddData(zip, "x", "abc", 3));
    EXPECT_FALSE(MiniZ::ZipAddData(zip, "", "abc", 3));
    EXPECT_FALSE(MiniZ::ZipAddData(zip, nullptr, "abc", 3));
    EXPECT_FALSE(MiniZ::ZipAddData(zip, "y", "abc", 0));
    EXPECT_FALSE(MiniZ::ZipAddData(zip, "y", nullptr, 3));
    EXPECT_FALSE(MiniZ::ZipAddData(zip, "/refused", "abc", 3));
    EXPECT_TRUE(MiniZ::ZipAddData(zip, "y", "still usable", 12));
    MiniZ::ZipClose(zip);
    MiniZ::ZipClose(zip);
    MiniZ::ZipClose(nullptr);
    EXPECT_FALSE(MiniZ::ZipAddData(zip, "z", "abc", 3));
    EXPECT_FALSE(MiniZ::ZipAddData(nullptr, "z", "abc", 3));
    EXPECT_EQ(entry("out/new.pak", "dir/large.bin"), large);
    EXPECT_EQ(entry("out/new.pak", "x"), "abc");
    EXPECT_EQ(entry("out/new.pak", "y"), "still usable");
    EXPECT_EQ(entry("out/new.pak", "z"), "(absent)");
}

// One failed add used to lose the whole archive, and closing it said nothing.
TEST_F(Zip, AFailedAddLeavesTheArchiveUsableAndIsTold) {
    const std::string large = packs::noise(300000, 1);
    for (std::uint32_t nth = 1; nth < 8; ++nth) {
        MiniZ::Archive archive("disk.pak");
        platform::inject_fault(platform::FaultPoint::WRITE, nth, platform::Failure::DISK_FULL, false);
        bool added[4] = {};
        for (int i = 0; i < 4; ++i) {
            fs::clear_error();
            added[i] = archive.AddData(std::to_string(i).c_str(), i % 2 == 0 ? large : fs::string("small"));
            EXPECT_EQ(fs::last_error().code, added[i] ? EFSError::NONE : EFSError::DISK_FULL) << nth;
        }
        fs::clear_error();
        EXPECT_FALSE(archive.Create(""));
        const bool whole = fs::last_error().code != EFSError::DISK_FULL;
        platform::clear_faults();
        for (int i = 0; whole && i < 4; ++i) {
            const std::string held = entry("disk.pak", std::to_string(i).c_str());
            EXPECT_TRUE(held == (!added[i] ? "(absent)" : i % 2 == 0 ? large : "small")) << nth << " " << i;
        }
    }
    EXPECT_FALSE(MiniZ::ZipAddData(nullptr, "a", "1", 1));
    EXPECT_EQ(fs::last_error().code, EFSError::INVALID_ARGUMENT);
}

TEST_F(Zip, CreateFailsWhereTheFileCannotBeMade) {
    root_.write("plain", "");
    EXPECT_EQ(MiniZ::ZipCreate("plain/below.pak"), nullptr);
    EXPECT_EQ(MiniZ::ZipCreate(""), nullptr);
    EXPECT_EQ(MiniZ::ZipCreate(nullptr), nullptr);
}

TEST_F(Zip, ArchiveClosesTheOldOneBeforeTheNewEvenWhenThatFails) {
    MiniZ::Archive archive;
    EXPECT_FALSE(archive.AddData("a", "1", 1));
    ASSERT_TRUE(archive.Create("one.pak"));
    EXPECT_TRUE(archive.AddData("a", fs::string("text")));
    EXPECT_FALSE(archive.AddData("b", fs::string()));
    EXPECT_EQ(entry("one.pak", "a"), "(no pack)") << "not finished yet";
    EXPECT_FALSE(archive.Create(""));
    EXPECT_EQ(entry("one.pak", "a"), "text");
    EXPECT_FALSE(archive.AddData("a", "1", 1));
}

// Both ends of a copied archive used to close it.
TEST_F(Zip, CopiesReferToOneArchiveThatIsClosedOnce) {
    {
        MiniZ::Archive first("copied.pak");
        MiniZ::Archive second;
        second = first;
        EXPECT_TRUE(first.AddData("a", "1", 1));
        EXPECT_TRUE(second.AddData("b", "2", 1));
    }
    EXPECT_EQ(entry("copied.pak", "a"), "1");
    EXPECT_EQ(entry("copied.pak", "b"), "2");
}

}  // namespace

#include "tests/sources/pack/fixture.h"
#include "tests/support/failure.h"
#include "tests/support/mounted_root.h"

namespace {

using test::why;

class Zip : public MountedRoot {
protected:
    std::string entry(const char* file, const char* name) { return packs::content_of(directory_ / file, name); }
};

TEST_F(Zip, WritesAnArchiveThatIsAPack) {
    const std::string large = packs::noise(300000, 1);
    void* zip = MiniZ::ZipCreate("Out/New.pak");
    ASSERT_TRUE(zip);
    EXPECT_TRUE(MiniZ::ZipAddData(zip, "Dir/Large.bin", large.data(), static_cast<unsigned>(large.size())));
    for (const char* name : {"", "/root", static_cast<const char*>(nullptr)})
        EXPECT_FALSE(MiniZ::ZipAddData(zip, name, "abc", 3));
    EXPECT_FALSE(MiniZ::ZipAddData(zip, "y", "abc", 0) || MiniZ::ZipAddData(zip, "y", nullptr, 3));
    EXPECT_TRUE(MiniZ::ZipAddData(zip, "y", "still usable", 12));
    for (void* const closed : {zip, zip, static_cast<void*>(nullptr)}) {
        MiniZ::ZipClose(closed);
        EXPECT_EQ(why(MiniZ::ZipAddData(closed, "z", "abc", 3)), EFSError::INVALID_ARGUMENT);
    }
    EXPECT_EQ(entry("out/new.pak", "dir/large.bin"), large);
    EXPECT_EQ(entry("out/new.pak", "y") + entry("out/new.pak", "z"), "still usable(null)");
    directory_.write("plain", "");
    for (const char* path : {"plain/below.pak", "", static_cast<const char*>(nullptr)})
        EXPECT_EQ(MiniZ::ZipCreate(path), nullptr);
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
            EXPECT_TRUE(held == (!added[i] ? "(null)" : i % 2 == 0 ? large : "small")) << nth << " " << i;
        }
    }
}

// Both ends of a copied archive used to close it.
TEST_F(Zip, AnArchiveClosesTheOldOneBeforeTheNewAndItsCopiesCloseItOnce) {
    MiniZ::Archive archive;
    EXPECT_FALSE(archive.AddData("a", "1", 1));
    ASSERT_TRUE(archive.Create("one.pak"));
    EXPECT_TRUE(archive.AddData("a", fs::string("text")));
    EXPECT_FALSE(archive.AddData("b", fs::string()));
    EXPECT_EQ(entry("one.pak", "a"), "(no pack)") << "not finished yet";
    EXPECT_TRUE(MiniZ::Archive(archive).AddData("c", "1", 1));
    EXPECT_EQ(entry("one.pak", "a") + entry("one.pak", "c"), "text1");
    EXPECT_FALSE(archive.AddData("a", "1", 1) || archive.Create("") || archive.AddData("a", "1", 1));
}

}  // namespace

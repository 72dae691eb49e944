// The stored listing as a host meets it: mounting by path with a cache directory.
#include <engine/filesystem.h>

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "engine/platform/faults.h"
#include "engine/platform/files.h"
#include "tests/sources/listing/age_directory.h"
#include "tests/support/temp_directory.h"

namespace {

namespace disk = std::filesystem;
using testing::UnorderedElementsAre;

constexpr auto flags = FFSAddSourceFlags::RECURSIVE | FFSAddSourceFlags::INDEX_NAMES;

class ListingCache : public testing::Test {
protected:
    ListingCache() {
#if defined(_WIN32)
        folder_ = home_ / "cache/filesystem/windows_x64";
#else
        folder_ = home_ / "cache/filesystem/linux_x64";
#endif
        disk::create_directories(folder_);
        home_.write("root/r", "1");
        home_.write("data/Top", "1");
        home_.write("data/Maps/Deep/One", "1");
        home_.write("data/Maps/Two", "1");
        age_all();
        start();
    }
    ~ListingCache() override {
        fs::shutdown();
        platform::clear_faults();
    }
    void start() {
        ASSERT_TRUE(fs::init((home_ / "root").c_str(), flags, (home_ / "cache").c_str(), false, true, nullptr));
    }

    void age_all() {
        age_directory(home_ / "data");
        for (const char* dir : {"data/Maps", "data/Maps/Deep"}) age_directory(home_ / dir);
    }

    bool mount(FFSAddSourceFlags::ENUM with = flags) { return fs::add_source((home_ / "data").c_str(), with); }
    void unmount() { EXPECT_TRUE(fs::rem_source((home_ / "data").c_str())); }
    /// Mounts, and tells whether that read no directory at all.
    bool is_replayed(FFSAddSourceFlags::ENUM with = flags) {
        platform::inject_fault(platform::FaultPoint::LIST, 1, platform::Failure::ACCESS_DENIED, true);
        EXPECT_TRUE(mount(with));
        const bool replayed = platform::fault_hits() == 0;
        platform::clear_faults();
        if (replayed) return true;
        unmount();
        EXPECT_TRUE(mount(with));
        return false;
    }
    std::vector<std::string> names() {
        std::vector<std::string> out;
        FS_NAME* list = fs::search(nullptr, nullptr, true, false);
        for (const FS_NAME* name = list; name; name = name->next) out.emplace_back(name->name);
        fs::free_names(list);
        return out;
    }
    std::vector<disk::path> stored() const {
        std::vector<disk::path> files;
        for (const auto& item : disk::directory_iterator(folder_)) files.push_back(item.path());
        return files;
    }

    TempDirectory home_;
    std::string folder_;
};

TEST_F(ListingCache, ReplaysTheSecondMountWithoutReadingADirectory) {
    EXPECT_FALSE(is_replayed());
    ASSERT_EQ(stored().size(), 1u);
    EXPECT_EQ(stored()[0].extension(), ".fsc");
    const std::vector<std::string> scanned = names();
    EXPECT_THAT(scanned, UnorderedElementsAre("r", "top", "maps/two", "maps/deep/one"));
    unmount();
    EXPECT_TRUE(is_replayed());
    EXPECT_EQ(names(), scanned);
    EXPECT_NE(fs::search_dir("maps/deep"), nullptr) << "directories come from the record too";
    SFsFile* file = fs::open("maps/two", EFSMode::READ);
    EXPECT_NE(file, nullptr) << "names keep their spelling";
    fs::close(file);
}

TEST_F(ListingCache, ScansAgainWhenAnyDirectoryChanged) {
    for (const char* change : {"data/new", "data/Maps/new", "data/Maps/Deep/new"}) {
        age_all();
        is_replayed();
        unmount();
        EXPECT_TRUE(is_replayed()) << change;
        unmount();
        home_.write(change, "1");
        EXPECT_FALSE(is_replayed()) << change;
        EXPECT_TRUE(fs::exists("new"));
        unmount();
        disk::remove(home_ / change);
    }
}

TEST_F(ListingCache, DoesNotTrustADirectoryThatChangedJustBeforeItWasRecorded) {
    home_.write("data/Maps/fresh", "1");
    EXPECT_FALSE(is_replayed());
    unmount();
    EXPECT_FALSE(is_replayed()) << "a second change within the clock's step would not show";
    unmount();
    age_all();
    EXPECT_FALSE(is_replayed());
    unmount();
    EXPECT_TRUE(is_replayed());
}

TEST_F(ListingCache, IsNotUsedWithoutItsFolderOrWhenForbidden) {
    EXPECT_FALSE(is_replayed(flags | FFSAddSourceFlags::SKIP_LISTING_CACHE));
    unmount();
    EXPECT_TRUE(stored().empty());
    disk::remove_all(home_ / "cache/filesystem");
    EXPECT_FALSE(is_replayed());
    EXPECT_FALSE(disk::exists(home_ / "cache/filesystem")) << "the folder is the host's to make";
}

TEST_F(ListingCache, KeepsMountsWithOtherFlagsApart) {
    EXPECT_FALSE(is_replayed());
    unmount();
    EXPECT_FALSE(is_replayed(FFSAddSourceFlags::INDEX_NAMES));
    EXPECT_THAT(names(), UnorderedElementsAre("r", "top"));
    unmount();
    EXPECT_FALSE(is_replayed(flags | FFSAddSourceFlags::MOUNT_PARENT));
    EXPECT_TRUE(fs::exists("data/maps/two"));
    unmount();
    for (const auto with : {flags, FFSAddSourceFlags::INDEX_NAMES, flags | FFSAddSourceFlags::MOUNT_PARENT}) {
        EXPECT_TRUE(is_replayed(with));
        unmount();
    }
}

TEST_F(ListingCache, ReplacesAFileThatIsDamagedOrForeign) {
    is_replayed();
    unmount();
    const disk::path file = stored().at(0);
    std::ifstream in(file, std::ios::binary);
    const std::string good{std::istreambuf_iterator<char>(in), {}};
    in.close();
    for (const std::string& bytes : {std::string(), std::string("no listing"), good.substr(0, good.size() - 1)}) {
        std::ofstream(file, std::ios::binary | std::ios::trunc) << bytes;
        EXPECT_FALSE(is_replayed());
        unmount();
        EXPECT_TRUE(is_replayed());
        unmount();
    }
    EXPECT_EQ(stored().size(), 1u) << "nothing stays beside it";
}

TEST_F(ListingCache, RecordsNothingWhenADirectoryCouldNotBeRead) {
    platform::inject_fault(platform::FaultPoint::LIST, 2, platform::Failure::ACCESS_DENIED, false);
    EXPECT_TRUE(mount());
    platform::clear_faults();
    EXPECT_TRUE(stored().empty()) << "what failed once would be missing for ever";
}

TEST_F(ListingCache, LeavesTheOldFileWhenItCannotWriteTheNewOne) {
    is_replayed();
    unmount();
    home_.write("data/later", "1");
    platform::inject_fault(platform::FaultPoint::WRITE, 1, platform::Failure::DISK_FULL, true);
    EXPECT_TRUE(mount());
    platform::clear_faults();
    EXPECT_TRUE(fs::exists("later"));
    EXPECT_EQ(stored().size(), 1u);
    EXPECT_EQ(stored()[0].extension(), ".fsc");
}

}  // namespace

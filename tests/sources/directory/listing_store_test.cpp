// The stored listing as a host meets it: mounting by path with a cache directory.
#include <engine/filesystem.h>
#include <engine/filesystem/comfort.h>

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "engine/platform/faults.h"
#include "engine/platform/files.h"
#include "tests/sources/directory/age_directory.h"
#include "tests/support/memory_source.h"
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
        disk::create_directories(home_ / "data/Maps/Empty");
        age_all();
        EXPECT_TRUE(fs::init((home_ / "root").c_str(), flags, (home_ / "cache").c_str(), false, true, nullptr));
    }
    ~ListingCache() override {
        fs::shutdown();
        platform::clear_faults();
    }
    void age_all() {
        age_directory(home_ / "data");
        for (const auto& item : disk::recursive_directory_iterator(home_ / "data")) {
            if (item.is_directory()) age_directory(item.path().generic_string());
        }
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
    static bool opens(const char* name) { return fs::file_ptr(fs::open(name, EFSMode::READ)) != nullptr; }
    std::vector<std::string> names() { return test::take_names(fs::search(nullptr, nullptr, true, false)); }
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
    EXPECT_NE(fs::search_dir("maps/empty"), nullptr) << "directories come from the record too";
    EXPECT_TRUE(opens("maps/two")) << "names keep their spelling";
}

TEST_F(ListingCache, ScansAgainWhenAnyDirectoryChanged) {
    // Not by the standard library, which changes no case on every system.
    const auto move = [this](const char* from, const char* to) {
        EXPECT_TRUE(platform::rename_path((home_ / from).c_str(), (home_ / to).c_str())) << from;
    };
    struct Row {
        const char* label;
        std::function<void()> change;
        const char* held;  // a file that is there after the change
    };
    const Row rows[] = {
        {"a file more", [this] { home_.write("data/new1", "1"); }, "new1"},
        {"a file more below", [this] { home_.write("data/Maps/Deep/new2", "1"); }, "maps/deep/new2"},
        {"a file fewer", [this] { disk::remove(home_ / "data/Maps/Two"); }, "top"},
        {"a file renamed", [&] { move("data/Maps/Deep/One", "data/Maps/Deep/Won"); }, "maps/deep/won"},
        {"a case that changed", [&] { move("data/Maps/Deep/Won", "data/Maps/Deep/won"); }, "maps/deep/won"},
        {"a directory more", [this] { home_.write("data/Maps/More/f", "1"); }, "maps/more/f"},
        {"a directory renamed", [&] { move("data/Maps/More", "data/Maps/Moved"); }, "maps/moved/f"},
        {"the case of a directory", [&] { move("data/Maps/Moved", "data/Maps/moved"); }, "maps/moved/f"},
        {"a directory fewer", [this] { disk::remove_all(home_ / "data/Maps/moved"); }, "top"},
        {"another stamp", [this] { age_directory(home_ / "data/Maps"); }, "top"},
        {"a change whose stamp was put back",
         [this] { change_unseen(home_ / "data/Maps", [this] { home_.write("data/Maps/new3", "1"); }); }, "maps/new3"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        age_all();
        is_replayed();
        unmount();
        EXPECT_TRUE(is_replayed());
        unmount();
        row.change();
        EXPECT_FALSE(is_replayed());
        EXPECT_TRUE(opens(row.held));
        unmount();
    }
}

TEST_F(ListingCache, ChecksALongListingWhileItIsReplayed) {
    for (int i = 1000; i < 1800; ++i) home_.write("data/many/" + std::string(90, 'x') + std::to_string(i), "");
    age_all();
    EXPECT_FALSE(is_replayed());
    const std::vector<std::string> scanned = names();
    EXPECT_EQ(scanned.size(), 804u);
    unmount();
    EXPECT_TRUE(is_replayed());
    EXPECT_EQ(names(), scanned);
    unmount();
    home_.write("data/many/new", "1");
    EXPECT_FALSE(is_replayed());
    EXPECT_TRUE(fs::exists("many/new"));
    EXPECT_EQ(names().size(), 805u);
    EXPECT_NE(fs::search_dir("maps/deep"), nullptr);
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

TEST_F(ListingCache, IsNotUsedWithoutItsFolderOrWhenForbiddenNorWhenADirectoryCouldNotBeRead) {
    platform::inject_fault(platform::FaultPoint::LIST, 2, platform::Failure::ACCESS_DENIED, false);
    EXPECT_TRUE(mount());
    platform::clear_faults();
    unmount();
    EXPECT_TRUE(stored().empty()) << "what failed once would be missing for ever";
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

TEST_F(ListingCache, MountsAllTheSameWhenItCannotWrite) {
    is_replayed();
    unmount();
    const std::string file = stored().at(0).generic_string();
    const struct {
        const char* label;
        platform::FaultPoint point;
        platform::Failure failure;
    } rows[] = {
        {"full disk", platform::FaultPoint::WRITE, platform::Failure::DISK_FULL},
        {"disk full half way", platform::FaultPoint::WRITE, platform::Failure::NONE},
        {"directory for reading only", platform::FaultPoint::OPEN, platform::Failure::ACCESS_DENIED},
        {"file that cannot be replaced", platform::FaultPoint::RENAME, platform::Failure::ACCESS_DENIED},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        const std::string later = std::string("later") + row.label[0];
        home_.write("data/" + later, "1");
        platform::inject_fault(row.point, 1, row.failure, true);
        EXPECT_TRUE(mount());
        EXPECT_NE(platform::fault_hits(), 0u);
        platform::clear_faults();
        EXPECT_TRUE(fs::exists(later.c_str()));
        EXPECT_EQ(stored(), std::vector<disk::path>{file}) << "nothing is left beside it";
        unmount();
    }
}

TEST_F(ListingCache, StaysWholeWhenManyWriteAtOnce) {
    constexpr auto many = flags | FFSAddSourceFlags::ALLOW_DUPLICATE;
    for (int round = 0; round < 5; ++round) {
        for (const disk::path& file : stored()) disk::remove(file);
        std::vector<std::thread> writers;
        for (int i = 0; i < 4; ++i) writers.emplace_back([this] { EXPECT_TRUE(mount(many)); });
        for (std::thread& writer : writers) writer.join();
        for (int i = 0; i < 4; ++i) unmount();
        EXPECT_EQ(stored().size(), 1u) << "one file, and nothing beside it";
        EXPECT_TRUE(is_replayed());
        unmount();
    }
}

}  // namespace

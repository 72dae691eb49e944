// Mounts that read no directory: from the stored listing, as a host meets it and its bytes alone, and from the service
// that knows what is on the disk.

#include <functional>

#include "engine/filesystem/sources/directory/cache_service.h"
#include "engine/filesystem/sources/directory/listing.h"
#include "engine/filesystem/sources/directory/state.h"
#include "engine/kernel/text.h"
#include "engine/platform/directories.h"
#include "engine/platform/process.h"
#include "tests/modules/cache_service_control.h"
#include "tests/sources/directory/directory_time.h"
#include "tests/sources/kit.h"
#include "tests/support/mounted_root.h"
#include "tests/support/run_together.h"

namespace {

namespace disk = std::filesystem;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using Flags = FFSAddSourceFlags;

/// Each mount of the directory takes the place of the one before.
class ListingCache : public testing::Test {
protected:
    ListingCache() {
        disk::create_directories(folder_);
        for (const char* name : {"root/r", "data/Top", "data/Maps/Deep/One", "data/Maps/Two"}) home_.write(name, "1");
        disk::create_directories(home_ / "data/Maps/Empty");
        age_all();
        EXPECT_TRUE(fs::init((home_ / "root").c_str(), whole_tree, (home_ / "cache").c_str(), false, true, nullptr));
    }
    ~ListingCache() override {
        fs::shutdown();
        platform::clear_faults();
    }

    static std::int64_t time_of(const std::string& path) { return platform::get_attributes(path.c_str())->write_time; }
    /// Lets a directory look as if its list of names had changed an hour earlier.
    static void age(const std::string& path) { set_directory_time(path, time_of(path) - 36'000'000'000); }
    void age_all() {
        age(home_ / "data");
        for (const auto& item : disk::recursive_directory_iterator(home_ / "data")) {
            if (item.is_directory()) age(item.path().generic_string());
        }
    }

    bool mount(Flags::ENUM with = whole_tree) {
        fs::rem_source((home_ / "data").c_str());
        return fs::add_source((home_ / "data").c_str(), with);
    }
    /// Mounts, and tells whether that read no directory at all.
    bool is_replayed(Flags::ENUM with = whole_tree) {
        platform::inject_fault(platform::FaultPoint::LIST, 1, platform::Failure::ACCESS_DENIED, true);
        EXPECT_TRUE(mount(with));
        const bool replayed = platform::fault_hits() == 0;
        platform::clear_faults();
        if (!replayed) EXPECT_TRUE(mount(with));
        return replayed;
    }
    static bool opens(const char* name) { return fs::open_file(name, EFSMode::READ) != nullptr; }
    std::vector<std::string> names() { return test::take_names(fs::search(nullptr, nullptr, true, false)); }
    std::vector<std::string> stored() const {
        std::vector<std::string> files;
        for (const auto& item : disk::directory_iterator(folder_)) files.push_back(item.path().generic_string());
        return files;
    }

    const TempDirectory home_;
    const std::string folder_ = home_ / ("cache/" + std::string(fs::listing_cache_folder));
};

TEST_F(ListingCache, ReplaysTheSecondMountWithoutReadingADirectoryUnlessItIsDamagedOrTooYoung) {
    EXPECT_FALSE(is_replayed());
    ASSERT_EQ(stored().size(), 1u);
    EXPECT_THAT(stored()[0], testing::EndsWith(".fsc"));
    const std::vector<std::string> scanned = names();
    EXPECT_THAT(scanned, UnorderedElementsAre("r", "top", "maps/two", "maps/deep/one"));
    EXPECT_TRUE(is_replayed());
    EXPECT_EQ(names(), scanned);
    EXPECT_NE(fs::search_dir("maps/empty"), nullptr) << "directories come from the record too";
    EXPECT_TRUE(opens("maps/two")) << "names keep their spelling";
    const std::string file = stored()[0];
    const std::string good = read_file(file);
    for (std::size_t at = 0; at < good.size(); at += 5) {
        std::string damaged = good;
        damaged[at] = static_cast<char>(~damaged[at]);
        for (const std::string& bytes : {good.substr(0, at), damaged}) {
            write_file(file, bytes);
            EXPECT_FALSE(is_replayed()) << at;
        }
    }
    EXPECT_TRUE(is_replayed());
    EXPECT_EQ(stored().size(), 1u) << "nothing stays beside it";
    home_.write("data/Maps/fresh", "1");
    EXPECT_FALSE(is_replayed());
    EXPECT_FALSE(is_replayed()) << "a second change within the clock's step would not show";
    age_all();
    EXPECT_FALSE(is_replayed());
    EXPECT_TRUE(is_replayed());
}

TEST_F(ListingCache, ScansAgainWhenAnyDirectoryChanged) {
    // Not by the standard library, which changes no case on every system.
    const auto move = [this](const char* from, const char* to) {
        EXPECT_TRUE(platform::rename_path((home_ / from).c_str(), (home_ / to).c_str())) << from;
    };
    const auto change_unseen = [this] {
        const std::int64_t time = time_of(home_ / "data/Maps");
        home_.write("data/Maps/unseen", "1");
        set_directory_time(home_ / "data/Maps", time);
    };
    const std::pair<std::function<void()>, const char*> changes[] = {
        // and a file that is there afterwards
        {[&] { home_.write("data/Maps/Deep/more", "1"); }, "maps/deep/more"},
        {[&] { disk::remove(home_ / "data/Maps/Two"); }, "top"},
        {[&] { move("data/Maps/Deep/One", "data/Maps/Deep/one"); }, "maps/deep/one"},
        {[&] { move("data/Maps/Deep", "data/Maps/deep"); }, "maps/deep/one"},
        {[&] { age(home_ / "data"); }, "top"},
        {change_unseen, "maps/unseen"},
    };
    for (const auto& [change, held] : changes) {
        SCOPED_TRACE(held);
        age_all();
        is_replayed();
        EXPECT_TRUE(is_replayed());
        change();
        EXPECT_FALSE(is_replayed());
        EXPECT_TRUE(opens(held));
    }
}

TEST_F(ListingCache, ChecksALongListingWhileItIsReplayed) {
    for (int i = 1000; i < 1800; ++i) home_.write("data/many/" + std::string(90, 'x') + std::to_string(i), "");
    age_all();
    EXPECT_FALSE(is_replayed());
    EXPECT_TRUE(is_replayed());
    EXPECT_EQ(names().size(), 804u);
    home_.write("data/many/new", "1");
    EXPECT_FALSE(is_replayed());
    EXPECT_TRUE(opens("many/new") && names().size() == 805u && fs::search_dir("maps/deep"));
}

TEST_F(ListingCache, IsNotUsedWithoutItsFolderOrWhenForbiddenNorWhenADirectoryCouldNotBeRead) {
    platform::inject_fault(platform::FaultPoint::LIST, 2, platform::Failure::ACCESS_DENIED, false);
    EXPECT_TRUE(mount());
    EXPECT_TRUE(stored().empty()) << "what failed once would be missing for ever";
    EXPECT_FALSE(is_replayed(whole_tree | Flags::SKIP_LISTING_CACHE));
    EXPECT_TRUE(stored().empty());
    disk::remove_all(home_ / "cache/filesystem");
    EXPECT_FALSE(is_replayed());
    EXPECT_FALSE(disk::exists(home_ / "cache/filesystem")) << "the folder is the host's to make";
}

TEST_F(ListingCache, KeepsMountsWithOtherFlagsApart) {
    const auto all_flags = {whole_tree, Flags::INDEX_NAMES, whole_tree | Flags::MOUNT_PARENT};
    for (const auto with : all_flags) EXPECT_FALSE(is_replayed(with));
    for (const auto with : all_flags) {
        EXPECT_TRUE(is_replayed(with));
        EXPECT_EQ(names().size(), with == Flags::INDEX_NAMES ? 2u : 4u);
        EXPECT_EQ(fs::exists("data/maps/two", FFSOpenFlags::WHOLE_NAME), with == (whole_tree | Flags::MOUNT_PARENT));
    }
}

TEST_F(ListingCache, StaysWholeWhenManyWriteAtOnce) {
    const std::string data = home_ / "data";
    for (int round = 0; round < 5; ++round) {
        for (const std::string& file : stored()) disk::remove(file);
        run_together(
            4, [&](std::size_t) { EXPECT_TRUE(fs::add_source(data.c_str(), whole_tree | Flags::ALLOW_DUPLICATE)); });
        for (int i = 0; i < 4; ++i) EXPECT_TRUE(fs::rem_source(data.c_str()));
        EXPECT_EQ(stored().size(), 1u) << "one file, and nothing beside it";
        EXPECT_TRUE(is_replayed());
        fs::rem_source(data.c_str());
    }
}

// Records that no scan makes, behind a good checksum.
TEST(RecordedListing, FailsWithHostileNames) {
    constexpr fs::ListingKey key{"/data/base", 1};
    const std::tuple<std::string, const char*, bool> rows[] = {
        {"a/", "f", true},    {"../", "f", false},  {"/etc/", "f", false}, {"a", "f", false},
        {"a/./", "f", false}, {"a//", "f", false},  {"a/", "", false},     {"a\\..\\", "f", false},
        {"a/", "..", false},  {"a/", "b/c", false}, {"a/", "b\\c", false}, {std::string(259, 'd') + "/", "f", false}};
    for (const auto& [dir, file, is_good] : rows) {
        fs::dir_listing recorded;
        recorded.add_directory(dir, {1, 1});
        recorded.add_file(file);
        fs::dir_listing listing;
        EXPECT_EQ(listing.decode(key, recorded.encode(key)), is_good) << dir << " with " << file;
        EXPECT_EQ(listing.is_empty(), !is_good);
        EXPECT_FALSE(listing.decode({"/data/bas", 1}, recorded.encode(key))) << "recorded for something else";
    }
}

constexpr const char* items[] = {"Served.TXT", "Dir\\Two", "a/../b/./three", "",     "../out",
                                 "dir/",       "#hidden",  "x/#y/hidden",    "b/no#"};

class CacheService : public testing::Test {
protected:
    void SetUp() override {
        for (const char* name : {"Dir/Two", "on_disk"}) disk_.write(name, name);
        ASSERT_NE(module_, nullptr);
        control_ = reinterpret_cast<CacheServiceControl* (*)()>(platform::find_symbol(module_, "fscTestControl"))();
        *control_ = {.inits = true, .is_running = true, .items = items, .item_count = 9};
    }
    void TearDown() override {
        platform::clear_faults();
        if (control_ != nullptr) *control_ = {};
        if (module_ != nullptr) platform::unload_module(module_);
    }
    std::vector<std::string> mount(fs::dir_listing* listing = nullptr) {
        EXPECT_TRUE(source_.init(as_dir(disk_.path()), FFSAddSourceFlags::RECURSIVE, listing));
        return all_names(source_);
    }

    const TempDirectory disk_;
    // Held, so that what it is told lasts from one mount to the next.
    platform::Module* const module_ = platform::load_module("FileSystemCache_x64");
    CacheServiceControl* control_ = nullptr;
    CWin32_dir source_{EFSSourceType::DIR};
};

TEST_F(CacheService, ServesAMountWithoutTouchingADirectoryOrAStoredListing) {
    control_->is_running = false;
    fs::dir_listing recorded;
    fs::dir_listing listing;
    mount(&recorded);
    ASSERT_TRUE(listing.decode({}, recorded.encode({})));
    control_->is_running = true;
    platform::inject_fault(platform::FaultPoint::LIST, 1, platform::Failure::ACCESS_DENIED, true);
    EXPECT_THAT(mount(&listing), UnorderedElementsAre("served.txt", "dir/two", "b/three", "b/no#"));
    EXPECT_TRUE(listing.is_stored()) << "nothing is recorded";
    EXPECT_EQ(platform::fault_hits(), 0u);
    platform::clear_faults();
    EXPECT_EQ(source_.dir_tree()->first_child(), nullptr);
    EXPECT_TRUE(kernel::equal_folded(control_->path, disk_.path() + "/")) << control_->path;
    EXPECT_TRUE(control_->second == 1 && control_->items_released == 1 && control_->mount_points_released == 1);
    EXPECT_EQ(read_all(source_.open_read(as_path("dir/two"), FFSOpenFlags::NONE)), "Dir/Two") << "by its spelling";
    control_->item_count = 0;
    EXPECT_THAT(mount(), IsEmpty());
    control_->item_count = 5;
    ASSERT_TRUE(source_.init(as_dir(disk_ / "dir"), FFSAddSourceFlags::MOUNT_PARENT, nullptr));
    EXPECT_THAT(all_names(source_), UnorderedElementsAre("dir/served.txt", "dir/dir/two", "dir/b/three"))
        << "the start leads each name, and nothing beside it is shown";
    EXPECT_TRUE(kernel::equal_folded(control_->path, disk_.path() + "/Dir/")) << control_->path;
}

TEST_F(CacheService, LeavesTheMountToTheDiskWhenItDeclines) {
    for (bool CacheServiceControl::*answer :
         {&CacheServiceControl::inits, &CacheServiceControl::is_running, &CacheServiceControl::refuses_mount}) {
        bool& declines = control_->*answer;
        declines = !declines;
        EXPECT_THAT(mount(), UnorderedElementsAre("on_disk", "dir/two"));
        declines = !declines;
    }
    EXPECT_EQ(control_->mount_points_released, 0);
}

TEST_F(CacheService, IsNeverUsedWhenAnyEntryPointIsMissing) {
    control_->is_running = false;
    std::vector<std::string> modules{"FileSystemCache_absent", "FileSystemCache_x64"};  // whole, but not running
    for (int missing = 1; missing <= 14; ++missing) {
        platform::Module* const module =
            platform::load_module(modules.emplace_back("FileSystemCache_without_" + std::to_string(missing)).c_str());
        ASSERT_NE(module, nullptr) << modules.back();
        platform::unload_module(module);
    }
    for (const std::string& name : modules) {
        const fs::DirectoryState state;
        fs::MountedNames names("");
        EXPECT_FALSE(fs::fill_from_cache_service(state, names, name.c_str())) << name;
        EXPECT_EQ(names.table.size(), 0u);
    }
}

}  // namespace

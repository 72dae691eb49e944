#include "engine/filesystem/sources/directory/cache_service.h"
#include "engine/filesystem/sources/directory/listing.h"
#include "engine/filesystem/sources/directory/state.h"
#include "engine/kernel/text.h"
#include "engine/platform/process.h"
#include "tests/modules/cache_service_control.h"
#include "tests/sources/kit.h"

namespace {

using testing::IsEmpty;
using testing::UnorderedElementsAre;

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
    void expect_path(const std::string& path) {
        EXPECT_TRUE(kernel::equal_folded(control_->path, path)) << control_->path;
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
    expect_path(disk_.path() + "/");
    EXPECT_TRUE(control_->second == 1 && control_->items_released == 1 && control_->mount_points_released == 1);
    EXPECT_EQ(read_all(source_.open_read(as_path("dir/two"), FFSOpenFlags::NONE)), "Dir/Two") << "by its spelling";
    control_->item_count = 0;
    EXPECT_THAT(mount(), IsEmpty());
    control_->item_count = 1;
    ASSERT_TRUE(source_.init(as_dir(disk_ / "dir"), FFSAddSourceFlags::MOUNT_PARENT, nullptr));
    EXPECT_THAT(all_names(source_), UnorderedElementsAre("dir/served.txt")) << "the start leads each name";
    expect_path(disk_.path() + "/Dir/");
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

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include <engine/filesystem/sources/directory.h>

#include "engine/filesystem/sources/directory/mount/cache_service.h"
#include "engine/filesystem/sources/directory/mount/recorded.h"
#include "engine/filesystem/sources/directory/mount/state.h"
#include "engine/kernel/text.h"
#include "engine/platform/faults.h"
#include "engine/platform/modules.h"
#include "tests/modules/cache_service_control.h"
#include "tests/sources/kit.h"
#include "tests/support/temp_directory.h"

namespace {

using testing::UnorderedElementsAre;

constexpr const char* items[] = {"Served.TXT", "Dir\\Two", "a/../b/./three", "",     "../out",
                                 "dir/",       "#hidden",  "x/#y/hidden",    "b/no#"};

// Holds a companion module, so that what it is told lasts from one mount to the next.
class Companion {
public:
    explicit Companion(const char* name) : module_(platform::load_module(name)) {
        if (!module_) return;
        control_ = reinterpret_cast<CacheServiceControl* (*)()>(platform::find_symbol(module_, "fscTestControl"))();
        *control_ = {.inits = true, .is_running = true, .items = items, .item_count = 9};
    }
    ~Companion() {
        if (control_) *control_ = {};
        if (module_) platform::unload_module(module_);
    }
    bool is_loaded() const { return module_ != nullptr; }
    CacheServiceControl& control() { return *control_; }

private:
    platform::Module* module_;
    CacheServiceControl* control_ = nullptr;
};

class CacheService : public testing::Test {
protected:
    CacheService() {
        disk_.write("Dir/Two", "2");
        disk_.write("on_disk", "1");
    }
    ~CacheService() override { platform::clear_faults(); }
    bool mount(fs::dir_listing* listing = nullptr) {
        return source_.init(as_dir(disk_.path()), FFSAddSourceFlags::RECURSIVE, listing);
    }

    TempDirectory disk_;
    CWin32_dir source_{EFSSourceType::DIR};
};

TEST_F(CacheService, ServesAMountWithoutTouchingADirectory) {
    Companion companion("FileSystemCache_x64");
    ASSERT_TRUE(companion.is_loaded());
    platform::inject_fault(platform::FaultPoint::LIST, 1, platform::Failure::ACCESS_DENIED, true);
    ASSERT_TRUE(mount());
    EXPECT_EQ(platform::fault_hits(), 0u);
    EXPECT_THAT(all_names(source_), UnorderedElementsAre("served.txt", "dir/two", "b/three", "b/no#"));
    EXPECT_EQ(source_.dir_tree()->first_child(), nullptr);
    EXPECT_TRUE(kernel::equal_folded(companion.control().path, disk_.path() + "/")) << companion.control().path;
    EXPECT_EQ(companion.control().second, 1);
    EXPECT_EQ(companion.control().items_released, 1);
    EXPECT_EQ(companion.control().mount_points_released, 1);
    SFsFile* file = source_.open_read(fs::path("dir/two", true), FFSOpenFlags::NONE);
    EXPECT_NE(file, nullptr) << "names keep the spelling of the service";
    fs::close(file);
}

TEST_F(CacheService, IsAskedBeforeAStoredListing) {
    fs::dir_listing recorded;
    ASSERT_TRUE(mount(&recorded));
    fs::dir_listing listing;
    ASSERT_TRUE(listing.assign(recorded.bytes()));
    Companion companion("FileSystemCache_x64");
    ASSERT_TRUE(companion.is_loaded());
    companion.control().item_count = 1;
    platform::inject_fault(platform::FaultPoint::STAT, 1, platform::Failure::ACCESS_DENIED, true);
    ASSERT_TRUE(mount(&listing));
    EXPECT_EQ(platform::fault_hits(), 0u) << "the stamps of the directories are not looked at";
    EXPECT_THAT(all_names(source_), UnorderedElementsAre("served.txt"));
    EXPECT_TRUE(listing.is_stored()) << "nothing is recorded";
}

TEST_F(CacheService, PutsTheStartBeforeEachNameWhenTheParentIsMounted) {
    Companion companion("FileSystemCache_x64");
    ASSERT_TRUE(companion.is_loaded());
    companion.control().item_count = 1;
    ASSERT_TRUE(source_.init(as_dir(disk_ / "dir"), FFSAddSourceFlags::MOUNT_PARENT, nullptr));
    EXPECT_THAT(all_names(source_), UnorderedElementsAre("dir/served.txt"));
    EXPECT_TRUE(kernel::equal_folded(companion.control().path, disk_.path() + "/Dir/")) << companion.control().path;
}

TEST_F(CacheService, ServesAnEmptyListingAsAnEmptyMount) {
    Companion companion("FileSystemCache_x64");
    ASSERT_TRUE(companion.is_loaded());
    companion.control().item_count = 0;
    ASSERT_TRUE(mount());
    EXPECT_TRUE(all_names(source_).empty());
}

TEST_F(CacheService, LeavesTheMountToTheDiskWhenItRefuses) {
    Companion companion("FileSystemCache_x64");
    ASSERT_TRUE(companion.is_loaded());
    for (bool CacheServiceControl::*refusal :
         {&CacheServiceControl::inits, &CacheServiceControl::is_running, &CacheServiceControl::refuses_mount}) {
        companion.control().*refusal = !(companion.control().*refusal);
        ASSERT_TRUE(mount());
        EXPECT_THAT(all_names(source_), UnorderedElementsAre("on_disk", "dir/two"));
        companion.control().*refusal = !(companion.control().*refusal);
    }
    EXPECT_EQ(companion.control().mount_points_released, 0);
}

TEST_F(CacheService, IsNeverUsedWhenAnyEntryPointIsMissing) {
    for (int missing = 1; missing <= 14; ++missing) {
        const std::string name = "FileSystemCache_without_" + std::to_string(missing);
        Companion companion(name.c_str());
        ASSERT_TRUE(companion.is_loaded()) << name;
        const fs::DirectoryState state;
        fs::MountedNames names("");
        EXPECT_FALSE(fs::fill_from_cache_service(state, names, name.c_str())) << name;
        EXPECT_EQ(names.table.size(), 0u);
    }
    const fs::DirectoryState state;
    fs::MountedNames names("");
    EXPECT_FALSE(fs::fill_from_cache_service(state, names, "FileSystemCache_absent"));
    EXPECT_FALSE(fs::fill_from_cache_service(state, names)) << "whole, but not running";
}

}  // namespace

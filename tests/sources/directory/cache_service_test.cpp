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
        for (const char* name : {"Dir/Two", "on_disk"}) disk_.write(name, name);
    }
    ~CacheService() override { platform::clear_faults(); }
    void SetUp() override { ASSERT_TRUE(companion_.is_loaded()); }
    std::vector<std::string> mount(fs::dir_listing* listing = nullptr) {
        EXPECT_TRUE(source_.init(as_dir(disk_.path()), FFSAddSourceFlags::RECURSIVE, listing));
        return all_names(source_);
    }
    void expect_path(const std::string& path) {
        EXPECT_TRUE(kernel::equal_folded(companion_.control().path, path)) << companion_.control().path;
    }

    TempDirectory disk_;
    Companion companion_{"FileSystemCache_x64"};
    CWin32_dir source_{EFSSourceType::DIR};
};

TEST_F(CacheService, ServesAMountWithoutTouchingADirectoryOrAStoredListing) {
    companion_.control().is_running = false;
    fs::dir_listing recorded;
    fs::dir_listing listing;
    mount(&recorded);
    ASSERT_TRUE(listing.decode({}, recorded.encode({})));
    companion_.control().is_running = true;
    platform::inject_fault(platform::FaultPoint::LIST, 1, platform::Failure::ACCESS_DENIED, true);
    EXPECT_THAT(mount(&listing), UnorderedElementsAre("served.txt", "dir/two", "b/three", "b/no#"));
    EXPECT_TRUE(listing.is_stored()) << "nothing is recorded";
    EXPECT_EQ(platform::fault_hits(), 0u);
    platform::clear_faults();
    EXPECT_EQ(source_.dir_tree()->first_child(), nullptr);
    const CacheServiceControl& told = companion_.control();
    expect_path(disk_.path() + "/");
    EXPECT_TRUE(told.second == 1 && told.items_released == 1 && told.mount_points_released == 1);
    EXPECT_EQ(read_all(source_.open_read(as_path("dir/two"), FFSOpenFlags::NONE)), "Dir/Two") << "by its spelling";
    companion_.control().item_count = 0;
    EXPECT_THAT(mount(), IsEmpty());
    companion_.control().item_count = 1;
    ASSERT_TRUE(source_.init(as_dir(disk_ / "dir"), FFSAddSourceFlags::MOUNT_PARENT, nullptr));
    EXPECT_THAT(all_names(source_), UnorderedElementsAre("dir/served.txt")) << "the start leads each name";
    expect_path(disk_.path() + "/Dir/");
}

TEST_F(CacheService, LeavesTheMountToTheDiskWhenItDeclines) {
    for (bool CacheServiceControl::*answer :
         {&CacheServiceControl::inits, &CacheServiceControl::is_running, &CacheServiceControl::refuses_mount}) {
        bool& declines = companion_.control().*answer;
        declines = !declines;
        EXPECT_THAT(mount(), UnorderedElementsAre("on_disk", "dir/two"));
        declines = !declines;
    }
    EXPECT_EQ(companion_.control().mount_points_released, 0);
}

TEST_F(CacheService, IsNeverUsedWhenAnyEntryPointIsMissing) {
    companion_.control().is_running = false;
    std::vector<std::string> modules{"FileSystemCache_absent", "FileSystemCache_x64"};  // whole, but not running
    for (int missing = 1; missing <= 14; ++missing) {
        modules.push_back("FileSystemCache_without_" + std::to_string(missing));
        ASSERT_TRUE(Companion(modules.back().c_str()).is_loaded()) << modules.back();
    }
    for (const std::string& name : modules) {
        const fs::DirectoryState state;
        fs::MountedNames names("");
        EXPECT_FALSE(fs::fill_from_cache_service(state, names, name.c_str())) << name;
        EXPECT_EQ(names.table.size(), 0u);
    }
}

}  // namespace

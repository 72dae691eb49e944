#include <array>
#include <cstddef>
#include <string>

#include "engine/filesystem/sources/directory/state.h"
#include "engine/filesystem/sources/listing/cache_service.h"
#include "engine/platform/modules.h"

// A companion module may keep listings of whole trees in memory and serve a mount from them. Everything about it is
// optional and silent: whatever is missing or refused means that the mount is not served and the disk is scanned.

namespace fs {

namespace {

enum Entry : std::size_t { CREATE_MOUNT_POINT = 0, INIT = 8, IS_SERVICE_RUNNING = 12, ENTRY_COUNT = 14 };

// A module that lacks any of them is of another version, and is not used.
constexpr std::array<const char*, ENTRY_COUNT> entry_names = {"fscCreateMountPoint",
                                                              "fscDestroyMountPoint",
                                                              "fscGetNumMountPoints",
                                                              "fscGetMountPoint",
                                                              "fscCreateMountPointsChangedSemaphore",
                                                              "fscNotifyAdd",
                                                              "fscNotifyRemove",
                                                              "fscNotifyRename",
                                                              "fscInit",
                                                              "fscGetMemStats",
                                                              "fscCompact",
                                                              "fscDumpBlocks",
                                                              "fscIsServiceRunning",
                                                              "fscServiceRunning"};

class CacheService {
public:
    explicit CacheService(const char* module) : module_(platform::load_module(module)) {
        is_complete_ = module_ && resolve();
    }
    CacheService(const CacheService&) = delete;
    CacheService& operator=(const CacheService&) = delete;
    ~CacheService() {
        if (module_) platform::unload_module(module_);
    }

    bool is_running() const {
        return is_complete_ && call<bool (*)()>(INIT)() && call<bool (*)()>(IS_SERVICE_RUNNING)();
    }
    ICacheServiceMountPoint* create_mount_point(const char* path) const {
        return call<ICacheServiceMountPoint* (*)(const char*, int)>(CREATE_MOUNT_POINT)(path, 1);
    }

private:
    bool resolve() {
        for (std::size_t i = 0; i < ENTRY_COUNT; ++i) {
            entries_[i] = platform::find_symbol(module_, entry_names[i]);
            if (!entries_[i]) return false;
        }
        return true;
    }
    template <class Function>
    Function call(Entry entry) const {
        return reinterpret_cast<Function>(entries_[entry]);
    }

    platform::Module* module_;
    std::array<void*, ENTRY_COUNT> entries_{};
    bool is_complete_ = false;
};

// An item is kept as the service spells it; one without a name, or that leads out of the root, is passed over.
void enter_item(DirectoryState& state, const char* name) {
    const std::string full = state.start + (name ? name : "");
    const fs::path item(full.c_str(), false);
    if (item.EmptyFile() || climbs(item.PathNameView())) return;
    const std::uint32_t dir = state.table->intern_dir(item.PathNameView());
    if (dir != DirectoryNames::none && !state.enter(dir, item.FileNameView())) return;
}

}  // namespace

// The module's objects are known by the order of their operations alone, so a check of their C++ type would fail.
__attribute__((no_sanitize("vptr"))) bool fill_from_cache_service(DirectoryState& state, const char* module) {
    const CacheService service(module);
    if (!service.is_running()) return false;
    const std::string path = state.native_root.text + state.start;
    ICacheServiceMountPoint* mount_point = service.create_mount_point(path.c_str());
    if (!mount_point) return false;
    ICacheServiceItems* items = mount_point->enumerate();
    for (; items && items->valid(); items->next()) enter_item(state, items->item_name());
    if (items) items->release();
    mount_point->release();
    return true;
}

}  // namespace fs

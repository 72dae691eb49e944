#include "engine/filesystem/sources/directory/cache_service.h"

#include <array>
#include <cstddef>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>

#include "engine/filesystem/contract/path.h"
#include "engine/filesystem/sources/directory/state.h"
#include "engine/platform/process.h"

// A companion module may keep listings of whole trees in memory and serve a mount from them. Everything about it is
// optional and silent: whatever is missing or refused means that the mount is not served and the disk is scanned.

namespace fs {

namespace {

enum Entry : std::size_t { CREATE_MOUNT_POINT = 0, INIT = 8, IS_SERVICE_RUNNING = 12 };

// A module that lacks any of them is of another version, and is not used.
constexpr const char* entry_names[] = {"fscCreateMountPoint",
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

struct Unload {
    void operator()(platform::Module* module) const { platform::unload_module(module); }
};

class CacheService {
public:
    explicit CacheService(const char* module) : module_(platform::load_module(module)) {
        for (std::size_t i = 0; module_ != nullptr && i < entries_.size(); ++i) {
            entries_[i] = platform::find_symbol(module_.get(), entry_names[i]);
            if (entries_[i] == nullptr) module_ = nullptr;
        }
    }
    bool is_running() const {
        return module_ != nullptr && call<bool (*)()>(INIT)() && call<bool (*)()>(IS_SERVICE_RUNNING)();
    }
    ICacheServiceMountPoint* create_mount_point(const char* path) const {
        return call<ICacheServiceMountPoint* (*)(const char*, int)>(CREATE_MOUNT_POINT)(path, 1);
    }

private:
    template <class Function>
    Function call(Entry entry) const {
        return reinterpret_cast<Function>(entries_[entry]);
    }

    std::unique_ptr<platform::Module, Unload> module_;  // null unless it has every entry
    std::array<void*, std::size(entry_names)> entries_{};
};

// An item is kept as the service spells it; one without a name, or that leads out of where a scan begins, is passed over.
void enter_item(const DirectoryState& state, MountedNames& to, const char* name) {
    const fs::path item = creation_name((state.start + (name ? name : "")).c_str());
    const std::string path = full_name(item);
    if (item.EmptyFile() || climbs(path) || !path.starts_with(state.start)) return;
    if (is_hidden(std::string_view(path).substr(state.start.size()))) return;
    state.enter(to, to.table.intern_dir(item.PathNameView()), item.FileNameView());
}

// Lets go of one of the module's objects however the listing ends. They are known by the order of their operations alone,
// so a check of their C++ type would fail, here and where they are used.
struct Release {
    template <class Object>
    __attribute__((no_sanitize("vptr"))) void operator()(Object* object) const {
        object->release();
    }
};

}  // namespace

__attribute__((no_sanitize("vptr"))) bool fill_from_cache_service(const DirectoryState& state, MountedNames& to,
                                                                  const char* module) {
    const CacheService service(module);
    if (!service.is_running()) return false;
    const std::string path = state.native_root.text + state.start;
    const std::unique_ptr<ICacheServiceMountPoint, Release> mount_point(service.create_mount_point(path.c_str()));
    if (!mount_point) return false;
    const std::unique_ptr<ICacheServiceItems, Release> items(mount_point->enumerate());
    for (; items && items->valid(); items->next()) enter_item(state, to, items->item_name());
    return true;
}

}  // namespace fs

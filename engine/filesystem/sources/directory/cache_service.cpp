#include "engine/filesystem/sources/directory/cache_service.h"

#include <array>
#include <cstddef>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>

#include "engine/filesystem/contract/path_text.h"
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
    const std::unique_ptr<platform::Module, Unload> library(platform::load_module(module));
    std::array<void*, std::size(entry_names)> entries{};
    for (std::size_t i = 0; i < entries.size(); ++i) {
        entries[i] = library ? platform::find_symbol(library.get(), entry_names[i]) : nullptr;
        if (entries[i] == nullptr) return false;
    }
    const auto init = reinterpret_cast<bool (*)()>(entries[INIT]);
    const auto is_running = reinterpret_cast<bool (*)()>(entries[IS_SERVICE_RUNNING]);
    const auto mount = reinterpret_cast<ICacheServiceMountPoint* (*)(const char*, int)>(entries[CREATE_MOUNT_POINT]);
    if (!init() || !is_running()) return false;
    const std::string path = state.native_root.text + state.start;
    const std::unique_ptr<ICacheServiceMountPoint, Release> mount_point(mount(path.c_str(), 1));
    if (!mount_point) return false;
    const std::unique_ptr<ICacheServiceItems, Release> items(mount_point->enumerate());
    for (; items && items->valid(); items->next()) enter_item(state, to, items->item_name());
    return true;
}

}  // namespace fs

// A companion module as the cache-service client expects it. It serves nothing until a test that holds it loaded says so
// through fscTestControl. Built once whole and once without each entry point, which a definition then renames.
#include <cstdio>

#include "tests/modules/cache_service_control.h"

#if defined(_WIN32)
#define FSC_EXPORT extern "C" __declspec(dllexport)
#else
#define FSC_EXPORT extern "C" __attribute__((visibility("default")))
#endif

namespace {

CacheServiceControl control;

struct Items {
    virtual void release() {
        ++control.items_released;
        delete this;
    }
    virtual void next() { ++at; }
    virtual bool valid() { return at < control.item_count; }
    virtual void unused() {}
    virtual const char* item_name() { return control.items[at]; }
    int at = 0;

protected:
    ~Items() = default;
};

struct MountPoint {
    virtual void release() {
        ++control.mount_points_released;
        delete this;
    }
    virtual void* enumerate() { return new Items; }

protected:
    ~MountPoint() = default;
};

}  // namespace

FSC_EXPORT CacheServiceControl* fscTestControl() { return &control; }

FSC_EXPORT void* fscCreateMountPoint(const char* path, int second) {
    std::snprintf(control.path, sizeof control.path, "%s", path);
    control.second = second;
    return control.refuses_mount ? nullptr : new MountPoint;
}
FSC_EXPORT bool fscInit() { return control.inits; }
FSC_EXPORT bool fscIsServiceRunning() { return control.is_running; }
// Looked up and never called.
FSC_EXPORT void fscDestroyMountPoint() {}
FSC_EXPORT void fscGetNumMountPoints() {}
FSC_EXPORT void fscGetMountPoint() {}
FSC_EXPORT void fscCreateMountPointsChangedSemaphore() {}
FSC_EXPORT void fscNotifyAdd() {}
FSC_EXPORT void fscNotifyRemove() {}
FSC_EXPORT void fscNotifyRename() {}
FSC_EXPORT void fscGetMemStats() {}
FSC_EXPORT void fscCompact() {}
FSC_EXPORT void fscDumpBlocks() {}
FSC_EXPORT void fscServiceRunning() {}

// A companion module as the cache-service client expects it. It serves nothing until a test that holds it loaded says so
// through fscTestControl. Built once whole and once without each entry point (FSC_MISSING is the order of the missing one).
#include <cstdio>

#include "tests/modules/cache_service_control.h"

#if defined(_WIN32)
#define FSC_EXPORT extern "C" __declspec(dllexport)
#else
#define FSC_EXPORT extern "C" __attribute__((visibility("default")))
#endif
#ifndef FSC_MISSING
#define FSC_MISSING 0
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

#if FSC_MISSING != 1
FSC_EXPORT void* fscCreateMountPoint(const char* path, int second) {
    std::snprintf(control.path, sizeof control.path, "%s", path);
    control.second = second;
    return control.refuses_mount ? nullptr : new MountPoint;
}
#endif
#if FSC_MISSING != 2
FSC_EXPORT void fscDestroyMountPoint() {}
#endif
#if FSC_MISSING != 3
FSC_EXPORT void fscGetNumMountPoints() {}
#endif
#if FSC_MISSING != 4
FSC_EXPORT void fscGetMountPoint() {}
#endif
#if FSC_MISSING != 5
FSC_EXPORT void fscCreateMountPointsChangedSemaphore() {}
#endif
#if FSC_MISSING != 6
FSC_EXPORT void fscNotifyAdd() {}
#endif
#if FSC_MISSING != 7
FSC_EXPORT void fscNotifyRemove() {}
#endif
#if FSC_MISSING != 8
FSC_EXPORT void fscNotifyRename() {}
#endif
#if FSC_MISSING != 9
FSC_EXPORT bool fscInit() { return control.inits; }
#endif
#if FSC_MISSING != 10
FSC_EXPORT void fscGetMemStats() {}
#endif
#if FSC_MISSING != 11
FSC_EXPORT void fscCompact() {}
#endif
#if FSC_MISSING != 12
FSC_EXPORT void fscDumpBlocks() {}
#endif
#if FSC_MISSING != 13
FSC_EXPORT bool fscIsServiceRunning() { return control.is_running; }
#endif
#if FSC_MISSING != 14
FSC_EXPORT void fscServiceRunning() {}
#endif

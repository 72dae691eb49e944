#pragma once

#include <cstdint>

#include <engine/filesystem/api.h>

/// One use of the disk by a thread that must not use it.
struct SFsDiskUse {
    const char* action;  // "opened", "read", "listed" or "watched"
    const char* name;    // as the call that used the disk had it
    std::uint64_t microseconds;
    std::uint64_t count;  // of uses by all such threads, this one included
};

namespace fs {

/// Whether the calling thread may use the disk; at first every thread may. Nothing fails by it: each open, read or listing of
/// a thread that must not is counted and told, and logged once for each name ("main thread read textures/sky.dds, 14 ms").
/// For finding what makes a frame late.
ENGINE_FS_API void forbid_disk(bool on);

/// Is called for every such use, at its end and on its thread, with no lock held; what it does to the disk itself is not
/// counted. Null: nobody. The texts end with the call.
using disk_report = void (*)(const SFsDiskUse& use, void* user);
ENGINE_FS_API void set_disk_report(disk_report report, void* user);

}  // namespace fs

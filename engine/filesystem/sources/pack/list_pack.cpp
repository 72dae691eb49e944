#include <utility>

#include <engine/filesystem/sources/pack.h>

#include "engine/filesystem/contract/guarded.h"
#include "engine/filesystem/sources/pack/walk.h"

namespace fs {

bool list_pack(const char* native_path, ztl::vector<SFsPackEntry>& out) {
    const char* path = native_path ? native_path : "";
    return guarded(path, false, [&] {
        PackStore store;
        if (!store.open(path, false)) return false;
        ztl::vector<SFsPackEntry> entries;
        for (DirectoryWalk walk(store); walk.next();) {
            if (walk.name().ends_with('/') || walk.name().ends_with('\\')) continue;
            const zip::CentralHeader& header = walk.header();
            entries.push_back({.name = fs::string(walk.name()),
                               .size = header.size,
                               .packed_size = header.packed_size,
                               .method = header.method,
                               .crc = header.crc,
                               .time = zip::from_dos_time(header.dos_date, header.dos_time)});
        }
        out = std::move(entries);
        return true;
    });
}

}  // namespace fs

#include <memory>
#include <utility>

#include <engine/filesystem/sources/pack.h>

#include "engine/filesystem/contract/error.h"
#include "engine/filesystem/sources/pack/archive.h"
#include "engine/filesystem/sources/pack/walk.h"

namespace fs {

namespace {

ztl::vector<SFsPackEntry> entries_of(const PackStore& store) {
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
    return entries;
}

}  // namespace

bool list_pack(const char* native_path, ztl::vector<SFsPackEntry>& out) {
    const char* path = native_path ? native_path : "";
    return guarded(path, false, [&] {
        PackStore store;
        ErrorScope scope;
        if (store.open(path, PackOrigin::file(path), false)) {
            out = entries_of(store);
            return true;
        }
        const std::shared_ptr<const PackArchive> mounted = PackArchive::mounted_from(path);
        if (mounted == nullptr) return false;
        out = entries_of(mounted->store());
        scope.forget();
        return true;
    });
}

}  // namespace fs

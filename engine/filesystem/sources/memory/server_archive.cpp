#include "engine/filesystem/sources/memory/server_archive.h"

#include <new>

#include <engine/filesystem/registry.h>
#include <engine/filesystem/sources/memory_archive.h>

#include "engine/platform/sync.h"

namespace fs {

namespace {

/// There is one server archive at most; it is null before its making and after a shutdown.
struct ServerArchive {
    platform::SlimLock lock;  // guards `archive`; taken before the registry's lock
    ZippedDataArchive* archive = nullptr;
};

constinit ServerArchive server;

}  // namespace

ZippedDataArchive* create_server_archive(void* memory, std::uint64_t capacity) {
    const platform::ExclusiveHold hold(server.lock);
    if (server.archive) return server.archive;
    try {
        auto archive = std::make_unique<ZippedDataArchive>();
        auto source = std::make_unique<CMemZip_dir>(archive.get());
        if (memory) archive->BindArchiveToMemory(memory, capacity);
        server.archive = archive.release();
        add_source(source.release(), FFSAddSourceFlags::INDEX_NAMES);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    return server.archive;
}

ZippedDataArchive* get_server_archive() {
    const platform::ExclusiveHold hold(server.lock);
    return server.archive;
}

void destroy_server_archive() {
    const platform::ExclusiveHold hold(server.lock);
    delete server.archive;
    server.archive = nullptr;
}

}  // namespace fs

#include "engine/filesystem/sources/memory/server_archive.h"

#include <memory>
#include <utility>

#include <engine/filesystem/registry.h>
#include <engine/filesystem/sources/memory_archive.h>

#include "engine/filesystem/contract/guarded.h"
#include "engine/platform/lock.h"
#include "engine/platform/never_destroyed.h"

namespace fs {

namespace {

/// There is one server archive at most; it is null before its making and after a shutdown.
struct ServerArchive {
    platform::Mutex lock;  // taken before the registry's lock
    std::unique_ptr<ZippedDataArchive> archive ENGINE_GUARDED_BY(lock);
};

ServerArchive& state() {
    static platform::NeverDestroyed<ServerArchive> instance;
    return instance.value;
}

}  // namespace

ZippedDataArchive* create_server_archive(void* memory, std::uint64_t capacity) {
    return guarded<ZippedDataArchive*>(nullptr, nullptr, [&] {
        ServerArchive& server = state();
        const platform::LockGuard guard(server.lock);
        if (server.archive) return server.archive.get();
        auto archive = std::make_unique<ZippedDataArchive>();
        auto source = std::make_unique<CMemZip_dir>(archive.get());
        if (memory) archive->BindArchiveToMemory(memory, capacity);
        server.archive = std::move(archive);
        add_source(source.release(), FFSAddSourceFlags::INDEX_NAMES);
        return server.archive.get();
    });
}

ZippedDataArchive* get_server_archive() {
    ServerArchive& server = state();
    const platform::LockGuard guard(server.lock);
    return server.archive.get();
}

void destroy_server_archive() {
    ServerArchive& server = state();
    const platform::LockGuard guard(server.lock);
    server.archive.reset();
}

}  // namespace fs

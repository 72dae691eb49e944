#include "engine/filesystem/sources/memory/server_archive.h"

#include <atomic>
#include <memory>

#include <engine/filesystem/sources/memory_archive.h>

#include "engine/filesystem/contract/error.h"
#include "engine/filesystem/registry/registry.h"
#include "engine/platform/threads.h"

namespace fs {

namespace {

/// There is one server archive at most. Asking for it takes no lock: a source may ask while it is being asked itself.
struct ServerArchive {
    platform::Mutex making;                            // taken before the registry's lock
    std::atomic<ZippedDataArchive*> archive{nullptr};  // owned
};

ServerArchive& state() {
    static platform::NeverDestroyed<ServerArchive> instance;
    return instance.value;
}

}  // namespace

ZippedDataArchive* create_server_archive(void* memory, std::uint64_t capacity) {
    return guarded<ZippedDataArchive*>(nullptr, nullptr, [&] {
        if (ZippedDataArchive* const made = get_server_archive()) return made;
        const platform::LockGuard guard(state().making);
        if (ZippedDataArchive* const made = get_server_archive()) return made;
        auto archive = std::make_unique<ZippedDataArchive>();
        if (memory) archive->BindArchiveToMemory(memory, capacity);
        if (registry::add(std::make_unique<CMemZip_dir>(archive.get()), FFSAddSourceFlags::INDEX_NAMES))
            state().archive.store(archive.release(), std::memory_order_release);
        return get_server_archive();
    });
}

ZippedDataArchive* get_server_archive() { return state().archive.load(std::memory_order_acquire); }

void destroy_server_archive() { delete state().archive.exchange(nullptr); }

}  // namespace fs

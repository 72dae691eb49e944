#pragma once

#include <optional>
#include <string>

#include <engine/filesystem/containers/multi_container.h>
#include <engine/filesystem/contract/error.h>
#include <engine/kernel/multithreading.h>

#include "engine/filesystem/containers/container_file.h"
#include "engine/filesystem/containers/container_index.h"

/// What stands behind a multi-container. `lock` guards all the rest: fetching and listing hold it shared.
struct CFileHashMultiContainer::State {
    mutable mt::CSlimLock lock;
    std::string path;
    container::File file;
    container::Index index;
    container::Commit commit;
    bool changed = false;

    /// Reads commit record and index of the open file.
    bool Load();
    /// Writes what is new, the index, and last the commit record that makes both count.
    bool Save();
    /// Writes head and first, empty commit of a new file.
    bool Initialise();
    bool Fail(EFSError::TYPE code, const char* text) const;

    /// The container when it exists and its saved part is sound; else null, with the error set.
    const container::Container* FindSound(const char* name) const;
    std::optional<container::Entry> FindBlob(const char* name, std::uint32_t hash) const;
    /// Reads a blob into memory that holds entry.size bytes, and checks it.
    bool ReadBlob(const container::Entry& entry, unsigned char* out) const;
    bool CompactInto(container::File& target, container::Index& moved) const;
};

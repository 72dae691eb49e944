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
    /// Writes an index behind all else, and the commit record that makes it count.
    bool WriteIndex(container::IndexWriter& writer);
    void Close();
    /// Writes head and first, empty commit of a new file.
    bool Initialise();
    bool Fail(EFSError::TYPE code, const char* text) const;
    bool FailWithoutMemory() const;
    /// False, with the error set, unless the file is open for writing.
    bool IsWritable() const;

    /// The container when it exists and its saved part is sound; else null, with the error set.
    const container::Container* FindSound(const char* name) const;
    std::optional<container::Entry> FindBlob(const char* name, std::uint32_t hash) const;
    /// Adds a blob whose offset is not known yet, with its bytes as they are stored.
    bool Put(std::string_view name, std::uint32_t hash, container::Entry entry, const void* stored);
    /// Reads a blob into memory that holds entry.size bytes, and checks it.
    bool ReadBlob(const container::Entry& entry, unsigned char* out) const;

    /// Counts everything up. False, with the error set, when a container is damaged.
    bool CountLive(SMultiContainerStats& stats) const;
    /// Copies all blobs to the end of the target's file, and commits them there.
    bool MoveInto(State& target) const;
    bool CompactInPlace();
    /// By way of an open, empty file beside the native path.
    bool CompactInto(State& fresh, const std::string& native);
};

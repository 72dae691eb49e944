#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <engine/filesystem/containers/multi_container.h>
#include <engine/filesystem/contract/error.h>

#include "engine/filesystem/containers/container_file.h"
#include "engine/filesystem/containers/container_index.h"

namespace container {

/// An open multi-container. What fails answers false, nothing or null with the reason in last_error, or throws, and
/// leaves object and file as they were. Const operations run in any number of threads at once, the others alone.
class MultiFile {
public:
    static std::unique_ptr<MultiFile> Open(const char* path, bool writable);
    static std::unique_ptr<MultiFile> Create(const char* path);
    ~MultiFile();
    MultiFile(const MultiFile&) = delete;
    MultiFile& operator=(const MultiFile&) = delete;

    /// False, with the reason, unless the file is open for writing.
    bool CheckWritable() const;
    const Index& index() const { return index_; }
    /// The container when it exists and its saved part is sound.
    const Container* FindSound(std::string_view name) const;
    std::optional<Entry> FindBlob(std::string_view name, std::uint32_t hash) const;
    /// Reads a blob into memory that holds entry.size bytes, and checks it.
    bool ReadBlob(const Entry& entry, unsigned char* out) const;
    bool Count(SMultiContainerStats& stats) const;

    /// Adds a blob whose offset is not known yet, with its bytes as they are stored.
    bool Put(std::string_view name, std::uint32_t hash, Entry entry, const void* stored);
    bool Remove(std::string_view name, std::uint32_t hash);
    bool RemoveContainer(std::string_view name);
    /// Writes what is new, the index, and last the commit record that makes both count.
    bool Save();
    /// Hears how many of the bytes that are to be moved are moved; false stops the work.
    using Hear = std::function<bool(std::uint64_t done, std::uint64_t total)>;
    /// Saves, and writes the file anew without what was replaced or removed. After a failure the file may be closed, but
    /// only where the disk does not let it be opened again.
    bool Compact(const Hear& hear);
    bool IsOpen() const { return file_.IsOpen(); }

    bool Fail(EFSError::TYPE code, const char* text) const;

private:
    explicit MultiFile(const char* path) : path_(path) {}

    bool Load();
    bool ReadHead(std::optional<Commit>& newest) const;
    bool Empty();
    bool WriteRecord(const Commit& commit);
    /// All that there is; nothing when the saved part of a container is damaged. The names live as long as the index.
    std::optional<std::vector<Part>> Parts() const;
    bool Replace(const char* native, const char* partial, std::uint64_t new_end);

    const std::string path_;  // as the caller gave it
    File file_;
    Index index_;
    Commit commit_;
    bool is_changed_ = false;
    bool is_record_in_doubt_ = false;  // its writing failed, which the disk may have done all the same
};

}  // namespace container

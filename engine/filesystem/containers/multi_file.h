#pragma once

#include <cstdint>
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

    /// False, with the reason, unless the file is open for writing.
    bool IsWritable() const;
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

    bool Fail(EFSError::TYPE code, const char* text) const;

private:
    friend bool compact(std::unique_ptr<MultiFile>& file);

    /// Removes a file at the end, unless it has become what it was made for.
    class Remover {
    public:
        ~Remover();
        void operator=(std::string path) { path_ = std::move(path); }
        void Keep() { path_.clear(); }

    private:
        std::string path_;
    };

    explicit MultiFile(const char* path) : path_(path) {}

    static std::unique_ptr<MultiFile> OpenInPlace(const char* path);
    /// An empty container beside a file of the disk.
    static std::unique_ptr<MultiFile> CreateBeside(const char* path, const std::string& native);
    bool ReopenNative(std::uint64_t end);

    bool Load();
    bool ReadHead(unsigned char* head, std::optional<Commit>& newest) const;
    bool Empty();
    bool MoveInto(MultiFile& target) const;
    std::optional<std::vector<Part>> Parts() const;
    /// Writes an index behind all else, and the commit record that makes it count. The bytes; null when that fails.
    IndexBytes WriteIndex(const std::vector<Part>& parts);

    std::string path_;    // as the caller gave it
    std::string native_;  // of a writable file of the disk, else ""
    Remover partial_;     // the file that is not in its place yet; goes after file_ was closed
    File file_;
    Index index_;
    Commit commit_;
    bool is_changed_ = false;
};

/// Saves, and writes the file anew without what was replaced or removed. `file` becomes null, and its object closed, only
/// where the disk does not let the file be opened again.
bool compact(std::unique_ptr<MultiFile>& file);

}  // namespace container

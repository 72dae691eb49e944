#pragma once

#include <cstdint>
#include <memory>

#include <engine/filesystem/api.h>
#include <engine/filesystem/contract/read_only_source.h>
#include <engine/filesystem/contract/whole_names.h>
#include <engine/kernel/ztl.h>

namespace fs {

/// Named blobs, each a zlib stream that the caller compressed, packed without gaps into one block of the caller's
/// memory. Names are compared in lower case.
///
/// Ignored names are reported missing by GetEntry, ReadEntryAsZippedData and EntryExists, though they may be held.
/// Owns     nothing of the memory, which must outlive the binding.
/// Failure  what binds, adds, gets, reads or removes and answers false leaves the reason in fs::last_error.
/// Threads  every operation takes the archive's lock.
class ENGINE_FS_API ZippedDataArchive {
public:
    ZippedDataArchive();
    ~ZippedDataArchive();
    ZippedDataArchive(const ZippedDataArchive&) = delete;
    ZippedDataArchive& operator=(const ZippedDataArchive&) = delete;

    /// False when `memory` is null or some is bound already.
    bool BindArchiveToMemory(void* memory, std::uint64_t capacity);
    /// Forgets every entry and the memory; what was used of it stays counted. False when none was bound.
    bool UnbindArchiveFromMemory();
    bool IsMemoryBound();
    /// Forgets every entry. What was used of the memory stays counted, so new entries go behind the old ones.
    void ResetEntryMap();

    /// Copies `size` bytes in. False when the name is held already (and is not ignored), or when they would fill the
    /// memory to its last byte.
    bool AddEntry(const char* name, const void* data, std::uint64_t size, std::uint64_t unzipped_length);
    /// The stored bytes, valid until an entry is removed or the memory is unbound. False when the name is missing.
    bool GetEntry(const char* name, const void** data, std::uint64_t* size);
    /// As AddEntry was told; 0 when the name is missing.
    std::uint64_t GetEntryUnzippedLength(const char* name);
    /// Decompresses the entry into `buffer`. False when it is missing, damaged, or longer than `capacity`.
    bool ReadEntryAsZippedData(const char* name, void* buffer, std::uint64_t capacity, std::uint32_t* length);
    /// Takes the entry out and closes the gap. False when the name is not held.
    bool RemoveEntry(const char* name);
    bool EntryExists(const char* name);
    /// The names held, in the order in which they were added. Replaces `names`.
    void GetAllFilenames(ztl::list<fs::string>& names);

    void AddIgnoredFile(const char* name);
    void RemoveIgnoredFile(const char* name);
    bool IsIgnoredFile(const char* name);

private:
    friend class CMemZip_dir;  // which looks an entry up and decompresses it under one lock
    struct State;
    std::unique_ptr<State> state_;
};

/// Shows an archive's entries, decompressed, as files that can be read. They are found by file name alone; the
/// directory that is asked for plays no part.
///
/// Owns     not the archive, which must outlive the source. Open files hold copies of their own.
class ENGINE_FS_API CMemZip_dir : public ReadOnlySource, public WholeNames {
public:
    explicit CMemZip_dir(ZippedDataArchive* archive = nullptr, EFSSourceType::TYPE type = EFSSourceType::PLS);
    ~CMemZip_dir() override;

    /// True; the source keeps the path and the flags that it was made with, which are none.
    bool init(const fs::path& root, FFSAddSourceFlags::ENUM flags, fs::dir_listing* listing) override;
    EFSSourceType::TYPE type() override;
    bool exists(const fs::path& p) override;
    /// As exists, for a name without a directory: an archive has none.
    bool exists_whole(const fs::path& p) override;
    void full_path(fs::path& out, const fs::path& p) override;  // the path itself
    void root_path(fs::path& out, const fs::path& p) override;  // always empty
    /// Null when the name is missing, and, with BAD_FORMAT in fs::last_error and a message in the log, when the entry is
    /// damaged or longer than its recorded length; one that is shorter ends in zeros.
    SFsFile* open_read(const fs::path& p, FFSOpenFlags::FLAGS flags) override;

private:
    ZippedDataArchive* archive_;
    EFSSourceType::TYPE type_;
};

/// The process's server archive, made at the first call over `memory` (null: none yet) and mounted ahead of every other
/// source; later calls return the same one and ignore their arguments. fs::shutdown destroys it.
///
/// Threads  any; takes the registry lock exclusive.
ENGINE_FS_API ZippedDataArchive* create_server_archive(void* memory, std::uint64_t capacity);
/// The server archive, or null.
ENGINE_FS_API ZippedDataArchive* get_server_archive();

}  // namespace fs

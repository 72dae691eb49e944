#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include <engine/filesystem/api.h>
#include <engine/kernel/ztl.h>

/// One blob of a container, as ListBlobs tells of it.
struct SBlobInfo {
    std::uint32_t hash = 0;
    std::uint64_t size = 0;         // bytes of the blob
    std::uint64_t stored_size = 0;  // bytes that it takes in the file
    bool deflated = false;
};

/// What a multi-container file is made of.
struct SMultiContainerStats {
    std::uint64_t containers = 0;
    std::uint64_t blobs = 0;
    std::uint64_t live_bytes = 0;    // stored bytes of the blobs that can be fetched
    std::uint64_t wasted_bytes = 0;  // bytes of the file that Compact would give back
};

/// One file that holds many named containers, each a map from a 32-bit hash to a blob. The format is described in
/// docs/formats.md.
///
/// Path     virtual: the file lives in any source; what changes it needs a writable one.
/// State    changes are seen at once by this object and reach others with Save. A file that was being saved when the
///          process or the machine stopped opens as it was before or after that save, never between.
/// Failure  false (see fs::last_error); the object and the saved file stay as they were.
/// Limits   a blob up to 4 GiB - 1, a name up to 65,535 bytes, the file as large as the disk allows.
/// Threads  any number may fetch and list at once; a change waits for them and they for it.
class ENGINE_FS_API CFileHashMultiContainer {
public:
    CFileHashMultiContainer();
    CFileHashMultiContainer(const CFileHashMultiContainer&) = delete;
    CFileHashMultiContainer& operator=(const CFileHashMultiContainer&) = delete;
    ~CFileHashMultiContainer();  // closes; what was not saved is lost

    /// Opens an existing file, and never makes one; closes what was open, whatever comes of it. Reads the index, not the
    /// blobs. What is open stays what it is when its name comes to mean another file.
    bool Open(const char* path, bool writable);
    /// Makes an empty file, in place of one that is there, and opens it for writing.
    bool Create(const char* path);
    void Close();
    bool IsOpen() const;

    /// Adds a blob or replaces the one of this hash; makes the container when it is missing. `deflate` stores it
    /// compressed where that is smaller.
    bool Put(const char* container, std::uint32_t hash, const void* data, std::uint64_t size, bool deflate = false);
    /// Takes a blob away. False when there is none.
    bool Remove(const char* container, std::uint32_t hash);
    /// Takes a container with all its blobs away. False when there is none.
    bool RemoveContainer(const char* container);

    bool Exists(const char* container, std::uint32_t hash) const;
    /// Size of a blob in bytes. False when there is none.
    bool GetSize(const char* container, std::uint32_t hash, std::uint64_t& size) const;
    /// Reads a blob and holds it against its checksum. Replaces `out`.
    bool Fetch(const char* container, std::uint32_t hash, ztl::vector<unsigned char>& out) const;
    /// The same into the caller's memory; false when `capacity` is too small (`size` then says what is needed).
    bool Fetch(const char* container, std::uint32_t hash, void* buffer, std::uint64_t capacity,
               std::uint64_t& size) const;

    /// Names of all containers, sorted. Replaces `out`.
    void ListContainers(ztl::vector<fs::string>& out) const;
    /// The blobs of a container by ascending hash. Replaces `out`. False when there is no such container.
    bool ListBlobs(const char* container, ztl::vector<SBlobInfo>& out) const;
    bool GetStats(SMultiContainerStats& stats) const;

    /// Makes all changes permanent at once. Nothing to do (true) without changes.
    bool Save();
    /// Saves, and writes the file anew without what was replaced or removed. Needs a source over the disk (else
    /// UNSUPPORTED). The old file stays until the new one is whole. Closed after a failure only where the disk does not let
    /// the file be opened again.
    bool Compact();
    /// The same. `progress` hears, on this thread, how many bytes of `total` were moved, at last all; where it answers false
    /// the file stays as it was saved (CANCELLED). It must not use the object.
    bool Compact(bool (*progress)(std::uint64_t done, std::uint64_t total, void* user), void* user);
    /// Checks the structure's bounds and every blob's checksum. Appends a line for everything that is wrong; true when
    /// nothing is.
    bool Verify(ztl::vector<fs::string>& report) const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

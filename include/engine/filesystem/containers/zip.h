#pragma once

#include <engine/filesystem/api.h>
#include <engine/kernel/ztl.h>

// New zip files from buffers in memory, written where fs::open creates the virtual path. For packs made by tools there
// is fs::pack_writer.
//
// Failure  the reason is in fs::last_error. A failed add leaves the archive open and every earlier entry safe.
// Threads  any for different archives; one at a time for one.

namespace MiniZ {

/// Creates (or empties) the file and starts an archive in it. Null when it cannot be created.
ENGINE_FS_API void* ZipCreate(const char* path);
/// Adds an entry, deflated at level 6, with the present time and the name as it stands. False, with the archive as it
/// was, when handle, name or data are null, name or data empty, or the writer refuses.
ENGINE_FS_API bool ZipAddData(void* handle, const char* name, const void* data, unsigned int size);
/// Writes the directory and closes the file; when that fails, fs::last_error says why, and the file is no zip file.
/// Nothing happens for null and for a handle that was closed before.
ENGINE_FS_API void ZipClose(void* handle);

/// Holds one such handle and closes it at its end. A copy refers to the same archive, which is closed once.
class ENGINE_FS_API Archive {
public:
    Archive();
    explicit Archive(const char* path);
    Archive(const Archive& other);
    Archive& operator=(const Archive& other);
    ~Archive();

    /// Closes the archive that is open, if any, and creates another.
    bool Create(const char* path);
    bool AddData(const char* name, const void* data, unsigned int size);
    bool AddData(const char* name, const ztl::string_base<char>& text);

private:
    void* handle_ = nullptr;
};

}  // namespace MiniZ

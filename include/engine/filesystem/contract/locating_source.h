#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include <engine/filesystem/contract/file.h>
#include <engine/filesystem/contract/flags.h>
#include <engine/filesystem/contract/path.h>

namespace fs {

/// What a source over the disk can do beyond the operations that every source has: find a file under the registry's lock and
/// open it without, so that a slow disk keeps nobody else from asking for names. A source class derives from it besides
/// CFSSource; who needs it asks with dynamic_cast, and calls it instead of open_read.
class LocatingSource {
public:
    /// What a source needs to know to open a file that it found, whatever becomes of its tables meanwhile. Only the source
    /// itself fills and reads it.
    struct Located {
        std::shared_ptr<const void> root;  // what is to be kept until the file is open
        std::size_t root_length = 0;       // how much of `path` is the root
        char path[path_capacity];
    };
    enum class Answer : std::uint8_t {
        NOT_HELD,   // open_read would answer null without asking the disk; fs::last_error is as open_read leaves it
        LOCATED,    // open_located opens it
        OPEN_READ,  // to be opened by open_read, under the lock
    };

    /// The first half of open_read.
    /// Threads  called under the registry's lock, held shared at least.
    virtual Answer locate(const fs::path& p, FFSOpenFlags::FLAGS flags, Located& out) = 0;
    /// The second half: opens what the same question located, and answers as open_read would have.
    /// Threads  called without the registry's lock, on the thread that called locate. The source is not destroyed before
    ///          it returns; its tables may have changed.
    virtual SFsFile* open_located(const fs::path& p, FFSOpenFlags::FLAGS flags, const Located& found) = 0;

protected:
    ~LocatingSource() = default;
};

}  // namespace fs

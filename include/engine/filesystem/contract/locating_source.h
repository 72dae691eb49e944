#pragma once

#include <functional>

#include <engine/filesystem/contract/file.h>
#include <engine/filesystem/contract/flags.h>
#include <engine/filesystem/contract/path.h>

namespace fs {

/// What a source over the disk can do beyond the operations that every source has: find a file under the registry's lock and
/// open it without, so that a slow disk keeps nobody else from asking for names. A source class derives from it besides
/// CFSSource; who needs it asks with dynamic_cast, and calls it instead of open_read.
class LocatingSource {
public:
    /// Opens what was found, once, and answers as open_read would have. It owns all that it needs but the source itself,
    /// which is not destroyed before: the tables may change meanwhile.
    /// Threads  called without the registry's lock, on the thread that called locate.
    using Opening = std::function<SFsFile*()>;

    /// The first half of open_read. Empty where open_read would answer null without asking the disk; fs::last_error then is
    /// as open_read leaves it.
    /// Threads  called under the registry's lock, held shared at least.
    virtual Opening locate(const fs::path& p, FFSOpenFlags::FLAGS flags) = 0;

protected:
    ~LocatingSource() = default;
};

}  // namespace fs

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include <engine/filesystem/contract/path.h>

namespace fs {

/// What a source over the disk can do beyond the operations that every source has. A source class derives from it
/// besides CFSSource; who needs it asks with dynamic_cast.
class NativeSource {
public:
    /// Renames a file that the source holds, making the directories of `to`; its table and tree follow. `from` is
    /// lower-cased, `to` keeps the caller's case. False, with fs::last_error set, when the disk or the names refuse.
    /// Threads  called under the registry's exclusive lock.
    virtual bool rename_file(const fs::path& from, const fs::path& to) = 0;

    /// Where the disk holds, or would hold, a file of this name: the native full path. False when it does not fit into
    /// `capacity` bytes.
    virtual bool native_path(const fs::path& p, char* out, std::size_t capacity) = 0;

    /// Takes up a new file that `place` puts on the disk under this name, which keeps the caller's case. False, with the
    /// names as they were, when `place` answers false or there is no memory, and then it is not called.
    /// Threads  called under the registry's exclusive lock.
    virtual bool add_file(const fs::path& /*p*/, const std::function<bool()>& place) { return place(); }

    /// How many directories the latest mount or refresh could not list, so that names may be missing.
    virtual std::uint32_t unlisted_directories() { return 0; }

protected:
    ~NativeSource() = default;
};

}  // namespace fs

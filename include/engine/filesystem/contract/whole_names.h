#pragma once

#include <engine/filesystem/contract/path.h>

namespace fs {

/// What a source that matches names by their end can do beyond the operations that every source has: tell whether it
/// holds a file of just this name. A source class derives from it besides CFSSource; who needs it asks with
/// dynamic_cast. Opens of such a source heed FFSOpenFlags::WHOLE_NAME, and its changing operations (rem_file,
/// set_write_time, set_read_only) take the file of just this name where there is one.
class WholeNames {
public:
    /// `p` is in normal form and lower case; a full path below the source's root names what lies there.
    /// Threads  called under the registry's lock, held shared at least.
    virtual bool exists_whole(const fs::path& p) = 0;

protected:
    ~WholeNames() = default;
};

}  // namespace fs

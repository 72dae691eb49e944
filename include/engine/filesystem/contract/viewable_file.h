#pragma once

#include <cstdint>

namespace fs {

/// What an open file can do whose bytes can be looked at where they are. A file class derives from it besides SFsFile; who
/// needs it asks with dynamic_cast.
class ViewableFile {
public:
    /// All bytes of the file, which stay until it is closed, and their number; with `populate` they are in memory when this
    /// returns. Null when that is not possible for this file, or not now; with the reason in fs::last_error when something
    /// failed.
    /// Threads  one at a time, as the file.
    virtual const void* view(std::uint64_t& size, bool populate) = 0;

protected:
    ~ViewableFile() = default;
};

}  // namespace fs

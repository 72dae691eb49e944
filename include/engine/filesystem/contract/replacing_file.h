#pragma once

#include <functional>

namespace fs {

/// What an open file can do that is written beside its target (FFSOpenFlags::REPLACE). A file class derives from it besides
/// SFsFile; who needs it asks with dynamic_cast. Destroying the file commits, unless one of the two was called.
class ReplacingFile {
public:
    /// Puts the file in the place of its target. False, with fs::last_error set and the target as it was, when that or a
    /// write before it failed.
    virtual bool commit() = 0;
    /// Leaves the target as it is.
    virtual void discard() = 0;
    /// `enter` has the file renamed by calling `place`, once what it needs for its own part is there, and answers what that
    /// answered. It throws nothing, and is called once by commit; without it the file is just renamed.
    using Place = std::function<bool()>;
    virtual void on_commit(std::function<bool(const Place& place)> enter) = 0;

protected:
    ~ReplacingFile() = default;
};

}  // namespace fs

#pragma once

#include "engine/platform/posix/spelling/spelling.h"

namespace platform {

/// The moment in which a new name enters a directory. One at a time in the process: two threads that create "Name" and
/// "name" would otherwise both find neither, and make two files where callers know one.
class Creation {
public:
    /// Waits for its turn and looks the path up; no trailing slash, not too long.
    explicit Creation(const char* path);
    ~Creation();
    Creation(const Creation&) = delete;
    Creation& operator=(const Creation&) = delete;

    /// NEW: the directory is there and holds no spelling of the name.
    Spelling spelling() const { return spelling_; }
    /// The path as the disk spells it; a new name in the caller's case.
    const char* path() const { return path_; }
    /// Whether Windows, too, could hold the name. Records the failure.
    bool check_name() const;
    /// To be called once the name is there. Answers true.
    bool done() const;

private:
    bool is_gone() const;

    char path_[path_buffer_size];
    DirectoryStamp directory_;
    Spelling spelling_ = Spelling::MISSING;
};

}  // namespace platform

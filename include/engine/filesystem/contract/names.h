#pragma once

#include <cstddef>
#include <memory>

#include <engine/filesystem/api.h>

/// One name of a search result. Name and node are blocks of the C allocator; the caller owns the whole list.
struct FS_NAME {
    char* name;
    FS_NAME* next;
};

namespace fs {

/// Frees a whole list; null is an empty one.
ENGINE_FS_API void free_names(FS_NAME* names);

/// Gets each hit of a search while it runs, under the registry's shared lock: it may read its arguments and call
/// nothing of fs::.
using search_callback = void (*)(const char* dir, const char* name);

/// A directory of the name index, to read. It ends with fs::rem_source, fs::refresh, fs::shutdown, and with an
/// fs::rem_dir of it or of one above it.
class idir {
public:
    virtual const char* name() const = 0;
    virtual const idir* parent() const = 0;
    virtual const idir* first_child() const = 0;
    virtual const idir* next_sibling() const = 0;

protected:
    ~idir() = default;
};

/// A directory of a source's tree, to build: a caller's own source fills one and answers it from dir_tree().
///
/// Owns     a node owns its children.
/// Threads  changed by one thread while no other reads.
class ENGINE_FS_API dir final : public idir {
public:
    dir();
    ~dir();
    dir(const dir&) = delete;
    dir& operator=(const dir&) = delete;

    const char* name() const override;  // "" when none was set
    const idir* parent() const override;
    const idir* first_child() const override;
    const idir* next_sibling() const override;

    /// Null is "".
    void set_name(const char* name);
    /// Makes every directory of `path` that is missing below this one and returns the last; this one for an empty path.
    /// Null without memory; what was made of the path by then stays.
    dir* add_path(const char* path);
    /// The directory at `path` below this one; this one for an empty path; null when there is none.
    dir* find(const char* path);
    /// Destroys all children; the name stays.
    void clear();
    /// Adds every directory below `other` that is missing here; the names of the two roots take no part. False, with
    /// nothing changed, when there is no memory.
    bool merge(const dir& other);
    /// Moves every directory below `other`, the root of another tree, that is missing here, and empties `other`. A tree
    /// without a name takes that of `other`. Allocates nothing that it needs.
    void take_over(dir& other);
    /// Destroys the child directory at `path` with everything below it.
    void remove(const char* path);
    /// A child of exactly this name, made when it is missing.
    dir* add_child(const char* name, std::size_t length);

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace fs

/// Logs the tree below `dir`, one line a directory, indented by `depth`.
ENGINE_FS_API void DumpDirectories(const fs::idir* dir, int depth);

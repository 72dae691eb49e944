#pragma once

namespace fs {

// The objects of the cache service's module: tables of operations in a fixed order, destroyed by the first of them. Their
// classes live in the module, so these stand in a header: of a class that only one file knows the compiler assumes that
// nobody implements it, and calls nothing.

class ICacheServiceItems {
public:
    virtual void release() = 0;
    virtual void next() = 0;
    virtual bool valid() = 0;
    virtual void unused() = 0;
    virtual const char* item_name() = 0;  // relative to the mount point

protected:
    ~ICacheServiceItems() = default;
};

class ICacheServiceMountPoint {
public:
    virtual void release() = 0;
    virtual ICacheServiceItems* enumerate() = 0;

protected:
    ~ICacheServiceMountPoint() = default;
};

struct DirectoryState;
struct MountedNames;

/// Fills the table from the cache service in a companion module. False, with nothing entered, when it does not serve this
/// mount. May throw std::bad_alloc.
bool fill_from_cache_service(const DirectoryState& state, MountedNames& to, const char* module = "FileSystemCache_x64");

}  // namespace fs

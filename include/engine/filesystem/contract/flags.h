#pragma once

#include <cstdint>
#include <type_traits>

/// How a file is opened. Any other value is refused: the open yields no handle.
struct EFSMode {
    enum TYPE : std::uint32_t {
        READ = 0,        // an existing file
        WRITE = 1,       // truncated; created with FFSOpenFlags::CREATE
        APPEND = 2,      // positioned at the end; takes no gzip flag
        READ_WRITE = 3,  // takes no gzip-write flag; not CREATE and GZIP together
    };
};

/// Where a seek counts from.
struct EFSSeek {
    enum TYPE : std::uint32_t { BEGIN = 0, CURRENT = 1, END = 2 };
};

/// Bits that travel with an open.
struct FFSOpenFlags {
    enum FLAGS : std::uint32_t {
        NONE = 0,
        IN_CACHE_DIR = 0x001,      // the path is relative to fs::get_cache_dir()
        WRITE_THROUGH = 0x002,     // writes reach the disk before they return
        GZIP_LEVEL5 = 0x004,       // WRITE only: the file is written as a gzip stream
        GZIP_LEVEL9 = 0x008,       // WRITE only, level 9
        GZIP = 0x010,              // READ only: decoded by a gzip reader (plain files are passed through)
        CREATE = 0x020,            // WRITE and READ_WRITE: create always
        ASYNC = 0x040,             // READ only: a handle that serves read_async
        ASYNC_UNBUFFERED = 0x080,  // as ASYNC, past the system's cache
        THROUGH_VFS = 0x100,       // fs::open_native in READ mode opens through fs::open instead
        GZIP_LEVEL1 = 0x200,       // WRITE only, level 1; tested before level 5, which is tested before level 9
        REPLACE = 0x400,           // WRITE only: the old file stays until the new one is closed (see fs::commit)
        WHOLE_NAME = 0x800,        // the name is taken as a whole, never by its end
        SEEKABLE = 0x1000,         // a stored entry of a pack is read at the position asked for
    };
};

/// Bits given to fs::init and fs::add_source.
struct FFSAddSourceFlags {
    enum ENUM : std::uint32_t {
        NONE = 0,
        RECURSIVE = 0x01,           // subdirectories too
        AFTER_SAME_TYPE = 0x02,     // asked after, not before, the sources of its own type
        MOUNT_PARENT = 0x04,        // the last component of the directory leads every name
        INDEX_NAMES = 0x08,         // its directories are merged into the global name index
        ALLOW_DUPLICATE = 0x10,     // no check for a source of the same path
        PACK_IN_MEMORY = 0x20,      // a pack is read whole when mounted
        SKIP_LISTING_CACHE = 0x40,  // neither replays nor records a listing
        PROTECTED = 0x80,           // not writable, and shields the names that it holds
        MUST_EXIST = 0x100,         // the directory must exist; not writable
        EXACT_SEEKS = 0x200,        // a pack's stored entries are read at the position asked for
        BEFORE_PACKS = 0x400,       // a directory is asked before every pack, and behind memory archives
        WRITE_HERE = 0x800,  // what nobody holds is created here, not in the first source; the newest such counts
    };
};

/// Kind of a source, in the order in which the kinds are asked.
struct EFSSourceType {
    enum TYPE : std::uint32_t { PLS = 0, PACK = 1, SPECIAL = 2, DIR = 3 };
};

/// The sets of bits above: their values can be joined, cut and turned over.
template <typename Bits>
concept FFSBits = std::is_same_v<Bits, FFSOpenFlags::FLAGS> || std::is_same_v<Bits, FFSAddSourceFlags::ENUM>;

template <FFSBits Bits>
constexpr Bits operator|(Bits a, Bits b) {
    return static_cast<Bits>(static_cast<std::uint32_t>(a) | static_cast<std::uint32_t>(b));
}
template <FFSBits Bits>
constexpr Bits operator&(Bits a, Bits b) {
    return static_cast<Bits>(static_cast<std::uint32_t>(a) & static_cast<std::uint32_t>(b));
}
template <FFSBits Bits>
constexpr Bits operator~(Bits a) {
    return static_cast<Bits>(~static_cast<std::uint32_t>(a));
}
template <FFSBits Bits>
constexpr Bits& operator|=(Bits& a, Bits b) {
    return a = a | b;
}
template <FFSBits Bits>
constexpr Bits& operator&=(Bits& a, Bits b) {
    return a = a & b;
}

#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <string>

#include <engine/filesystem/access/open.h>

#include "engine/filesystem/contract/error.h"
#include "engine/filesystem/contract/file.h"
#include "engine/filesystem/contract/name_list.h"
#include "engine/filesystem/contract/path.h"
#include "engine/filesystem/registry/holders.h"

// What the files of this room share. All of it throws std::bad_alloc for want of memory; exported functions guard.

namespace fs {

/// The path itself, or behind the cache directory when IN_CACHE_DIR asks for that. Null is "".
std::string with_cache_directory(const char* path, FFSOpenFlags::FLAGS flags);

using registry::match_of;  // of the flags of an open

/// What `use(source, name)`, or a question of the source itself, answers for the first source that holds `path`;
/// `missing`, with the failure stored, when none does. Runs under the registry's lock, taken as `Guard` does.
template <typename Guard = registry::SharedGuard, typename Result, typename Use>
Result with_holder(const char* path, registry::Match match, Result missing, Use use) {
    return guarded(path, missing, [&] {
        const fs::path name = lookup_name(path);
        const Guard guard;
        CFSSource* const holder = registry::first_holder(name, match);
        if (holder != nullptr) return std::invoke(use, *holder, name);
        set_error(EFSError::NOT_FOUND, path, "No source holds a file of this name.");
        return missing;
    });
}

/// The source that makes what `name` (a file, or a directory alone) stands for, and the name that it is given:
/// registry::creator, for a full path the source in whose directory it lies, and the fallback for what belongs to the disk
/// alone. Null when there is none.
CFSSource* creator_of(const registry::Concerned& concerned, fs::path& name);
/// Whether `creator` (null: nobody) takes new names; otherwise the failure is stored.
bool may_create(CFSSource* creator, const char* path);
/// Makes a directory of the disk, `native`, which ends in "/", with those above it. False, with the failure stored, when
/// that cannot be done.
bool make_native_directory(std::string native, const char* path);

inline constexpr std::uint64_t no_length = ~std::uint64_t{0};
/// The file's length; no_length, with the failure stored, when it does not tell.
std::uint64_t known_length(SFsFile& file, const char* path);

/// What `use(file, length)` answers for the file of this name, opened for reading; `failure`, with the failure stored,
/// when it cannot be opened or does not tell its length.
template <typename Result, typename Use>
Result with_content(const char* path, Result failure, Use use, FFSOpenFlags::FLAGS flags = FFSOpenFlags::NONE) {
    return guarded(path, failure, [&] {
        const FilePtr file(open(path, EFSMode::READ, flags));
        const std::uint64_t length = file ? known_length(*file, path) : no_length;
        return length != no_length ? use(*file, length) : failure;
    });
}

/// Reads `size` bytes; what does not come is filled with zeros.
void read_filled(SFsFile& file, void* buffer, std::uint64_t size);
/// Reads all of it, or stores the failure and answers false.
bool read_checked(SFsFile& file, const char* path, void* buffer, std::uint64_t size);

struct FreeBlock {
    void operator()(void* block) const { std::free(block); }
};
/// A block of the C allocator, of one byte when `size` is 0.
std::unique_ptr<void, FreeBlock> allocate(std::uint64_t size);

/// A buffer that pieces of files pass through. It begins at a page, since the system copies whole pages into and out of
/// its cache fastest that way.
class PieceBuffer {
public:
    explicit PieceBuffer(std::uint64_t size) : data_(::operator new(static_cast<std::size_t>(size), page)) {}
    PieceBuffer(const PieceBuffer&) = delete;
    PieceBuffer& operator=(const PieceBuffer&) = delete;
    ~PieceBuffer() { ::operator delete(data_, page); }

    void* data() const { return data_; }

private:
    static constexpr std::align_val_t page{4096};
    void* data_;
};

/// Copies all of `from`, by its length, into what `open_target()` gives, in pieces of `buffer_size` bytes (0: 32768).
/// The first piece is read before the target is opened, so that a source that cannot be read costs no target.
template <typename OpenTarget>
bool copy_content(SFsFile& from, std::uint32_t buffer_size, const char* path, OpenTarget open_target) {
    constexpr std::uint32_t default_buffer_size = 32768;
    const std::uint64_t length = known_length(from, path);
    if (length == no_length) return false;
    const std::uint64_t piece = std::min<std::uint64_t>(buffer_size != 0 ? buffer_size : default_buffer_size, length);
    const PieceBuffer buffer(piece);
    std::uint64_t size = piece;
    if (size != 0 && !read_checked(from, path, buffer.data(), size)) return false;
    FilePtr to(open_target());
    if (!to) return false;
    for (std::uint64_t left = length; left != 0;) {
        if (!write_all(*to, path, buffer.data(), size)) return false;
        left -= size;
        size = std::min(piece, left);
        if (size != 0 && !read_checked(from, path, buffer.data(), size)) return false;
    }
    return commit(to.release());  // a file may keep bytes back until it is closed
}

/// Sorts a list by the bytes of its names; of each name the first entry stays.
NameList sorted(NameList names);

/// Notes a name that was opened for reading, once, when fs::record_access is on. Costs one relaxed load when it is off.
void note_access(const fs::path& name);

}  // namespace fs

#pragma once

#include <cstdint>
#include <memory>

#include <engine/filesystem/contract/file.h>
#include <engine/filesystem/contract/flags.h>

// What the library's own code does with open files and with the flags of opens.

namespace fs {

struct CloseFile {
    void operator()(SFsFile* file) const { close(file); }
};
/// An open file that is closed at the end.
using FilePtr = std::unique_ptr<SFsFile, CloseFile>;

/// Writes every byte, in as many calls as the file wants. False with a reason in last_error, the file's own where it
/// gave one, else one that tells of `path`: a file that takes a part and then nothing lies on a full disk.
bool write_all(SFsFile& file, const char* path, const void* data, std::uint64_t size);

/// Whether any of `bits` is set.
template <typename Flags>
constexpr bool has_any(Flags flags, Flags bits) {
    return (flags & bits) != 0;
}

/// Whether there is such a mode, and mode and flags go together at all.
constexpr bool is_valid_open(EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) {
    constexpr auto writes_anew =
        FFSOpenFlags::GZIP_LEVEL1 | FFSOpenFlags::GZIP_LEVEL5 | FFSOpenFlags::GZIP_LEVEL9 | FFSOpenFlags::REPLACE;
    if (mode == EFSMode::APPEND) return !has_any(flags, writes_anew | FFSOpenFlags::GZIP);
    if (mode != EFSMode::READ_WRITE) return mode < EFSMode::READ_WRITE;
    return !has_any(flags, writes_anew) &&
           !(has_any(flags, FFSOpenFlags::CREATE) && has_any(flags, FFSOpenFlags::GZIP));
}

}  // namespace fs

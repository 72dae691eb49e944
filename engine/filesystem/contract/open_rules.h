#pragma once

#include <engine/filesystem/contract/flags.h>

namespace fs {

/// Whether any of `bits` is set.
template <typename Flags>
constexpr bool has_any(Flags flags, Flags bits) {
    return (flags & bits) != 0;
}

/// Any of these takes an append or read-write open out of question.
inline constexpr FFSOpenFlags::FLAGS gzip_write_flags =
    FFSOpenFlags::GZIP_LEVEL1 | FFSOpenFlags::GZIP_LEVEL5 | FFSOpenFlags::GZIP_LEVEL9;

/// Whether there is such a mode, and mode and flags go together at all.
constexpr bool is_valid_open(EFSMode::TYPE mode, FFSOpenFlags::FLAGS flags) {
    if (mode > EFSMode::READ_WRITE) return false;
    if (mode != EFSMode::APPEND && mode != EFSMode::READ_WRITE) return true;
    if (has_any(flags, gzip_write_flags | FFSOpenFlags::REPLACE)) return false;
    return mode == EFSMode::APPEND || !has_any(flags, FFSOpenFlags::CREATE) || !has_any(flags, FFSOpenFlags::GZIP);
}

}  // namespace fs

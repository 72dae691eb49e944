#pragma once

#include <cstdint>

#include "engine/filesystem/contract/set_error.h"

namespace fs {

inline constexpr std::uint64_t failed_size = UINT64_MAX;

/// Stores the thread's failure. All bits set.
inline std::uint64_t fail(EFSError::TYPE code, const char* text, const char* path = "") {
    set_error(code, path, text);
    return failed_size;
}
inline std::uint64_t not_open() { return fail(EFSError::INVALID_ARGUMENT, "The stream is not open."); }

}  // namespace fs

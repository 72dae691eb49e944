#pragma once

#include <cstdint>

#include <engine/filesystem/contract/file.h>

namespace fs {

/// Copies what is left of `from`, by its length, to `to` in pieces of `buffer_size` bytes. False, with the failure
/// stored, at the first short read or write. `path` is for the failure's account.
bool copy_content(SFsFile& from, SFsFile& to, std::uint32_t buffer_size, const char* path);

}  // namespace fs

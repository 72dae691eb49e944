#pragma once

#include <cstdint>

#include <engine/filesystem/contract/file.h>

namespace fs {

/// Writes every byte, in as many calls as the file wants. False with a reason in last_error, the file's own where it
/// gave one, else one that tells of `path`: a file that takes a part and then nothing lies on a full disk.
bool write_all(SFsFile& file, const char* path, const void* data, std::uint64_t size);

}  // namespace fs

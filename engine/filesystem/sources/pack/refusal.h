#pragma once

#include <cstdint>

namespace fs {

class PackStore;

// Why a file is not taken as a pack, put into words for fs::last_error. Each answers false but has_comment.

bool refuse_short_pack(const char* path, std::uint64_t length);
bool refuse_long_names(const char* path);
/// Entry `index` of `count` could not be read where the last 22 bytes say it is; looks at the file for the reason.
bool refuse_pack(const PackStore& store, const char* path, std::uint32_t index, std::uint32_t count);

/// Whether the file is a zip file with a comment. Its last 22 bytes may then count no entries, by chance.
bool has_comment(const PackStore& store);
bool refuse_comment(const char* path);

}  // namespace fs

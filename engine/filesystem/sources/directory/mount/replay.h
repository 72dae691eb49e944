#pragma once

#include "engine/filesystem/sources/directory/mount/state.h"

namespace fs {

class dir_listing;

enum class Checking : std::uint8_t { STORED, NONE };  // which listings are checked against the disk

/// Fills table and tree from a recorded listing. False when the listing is damaged, or when it is checked and a directory
/// no longer has the times that were recorded of it; what was filled is then to be thrown away. May throw std::bad_alloc.
[[nodiscard]] bool replay_listing(const DirectoryState& state, MountedNames& to, const dir_listing& listing,
                                  Checking checking = Checking::STORED);

}  // namespace fs

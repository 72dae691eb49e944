#pragma once

#include <engine/filesystem/contract/names.h>

namespace fs {

/// Sorts a list by the bytes of its names and frees all but one entry of each name. Returns its new head.
FS_NAME* sort_names(FS_NAME* names);

/// Merges two sorted lists; of names in both the entry of `first` stays. Returns the head of the whole.
FS_NAME* merge_names(FS_NAME* first, FS_NAME* second);

}  // namespace fs

#pragma once

#include <engine/filesystem/contract/flags.h>

#include "engine/filesystem/contract/file.h"
#include "engine/filesystem/registry/registry.h"

namespace fs {

/// fs::open for reading, with a pin on the source that opened the file. Null with the failure stored; throws
/// std::bad_alloc.
FilePtr open_pinned(const char* path, FFSOpenFlags::FLAGS flags, registry::Pin& pin);

}  // namespace fs

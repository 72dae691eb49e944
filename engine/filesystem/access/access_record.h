#pragma once

#include <engine/filesystem/contract/path.h>

namespace fs {

/// Notes a name that was opened for reading, once, when fs::record_access is on. Costs one relaxed load when it is off.
void note_access(const fs::path& name);

}  // namespace fs

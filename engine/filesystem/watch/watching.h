#pragma once

#include <engine/filesystem/contract/path.h>

namespace fs {

/// Makes the registered source of this path follow the disk, or ends that. False, with the failure stored, as fs::watch
/// says. Throws.
bool watch_source(const fs::path& key, bool on);
/// Ends every watch, before the sources go.
void stop_watching();

}  // namespace fs

#pragma once

namespace platform {

class File;

/// Whether an open file is the one that the path leads to.
bool leads_to(const char* path, const File& file);

}  // namespace platform

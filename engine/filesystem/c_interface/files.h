#pragma once

#include "engine/filesystem/c_interface/handles.h"
#include "engine/filesystem/contract/file_ptr.h"

namespace fs::c {

/// What is behind an enginefs_file.
struct OpenFile {
    FilePtr file;
    bool is_written;  // opened in another mode than READ
};

}  // namespace fs::c

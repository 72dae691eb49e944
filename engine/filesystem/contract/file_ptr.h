#pragma once

#include <memory>

#include <engine/filesystem/contract/file.h>

namespace fs {

struct CloseFile {
    void operator()(SFsFile* file) const { close(file); }
};
/// An open file that is closed at the end.
using FilePtr = std::unique_ptr<SFsFile, CloseFile>;

}  // namespace fs

#pragma once

#include <string>

#include <engine/filesystem/contract/error.h>

#include "engine/platform/error.h"

namespace fs {

/// Stores the calling thread's failure. Only failing paths call these, so that good ones pay nothing.
void set_error(EFSError::TYPE code, const char* path, std::string text, std::int32_t os_code = 0);
/// The same from the seam's own account of what went wrong; `action` is a phrase like "cannot be opened".
void set_error_from_platform(const char* path, const char* action, const platform::Error& error);
EFSError::TYPE error_from_platform(platform::Failure failure);

}  // namespace fs

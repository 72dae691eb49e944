#pragma once

#include <engine/filesystem/startup.h>

namespace fs {

/// fs::init that answers false, with the failure stored, where that ends the process: when the root cannot be mounted.
bool start(const init_options& options);

}  // namespace fs

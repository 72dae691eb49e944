#pragma once

#include <vector>

#include "engine/filesystem/loading/load.h"

namespace fs {

/// The loads in the order in which their bytes lie: those of one source together, in the order of their places in it, where
/// it tells them. Throws std::bad_alloc.
std::vector<Load*> in_order_of_place(const std::vector<Load*>& loads);

}  // namespace fs

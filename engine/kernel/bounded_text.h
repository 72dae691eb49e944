#pragma once

#include "engine/platform/bounded_text.h"

namespace kernel {

using platform::BoundedText;

}  // namespace kernel

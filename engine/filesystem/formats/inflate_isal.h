#pragma once

#include <memory>

#include "engine/filesystem/formats/decoder.h"

namespace fs {

#if ENGINE_HAS_ISAL
inline constexpr bool isal_is_built_in = true;
#else
inline constexpr bool isal_is_built_in = false;
#endif

/// Null where the library was built without it. May throw std::bad_alloc.
std::unique_ptr<Decoder> make_isal_inflater();

}  // namespace fs

#pragma once

#include <memory>

#include "engine/filesystem/formats/decoder.h"

namespace fs {

/// Null where the library was built without it. May throw std::bad_alloc.
#if ENGINE_HAS_ISAL
inline constexpr bool isal_is_built_in = true;
std::unique_ptr<Decoder> make_isal_inflater();
#else
inline constexpr bool isal_is_built_in = false;
inline std::unique_ptr<Decoder> make_isal_inflater() { return nullptr; }
#endif

}  // namespace fs

#pragma once

#include <memory>
#include <string_view>

#include <engine/filesystem/contract/source.h>

// What start-up asks of the sources besides their classes.

namespace fs {

/// A source that shows every name of `inner` below `prefix`, which is in normal form, lower case, and neither empty nor a
/// full path. What is created begins with all of the prefix; everything else may name a file by its end, as in `inner`.
/// The callback of searches hears the names as `inner` has them. Throws std::bad_alloc.
std::unique_ptr<CFSSource> make_prefixed(std::unique_ptr<CFSSource> inner, std::string_view prefix);

/// Lets go of the server archive, if there is one. It is destroyed with its source, if that is still registered.
void destroy_server_archive();

}  // namespace fs

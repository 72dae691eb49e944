#pragma once

namespace platform {

struct Module;

/// Loads the companion module `name` (no prefix, no ending): NAME.dll on Windows, libNAME.so on Linux, beside the
/// executable first, then by the loader. Null when it is missing.
Module* load_module(const char* name);
void* find_symbol(Module* module, const char* name);
void unload_module(Module* module);

}  // namespace platform

#pragma once

/// Marks everything that the library exports. ENGINE_FS_BUILD is defined while the library itself is compiled.
#if defined(_WIN32)
#if defined(ENGINE_FS_BUILD)
#define ENGINE_FS_API __declspec(dllexport)
#else
#define ENGINE_FS_API __declspec(dllimport)
#endif
#else
#define ENGINE_FS_API __attribute__((visibility("default")))
#endif

#pragma once

/// Marks everything that the library exports. ENGINE_FS_BUILD is defined while the library itself is compiled,
/// ENGINE_FS_STATIC by whoever compiles or uses the static library.
#if defined(ENGINE_FS_STATIC)
#define ENGINE_FS_API
#elif !defined(_WIN32)
#define ENGINE_FS_API __attribute__((visibility("default")))
#elif defined(ENGINE_FS_BUILD)
#define ENGINE_FS_API __declspec(dllexport)
#else
#define ENGINE_FS_API __declspec(dllimport)
#endif

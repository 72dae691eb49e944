#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/// Goes through every family of the C interface as a C program would, in `root`, a directory of its own that holds
/// "levels/one.txt" with "first level\n". Null, or the first thing that was not so.
const char* tour(const char* root, const char* pack);

#ifdef __cplusplus
}
#endif

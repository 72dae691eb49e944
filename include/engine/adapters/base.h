#ifndef ENGINE_ADAPTERS_BASE_H
#define ENGINE_ADAPTERS_BASE_H

/* What the adapters share. */

#include <engine/filesystem_c.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Why the calling thread's latest call failed, as one sentence that lives until its next failure; "" when none has. */
static inline const char* enginefs_reason(void) {
    enginefs_error error;
    error.struct_size = sizeof error;
    enginefs_last_error(&error);
    return error.text;
}

/** enginefs_open; what is read can always be sought in. */
static inline enginefs_file* enginefs_open_seekable(const char* path, int mode, uint32_t flags) {
    return enginefs_open(path, mode, mode == ENGINEFS_READ ? flags | ENGINEFS_OPEN_SEEKABLE : flags);
}

/** enginefs_seek that answers the new position, or -1. */
static inline int64_t enginefs_seek_to(enginefs_file* file, int64_t offset, int origin) {
    return enginefs_seek(file, offset, origin) == ENGINEFS_OK ? enginefs_tell(file) : -1;
}

#ifdef __cplusplus
}
#endif

#endif

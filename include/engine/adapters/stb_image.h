#ifndef ENGINE_ADAPTERS_STB_IMAGE_H
#define ENGINE_ADAPTERS_STB_IMAGE_H

/* The callbacks by which stb_image reads files of the engine's file system, without loading them whole. Include the host's
   own stb_image.h first.

       enginefs_file* file = enginefs_open("textures/sky.png", ENGINEFS_READ, ENGINEFS_OPEN_SEEKABLE);
       stbi_uc* pixels = stbi_load_from_callbacks(enginefs_stbi_callbacks(), file, &width, &height, &channels, 4);
       enginefs_close(file);

   A failed read is the end of the data for stb_image: then enginefs_last_error knows more than stbi_failure_reason. */

#ifndef STBI_INCLUDE_STB_IMAGE_H
#error "include stb_image.h before <engine/adapters/stb_image.h>"
#endif

#include <engine/adapters/base.h>

#ifdef __cplusplus
extern "C" {
#endif

static inline int enginefs_stbi_read(void* file, char* to, int size) {
    const int64_t got = enginefs_read((enginefs_file*)file, to, (uint64_t)size);
    /* Its readers of text go on until `eof`, which they would never meet behind damage. */
    if (got < 0) enginefs_seek((enginefs_file*)file, 0, ENGINEFS_SEEK_END);
    return got > 0 ? (int)got : 0;
}

/* Backwards too, for what was read too far. */
static inline void enginefs_stbi_skip(void* file, int size) {
    enginefs_seek((enginefs_file*)file, size, ENGINEFS_SEEK_CURRENT);
}

static inline int enginefs_stbi_eof(void* file) {
    return enginefs_tell((enginefs_file*)file) >= enginefs_length((enginefs_file*)file);
}

/** Callbacks whose `user` is an enginefs_file of known length, opened with ENGINEFS_OPEN_SEEKABLE; it stays the caller's.
    They live for ever. */
static inline const stbi_io_callbacks* enginefs_stbi_callbacks(void) {
    static const stbi_io_callbacks callbacks = {enginefs_stbi_read, enginefs_stbi_skip, enginefs_stbi_eof};
    return &callbacks;
}

/** stbi_load of a file of the engine's file system. The caller frees the pixels by stbi_image_free. Null when the file could
    not be opened or is no image. */
static inline stbi_uc* enginefs_stbi_load(const char* path, int* width, int* height, int* channels, int wanted) {
    stbi_uc* pixels = NULL;
    enginefs_file* const file = enginefs_open_seekable(path, ENGINEFS_READ, 0);
    if (file == NULL) return NULL;
    pixels = stbi_load_from_callbacks(enginefs_stbi_callbacks(), file, width, height, channels, wanted);
    enginefs_close(file);
    return pixels;
}

#ifdef __cplusplus
}
#endif

#endif

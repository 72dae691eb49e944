#ifndef ENGINE_ADAPTERS_SDL2_H
#define ENGINE_ADAPTERS_SDL2_H

/* SDL_RWops over files of the engine's file system, for whatever SDL 2 and its companions load. Include SDL.h first; the
   program links its own SDL.

       SDL_Surface* image = SDL_LoadBMP_RW(enginefs_rwops("textures/sky.bmp", ENGINEFS_READ, 0), 1);

   A call that fails gives SDL's answer for it and leaves the reason in SDL_GetError and enginefs_last_error. */

#ifndef SDL_rwops_h_
#error "include SDL.h of SDL 2 before <engine/adapters/sdl2.h>"
#endif

#include <engine/adapters/base.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The answer; the reason is told to SDL too where that is a failure. */
static inline Sint64 enginefs_rwops_tell(Sint64 answer) {
    if (answer < 0) SDL_SetError("%s", enginefs_reason());
    return answer;
}

static inline enginefs_file* enginefs_rwops_file(SDL_RWops* ops) { return (enginefs_file*)ops->hidden.unknown.data1; }

static inline Sint64 SDLCALL enginefs_rwops_size(SDL_RWops* ops) {
    return enginefs_rwops_tell(enginefs_length(enginefs_rwops_file(ops)));
}

/* SDL counts origins as the engine does. */
static inline Sint64 SDLCALL enginefs_rwops_seek(SDL_RWops* ops, Sint64 offset, int whence) {
    return enginefs_rwops_tell(enginefs_seek_to(enginefs_rwops_file(ops), offset, whence));
}

static inline size_t SDLCALL enginefs_rwops_read(SDL_RWops* ops, void* to, size_t size, size_t count) {
    Sint64 got;
    if (size == 0 || count > SIZE_MAX / size) return 0;
    got = enginefs_rwops_tell(enginefs_read(enginefs_rwops_file(ops), to, size * count));
    return got > 0 ? (size_t)got / size : 0;
}

static inline size_t SDLCALL enginefs_rwops_write(SDL_RWops* ops, const void* from, size_t size, size_t count) {
    if (size == 0 || count > SIZE_MAX / size) return 0;
    return enginefs_rwops_tell(enginefs_write(enginefs_rwops_file(ops), from, size * count)) >= 0 ? count : 0;
}

static inline int SDLCALL enginefs_rwops_close(SDL_RWops* ops) {
    const int code = enginefs_close(enginefs_rwops_file(ops));
    SDL_FreeRW(ops);
    return code == ENGINEFS_OK ? 0 : SDL_SetError("%s", enginefs_reason());
}

/** Opens a file for SDL. `mode` and `flags` are those of enginefs_open; what is read can always be sought in. The caller, or
    the function of SDL that is told so, closes it by SDL_RWclose, whose answer tells whether all was written. Null on
    failure. One thread at a time. */
static inline SDL_RWops* enginefs_rwops(const char* path, int mode, uint32_t flags) {
    SDL_RWops* ops;
    enginefs_file* const file = enginefs_open_seekable(path, mode, flags);
    if (file == NULL) SDL_SetError("%s", enginefs_reason());
    ops = file != NULL ? SDL_AllocRW() : NULL;
    if (ops == NULL) {
        if (file != NULL) enginefs_discard(file);
        return NULL;
    }
    ops->type = SDL_RWOPS_UNKNOWN;
    ops->size = enginefs_rwops_size;
    ops->seek = enginefs_rwops_seek;
    ops->read = enginefs_rwops_read;
    ops->write = enginefs_rwops_write;
    ops->close = enginefs_rwops_close;
    ops->hidden.unknown.data1 = file;
    return ops;
}

#ifdef __cplusplus
}
#endif

#endif

#ifndef ENGINE_ADAPTERS_SDL3_H
#define ENGINE_ADAPTERS_SDL3_H

/* SDL_IOStream over files of the engine's file system, for whatever SDL 3 and its companions load. Include SDL3/SDL.h first;
   the program links its own SDL.

       SDL_Surface* image = SDL_LoadBMP_IO(enginefs_iostream("textures/sky.bmp", ENGINEFS_READ, 0), true);

   A call that fails gives SDL's answer for it and leaves the reason in SDL_GetError and enginefs_last_error. */

#ifndef SDL_iostream_h_
#error "include SDL3/SDL.h before <engine/adapters/sdl3.h>"
#endif

#include <engine/adapters/base.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The answer; where that is a failure SDL is told, too. `status` may be null. */
static inline Sint64 enginefs_iostream_tell(Sint64 answer, SDL_IOStatus* status) {
    if (answer < 0) SDL_SetError("%s", enginefs_reason());
    if (answer < 0 && status != NULL) *status = SDL_IO_STATUS_ERROR;
    return answer;
}

static inline Sint64 SDLCALL enginefs_iostream_size(void* file) {
    return enginefs_iostream_tell(enginefs_length((enginefs_file*)file), NULL);
}

/* SDL counts origins as the engine does. */
static inline Sint64 SDLCALL enginefs_iostream_seek(void* file, Sint64 offset, SDL_IOWhence whence) {
    return enginefs_iostream_tell(enginefs_seek_to((enginefs_file*)file, offset, (int)whence), NULL);
}

static inline size_t SDLCALL enginefs_iostream_read(void* file, void* to, size_t size, SDL_IOStatus* status) {
    const Sint64 got = enginefs_iostream_tell(enginefs_read((enginefs_file*)file, to, size), status);
    if (got >= 0 && (size_t)got < size) *status = SDL_IO_STATUS_EOF;
    return got > 0 ? (size_t)got : 0;
}

static inline size_t SDLCALL enginefs_iostream_write(void* file, const void* from, size_t size, SDL_IOStatus* status) {
    return enginefs_iostream_tell(enginefs_write((enginefs_file*)file, from, size), status) >= 0 ? size : 0;
}

static inline bool SDLCALL enginefs_iostream_close(void* file) {
    return enginefs_close((enginefs_file*)file) == ENGINEFS_OK || SDL_SetError("%s", enginefs_reason());
}

/** Opens a file for SDL. `mode` and `flags` are those of enginefs_open; what is read can always be sought in. The caller, or
    the function of SDL that is told so, closes it by SDL_CloseIO, whose answer tells whether all was written. Null on
    failure. One thread at a time. */
static inline SDL_IOStream* enginefs_iostream(const char* path, int mode, uint32_t flags) {
    SDL_IOStreamInterface interface;
    SDL_IOStream* stream;
    enginefs_file* const file = enginefs_open_seekable(path, mode, flags);
    if (file == NULL) {
        SDL_SetError("%s", enginefs_reason());
        return NULL;
    }
    SDL_INIT_INTERFACE(&interface);
    interface.size = enginefs_iostream_size;
    interface.seek = enginefs_iostream_seek;
    interface.read = enginefs_iostream_read;
    interface.write = enginefs_iostream_write;
    interface.close = enginefs_iostream_close;
    stream = SDL_OpenIO(&interface, file);
    if (stream == NULL) enginefs_discard(file);
    return stream;
}

#ifdef __cplusplus
}
#endif

#endif

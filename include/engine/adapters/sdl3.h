#ifndef ENGINE_ADAPTERS_SDL3_H
#define ENGINE_ADAPTERS_SDL3_H

/* SDL_IOStream over files of the engine's file system, for whatever SDL 3 and its companions load. Include SDL3/SDL.h first;
   the program links its own SDL.

       SDL_Surface* image = SDL_LoadBMP_IO(enginefs_iostream("textures/sky.bmp", ENGINEFS_READ, 0), true);

   A call that fails gives SDL's answer for it and leaves the reason in SDL_GetError and enginefs_last_error. */

#ifndef SDL_iostream_h_
#error "include SDL3/SDL.h before <engine/adapters/sdl3.h>"
#endif

#include <engine/filesystem_c.h>

#ifdef __cplusplus
extern "C" {
#endif

static inline bool enginefs_iostream_fail(SDL_IOStatus* status) {
    enginefs_error error;
    error.struct_size = sizeof error;
    enginefs_last_error(&error);
    if (status != NULL) *status = SDL_IO_STATUS_ERROR;
    return SDL_SetError("%s", error.text);
}

static inline Sint64 SDLCALL enginefs_iostream_size(void* file) {
    const Sint64 size = enginefs_length((enginefs_file*)file);
    if (size < 0) enginefs_iostream_fail(NULL);
    return size;
}

static inline Sint64 SDLCALL enginefs_iostream_seek(void* file, Sint64 offset, SDL_IOWhence whence) {
    const int origin = whence == SDL_IO_SEEK_SET   ? ENGINEFS_SEEK_BEGIN
                       : whence == SDL_IO_SEEK_CUR ? ENGINEFS_SEEK_CURRENT
                                                   : ENGINEFS_SEEK_END;
    if (enginefs_seek((enginefs_file*)file, offset, origin) == 0) return enginefs_tell((enginefs_file*)file);
    enginefs_iostream_fail(NULL);
    return -1;
}

static inline size_t SDLCALL enginefs_iostream_read(void* file, void* to, size_t size, SDL_IOStatus* status) {
    const int64_t got = enginefs_read((enginefs_file*)file, to, size);
    if (got < 0) enginefs_iostream_fail(status);
    if (got >= 0 && (size_t)got < size) *status = SDL_IO_STATUS_EOF;
    return got > 0 ? (size_t)got : 0;
}

static inline size_t SDLCALL enginefs_iostream_write(void* file, const void* from, size_t size, SDL_IOStatus* status) {
    if (enginefs_write((enginefs_file*)file, from, size) >= 0) return size;
    enginefs_iostream_fail(status);
    return 0;
}

static inline bool SDLCALL enginefs_iostream_close(void* file) {
    return enginefs_close((enginefs_file*)file) == 0 || enginefs_iostream_fail(NULL);
}

/** Opens a file for SDL. `mode` and `flags` are those of enginefs_open; what is read can always be sought in. The caller, or
    the function of SDL that is told so, closes it by SDL_CloseIO, whose answer tells whether all was written. Null on
    failure. One thread at a time. */
static inline SDL_IOStream* enginefs_iostream(const char* path, int mode, uint32_t flags) {
    SDL_IOStreamInterface interface;
    SDL_IOStream* stream;
    enginefs_file* const file =
        enginefs_open(path, mode, mode == ENGINEFS_READ ? flags | ENGINEFS_OPEN_SEEKABLE : flags);
    if (file == NULL) {
        enginefs_iostream_fail(NULL);
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

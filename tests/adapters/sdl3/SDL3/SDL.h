/* Of SDL 3's interface what <engine/adapters/sdl3.h> and its example use, after its documentation: Debian has no SDL 3 yet
   to compile them against. Streams work as far as the example goes. */
#ifndef SDL_iostream_h_
#define SDL_iostream_h_

#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#define SDLCALL
typedef int64_t Sint64;
typedef uint32_t Uint32;

typedef enum SDL_IOStatus { SDL_IO_STATUS_READY, SDL_IO_STATUS_ERROR, SDL_IO_STATUS_EOF } SDL_IOStatus;

typedef enum SDL_IOWhence { SDL_IO_SEEK_SET, SDL_IO_SEEK_CUR, SDL_IO_SEEK_END } SDL_IOWhence;

typedef struct SDL_IOStreamInterface {
    Uint32 version;
    Sint64(SDLCALL* size)(void* userdata);
    Sint64(SDLCALL* seek)(void* userdata, Sint64 offset, SDL_IOWhence whence);
    size_t(SDLCALL* read)(void* userdata, void* ptr, size_t size, SDL_IOStatus* status);
    size_t(SDLCALL* write)(void* userdata, const void* ptr, size_t size, SDL_IOStatus* status);
    bool(SDLCALL* flush)(void* userdata, SDL_IOStatus* status);
    bool(SDLCALL* close)(void* userdata);
} SDL_IOStreamInterface;

#define SDL_INIT_INTERFACE(iface) \
    (*(iface) = (SDL_IOStreamInterface){sizeof *(iface), NULL, NULL, NULL, NULL, NULL, NULL})

typedef struct SDL_IOStream {
    SDL_IOStreamInterface calls;
    void* userdata;
    SDL_IOStatus status;
} SDL_IOStream;

static const char* sdl_stub_error = "";
static inline bool SDL_SetError(const char* format, ...) {
    sdl_stub_error = format;
    return false;
}
static inline const char* SDL_GetError(void) { return sdl_stub_error; }

static inline SDL_IOStream* SDL_OpenIO(const SDL_IOStreamInterface* calls, void* userdata) {
    SDL_IOStream* const stream = calls->version == sizeof *calls ? malloc(sizeof *stream) : NULL;
    if (stream != NULL) *stream = (SDL_IOStream){*calls, userdata, SDL_IO_STATUS_READY};
    return stream;
}
static inline Sint64 SDL_GetIOSize(SDL_IOStream* stream) { return stream->calls.size(stream->userdata); }
static inline Sint64 SDL_SeekIO(SDL_IOStream* stream, Sint64 offset, SDL_IOWhence whence) {
    return stream->calls.seek(stream->userdata, offset, whence);
}
static inline size_t SDL_ReadIO(SDL_IOStream* stream, void* to, size_t size) {
    stream->status = SDL_IO_STATUS_READY;
    return stream->calls.read(stream->userdata, to, size, &stream->status);
}
static inline size_t SDL_WriteIO(SDL_IOStream* stream, const void* from, size_t size) {
    stream->status = SDL_IO_STATUS_READY;
    return stream->calls.write(stream->userdata, from, size, &stream->status);
}
static inline SDL_IOStatus SDL_GetIOStatus(SDL_IOStream* stream) { return stream->status; }
static inline bool SDL_CloseIO(SDL_IOStream* stream) {
    const bool good = stream->calls.close(stream->userdata);
    free(stream);
    return good;
}

#endif

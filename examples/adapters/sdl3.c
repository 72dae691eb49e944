/* usage: adapter_sdl3 ROOT PACK NAME
   Copies NAME to "copy" in the root by SDL_IOStreams of SDL 3, and reads its last byte once more. */
#include <SDL3/SDL.h>

#include "mount.h"

#include <engine/adapters/sdl3.h>

int main(int argc, char** argv) {
    SDL_IOStream *in, *out;
    size_t got;
    char bytes[1000];
    if (argc != 4) return 2;
    if (mount(argv[1], argv[2]) != 0) return 1;
    in = enginefs_iostream(argv[3], ENGINEFS_READ, 0);
    out = enginefs_iostream("copy", ENGINEFS_WRITE, ENGINEFS_OPEN_REPLACE);
    if (in == NULL || out == NULL) {
        fprintf(stderr, "%s\n", SDL_GetError());
        return complain(argv[3]);
    }
    do {
        got = SDL_ReadIO(in, bytes, sizeof bytes);
        if (SDL_WriteIO(out, bytes, got) != got) return complain("copy");
    } while (SDL_GetIOStatus(in) == SDL_IO_STATUS_READY);
    if (SDL_GetIOStatus(in) != SDL_IO_STATUS_EOF) return complain(argv[3]);
    if (SDL_SeekIO(in, -1, SDL_IO_SEEK_END) != SDL_GetIOSize(in) - 1 || SDL_ReadIO(in, bytes, 1) != 1)
        return complain(argv[3]);
    printf("the last byte is %d\n", bytes[0]);
    if (!SDL_CloseIO(in) || !SDL_CloseIO(out)) return complain("copy");
    return enginefs_shutdown();
}

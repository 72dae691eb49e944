/* usage: adapter_sdl2 ROOT PACK NAME
   Loads the BMP file NAME by SDL 2, writes it by SDL into the root, and loads that. */
#define SDL_MAIN_HANDLED
#include <SDL.h>

#include "mount.h"

#include <engine/adapters/sdl2.h>

int main(int argc, char** argv) {
    SDL_Surface *image, *copy;
    Uint8 red, green, blue;
    if (argc != 4) return 2;
    if (mount(argv[1], argv[2]) != 0) return 1;
    image = SDL_LoadBMP_RW(enginefs_rwops(argv[3], ENGINEFS_READ, 0), 1);
    if (image == NULL) {
        fprintf(stderr, "%s: %s\n", argv[3], SDL_GetError());
        return complain(argv[3]);
    }
    SDL_GetRGB(*(Uint32*)((Uint8*)image->pixels) & 0xFFFFFF, image->format, &red, &green, &blue);
    printf("%d x %d, the first pixel is %d %d %d\n", image->w, image->h, red, green, blue);
    if (SDL_SaveBMP_RW(image, enginefs_rwops("copy.bmp", ENGINEFS_WRITE, ENGINEFS_OPEN_REPLACE), 1) != 0)
        return complain("copy.bmp");
    copy = SDL_LoadBMP_RW(enginefs_rwops("copy.bmp", ENGINEFS_READ, 0), 1);
    if (copy == NULL || memcmp(copy->pixels, image->pixels, (size_t)image->h * image->pitch) != 0)
        return complain("copy.bmp");
    SDL_FreeSurface(copy);
    SDL_FreeSurface(image);
    return enginefs_shutdown();
}

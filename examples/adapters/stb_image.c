/* usage: adapter_stb_image ROOT PACK NAME
   Decodes the image NAME by stb_image. */
#include <stdio.h>

#include <stb_image.h>

#include "mount.h"

#include <engine/adapters/stb_image.h>

int main(int argc, char** argv) {
    int width, height, channels;
    stbi_uc* pixels;
    if (argc != 4) return 2;
    if (mount(argv[1], argv[2]) != 0) return 1;
    pixels = enginefs_stbi_load(argv[3], &width, &height, &channels, 3);
    if (pixels == NULL) return complain(argv[3]);
    printf("%d x %d, the first pixel is %d %d %d\n", width, height, pixels[0], pixels[1], pixels[2]);
    stbi_image_free(pixels);
    return enginefs_shutdown();
}

/* A host for Windows by another compiler than the library's: clang in MSVC's mode, with neither its SDK nor a C run-time.
   Its exit status is 0, or the line of what was not so. */
#include <engine/filesystem_c.h>

__declspec(dllimport) unsigned long GetCurrentDirectoryA(unsigned long size, char* out);
__declspec(dllimport) void ExitProcess(unsigned status);

#define CHECK(thing) \
    if (!(thing)) ExitProcess(__LINE__)

void start(void) {
    static enginefs_options options;
    static char folder[260];
    uint64_t size = 0;
    const char* text;
    GetCurrentDirectoryA(sizeof folder, folder);
    options.struct_size = sizeof options;
    CHECK(enginefs_version() == ENGINEFS_VERSION && enginefs_init(&options) == ENGINEFS_ERROR_INVALID_ARGUMENT);
    options.root = folder;
    CHECK(enginefs_init(&options) == ENGINEFS_OK && enginefs_save("msvc.txt", "abcdef", 6, 0) == ENGINEFS_OK);
    text = enginefs_load("msvc.txt", 0, &size);
    CHECK(text && size == 6 && text[5] == 'f' && text[6] == '\0');
    enginefs_free((void*)text);
    CHECK(enginefs_remove("msvc.txt", 0) == ENGINEFS_OK && enginefs_shutdown() == ENGINEFS_OK);
    ExitProcess(0);
}

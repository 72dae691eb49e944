/* A host in C: mounts the directory that it is given, saves a file so that a crash leaves the old one or the new one, and
   shows what it finds. The least that a program needs to know of <engine/filesystem_c.h>. */
#include <engine/filesystem_c.h>

#include <stdio.h>

static int failed(const char* what) {
    enginefs_error error = {.struct_size = sizeof error};
    enginefs_last_error(&error);
    fprintf(stderr, "%s: %s (%s, %s)\n", what, error.text, error.path, enginefs_error_name(error.code));
    return 1;
}

int main(int argc, char** argv) {
    static const char settings[] = "volume = 7\n";
    enginefs_options options = {.struct_size = sizeof options};
    enginefs_list* names;
    int64_t i;
    if (argc != 2) return fprintf(stderr, "usage: c_host DIRECTORY\n"), 2;
    options.root = argv[1]; /* a full path */
    options.flags = ENGINEFS_SOURCE_RECURSIVE | ENGINEFS_SOURCE_INDEX_NAMES;
    if (enginefs_init(&options) != ENGINEFS_OK) return failed("the file system does not start");

    /* WHOLE_NAME: a file whose name only ends like this is another one. */
    if (enginefs_save("saves/settings.txt", settings, sizeof settings - 1,
                      ENGINEFS_OPEN_REPLACE | ENGINEFS_OPEN_WHOLE_NAME) != ENGINEFS_OK)
        return failed("the settings were not saved");
    names = enginefs_search("", "*.txt", 1);
    for (i = 0; i < enginefs_list_count(names); ++i) {
        uint64_t size;
        char* const text = enginefs_load(enginefs_list_at(names, i), 0, &size);
        if (text == NULL) return failed("a file was not read");
        printf("%s: %lu bytes\n%s", enginefs_list_at(names, i), (unsigned long)size, text);
        enginefs_free(text);
    }
    enginefs_list_free(names);
    return enginefs_shutdown() != ENGINEFS_OK;
}

// What bench/view_bench.py needs beside enginefs: the least that shows a directory through libfuse, and readers whose own
// work is small.
//
//   view_peer show DIR MOUNTPOINT        a passthrough of a directory, in the foreground
//   view_peer touch LIST DIR SEED        stat and the first 4 KiB of every name of a list, shuffled
//   view_peer random FILE COUNT SEED     reads of 4 KiB here and there
#define FUSE_USE_VERSION 31
#define _GNU_SOURCE
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <fuse.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

static const char* top;

static const char* below(const char* path, char* out) {
    snprintf(out, 4096, "%s%s", top, path);
    return out;
}

static void* show_init(struct fuse_conn_info* connection, struct fuse_config* config) {
    (void)connection;
    config->kernel_cache = 1;
    config->entry_timeout = config->attr_timeout = config->negative_timeout = 3600;
    return NULL;
}

static int show_getattr(const char* path, struct stat* out, struct fuse_file_info* file) {
    char name[4096];
    (void)file;
    return lstat(below(path, name), out) == 0 ? 0 : -errno;
}

static int show_readdir(const char* path, void* buffer, fuse_fill_dir_t fill, off_t offset, struct fuse_file_info* file,
                        enum fuse_readdir_flags flags) {
    char name[4096];
    DIR* const directory = opendir(below(path, name));
    const struct dirent* item;
    (void)offset, (void)file;
    if (directory == NULL) return -errno;
    while ((item = readdir(directory)) != NULL) {
        struct stat known = {.st_ino = item->d_ino, .st_mode = (mode_t)item->d_type << 12};
        const int with_attributes = (flags & FUSE_READDIR_PLUS) != 0 &&
                                    fstatat(dirfd(directory), item->d_name, &known, AT_SYMLINK_NOFOLLOW) == 0;
        if (fill(buffer, item->d_name, &known, 0, with_attributes ? FUSE_FILL_DIR_PLUS : 0) != 0) break;
    }
    closedir(directory);
    return 0;
}

static int show_open(const char* path, struct fuse_file_info* file) {
    char name[4096];
    const int descriptor = open(below(path, name), file->flags);
    file->fh = (uint64_t)descriptor;
    return descriptor >= 0 ? 0 : -errno;
}

static int show_read(const char* path, char* out, size_t size, off_t offset, struct fuse_file_info* file) {
    const ssize_t got = pread((int)file->fh, out, size, offset);
    (void)path;
    return got >= 0 ? (int)got : -errno;
}

static int show_release(const char* path, struct fuse_file_info* file) {
    (void)path;
    return close((int)file->fh);
}

static int show(char* place) {
    static const struct fuse_operations operations = {.init = show_init,
                                                      .getattr = show_getattr,
                                                      .readdir = show_readdir,
                                                      .open = show_open,
                                                      .read = show_read,
                                                      .release = show_release};
    char* words[] = {"view_peer", "-f", place};
    return fuse_main(3, words, &operations, NULL);
}

static int touch(const char* list, const char* directory, unsigned seed) {
    static char* names[1 << 20];
    static char buffer[4096];
    size_t count = 0;
    FILE* const in = fopen(list, "r");
    if (in == NULL || chdir(directory) != 0) return 1;
    for (char* line = NULL; count < sizeof names / sizeof *names; line = NULL) {
        size_t room = 0;
        const ssize_t size = getline(&line, &room, in);
        if (size <= 0) break;
        line[size - 1] = 0;
        names[count++] = line;
    }
    srand(seed);
    for (size_t left = count; left > 0; --left) {
        const size_t at = (size_t)rand() % left;
        struct stat known;
        const int file = stat(names[at], &known) == 0 ? open(names[at], O_RDONLY) : -1;
        if (file < 0 || read(file, buffer, sizeof buffer) < 0 || close(file) != 0) return 1;
        names[at] = names[left - 1];
    }
    return 0;
}

static int read_here_and_there(const char* name, long count, unsigned seed) {
    static char buffer[4096];
    const int file = open(name, O_RDONLY);
    const off_t size = lseek(file, 0, SEEK_END);
    if (file < 0 || size < (off_t)sizeof buffer) return 1;
    srand(seed);
    for (; count > 0; --count) {
        const off_t at = (off_t)(((uint64_t)rand() << 20 ^ (uint64_t)rand()) % (uint64_t)(size - (off_t)sizeof buffer));
        if (pread(file, buffer, sizeof buffer, at) != (ssize_t)sizeof buffer) return 1;
    }
    return 0;
}

int main(int argc, char** argv) {
    if (argc == 4 && strcmp(argv[1], "show") == 0) {
        top = argv[2];
        return show(argv[3]);
    }
    if (argc == 5 && strcmp(argv[1], "touch") == 0) return touch(argv[2], argv[3], (unsigned)atoi(argv[4]));
    if (argc == 5 && strcmp(argv[1], "random") == 0)
        return read_here_and_there(argv[2], atol(argv[3]), (unsigned)atoi(argv[4]));
    fputs("view_peer show DIR MOUNTPOINT | touch LIST DIR SEED | random FILE COUNT SEED\n", stderr);
    return 2;
}

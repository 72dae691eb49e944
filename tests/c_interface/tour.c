/* What a host in C does, compiled as C99. */
#include "tour.h"

#include <engine/filesystem_c.h>

#include <string.h>

#define TEXT_OF(line) #line
#define TEXT_OF_LINE(line) TEXT_OF(line)
#define CHECK(thing) \
    if (!(thing)) return "tour.c:" TEXT_OF_LINE(__LINE__) ": " #thing

static const char* handles(void) {
    char bytes[16];
    enginefs_file* file = enginefs_open("saves/one.sav", ENGINEFS_WRITE, ENGINEFS_OPEN_REPLACE);
    CHECK(enginefs_write(file, "0123456789", 10) == 10);
    CHECK(enginefs_exists("saves/one.sav", 0) == 0);
    CHECK(enginefs_commit(file) == ENGINEFS_OK);
    file = enginefs_open("saves/one.sav", ENGINEFS_WRITE, ENGINEFS_OPEN_REPLACE);
    CHECK(enginefs_write(file, "other", 5) == 5 && enginefs_discard(file) == ENGINEFS_OK);

    file = enginefs_open("SAVES\\ONE.SAV", ENGINEFS_READ_WRITE, 0);
    CHECK(enginefs_length(file) == 10 && enginefs_tell(file) == 0);
    CHECK(enginefs_seek(file, -3, ENGINEFS_SEEK_END) == ENGINEFS_OK && enginefs_read(file, bytes, 16) == 3);
    CHECK(memcmp(bytes, "789", 3) == 0 && enginefs_read(file, bytes, 16) == 0);
    CHECK(enginefs_seek(file, -6, ENGINEFS_SEEK_CURRENT) == ENGINEFS_OK && enginefs_set_end(file) == ENGINEFS_OK);
    CHECK(enginefs_length(file) == 4 && enginefs_close(file) == ENGINEFS_OK);
    return NULL;
}

static const char* whole_files(void) {
    uint64_t size = 0;
    uint32_t crc = 0;
    enginefs_info info;
    char* text = enginefs_load("one.txt", 0, &size);
    CHECK(text != NULL && size == 12 && strcmp(text, "first level\n") == 0);
    enginefs_free(text);
    CHECK(enginefs_load("one.txt", ENGINEFS_OPEN_WHOLE_NAME, &size) == NULL && size == 0);

    CHECK(enginefs_save("new/a.bin", "abc", 3, 0) == ENGINEFS_OK && enginefs_save("empty", NULL, 0, 0) == ENGINEFS_OK);
    CHECK(enginefs_crc("new/a.bin", 0, &crc) == ENGINEFS_OK && crc == 0x352441C2);
    CHECK(enginefs_copy("new/a.bin", "new/b.bin", 0) == ENGINEFS_OK);
    CHECK(enginefs_rename("new/b.bin", "new/c.bin", 0) == ENGINEFS_OK && !enginefs_exists("new/b.bin", 0));
    CHECK(enginefs_set_time("new/c.bin", 132223104000000000, 0) == ENGINEFS_OK);
    info.struct_size = sizeof info;
    CHECK(enginefs_stat("new/c.bin", 0, &info) == ENGINEFS_OK && info.type == ENGINEFS_TYPE_FILE && info.size == 3);
    CHECK(info.time == 132223104000000000 && info.kind == ENGINEFS_KIND_ROOT && !info.is_read_only &&
          !info.is_protected);
    CHECK(enginefs_stat("new", 0, &info) == ENGINEFS_OK && info.type == ENGINEFS_TYPE_DIRECTORY && info.size == -1);
    CHECK(enginefs_mkdir("made/deep", 0) == ENGINEFS_OK && enginefs_remove("new/c.bin", 0) == ENGINEFS_OK);
    CHECK(enginefs_remove_dir("made", 0) == ENGINEFS_OK && enginefs_stat("made", 0, &info) == ENGINEFS_ERROR_NOT_FOUND);
    return NULL;
}

static const char* lists(void) {
    uint64_t size = 0;
    enginefs_list* list = enginefs_search("", "*.?in", 1);
    CHECK(enginefs_list_count(list) == 1 && strcmp(enginefs_list_at(list, 0), "new/a.bin") == 0);
    CHECK(memcmp(enginefs_list_block(list, &size), "new/a.bin", 10) == 0 && size == 10);
    CHECK(enginefs_list_free(list) == ENGINEFS_OK);
    list = enginefs_search("levels", "*.none", 0);
    CHECK(enginefs_list_count(list) == 0 && enginefs_list_block(list, &size) != NULL && size == 0);
    enginefs_list_free(list);
    list = enginefs_dirs("", 1);
    CHECK(enginefs_list_count(list) == 3 && strcmp(enginefs_list_at(list, 0), "levels") == 0);
    enginefs_list_free(list);
    enginefs_record_access(1);
    enginefs_free(enginefs_load("levels/one.txt", 0, NULL));
    enginefs_record_access(0);
    list = enginefs_access_record();
    CHECK(enginefs_list_count(list) == 1 && strcmp(enginefs_list_at(list, 0), "levels/one.txt") == 0);
    return enginefs_list_free(list) == ENGINEFS_OK ? NULL : "the list was not freed";
}

static const char* make_pack(const char* path) {
    const unsigned char deflated[] = {0x4B, 0x4C, 0x4A, 0x06, 0x00}; /* "abc" */
    enginefs_pack_entry entry;
    enginefs_list* list;
    enginefs_pack* pack = enginefs_pack_create(path);
    CHECK(enginefs_pack_cancel(pack) == ENGINEFS_OK && enginefs_pack_list(path) == NULL);
    pack = enginefs_pack_create(path);
    CHECK(enginefs_pack_add(pack, "p/one.txt", "in a pack", 9, ENGINEFS_METHOD_STORE, 0, 0) == ENGINEFS_OK);
    CHECK(enginefs_pack_add_deflated(pack, "p/two.txt", deflated, 5, 3, 0x352441C2, 0) == ENGINEFS_OK);
    CHECK(enginefs_pack_finish(pack) == ENGINEFS_OK);
    list = enginefs_pack_list(path);
    entry.struct_size = sizeof entry;
    CHECK(enginefs_list_count(list) == 2 && enginefs_pack_entry_at(list, 1, &entry) == ENGINEFS_OK);
    CHECK(entry.method == ENGINEFS_METHOD_DEFLATE && entry.size == 3 && entry.packed_size == 5);
    CHECK(entry.crc == 0x352441C2 && strcmp(enginefs_list_at(list, 1), "p/two.txt") == 0);
    return enginefs_list_free(list) == ENGINEFS_OK ? NULL : "the list was not freed";
}

static const char* sources(const char* pack) {
    enginefs_source_info info;
    enginefs_info file;
    enginefs_list* list;
    CHECK(enginefs_add_source_at(pack, "mods/snow", ENGINEFS_SOURCE_EXACT_SEEKS) == ENGINEFS_OK);
    list = enginefs_sources();
    info.struct_size = sizeof info;
    CHECK(enginefs_list_count(list) == 2 && enginefs_source_at(list, 0, &info) == ENGINEFS_OK);
    CHECK(info.kind == ENGINEFS_KIND_PACK && info.flags == ENGINEFS_SOURCE_EXACT_SEEKS && !info.is_writable);
    enginefs_list_free(list);
    list = enginefs_holders("mods/snow/p/two.txt", 0);
    CHECK(enginefs_list_count(list) == 1 && strcmp(enginefs_list_at(list, 0), pack) == 0);
    enginefs_list_free(list);
    file.struct_size = sizeof file;
    CHECK(enginefs_stat("mods/snow/p/two.txt", 0, &file) == ENGINEFS_OK && file.size == 3 && file.time == 0);
    CHECK(file.kind == ENGINEFS_KIND_PACK && file.is_read_only);
    CHECK(enginefs_refresh(NULL) == ENGINEFS_OK && enginefs_refresh("levels") == ENGINEFS_OK);
    CHECK(enginefs_remove_source(pack) == ENGINEFS_OK && !enginefs_exists("mods/snow/p/two.txt", 0));
    return NULL;
}

static const char* loads(void) {
    char buffer[5];
    uint64_t size = 0;
    void* block;
    enginefs_async_load* load;
    enginefs_load_wish wish;
    memset(&wish, 0, sizeof wish);
    wish.struct_size = sizeof wish;
    wish.path = "levels/one.txt";
    load = enginefs_load_async(&wish);
    CHECK(enginefs_load_wait(load, 0xFFFFFFFF) == 1 && enginefs_load_state(load) == ENGINEFS_LOAD_DONE);
    block = enginefs_load_take(load, &size);
    CHECK(size == 12 && memcmp(block, "first level\n", 12) == 0 && enginefs_load_take(load, &size) == NULL);
    enginefs_free(block);
    CHECK(enginefs_load_cancel(load) == ENGINEFS_OK && enginefs_load_release(load) == ENGINEFS_OK);

    wish.offset = 6;
    wish.size = 5;
    wish.buffer = buffer;
    wish.capacity = sizeof buffer;
    load = enginefs_load_async(&wish);
    CHECK(enginefs_load_wait(load, 0xFFFFFFFF) == 1 && enginefs_load_take(load, &size) == buffer);
    CHECK(size == 5 && memcmp(buffer, "level", 5) == 0 && enginefs_load_release(load) == ENGINEFS_OK);
    return NULL;
}

const char* tour(const char* root, const char* pack) {
    const char* wrong = NULL;
    enginefs_options options;
    memset(&options, 0, sizeof options);
    options.struct_size = sizeof options;
    options.root = root;
    options.flags = ENGINEFS_SOURCE_RECURSIVE | ENGINEFS_SOURCE_INDEX_NAMES;
    CHECK(enginefs_version() == ENGINEFS_VERSION && enginefs_init(&options) == ENGINEFS_OK);
    if (!wrong) wrong = handles();
    if (!wrong) wrong = whole_files();
    if (!wrong) wrong = lists();
    if (!wrong) wrong = make_pack(pack);
    if (!wrong) wrong = sources(pack);
    if (!wrong) wrong = loads();
    if (!wrong && enginefs_shutdown() != ENGINEFS_OK) wrong = "the file system does not end";
    return wrong;
}

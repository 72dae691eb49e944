#pragma once

/* What the examples share: each takes the full paths of a root and of a pack over it, and then what it reads. */
#include <stdio.h>
#include <string.h>

#include <engine/adapters/base.h>

/* Tells why the latest call failed; the answer is a program's status. */
static inline int complain(const char* name) {
    fprintf(stderr, "%s: %s\n", name, enginefs_reason());
    return 1;
}

static inline int mount(const char* root, const char* pack) {
    enginefs_options options;
    memset(&options, 0, sizeof options);
    options.struct_size = sizeof options;
    options.flags = ENGINEFS_SOURCE_RECURSIVE | ENGINEFS_SOURCE_INDEX_NAMES | ENGINEFS_SOURCE_WRITE_HERE;
    options.root = root;
    if (enginefs_init(&options) != ENGINEFS_OK) return complain(root);
    return enginefs_add_source(pack, 0) == ENGINEFS_OK ? 0 : complain(pack);
}

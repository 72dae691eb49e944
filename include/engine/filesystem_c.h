#ifndef ENGINE_FILESYSTEM_C_H
#define ENGINE_FILESYSTEM_C_H

/* The engine's file system for C and for every language and compiler that can call C. What a name finds, who is
   asked and in which order is as in <engine/filesystem.h>; docs/embedding.md walks through it.

   Promise    Functions, constants and structures of this header are only ever added to. On Linux the symbols have the
              version ENGINEFS_1. Nothing like it holds for the C++ interface.
   Order      The handle or the name comes first, then what goes in, its flags last, then what comes out.
   Text       Zero-terminated UTF-8, "/" or "\" between directories, names in any case. A name that is to be created
              must be UTF-8 (INVALID_ARGUMENT); where a name is only asked for, other bytes stand for themselves and
              find what the disk holds under them.
   Flags      Every function that names a file takes ENGINEFS_OPEN_ flags, and unknown bits fail. Those that open no
              file heed IN_CACHE_DIR and WHOLE_NAME alone; those that change files always take names as a whole.
   Failure    A call that returns `int` and says nothing else answers 0, or the ENGINEFS_ERROR_ that tells why; one
              that returns a size or a position answers -1, one that returns a pointer null. enginefs_last_error has
              the reason. A failure leaves things as they were; no call ends the process or lets an exception through.
   Null       INVALID_ARGUMENT wherever it is not said to be allowed.
   Handles    enginefs_file, _list, _pack and _async_load are numbers behind a pointer's type, never to be looked
              into. One that has ended, belongs to another kind or was never given out is INVALID_ARGUMENT. Undefined:
              to end a handle while another thread uses it. At most 4,194,304 are open at once.
   Structs    Begin with `struct_size`, which the caller sets to sizeof. They only grow: an older program has shorter
              ones, and of longer ones this library serves the part that it knows. Less than it first had, 0 too, is
              INVALID_ARGUMENT, and so is another `reserved` than 0 in what goes in. What comes out is filled on
              success alone.
   Memory     What a call returns to be freed is freed with enginefs_free, never with free().
   Threads    Any thread may call anything at any time, but enginefs_init and enginefs_shutdown while others call what
              names files or sources; one handle is for one thread at a time unless it says otherwise.
   Start      Before enginefs_init and after enginefs_shutdown what names files or sources is NOT_INITIALIZED. The rest
              works then, too: errors, lists, packs that are made or listed, the log, handles that are still open.
   Callbacks  of the host run on threads of the library, or inside a call of the host. They must not throw; an
              exception of GCC's or clang's C++ that leaves one all the same is caught and dropped. Undefined: to leave
              one by longjmp, or to end its thread. */

#include <stddef.h>
#include <stdint.h>

#include <engine/filesystem/api.h>

#ifdef __cplusplus
extern "C" {
#endif

/* --- Version, start and end ------------------------------------------------------------------------------------- */

/** Of this header: major * 65536 + minor * 256 + patch. */
#define ENGINEFS_VERSION 0x010000

/** The same of the library that runs. One of the same major number and no older than the header serves it. Never
    fails. */
ENGINE_FS_API uint32_t enginefs_version(void);

/** How a source is mounted, for enginefs_init and enginefs_add_source. Other bits fail. */
enum enginefs_source_flag {
    ENGINEFS_SOURCE_RECURSIVE = 0x01,          /* subdirectories too */
    ENGINEFS_SOURCE_AFTER_SAME_TYPE = 0x02,    /* asked after, not before, the sources of its own kind */
    ENGINEFS_SOURCE_MOUNT_PARENT = 0x04,       /* the last component of the directory leads every name */
    ENGINEFS_SOURCE_INDEX_NAMES = 0x08,        /* its directories join the global index of names */
    ENGINEFS_SOURCE_ALLOW_DUPLICATE = 0x10,    /* no check for a source of the same path */
    ENGINEFS_SOURCE_PACK_IN_MEMORY = 0x20,     /* a pack is read whole when it is mounted */
    ENGINEFS_SOURCE_SKIP_LISTING_CACHE = 0x40, /* neither replays nor records a listing */
    ENGINEFS_SOURCE_PROTECTED = 0x80,          /* not writable, and shields the names that it holds */
    ENGINEFS_SOURCE_MUST_EXIST = 0x100,        /* the directory must exist; not writable */
    ENGINEFS_SOURCE_EXACT_SEEKS = 0x200,       /* every handle into a pack is as with ENGINEFS_OPEN_SEEKABLE */
    ENGINEFS_SOURCE_BEFORE_PACKS = 0x400,      /* a directory is asked before every pack */
    ENGINEFS_SOURCE_WRITE_HERE = 0x800         /* what nobody holds is created here; the newest such counts */
};

typedef struct enginefs_options {
    uint32_t struct_size;
    uint32_t flags;           /* ENGINEFS_SOURCE_; RECURSIVE and INDEX_NAMES are what most hosts want */
    const char* root;         /* full path of a directory that exists; it is asked first and written to */
    const char* cache_dir;    /* what ENGINEFS_OPEN_IN_CACHE_DIR is relative to; null or "": none */
    const char* const* names; /* the only files that the root shows, null behind the last; null: all of them */
    uint32_t use_fallback;    /* 1: names that no source holds are served straight from the disk; 0: not */
    uint32_t reserved;        /* 0 */
} enginefs_options;

/** Starts the file system; there is one for the process. NOT_FOUND when the root is missing, INVALID_NAME when it is no
    full path or longer than 259 bytes, ALREADY_EXISTS when the file system runs already, INVALID_ARGUMENT inside of a
    callback. */
ENGINE_FS_API int enginefs_init(const enginefs_options* options);

/** Cancels all loads, removes every source and stops the library's threads; enginefs_init may follow. Handles that
    are still open stay valid until they are ended: reads of files of the disk and of packs go on. 0 also when the
    file system does not run; INVALID_ARGUMENT inside of a callback. */
ENGINE_FS_API int enginefs_shutdown(void);

/** Frees a block that a call of this interface has handed over. Null is allowed. */
ENGINE_FS_API void enginefs_free(void* block);

/* --- Errors ----------------------------------------------------------------------------------------------------- */

enum enginefs_error_code {
    ENGINEFS_OK = 0,
    ENGINEFS_ERROR_NOT_FOUND = 1,     /* no source holds the name, or the disk has lost it */
    ENGINEFS_ERROR_ACCESS_DENIED = 2, /* by the system, or a protected source shields the name */
    ENGINEFS_ERROR_IN_USE = 3,        /* open elsewhere in a way that excludes this use */
    ENGINEFS_ERROR_ALREADY_EXISTS = 4,
    ENGINEFS_ERROR_READ_ONLY = 5, /* a read-only file or source */
    ENGINEFS_ERROR_DISK_FULL = 6,
    ENGINEFS_ERROR_INVALID_NAME = 7, /* empty, too long, climbing, or what Windows cannot hold */
    ENGINEFS_ERROR_INVALID_ARGUMENT = 8,
    ENGINEFS_ERROR_NOT_INITIALIZED = 9,
    ENGINEFS_ERROR_BAD_FORMAT = 10, /* the bytes are not what they should be */
    ENGINEFS_ERROR_UNSUPPORTED = 11,
    ENGINEFS_ERROR_TOO_LARGE = 12,
    ENGINEFS_ERROR_OUT_OF_MEMORY = 13,
    ENGINEFS_ERROR_CANCELLED = 14,
    ENGINEFS_ERROR_IO = 15 /* the system failed to read or write */
};

typedef struct enginefs_error {
    uint32_t struct_size;
    int32_t code;        /* ENGINEFS_ERROR_, or 0 */
    int32_t system_code; /* errno or GetLastError; 0 when no system call was involved */
    uint32_t reserved;   /* 0 */
    const char* path;    /* as whoever failed knew it; "" when there is none. May hold bytes that are not UTF-8 */
    const char* text;    /* one English sentence */
} enginefs_error;

/** The calling thread's most recent failure; a success leaves it alone. The texts belong to the library and live
    until the thread's next failure, enginefs_clear_error, or the thread's end. `out` may be null. Returns its code, or
    INVALID_ARGUMENT, with the failure left alone, for an `out` that is too small. */
ENGINE_FS_API int enginefs_last_error(enginefs_error* out);

/** Forgets the calling thread's most recent failure. */
ENGINE_FS_API void enginefs_clear_error(void);

/** "NOT_FOUND" and so on, "OK" for 0, "UNKNOWN" for a number that is no code. Never null; lives for ever. */
ENGINE_FS_API const char* enginefs_error_name(int code);

/* --- Lists ------------------------------------------------------------------------------------------------------ */

/** Texts that a call has collected, in its order. A copy: nothing that happens later changes it, and any number of
    threads may read it. The caller frees it with enginefs_list_free, and its texts live as long as it does. Names of
    the disk may hold bytes that are not UTF-8. */
typedef struct enginefs_list enginefs_list;

/** How many texts; -1 for no list. */
ENGINE_FS_API int64_t enginefs_list_count(const enginefs_list* list);
/** The text of this index, from 0. */
ENGINE_FS_API const char* enginefs_list_at(const enginefs_list* list, uint64_t index);
/** All texts at once, each with its zero byte behind it, for those to whom a call for each is dear. `size` gets the
    bytes and may be null. Not null for an empty list either. */
ENGINE_FS_API const char* enginefs_list_block(const enginefs_list* list, uint64_t* size);
/** Null is allowed. */
ENGINE_FS_API int enginefs_list_free(enginefs_list* list);

/* --- Sources ---------------------------------------------------------------------------------------------------- */

/** Mounts a pack (".pak", ".mpak") or else a directory, full path. `flags` are ENGINEFS_SOURCE_. ALREADY_EXISTS when
    a source of that path is mounted. A directory that does not exist is mounted as an empty one unless MUST_EXIST; one
    of which a part could not be listed is mounted all the same, and enginefs_last_error tells. */
ENGINE_FS_API int enginefs_add_source(const char* path, uint32_t flags);
/** The same, with every name of the source below `prefix`: "mods/cool" shows its "a.txt" as "mods/cool/a.txt". An
    empty prefix mounts as enginefs_add_source; a full path and one that climbs fail. */
ENGINE_FS_API int enginefs_add_source_at(const char* path, const char* prefix, uint32_t flags);

/** The bytes of a pack that is no file of the disk: nested in another one, encrypted, in memory, on the network. They
    never change. The library calls it on any thread, several times at once, and holds no lock meanwhile: it may open
    and read files, but not remove its own source. */
typedef struct enginefs_pack_reader {
    uint32_t struct_size;
    uint32_t reserved; /* 0 */
    uint64_t length;   /* bytes of the pack */
    /* Reads `size` bytes at `offset` into `to`; any other answer than `size` is a failure. */
    int64_t (*read_at)(void* user, uint64_t offset, void* to, uint64_t size);
    void (*release)(void* user); /* null: none. Called once, when the library is done with the reader */
    void* user;                  /* handed to both */
} enginefs_pack_reader;

/** Mounts the pack that `reader`, which is copied, reads. `name` is what sources and messages call it and what
    enginefs_remove_source takes, any text of at most 259 bytes that no source has. When this fails, `release` has been
    called before it returns, unless the structure itself was wrong; else it is called once the source is removed and
    the last open file of the pack is closed. */
ENGINE_FS_API int enginefs_add_pack_reader(const char* name, const enginefs_pack_reader* reader, uint32_t flags);
/** Removes the source that was mounted from `path`, and cancels its loads. Files of it that are open stay usable. */
ENGINE_FS_API int enginefs_remove_source(const char* path);

/** Kinds of sources, in the order in which they are asked. */
enum enginefs_source_kind {
    ENGINEFS_KIND_MEMORY = 0,
    ENGINEFS_KIND_PACK = 1,
    ENGINEFS_KIND_ROOT = 2,
    ENGINEFS_KIND_DIRECTORY = 3
};

typedef struct enginefs_source_info {
    uint32_t struct_size;
    uint32_t kind;        /* ENGINEFS_KIND_ */
    uint32_t flags;       /* ENGINEFS_SOURCE_ */
    uint32_t is_writable; /* 1 or 0, as the next */
    uint32_t is_protected;
    uint32_t unlisted_directories; /* that the latest mount or refresh could not list: names may be missing */
} enginefs_source_info;

/** The paths of all sources in asking order, the fallback last, which is "". */
ENGINE_FS_API enginefs_list* enginefs_sources(void);
/** The same of those that hold a file of this name. Empty when none does. */
ENGINE_FS_API enginefs_list* enginefs_holders(const char* path, uint32_t flags);
/** What is known of the source of this index, of a list of enginefs_sources or enginefs_holders. */
ENGINE_FS_API int enginefs_source_at(const enginefs_list* list, uint64_t index, enginefs_source_info* out);

/** Reads anew what the disk holds: of the sources concerned with `path`, or, when it is null, of all. Fails only by
    telling that a directory could not be listed, or that there was no memory for the new names; the rest is done. */
ENGINE_FS_API int enginefs_refresh(const char* path);

/* --- Open files ------------------------------------------------------------------------------------------------- */

typedef struct enginefs_file enginefs_file;

/** Modes of enginefs_open. */
enum enginefs_mode {
    ENGINEFS_READ = 0,      /* an existing file */
    ENGINEFS_WRITE = 1,     /* emptied; made when nobody holds the name */
    ENGINEFS_APPEND = 2,    /* positioned at the end; made when nobody holds the name */
    ENGINEFS_READ_WRITE = 3 /* as it is; made when nobody holds the name */
};

/** Flags of enginefs_open and of all that names a file. Without SEEKABLE a stored entry of a pack is for forward reading alone. */
enum enginefs_open_flag {
    ENGINEFS_OPEN_IN_CACHE_DIR = 0x001,  /* the path is relative to the cache directory */
    ENGINEFS_OPEN_WRITE_THROUGH = 0x002, /* writes reach the disk before they return */
    ENGINEFS_OPEN_GZIP_LEVEL5 = 0x004,   /* WRITE only: the file is written as a gzip stream */
    ENGINEFS_OPEN_GZIP_LEVEL9 = 0x008,
    ENGINEFS_OPEN_GZIP = 0x010,   /* READ only: decoded by a gzip reader; its length is not known */
    ENGINEFS_OPEN_CREATE = 0x020, /* WRITE and READ_WRITE: made anew where it exists */
    ENGINEFS_OPEN_GZIP_LEVEL1 = 0x200,
    ENGINEFS_OPEN_REPLACE = 0x400,    /* WRITE only: the old file stays until the new one is closed (enginefs_commit) */
    ENGINEFS_OPEN_WHOLE_NAME = 0x800, /* the name is taken as a whole: "a.txt" is never "levels/a.txt" */
    ENGINEFS_OPEN_SEEKABLE = 0x1000   /* the handle seeks exactly, whatever the entry */
};

/** Opens a file by its name. Reading takes the first source, in asking order, that opens it; the end of a name is
    enough unless WHOLE_NAME. Writing takes the first writable source that holds it; what nobody holds is created,
    with its directories, by the newest source with WRITE_HERE, else by the first of the list. The caller ends the
    file with enginefs_close, enginefs_commit or enginefs_discard. */
ENGINE_FS_API enginefs_file* enginefs_open(const char* path, int mode, uint32_t flags);

/** Closes; the handle has ended whatever the answer. Fails when what was buffered could not be written and, for a
    file opened with REPLACE, when it could not take its place. */
ENGINE_FS_API int enginefs_close(enginefs_file* file);
/** enginefs_close under the name that belongs beside enginefs_discard. A file opened with REPLACE is on the disk and
    has its name when this answers 0; otherwise the old file stands, whole. */
ENGINE_FS_API int enginefs_commit(enginefs_file* file);
/** Closes; the old file stays when this one was opened with REPLACE, and otherwise what was written stays written. */
ENGINE_FS_API int enginefs_discard(enginefs_file* file);

/** Reads up to `size` bytes at the position and moves it. Bytes read, less than `size` only at the end of the file.
    -1 when the disk failed or the bytes are not what their pack promised (their checksum too, once a file was read
    through): what arrived lies in `buffer`, and enginefs_tell says how far it goes. `buffer` may be null when `size`
    is 0. */
ENGINE_FS_API int64_t enginefs_read(enginefs_file* file, void* buffer, uint64_t size);
/** Writes `size` bytes at the position and moves it. `size`, or -1; a part may have been written then (DISK_FULL). */
ENGINE_FS_API int64_t enginefs_write(enginefs_file* file, const void* data, uint64_t size);

enum enginefs_origin { ENGINEFS_SEEK_BEGIN = 0, ENGINEFS_SEEK_CURRENT = 1, ENGINEFS_SEEK_END = 2 };
/** Moves the position to `offset` bytes from `origin`. A position behind the end is allowed; reading there gives 0. */
ENGINE_FS_API int enginefs_seek(enginefs_file* file, int64_t offset, int origin);
/** The position in bytes. */
ENGINE_FS_API int64_t enginefs_tell(enginefs_file* file);
/** The size in bytes. -1 with UNSUPPORTED where it is not known (gzip streams). */
ENGINE_FS_API int64_t enginefs_length(enginefs_file* file);
/** Cuts the file at the position, or extends it to there with zeros. */
ENGINE_FS_API int enginefs_set_end(enginefs_file* file);

/* --- Whole files and managing them ------------------------------------------------------------------------------ */

/** The whole file in a new block, freed with enginefs_free. A zero byte follows it, so that a text can be used as it
    is. `size` gets the bytes without that, 0 on failure, and may be null. Never a part of the file: what enginefs_read
    tells of fails here too. */
ENGINE_FS_API void* enginefs_load(const char* path, uint32_t flags, uint64_t* size);
/** Makes the file of these bytes, or fills it anew: with REPLACE the old file stays until the new one is whole, and
    without WHOLE_NAME a file whose name ends like this may be the one that is filled. `data` may be null when `size`
    is 0. */
ENGINE_FS_API int enginefs_save(const char* path, const void* data, uint64_t size, uint32_t flags);
/** 1 when a source, the fallback included, holds a file of this name. 0 when none does, which is no failure, and when
    the call fails. */
ENGINE_FS_API int enginefs_exists(const char* path, uint32_t flags);

enum enginefs_type { ENGINEFS_TYPE_FILE = 1, ENGINEFS_TYPE_DIRECTORY = 2 };

typedef struct enginefs_info {
    uint32_t struct_size;
    uint32_t type;         /* ENGINEFS_TYPE_; of a directory the rest says nothing */
    int64_t size;          /* bytes; -1 when it is not known */
    int64_t time;          /* of the last write: 100 ns since 1601-01-01, universal time; 0 in a pack, -1 not known */
    uint32_t kind;         /* ENGINEFS_KIND_ of the source that holds it */
    uint32_t is_read_only; /* 1 or 0, as the next */
    uint32_t is_protected; /* its source is */
    uint32_t reserved;     /* 0 */
} enginefs_info;

/** Describes the file that enginefs_open would open, without opening it; where there is none, the directory that
    some source has under this whole name. */
ENGINE_FS_API int enginefs_stat(const char* path, uint32_t flags, enginefs_info* out);
/** CRC-32 (as in zip and gzip) of the bytes that enginefs_load would give. UNSUPPORTED for a file whose length is not
    known. */
ENGINE_FS_API int enginefs_crc(const char* path, uint32_t flags, uint32_t* out);

/* What follows changes files of the disk alone, never what a pack holds, and takes names as a whole. Flags for two
   names are for both. */

/** Sets the time that enginefs_stat tells, in its unit. */
ENGINE_FS_API int enginefs_set_time(const char* path, int64_t time, uint32_t flags);
/** Deletes the file in the first source that holds it. */
ENGINE_FS_API int enginefs_remove(const char* path, uint32_t flags);
/** Deletes a directory with everything in it from the first writable source that has it; links go themselves. */
ENGINE_FS_API int enginefs_remove_dir(const char* path, uint32_t flags);
/** Makes a directory, with those above it, in the first source; 0 too when it is there. ALREADY_EXISTS for a file. */
ENGINE_FS_API int enginefs_mkdir(const char* path, uint32_t flags);
/** Renames a file within its source. ALREADY_EXISTS when `to` is held. */
ENGINE_FS_API int enginefs_rename(const char* from, const char* to, uint32_t flags);
/** Copies a file, over an old one too; a copy that fails may leave a part. */
ENGINE_FS_API int enginefs_copy(const char* from, const char* to, uint32_t flags);

/* --- Searching -------------------------------------------------------------------------------------------------- */

/** The files in `dir` that match `mask`, sorted, lower case, each once; an empty list when there are none. `dir`
    null: in any directory; "": in the root, and with `recursive` everywhere; `recursive` 1: also below. `mask` is
    `*` and `?` against the file name, in any case; null or "" is any. */
ENGINE_FS_API enginefs_list* enginefs_search(const char* dir, const char* mask, int recursive);
/** The directories in `dir` ("": the root), with `recursive` also those below, as whole names, sorted. NOT_FOUND
    when no source has `dir`. */
ENGINE_FS_API enginefs_list* enginefs_dirs(const char* dir, int recursive);

/** From now on (`on` 1, starting afresh), or no longer (0), notes the names that are opened for reading. Never
    fails. */
ENGINE_FS_API void enginefs_record_access(int on);
/** The names noted so far, each once, in the order of their first opening: the order for a pack. */
ENGINE_FS_API enginefs_list* enginefs_access_record(void);

/* --- Packs ------------------------------------------------------------------------------------------------------ */

/** A pack that is being made: written beside its target, whose place it takes in enginefs_pack_finish. */
typedef struct enginefs_pack enginefs_pack;

/** How an entry is packed. */
enum enginefs_method {
    ENGINEFS_METHOD_STORE = 0,
    ENGINEFS_METHOD_DEFLATE = 8,
    ENGINEFS_METHOD_ZSTD = 93 /* UNSUPPORTED where the library was built without it */
};

/** Starts a pack that will be `native_path`, a path of the disk. The caller ends it with enginefs_pack_finish or
    enginefs_pack_cancel. */
ENGINE_FS_API enginefs_pack* enginefs_pack_create(const char* native_path);
/** Packs these bytes and adds them. `level` 0 stores, 1 to 12 are deflate's, 1 to 22 zstd's. `time` counts 100 ns
    since 1601. `data` may be null when `size` is 0. A failed add leaves the pack ready for the next. At most 65,535
    entries and 4 GiB. */
ENGINE_FS_API int enginefs_pack_add(enginefs_pack* pack, const char* name, const void* data, uint64_t size, int method,
                                    int level, int64_t time);
/** Adds what the caller has deflated (raw, without header). `size` and `crc` are of the plain bytes. */
ENGINE_FS_API int enginefs_pack_add_deflated(enginefs_pack* pack, const char* name, const void* packed,
                                             uint64_t packed_size, uint64_t size, uint32_t crc, int64_t time);
/** Completes the pack and puts it in the place of its target; the handle has ended whatever the answer. A failure
    leaves the target as it was. */
ENGINE_FS_API int enginefs_pack_finish(enginefs_pack* pack);
/** Drops what was written and ends the handle; the target stays as it was. */
ENGINE_FS_API int enginefs_pack_cancel(enginefs_pack* pack);

typedef struct enginefs_pack_entry {
    uint32_t struct_size;
    uint32_t method; /* ENGINEFS_METHOD_, or another number that the pack records */
    uint64_t size;   /* plain bytes */
    uint64_t packed_size;
    int64_t time;      /* 100 ns since 1601, in whatever time zone the pack was made */
    uint32_t crc;      /* CRC-32 of the plain bytes */
    uint32_t reserved; /* 0 */
} enginefs_pack_entry;

/** The names of a pack's entries, in its order and case. The pack need not be mounted, nor the file system run. */
ENGINE_FS_API enginefs_list* enginefs_pack_list(const char* native_path);
/** What the pack's directory tells of the entry of this index, of a list of enginefs_pack_list. */
ENGINE_FS_API int enginefs_pack_entry_at(const enginefs_list* list, uint64_t index, enginefs_pack_entry* out);

/* --- Loads: files that workers of the library open, read and decode --------------------------------------------- */

/** One load on its way or ended. Any thread may use it, several at once too; only its release must come last. */
typedef struct enginefs_async_load enginefs_async_load;

/** Runs once, however the load ends, on a worker, and maybe before enginefs_load_async has returned. It may call
    everything, and release this load too. */
typedef void (*enginefs_load_callback)(enginefs_async_load* load, void* user);

/** Priorities; any number between and around these may be used. */
enum enginefs_priority {
    ENGINEFS_PRIORITY_BACKGROUND = -100,
    ENGINEFS_PRIORITY_NORMAL = 0,
    ENGINEFS_PRIORITY_HIGH = 100,
    ENGINEFS_PRIORITY_URGENT = 1000
};

typedef struct enginefs_load_wish {
    uint32_t struct_size;
    uint32_t flags;                  /* as for enginefs_open in the mode READ; SEEKABLE is added */
    const char* path;                /* copied */
    uint64_t offset;                 /* bytes from the start of the file */
    uint64_t size;                   /* bytes; 0: to the end of the file */
    void* buffer;                    /* the caller's until the load has ended; null: a block of the library's */
    uint64_t capacity;               /* bytes of `buffer`; a longer load fails with TOO_LARGE, nothing written */
    enginefs_load_callback callback; /* null: none */
    void* user;                      /* handed to it */
    int32_t priority;                /* ENGINEFS_PRIORITY_ */
    uint32_t deadline_ms;            /* from now; 0: none. It orders; a miss fails nothing */
} enginefs_load_wish;

/** States of a load; the last three are its end. */
enum enginefs_load_state_code {
    ENGINEFS_LOAD_QUEUED = 1,
    ENGINEFS_LOAD_RUNNING = 2,
    ENGINEFS_LOAD_DONE = 3,
    ENGINEFS_LOAD_FAILED = 4,
    ENGINEFS_LOAD_CANCELLED = 5
};

/** Starts a load. URGENT ones come first, then those whose deadline has passed, then by priority, deadline and
    arrival. Null when it could not begin, and then the callback does not run; all that concerns the file is told by
    the load. The caller gives the handle back with enginefs_load_release. */
ENGINE_FS_API enginefs_async_load* enginefs_load_async(const enginefs_load_wish* wish);
/** Waits up to `timeout_ms` (all ones: for ever) until the load has ended, its callback not included. 1 when it has,
    0 when the time passed first, and at once inside of a load's callback; -1 for no load. */
ENGINE_FS_API int enginefs_load_wait(enginefs_async_load* load, uint32_t timeout_ms);
/** ENGINEFS_LOAD_; -1 for no load. */
ENGINE_FS_API int enginefs_load_state(enginefs_async_load* load);
/** The bytes of a load that is DONE, and in `size`, which may be null, how many: the caller's own buffer, or the
    library's block, which is the caller's from now on (enginefs_free). Null with the reason when it FAILED or was
    CANCELLED, and with INVALID_ARGUMENT before its end and when its block was taken already. */
ENGINE_FS_API void* enginefs_load_take(enginefs_async_load* load, uint64_t* size);
/** Ends the load as CANCELLED; the buffer is touched no more when this returns. 0 too when it had ended already. */
ENGINE_FS_API int enginefs_load_cancel(enginefs_async_load* load);
/** Ends the handle, and frees a block that was not taken. The load itself goes on, and its callback runs, with a
    handle that has ended. */
ENGINE_FS_API int enginefs_load_release(enginefs_async_load* load);

/* --- The log ---------------------------------------------------------------------------------------------------- */

/** Levels. INFO stands before WARN on purpose: a level of INFO holds warnings back. */
enum enginefs_log_level_code {
    ENGINEFS_LOG_FATAL = 1,
    ENGINEFS_LOG_ERROR = 2,
    ENGINEFS_LOG_INFO = 3,
    ENGINEFS_LOG_WARN = 4,
    ENGINEFS_LOG_DEBUG = 5,
    ENGINEFS_LOG_VERBOSE = 6 /* 7 to 15 say still more */
};

typedef void (*enginefs_log_callback)(int level, const char* category, const char* text, void* user);

/** Has finished lines, as the log file has them, told to `callback` as well as to the console; null: no longer. It
    is called by whichever thread has something to say, by several at once, and with locks of the library held: it
    calls nothing of this interface. When this returns the earlier callback runs no more, unless this was called
    inside of it. So hold no lock here for which a callback waits. Never fails. */
ENGINE_FS_API void enginefs_set_log(enginefs_log_callback callback, void* user);
/** Sets the level up to which messages are emitted, 0 (none) to 15, and answers the one before; -1 only asks, and so
    does a number that is no level (with INVALID_ARGUMENT in enginefs_last_error). */
ENGINE_FS_API int enginefs_log_level(int level);
/** Logs a text as it stands, a line break at its end where the line ends; null `category` is "". INVALID_ARGUMENT
    for the category "EXIT" at FATAL, with which C++ hosts end the process. */
ENGINE_FS_API int enginefs_log(int level, const char* category, const char* text);

#ifdef __cplusplus
}
#endif

#endif

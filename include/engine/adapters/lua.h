#ifndef ENGINE_ADAPTERS_LUA_H
#define ENGINE_ADAPTERS_LUA_H

/* Lua over the engine's file system: `require` finds modules in it, packs included, and files open as objects. For Lua 5.1
   to 5.4 and LuaJIT. Include the host's own lua.h and lauxlib.h first, as C or, for a Lua that was compiled so, as C++.

       enginefs_lua_open(L, "scripts/?.lua;scripts/?/init.lua");

   In Lua there is then a table `enginefs`:

       enginefs.load(name)          the whole file as a string
       enginefs.exists(name)        true or false
       enginefs.open(name)          a file for reading:
           file:read(what)          "l" a line without its end (the default), "a" the rest, or a number of bytes; nil at the end
           file:lines()             for line in file:lines() do ... end
           file:seek(whence, n)     as of io: "set", "cur" or "end"; answers the new position
           file:close()             also when the object is collected, or goes out of scope as <close>

   What fails answers nil, the reason and its code, as io does; `require` and `lines` raise it. A state and its files are for
   one thread at a time. */

#ifndef lauxlib_h
#error "include lua.h and lauxlib.h before <engine/adapters/lua.h>"
#endif

#include <string.h>

#include <engine/adapters/base.h>

#define ENGINEFS_LUA_FILE "enginefs.file"

/* A file object; what was read ahead lies in buffer[begin..end). */
typedef struct enginefs_lua_file {
    enginefs_file* file; /* null: closed */
    size_t begin, end;
    char buffer[4096];
} enginefs_lua_file;

/* nil, reason, code of this thread's latest failure. */
static inline int enginefs_lua_fail(lua_State* L) {
    lua_pushnil(L);
    lua_pushstring(L, enginefs_reason());
    lua_pushinteger(L, enginefs_last_error(NULL));
    return 3;
}

static inline enginefs_lua_file* enginefs_lua_file_at(lua_State* L, int index) {
    enginefs_lua_file* const object = (enginefs_lua_file*)luaL_checkudata(L, index, ENGINEFS_LUA_FILE);
    if (object->file == NULL) luaL_error(L, "the file is closed");
    return object;
}

/* Bytes that are ready, after a read where there are none; -1 on failure. */
static inline int64_t enginefs_lua_fill(enginefs_lua_file* object) {
    if (object->begin == object->end) {
        const int64_t got = enginefs_read(object->file, object->buffer, sizeof object->buffer);
        object->begin = 0;
        object->end = got > 0 ? (size_t)got : 0;
        if (got < 0) return -1;
    }
    return (int64_t)(object->end - object->begin);
}

/* Pushes up to `most` bytes, of one line where that is wanted; nil at the end of the file unless `empty` will do. */
static inline int enginefs_lua_take(lua_State* L, enginefs_lua_file* object, size_t most, int is_line, int empty) {
    luaL_Buffer text;
    int64_t ready = 0;
    const char* newline = NULL;
    luaL_buffinit(L, &text);
    while (most > 0 && newline == NULL && (ready = enginefs_lua_fill(object)) > 0) {
        const char* const from = object->buffer + object->begin;
        size_t part = (size_t)ready < most ? (size_t)ready : most;
        newline = is_line ? (const char*)memchr(from, '\n', part) : NULL;
        if (newline != NULL) part = (size_t)(newline - from);
        luaL_addlstring(&text, from, part);
        object->begin += part + (newline != NULL);
        most -= part;
        empty = 1;
    }
    luaL_pushresult(&text);
    if (ready < 0) return enginefs_lua_fail(L);
    if (!empty) lua_pushnil(L);
    return 1;
}

static inline int enginefs_lua_read(lua_State* L) {
    enginefs_lua_file* const object = enginefs_lua_file_at(L, 1);
    const char* what;
    if (lua_type(L, 2) == LUA_TNUMBER) {
        const lua_Integer size = luaL_checkinteger(L, 2);
        luaL_argcheck(L, size >= 0, 2, "a size is not negative");
        return enginefs_lua_take(L, object, (size_t)size, 0, size == 0);
    }
    what = luaL_optstring(L, 2, "l");
    what += *what == '*'; /* as Lua 5.1 writes it */
    luaL_argcheck(L, *what == 'l' || *what == 'a', 2, "\"l\", \"a\" or a number");
    return enginefs_lua_take(L, object, (size_t)-1, *what == 'l', *what == 'a');
}

static inline int enginefs_lua_next_line(lua_State* L) {
    enginefs_lua_file* const object = enginefs_lua_file_at(L, lua_upvalueindex(1));
    const int results = enginefs_lua_take(L, object, (size_t)-1, 1, 0);
    return results == 1 ? 1 : luaL_error(L, "%s", lua_tostring(L, -2));
}

static inline int enginefs_lua_lines(lua_State* L) {
    enginefs_lua_file_at(L, 1);
    lua_pushvalue(L, 1);
    lua_pushcclosure(L, enginefs_lua_next_line, 1);
    return 1;
}

static inline int enginefs_lua_seek(lua_State* L) {
    static const char* const names[] = {"set", "cur", "end", NULL};
    enginefs_lua_file* const object = enginefs_lua_file_at(L, 1);
    const int origin = luaL_checkoption(L, 2, "cur", names);
    lua_Integer offset = luaL_optinteger(L, 3, 0);
    if (origin == ENGINEFS_SEEK_CURRENT) offset -= (lua_Integer)(object->end - object->begin);
    offset = (lua_Integer)enginefs_seek_to(object->file, offset, origin);
    if (offset < 0) return enginefs_lua_fail(L);
    object->begin = object->end = 0;
    lua_pushinteger(L, offset);
    return 1;
}

static inline int enginefs_lua_close(lua_State* L) {
    enginefs_lua_file* const object = (enginefs_lua_file*)luaL_checkudata(L, 1, ENGINEFS_LUA_FILE);
    if (object->file != NULL) enginefs_close(object->file);
    object->file = NULL;
    lua_pushboolean(L, 1);
    return 1;
}

/* The object is collected, and so closed, should Lua run out of memory on the way. */
static inline int enginefs_lua_open_file(lua_State* L) {
    const char* const name = luaL_checkstring(L, 1);
    enginefs_lua_file* const object = (enginefs_lua_file*)lua_newuserdata(L, sizeof(enginefs_lua_file));
    object->file = NULL;
    object->begin = object->end = 0;
    luaL_getmetatable(L, ENGINEFS_LUA_FILE);
    lua_setmetatable(L, -2);
    object->file = enginefs_open_seekable(name, ENGINEFS_READ, 0);
    return object->file != NULL ? 1 : enginefs_lua_fail(L);
}

static inline int enginefs_lua_load(lua_State* L) {
    enginefs_lua_file* object;
    int results = enginefs_lua_open_file(L);
    if (results != 1) return results;
    object = (enginefs_lua_file*)lua_touserdata(L, -1);
    results = enginefs_lua_take(L, object, (size_t)-1, 0, 1);
    enginefs_close(object->file);
    object->file = NULL;
    return results;
}

static inline int enginefs_lua_exists(lua_State* L) {
    lua_pushboolean(L, enginefs_exists(luaL_checkstring(L, 1), 0));
    return 1;
}

/* Pushes the module at `path` as a function and answers 1, or 0 where there is none. */
static inline int enginefs_lua_module(lua_State* L, const char* name, const char* path) {
    const char* const chunk = lua_pushfstring(L, "@%s", path);
    uint64_t size = 0;
    void* const text = enginefs_load(path, ENGINEFS_OPEN_WHOLE_NAME, &size);
    const int code = text != NULL ? ENGINEFS_OK : enginefs_last_error(NULL);
    int failed = 1;
    if (code == ENGINEFS_ERROR_NOT_FOUND || code == ENGINEFS_ERROR_INVALID_NAME) return 0;
    if (text != NULL)
        failed = luaL_loadbuffer(L, (const char*)text, (size_t)size, chunk);
    else
        lua_pushstring(L, enginefs_reason());
    enginefs_free(text);
    if (failed) luaL_error(L, "error loading module '%s' from '%s':\n\t%s", name, path, lua_tostring(L, -1));
    return 1;
}

/* Tries each template of the first upvalue; answers the module and its name, or what was tried. */
static inline int enginefs_lua_search(lua_State* L) {
    const char* const name = luaL_checkstring(L, 1);
    const char* const file = luaL_gsub(L, name, ".", "/");
    const char* from = lua_tostring(L, lua_upvalueindex(1));
    const char* separator = LUA_VERSION_NUM < 504 ? "\n\t" : ""; /* from 5.4 on `require` puts the first one itself */
    luaL_checkstack(L, 8, NULL);
    lua_pushliteral(L, "");
    while (*from != '\0') {
        const char* path;
        const size_t length = strcspn(from, ";");
        lua_pushlstring(L, from, length);
        path = luaL_gsub(L, lua_tostring(L, -1), "?", file);
        lua_remove(L, -2);
        if (enginefs_lua_module(L, name, path)) {
            lua_pushstring(L, path);
            return 2;
        }
        lua_pop(L, 1); /* the chunk's name */
        lua_pushfstring(L, "%s%sno file '%s' in the engine's file system", lua_tostring(L, -2), separator, path);
        lua_replace(L, -3);
        lua_pop(L, 1);
        separator = "\n\t";
        from += length + (from[length] == ';');
    }
    return 1;
}

static inline void enginefs_lua_set(lua_State* L, const char* name, lua_CFunction function) {
    lua_pushcfunction(L, function);
    lua_setfield(L, -2, name);
}

/** Makes the table `enginefs`, and has `require` look for modules by `templates`, after what is preloaded and before Lua's own
    ways: names of files separated by ";", whose "?" is the module with "/" for its dots. Null: "?.lua;?/init.lua". Where the
    library "package" is not open there is no `require` to change. Raises Lua's errors, of memory for one. */
static inline void enginefs_lua_open(lua_State* L, const char* templates) {
    int at;
    luaL_newmetatable(L, ENGINEFS_LUA_FILE);
    lua_pushvalue(L, -1);
    lua_setfield(L, -2, "__index");
    enginefs_lua_set(L, "read", enginefs_lua_read);
    enginefs_lua_set(L, "lines", enginefs_lua_lines);
    enginefs_lua_set(L, "seek", enginefs_lua_seek);
    enginefs_lua_set(L, "close", enginefs_lua_close);
    enginefs_lua_set(L, "__gc", enginefs_lua_close);
    enginefs_lua_set(L, "__close", enginefs_lua_close);
    lua_pop(L, 1);

    lua_newtable(L);
    enginefs_lua_set(L, "open", enginefs_lua_open_file);
    enginefs_lua_set(L, "load", enginefs_lua_load);
    enginefs_lua_set(L, "exists", enginefs_lua_exists);
    lua_setglobal(L, "enginefs");

    lua_getglobal(L, "package");
    if (lua_istable(L, -1)) {
        lua_getfield(L, -1, LUA_VERSION_NUM < 502 ? "loaders" : "searchers");
        lua_pushstring(L, templates != NULL ? templates : "?.lua;?/init.lua");
        lua_pushcclosure(L, enginefs_lua_search, 1);
        /* Into the second place; each of the others moves on by one. */
        for (at = 2; !lua_isnil(L, -1); ++at) {
            lua_rawgeti(L, -2, at);
            lua_insert(L, -2);
            lua_rawseti(L, -3, at);
        }
        lua_pop(L, 2);
    }
    lua_pop(L, 1);
}

#endif

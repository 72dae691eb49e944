/* usage: adapter_NAME-OF-LUA ROOT PACK CODE
   Runs CODE, with modules from scripts/ of the engine's file system. */
#include <lua.h>

#include <lauxlib.h>
#include <lualib.h>

#include "mount.h"

#include <engine/adapters/lua.h>

int main(int argc, char** argv) {
    int failed;
    lua_State* L;
    if (argc != 4) return 2;
    if (mount(argv[1], argv[2]) != 0) return 1;
    L = luaL_newstate();
    luaL_openlibs(L);
    enginefs_lua_open(L, "scripts/?.lua;scripts/?/init.lua");
    failed = luaL_loadstring(L, argv[3]) != 0 || lua_pcall(L, 0, 0, 0) != 0;
    if (failed) fprintf(stderr, "%s\n", lua_tostring(L, -1));
    lua_close(L);
    enginefs_shutdown();
    return failed;
}

/* SPDX-License-Identifier: MIT
 *
 * Memory errors of Lua at every allocation: no process is left, nothing is leaked, and the module serves as before.
 * usage: memory SCRIPT     a chunk that returns the function to be tried */
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <lauxlib.h>
#include <lualib.h>

static size_t used;
static long until_failure = -1; /* allocations; -1 for never */

static void *allocate(void *unused, void *block, size_t before, size_t size)
{
    (void)unused;
    if (!block) before = 0;
    if (size == 0) {
        free(block);
        used -= before;
        return NULL;
    }
    if (size > before && until_failure >= 0 && until_failure-- == 0) {
        until_failure = 0; /* and all that follow, as when there really is none */
        return NULL;
    }
    void *result = realloc(block, size);
    if (result) used += size - before;
    return result;
}

static void fail(const char *what, const char *text)
{
    fprintf(stderr, "%s: %s\n", what, text ? text : "");
    exit(1);
}

static int count_children(void)
{
    char path[64];
    char text[4096] = "";
    snprintf(path, sizeof path, "/proc/self/task/%d/children", getpid());
    int count = 0;
    FILE *file = fopen(path, "r");
    const size_t length = file ? fread(text, 1, sizeof text - 1, file) : 0;
    if (file) fclose(file);
    for (size_t i = 0; i < length; i++)
        count += text[i] == ' ';
    return count;
}

/* The function of the script succeeds when it is called after that. */
static bool try_once(lua_State *L, long failing)
{
    lua_settop(L, 1);
    lua_pushvalue(L, 1);
    until_failure = failing;
    const int status = lua_pcall(L, 0, 0, 0);
    const bool failed = until_failure == 0;
    until_failure = -1;
    if (status != LUA_OK && !failed) fail("without a memory error", luaL_tolstring(L, -1, NULL));
    lua_settop(L, 1);
    lua_pushvalue(L, 1);
    if (lua_pcall(L, 0, 0, 0) != LUA_OK) fail("after a memory error", luaL_tolstring(L, -1, NULL));
    return failed;
}

int main(int count, char **arguments)
{
    if (count != 2) fail("usage", "memory SCRIPT");
    lua_State *L = lua_newstate(allocate, NULL);
    luaL_openlibs(L);
    if (luaL_dofile(L, arguments[1]) != LUA_OK) fail(arguments[1], luaL_tolstring(L, -1, NULL));
    lua_settop(L, 1);
    long tried = 0;
    while (try_once(L, tried))
        tried++;
    lua_gc(L, LUA_GCCOLLECT);
    lua_close(L);
    if (used != 0) fail("leaked", "memory of Lua");
    if (count_children() != 0) fail("left", "a process");
    if (tried < 10) fail("too few", "allocations were tried");
    printf("%ld allocations failed\n", tried);
    return 0;
}

#include <cstdio>
#include <lua.hpp>

#include "embedded_rule.h"

int main() {
    lua_State* const lua = luaL_newstate();
    luaL_openlibs(lua);
    if (luaL_dostring(lua,
                      "return function(seconds, rate, zone)\n"
                      "    local cost = seconds * rate\n"
                      "    if cost > 1000 then cost = cost - zone end\n"
                      "    return cost + zone * 5\n"
                      "end") != 0) {
        return 1;
    }
    const int rule = luaL_ref(lua, LUA_REGISTRYINDEX);
    long sum = 0;
    for (long i = 0; i < executionsS; ++i) {
        lua_rawgeti(lua, LUA_REGISTRYINDEX, rule);
        lua_pushinteger(lua, i % 600);
        lua_pushinteger(lua, i % 7);
        lua_pushinteger(lua, i % 3);
        if (lua_pcall(lua, 3, 1, 0) != 0) return 1;
        sum += static_cast<long>(lua_tointeger(lua, -1));
        lua_settop(lua, 0);
    }
    std::printf("%ld\n", sum);
    lua_close(lua);
}

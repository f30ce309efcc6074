// The same through Lua's interface for C, where there is a same.

#include <benchmark/benchmark.h>

#include <lua.hpp>

namespace {

struct Script {
    Script() {
        luaL_openlibs(lua);
        if (luaL_dostring(lua,
                          "n = 0\ns = ''\n"
                          "function add(a, b) return a + b end\n"
                          "function length(s) return #s end\n"
                          "function rule(seconds, rate, zone)\n"
                          "    local cost = seconds * rate\n"
                          "    if cost > 1000 then cost = cost - zone end\n"
                          "    return cost + zone * 5\n"
                          "end") != 0) {
            lua_error(lua);
        }
    }
    ~Script() { lua_close(lua); }
    lua_State* lua = luaL_newstate();
};

// Calls the function in the registry with what is pushed, and pops its integer.
long call(lua_State* lua, int arguments) {
    if (lua_pcall(lua, arguments, 1, 0) != 0) return -1;
    const long result = static_cast<long>(lua_tointeger(lua, -1));
    lua_settop(lua, 0);
    return result;
}

int reference(lua_State* lua, const char* name) {
    lua_getglobal(lua, name);
    return luaL_ref(lua, LUA_REGISTRYINDEX);
}

void ruleByCall(benchmark::State& state) {
    const Script script;
    const int rule = reference(script.lua, "rule");
    long i = 0;
    for (auto _ : state) {
        ++i;
        lua_rawgeti(script.lua, LUA_REGISTRYINDEX, rule);
        lua_pushinteger(script.lua, i % 600);
        lua_pushinteger(script.lua, i % 7);
        lua_pushinteger(script.lua, i % 3);
        benchmark::DoNotOptimize(call(script.lua, 3));
    }
}
BENCHMARK(ruleByCall);

void setAndGetLong(benchmark::State& state) {
    const Script script;
    long i = 0;
    for (auto _ : state) {
        lua_pushinteger(script.lua, ++i);
        lua_setglobal(script.lua, "n");
        lua_getglobal(script.lua, "n");
        benchmark::DoNotOptimize(lua_tointeger(script.lua, -1));
        lua_settop(script.lua, 0);
    }
}
BENCHMARK(setAndGetLong);

void setString(benchmark::State& state) {
    const Script script;
    for (auto _ : state) {
        lua_pushstring(script.lua, "a text of thirty-two characters..");
        lua_setglobal(script.lua, "s");
    }
}
BENCHMARK(setString);

void callWithLongs(benchmark::State& state) {
    const Script script;
    const int add = reference(script.lua, "add");
    long i = 0;
    for (auto _ : state) {
        lua_rawgeti(script.lua, LUA_REGISTRYINDEX, add);
        lua_pushinteger(script.lua, ++i);
        lua_pushinteger(script.lua, 2);
        benchmark::DoNotOptimize(call(script.lua, 2));
    }
}
BENCHMARK(callWithLongs);

void callWithString(benchmark::State& state) {
    const Script script;
    const int length = reference(script.lua, "length");
    for (auto _ : state) {
        lua_rawgeti(script.lua, LUA_REGISTRYINDEX, length);
        lua_pushstring(script.lua, "a text of thirty-two characters..");
        benchmark::DoNotOptimize(call(script.lua, 1));
    }
}
BENCHMARK(callWithString);

}  // namespace

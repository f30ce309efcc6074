#pragma once

// Debian builds the library with its names in a namespace.
#define AS_USE_NAMESPACE
#include <angelscript.h>
#include <angelscript/scriptarray.h>
#include <angelscript/scriptdictionary.h>
#include <angelscript/scriptstdstring.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <string>

namespace AngelScriptEngine {

using namespace AngelScript;

inline void message(const asSMessageInfo* info, void* /*user*/) {
    std::fprintf(stderr, "%s:%d: %s\n", info->section, info->row, info->message);
}

inline void print(const std::string& text) { std::fputs(text.c_str(), stdout); }

inline std::string upper(const std::string& text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char byte) { return static_cast<char>(std::toupper(byte)); });
    return result;
}

/// An engine with strings, arrays, dictionaries and the functions that the scripts use; released by
/// the caller.
inline asIScriptEngine* make() {
    asIScriptEngine* const engine = asCreateScriptEngine();
    engine->SetMessageCallback(asFUNCTION(message), nullptr, asCALL_CDECL);
    RegisterStdString(engine);
    RegisterScriptArray(engine, true);
    RegisterStdStringUtils(engine);
    RegisterScriptDictionary(engine);
    engine->RegisterGlobalFunction("void print(const string &in)", asFUNCTION(print), asCALL_CDECL);
    engine->RegisterGlobalFunction("string upper(const string &in)", asFUNCTION(upper),
                                   asCALL_CDECL);
    return engine;
}

/// The module made of `code`, or null after a message.
inline asIScriptModule* build(asIScriptEngine* engine, const std::string& code) {
    asIScriptModule* const module = engine->GetModule("script", asGM_ALWAYS_CREATE);
    module->AddScriptSection("script", code.data(), code.size());
    return module->Build() >= 0 ? module : nullptr;
}

}  // namespace AngelScriptEngine

// Compiles the AngelScript file given and runs its function main.
#include <fstream>
#include <sstream>

#include "AngelScriptEngine.h"

using namespace AngelScript;

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    std::stringstream code;
    code << std::ifstream(argv[1]).rdbuf();
    asIScriptEngine* const engine = AngelScriptEngine::make();
    asIScriptModule* const module = AngelScriptEngine::build(engine, code.str());
    if (module == nullptr) return 1;
    asIScriptContext* const context = engine->CreateContext();
    context->Prepare(module->GetFunctionByDecl("void main()"));
    const bool hasRun = context->Execute() == asEXECUTION_FINISHED;
    context->Release();
    engine->ShutDownAndRelease();
    return hasRun ? 0 : 1;
}

#include "AngelScriptEngine.h"
#include "embedded_rule.h"

using namespace AngelScript;

int main() {
    asIScriptEngine* const engine = AngelScriptEngine::make();
    asIScriptModule* const module =
        AngelScriptEngine::build(engine,
                                 "int64 rule(int64 seconds, int64 rate, int64 zone) {\n"
                                 "    int64 cost = seconds * rate;\n"
                                 "    if (cost > 1000) cost = cost - zone;\n"
                                 "    return cost + zone * 5;\n"
                                 "}");
    if (module == nullptr) return 1;
    asIScriptFunction* const rule = module->GetFunctionByName("rule");
    asIScriptContext* const context = engine->CreateContext();
    long sum = 0;
    for (long i = 0; i < executionsS; ++i) {
        context->Prepare(rule);
        context->SetArgQWord(0, static_cast<asQWORD>(i % 600));
        context->SetArgQWord(1, static_cast<asQWORD>(i % 7));
        context->SetArgQWord(2, static_cast<asQWORD>(i % 3));
        if (context->Execute() != asEXECUTION_FINISHED) return 1;
        sum += static_cast<long>(context->GetReturnQWord());
    }
    std::printf("%ld\n", sum);
    context->Release();
    engine->ShutDownAndRelease();
}

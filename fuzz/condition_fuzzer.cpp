#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "scr/ConditionList.h"
#include "script.h"

namespace {

constexpr const char* scriptS =
    "Long n = 3; Decimal d = 1.50; String s = \"text\"; Bool b = true; Date t; Nexid x;"
    "Long a[]; a[1] = 7; String h{}; h{\"k\"} = \"v\";"
    "function Long twice(Long i) { return i + i; }";

/// Whether evaluating `text` may change what a later evaluation finds.
bool mayHaveEffects(std::string_view text) { return text.find_first_of("({[") != text.npos; }

}  // namespace

/// Compiles the input as a list of conditions and as a query, on top of a small script, and
/// compares the ways to evaluate them with each other.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const FND::String text(reinterpret_cast<const char*>(data), size);
    Fuzz::CountingLog log;
    SCR::Interpreter interpreter(&log);
    Fuzz::restrain(interpreter);
    Fuzz::check(interpreter.compile(scriptS) && interpreter.execute() && log.errors == 0);

    SCR::ConditionList list(interpreter);
    const bool isCompiled = list.compile(text);
    if (!isCompiled) Fuzz::check(log.errors > 0);
    if (!isCompiled) Fuzz::check(list.size() == 0);

    log.errors = 0;
    bool isQuery = false;
    const bool hasQuery = interpreter.compileQuery(text);
    if (!hasQuery) Fuzz::check(log.errors > 0);
    const bool isEvaluated = interpreter.evaluateQuery(isQuery);
    if (!hasQuery) Fuzz::check(!isEvaluated);

    // A condition is a query and a semicolon.
    if (hasQuery) Fuzz::check(list.size() == 0);
    std::vector<std::int32_t> holding;
    bool areAll = false;
    std::int32_t first = -1;
    if (!list.holding(holding) || !list.all(areAll) || !list.first(first)) return 0;
    if (mayHaveEffects(text)) return 0;
    Fuzz::check(areAll == (holding.size() == static_cast<std::size_t>(list.size())));
    Fuzz::check(first == (holding.empty() ? -1 : holding.front()));
    std::size_t next = 0;
    for (std::int32_t i = 0; i < list.size(); ++i) {
        bool holds = false;
        if (!list.holds(i, holds)) return 0;
        Fuzz::check(holds == (next < holding.size() && holding[next] == i));
        if (holds) ++next;
    }
    return 0;
}

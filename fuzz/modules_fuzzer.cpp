#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "scr/Module.h"
#include "scr/run/RunControl.h"
#include "script.h"
#include "tests/Allocations.h"

namespace {

struct Function {
    FND::String module;
    const SCR::FctDescr* descriptor;
};

/// The functions of all modules that touch nothing outside of the script.
const std::vector<Function>& functions() {
    static std::vector<std::unique_ptr<SCR::Extension>> modules;
    static const std::vector<Function> all = [] {
        std::vector<Function> found;
        for (const SCR::ModuleTable* table : SCR::shippedModules()) {
            modules.emplace_back(SCR::makeModule(*table));
            for (const SCR::ModuleFunction& row : table->functions) {
                if (row.effects != SCR::Effect::None) continue;
                const std::size_t space = row.signature.find(' ');
                const std::size_t end = row.signature.find('(');
                const FND::String name(row.signature.substr(space + 1, end - space - 1));
                auto* const made = static_cast<SCR::FctDescr*>(modules.back()->variable(name));
                found.push_back({FND::String(table->name), made});
            }
        }
        Fuzz::check(!found.empty());
        return found;
    }();
    return all;
}

/// Declares a variable for an argument of the type word `type`, with a value from the constant
/// `text`; containers get the parts between its bars.
FND::String declare(const FND::String& name, const FND::String& text, int type, int element) {
    using namespace SCR;
    const bool isArray = Node::baseType(type) == TypeCode::Array;
    if (isArray || Node::baseType(type) == TypeCode::Hash) {
        const FND::String declared =
            Node::datatypeAsString(element) + " " + name + (isArray ? "[];" : "{};");
        const FND::String value = element == TypeCode::Long      ? "strToLong(p[i])"
                                  : element == TypeCode::Decimal ? "strToDecimal(p[i])"
                                  : element == TypeCode::Date    ? "strToDate(p[i])"
                                  : element == TypeCode::Bool    ? "true"
                                                                 : "p[i]";
        return declared + "strSplit(p, " + text + ", \"|\"); for (i = 0; i < size(p); i = i + 1) " +
               name + (isArray ? "[i] = " : "{p[i]} = ") + value + ";";
    }
    const FND::String declared = Node::datatypeAsString(Node::baseType(type)) + " " + name + ";";
    switch (Node::baseType(type)) {
        case TypeCode::Long:
            return declared + name + " = strToLong(" + text + ");";
        case TypeCode::Decimal:
            return declared + name + " = strToDecimal(" + text + ");";
        case TypeCode::Date:
            return declared + name + " = strToDate(" + text + ");";
        case TypeCode::Bool:
            return declared + name + " = strLength(" + text + ") > 1;";
        default:
            return declared + name + " = " + text + ";";
    }
}

}  // namespace

/// The first byte chooses a function of a module, the second how many optional arguments it gets;
/// the arguments follow, a line each. Runs the call twice.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    const Function& function = functions()[data[0] % functions().size()];
    const SCR::FctDescr& called = *function.descriptor;
    std::string_view rest(reinterpret_cast<const char*>(data) + 2, size - 2);
    Fuzz::CountingLog log;
    SCR::Interpreter interpreter(&log);
    Fuzz::restrain(interpreter);
    const bool hasRest = called.maximum() == SCR::FctDescr::anyNumber;
    const int most = hasRest ? 3 : called.maximum() - called.minimum();
    const int count = called.minimum() + (most > 0 ? data[1] % (most + 1) : 0);
    FND::String script = "use " + function.module + "; Long i; String p[];";
    FND::String call = function.module + "::" + called.name() + "(";
    for (int i = 0; i < count; ++i) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        const FND::String name = "a" + std::to_string(i);
        interpreter.addGlobalConstant("c" + std::to_string(i), FND::String(rest.substr(0, end)));
        rest.remove_prefix(std::min(end + 1, rest.size()));
        script += declare(name, "c" + std::to_string(i), called.argType(i), called.elementType(i));
        call += (i > 0 ? ", " : "") + name;
    }
    const long held = Allocations::startPeak();
    Fuzz::check(interpreter.compile(script + call + ");" + call + ");"));
    interpreter.execute();
    constexpr std::int64_t besides = 8 << 20;
    Fuzz::check(Allocations::peak() - held <= interpreter.limits().memory + besides);
    return 0;
}

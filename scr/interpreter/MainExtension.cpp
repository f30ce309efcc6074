#include "scr/Extension.h"

#include <array>
#include <mutex>
#include <unordered_map>

#include "fnd/ForkGuard.h"
#include "scr/Variable.h"
#include "scr/Version.h"
#include "scr/builtin/base/BuiltIn.h"
#include "scr/call/Operator.h"
#include "scr/run/NodeMemory.h"
#include "scr/run/ScriptMutexes.h"
#include "scr/value/Words.h"

namespace SCR {

namespace {

constexpr int numCodesS = 32;

using Constants = std::unordered_map<FND::String, std::unique_ptr<Variable>>;

// The table that all instances share; filled and emptied under the lock.
Constants constantsS;
std::array<std::array<const FctDescr*, operatorSignsS.size()>, numCodesS> operatorsS;
int instancesS = 0;
std::mutex mutexS;
const bool isForkGuardedS = [] {
    static FND::ForkGuard guard(FND::ForkGuard::Rank::BuiltIns, mutexS);
    return true;
}();

void fillTable() {
    const NodeMemory::Scope scope;
    Constants table;
    for (const BuiltIn* row : builtIns()) {
        std::unique_ptr<FctDescr> descriptor = describe(*row);
        table.try_emplace(descriptor->name(), std::move(descriptor));
    }
    const auto addConstant = [&](const char* name, auto* variable) {
        std::unique_ptr<Variable> owned(variable);
        table.try_emplace(name, std::move(owned));
    };
    addConstant("KESTREL_VERSION", new StringVariable(FND::String(version()) + " 10032", true));
    addConstant("MAX_DATE", new DateVariable(FND::DateTime::max(), true));
    addConstant("MIN_DATE", new DateVariable(FND::DateTime::min(), true));
    addConstant("STRIP_LEADING", new LongVariable(1, true));
    addConstant("STRIP_TRAILING", new LongVariable(2, true));
    addConstant("STRIP_BOTH", new LongVariable(3, true));
    addConstant("ROUND_PLAIN", new LongVariable(0, true));
    addConstant("ROUND_UP", new LongVariable(1, true));
    addConstant("ROUND_DOWN", new LongVariable(2, true));
    addConstant("ROUND_BANKERS", new LongVariable(3, true));
    addConstant("NULL_NEXID", new NexidVariable(FND::NULL_IDENTIFIER, true));
    addConstant("INVALID_NEXID", new NexidVariable(FND::INVALID_IDENTIFIER, true));
    addConstant("INVALID_DECIMAL", new DecimalVariable(FND::INVALID_DECIMAL, true));
    for (int code = 0; code < numCodesS; ++code) {
        const FND::String type = Node::datatypeAsString(code);
        for (std::size_t i = 0; i < operatorSignsS.size(); ++i) {
            const auto found = table.find(type + FND::String(operatorSignsS[i]));
            operatorsS[static_cast<std::size_t>(code)][i] =
                found != table.end() ? static_cast<const FctDescr*>(found->second.get()) : nullptr;
        }
    }
    constantsS.swap(table);
}

}  // namespace

MainExtension::MainExtension() : mutexes_(std::make_unique<ScriptMutexes>()) {
    const std::lock_guard lock(mutexS);
    if (instancesS == 0) fillTable();
    ++instancesS;
}

MainExtension::~MainExtension() {
    const std::lock_guard lock(mutexS);
    if (--instancesS == 0) Constants().swap(constantsS);
}

FND::String MainExtension::extensionName() const { return "main"; }

Variable* MainExtension::variable(const FND::String& name) {
    const auto found = constantsS.find(name);
    return found != constantsS.end() ? found->second.get() : nullptr;
}

void MainExtension::visitNames(const std::function<void(const FND::String& name)>& visit) const {
    // Operators are no names.
    for (const auto& [name, variable] : constantsS) {
        if (isName(name)) visit(name);
    }
}

std::string_view MainExtension::signatureOf(std::string_view name) {
    for (const BuiltIn* row : builtIns()) {
        const std::size_t begin = row->signature.find(' ') + 1;
        const std::string_view rest = row->signature.substr(begin);
        if (rest.starts_with(name) && rest.substr(name.size()).starts_with('(')) {
            return row->signature;
        }
    }
    return {};
}

const FctDescr* MainExtension::operatorFor(int code, Operator sign) {
    return code >= 0 && code < numCodesS
               ? operatorsS[static_cast<std::size_t>(code)][static_cast<std::size_t>(sign)]
               : nullptr;
}

std::size_t MainExtension::tableSize() {
    const std::lock_guard lock(mutexS);
    return constantsS.size();
}

}  // namespace SCR

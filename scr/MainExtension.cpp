#include "scr/MainExtension.h"

#include "fnd/ForkGuard.h"
#include "scr/Variable.h"
#include "scr/builtin/BuiltIn.h"

namespace SCR {

MainExtension::Constants MainExtension::constantsCM;
MainExtension::Operators MainExtension::operatorsCM;
int MainExtension::instancesCM = 0;
std::mutex MainExtension::mutexCM;
const bool MainExtension::isForkGuardedCM = [] {
    static FND::ForkGuard guard(FND::ForkGuard::Rank::BuiltIns, mutexCM);
    return true;
}();

MainExtension::MainExtension() {
    const std::lock_guard lock(mutexCM);
    if (instancesCM == 0) fillTable();
    ++instancesCM;
}

MainExtension::~MainExtension() {
    const std::lock_guard lock(mutexCM);
    if (--instancesCM == 0) Constants().swap(constantsCM);
}

FND::String MainExtension::extensionName() const { return "main"; }

Variable* MainExtension::variable(const FND::String& name) {
    const auto found = constantsCM.find(name);
    return found != constantsCM.end() ? found->second.get() : nullptr;
}

std::size_t MainExtension::tableSize() {
    const std::lock_guard lock(mutexCM);
    return constantsCM.size();
}

void MainExtension::fillTable() {
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
    addConstant("KESTREL_VERSION", new StringVariable("7.5.0 10032", true));
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
    for (int code = 0; code < numCodesCM; ++code) {
        const FND::String type = Node::datatypeAsString(code);
        for (std::size_t i = 0; i < operatorSignsS.size(); ++i) {
            const auto found = table.find(type + FND::String(operatorSignsS[i]));
            operatorsCM[static_cast<std::size_t>(code)][i] =
                found != table.end() ? static_cast<const FctDescr*>(found->second.get()) : nullptr;
        }
    }
    constantsCM.swap(table);
}

}  // namespace SCR

#include "scr/tree/Branch.h"

#include <typeinfo>

#include "scr/tree/Operand.h"
#include "scr/tree/StatementParts.h"

namespace SCR {

BlockStep::BlockStep(Node* statement) : node(statement) {
    if constexpr (SpecialisesNodes) sum = longStepOf(*statement);
}

StatementRun StatementRun::of(Node& statement) {
    StatementRun run(&statement);
    if constexpr (SpecialisesNodes) {
        while (typeid(*run.node_) == typeid(StatementList)) {
            const auto& block = static_cast<const StatementList&>(*run.node_).parts();
            const std::size_t count = block.statements.size();
            if (count > 0 && !block.isShort()) return run;
            if (count != 1) {
                run.steps_ = block.blockSteps();
                run.node_ = nullptr;
                return run;
            }
            run.node_ = block.statements.front().get();
            run.isInBlock_ = true;
        }
        run.sum_ = longStepOf(*run.node_);
    }
    return run;
}

std::int32_t StatementRun::callOther() const { return executeOther(); }

void Branch::reset(Node* statement) {
    statement_.reset(statement);
    run_ = StatementRun(statement);
}

void Branch::close() {
    if (statement_) run_ = StatementRun::of(*statement_);
}

}  // namespace SCR

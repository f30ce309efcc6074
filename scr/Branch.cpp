#include "scr/Branch.h"

#include <typeinfo>

#include "scr/Operand.h"
#include "scr/Statement.h"

namespace SCR {

Step::Step(Node* statement) : node(statement) {
    if constexpr (SpecialisesNodes) sum = longStepOf(*statement);
}

void Branch::reset(Node* statement) {
    statement_.reset(statement);
    only_ = Step();
    only_.node = statement;
    steps_ = statement != nullptr ? StepRange(&only_, &only_ + 1) : StepRange();
    isBlock_ = false;
}

void Branch::close() {
    if constexpr (SpecialisesNodes) {
        if (!statement_) return;
        Node* run = statement_.get();
        while (typeid(*run) == typeid(StatementList)) {
            const auto& block = static_cast<const StatementList&>(*run);
            if (block.steps().empty()) return;
            steps_ = block.steps();
            isBlock_ = true;
            if (block.statements().size() != 1) return;
            run = block.statements().front().get();
        }
        if (!isBlock_) only_ = Step(run);
    }
}

}  // namespace SCR

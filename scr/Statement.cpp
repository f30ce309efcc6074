#include "scr/Statement.h"

#include <algorithm>
#include <typeinfo>

#include "scr/Operand.h"
#include "scr/RunControl.h"

namespace SCR {

namespace {

void countTurn(RunControl* control, const Node* loop) {
    if (control != nullptr) control->turn(loop);
}

// Takes `statement` into the first empty slot of `slots`; false when all are taken.
bool fillSlot(std::initializer_list<Branch*> slots, Node* statement) {
    for (Branch* slot : slots) {
        if (!*slot) {
            slot->reset(statement);
            return true;
        }
    }
    return false;
}

}  // namespace

StatementList::~StatementList() = default;

std::int32_t StatementList::execute() {
    auto statement = statements_.begin();
    try {
        for (const auto end = statements_.end(); statement != end; ++statement) {
            if (const std::int32_t code = (*statement)->execute(); code != goOn) return code;
        }
    } catch (ScriptStopped& stopped) {
        stopped.passedThrough(statement->get());
        throw;
    }
    return goOn;
}

bool StatementList::addStatement(Node* statement) {
    statements_.emplace_back(statement);
    only_ = nullptr;
    return true;
}

void StatementList::close() {
    if constexpr (SpecialisesNodes) {
        if (statements_.size() == 1) only_ = statements_.front().get();
    }
}

bool StatementList::addIdentifier(const FND::String& name, Variable* variable) {
    if (!identifiers_) identifiers_ = std::make_unique<NameTable<Variable>>();
    return identifiers_->insert(name, variable);
}

Variable* StatementList::getIdentifier(const FND::String& name) {
    return identifiers_ ? identifiers_->find(name) : nullptr;
}

bool StatementList::returnsResult() const {
    return std::any_of(statements_.begin(), statements_.end(),
                       [](const auto& statement) { return statement->returnsResult(); });
}

void Branch::close() {
    if constexpr (SpecialisesNodes) {
        while (typeid(*run_) == typeid(StatementList)) {
            const auto& statements = static_cast<const StatementList*>(run_)->statements();
            if (statements.size() != 1) return;
            run_ = statements.front().get();
        }
    }
}

std::int32_t IfStatement::execute() {
    return condition_.holds() ? thenBranch_.execute() : elseBranch_.execute();
}

void IfStatement::close() {
    if (thenBranch_) thenBranch_.close();
    if (elseBranch_) elseBranch_.close();
}

bool IfStatement::addStatement(Node* statement) {
    return fillSlot({&thenBranch_, &elseBranch_}, statement);
}

bool IfStatement::returnsResult() const {
    return thenBranch_ && elseBranch_ && thenBranch_->returnsResult() &&
           elseBranch_->returnsResult();
}

std::int32_t WhileStatement::execute() {
    while (condition_.holds()) {
        countTurn(control_, this);
        if (const std::int32_t code = body_.execute(); code != goOn) return code;
    }
    return goOn;
}

void WhileStatement::close() {
    if (body_) body_.close();
}

bool WhileStatement::addStatement(Node* statement) { return fillSlot({&body_}, statement); }

std::int32_t DoStatement::execute() {
    do {
        countTurn(control_, this);
        if (const std::int32_t code = body_.execute(); code != goOn) return code;
    } while (condition_.holds());
    return goOn;
}

void DoStatement::close() {
    if (body_) body_.close();
}

bool DoStatement::addStatement(Node* statement) { return fillSlot({&body_}, statement); }

bool DoStatement::returnsResult() const { return body_ && body_->returnsResult(); }

std::int32_t ForLoop::execute() {
    if (const std::int32_t code = init_.execute(); code != goOn) return code;
    while (condition_.holds()) {
        countTurn(control_, this);
        if (const std::int32_t code = body_.execute(); code != goOn) return code;
        if (const std::int32_t code = update_.execute(); code != goOn) return code;
    }
    return goOn;
}

void ForLoop::close() {
    if (body_) body_.close();
}

bool ForLoop::addStatement(Node* statement) {
    return fillSlot({&update_, &init_, &body_}, statement);
}

std::int32_t ReturnStatement::execute() {
    if (value_) value_->execute();
    return returned;
}

}  // namespace SCR

#include "scr/Statement.h"

#include <algorithm>
#include <utility>

#include "scr/run/RunControl.h"
#include "scr/run/Work.h"
#include "scr/tree/Operand.h"

namespace SCR {

namespace {

// Stores `statement` in the first empty slot of `slots`; false when all are in use.
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

CompoundStatement::~CompoundStatement() = default;

StatementList::~StatementList() = default;

std::int32_t StatementList::execute() { return run(); }

std::int32_t StatementList::runStatements() {
    // A statement counts as work on this many bytes: it may hold others and call built-ins.
    constexpr std::size_t workOfStatement = 512;
    constexpr std::size_t stretch = 64;
    const std::size_t size = statements_.size();
    if (size > shortCM) countWork(std::min(size, stretch) * workOfStatement);
    if (!steps_.empty()) return steps().execute();
    std::size_t next = 0;
    try {
        for (; next < size; ++next) {
            if (next % stretch == stretch - 1) countWork(stretch * workOfStatement);
            if (const std::int32_t code = statements_[next]->execute(); code != goOn) return code;
        }
    } catch (ScriptStopped& stopped) {
        if (next < size) stopped.passedThrough(statements_[next].get());
        throw;
    }
    return goOn;
}

bool StatementList::addStatement(Node* statement) {
    statements_.emplace_back(statement);
    steps_.clear();
    return true;
}

void StatementList::close() {
    if constexpr (SpecialisesNodes) {
        // For a long list the extra memory besides its nodes is not worth it.
        constexpr std::size_t most = 64;
        if (statements_.size() > most) return;
        steps_.reserve(statements_.size());
        for (const auto& statement : statements_) steps_.emplace_back(statement.get());
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

std::unique_ptr<IfStatement> IfStatement::make(std::unique_ptr<BoolNode> condition) {
    if constexpr (SpecialisesNodes) {
        if (auto* const part = dynamic_cast<ConditionNode*>(condition.get())) {
            return part->makeIf(std::move(condition));
        }
    }
    return std::make_unique<IfStatement>(condition.release());
}

std::int32_t IfStatement::execute() { return choose(condition_->result()); }

void IfStatement::close() {
    thenBranch_.close();
    elseBranch_.close();
}

bool IfStatement::addStatement(Node* statement) {
    return fillSlot({&thenBranch_, &elseBranch_}, statement);
}

bool IfStatement::returnsResult() const {
    return thenBranch_ && elseBranch_ && thenBranch_->returnsResult() &&
           elseBranch_->returnsResult();
}

std::int32_t WhileStatement::execute() {
    return condition_.repeat({this, control_, body_, nullptr});
}

void WhileStatement::close() { body_.close(); }

bool WhileStatement::addStatement(Node* statement) { return fillSlot({&body_}, statement); }

std::int32_t DoStatement::execute() {
    const Turn turn{this, control_, body_, nullptr};
    if (const std::int32_t code = turn.execute(); code != goOn) return code;
    return condition_.repeat(turn);
}

void DoStatement::close() { body_.close(); }

bool DoStatement::addStatement(Node* statement) { return fillSlot({&body_}, statement); }

bool DoStatement::returnsResult() const { return body_ && body_->returnsResult(); }

std::int32_t ForLoop::execute() {
    if (const std::int32_t code = init_.executeInShort(); code != goOn) return code;
    return condition_.repeat({this, control_, body_, &update_});
}

void ForLoop::close() {
    init_.close();
    update_.close();
    body_.close();
}

bool ForLoop::addStatement(Node* statement) {
    return fillSlot({&update_, &init_, &body_}, statement);
}

std::int32_t ReturnStatement::execute() {
    if (value_) value_->execute();
    return returned;
}

}  // namespace SCR

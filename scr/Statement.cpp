#include "scr/Statement.h"

#include <algorithm>
#include <utility>

#include "scr/run/CountedWork.h"
#include "scr/run/RunControl.h"
#include "scr/tree/Condition.h"
#include "scr/tree/Operand.h"
#include "scr/tree/StatementParts.h"

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

StatementList::StatementList() : parts_(std::make_unique<Parts>()) {}
// Not by the destructors of the containers: a block may stand in a block, and so on.
StatementList::~StatementList() {
    for (auto& statement : parts_->statements) delete statement.release();
}

std::int32_t StatementList::execute() { return parts_->run(); }

std::int32_t StatementList::Parts::runStatements() const {
    // A statement counts as work on this many bytes: it may hold others and call built-ins.
    constexpr std::size_t workOfStatement = 512;
    constexpr std::size_t stretch = 64;
    const std::size_t size = statements.size();
    if (size > shortCM) countWork(std::min(size, stretch) * workOfStatement);
    if (!steps.empty()) return blockSteps().execute();
    std::size_t next = 0;
    try {
        for (; next < size; ++next) {
            if (next % stretch == stretch - 1) countWork(stretch * workOfStatement);
            if (const std::int32_t code = statements[next]->execute(); code != goOn) return code;
        }
    } catch (ScriptStopped& stopped) {
        if (next < size) stopped.passedThrough(statements[next].get());
        throw;
    }
    return goOn;
}

bool StatementList::addStatement(Node* statement) {
    parts_->statements.emplace_back(statement);
    parts_->steps.clear();
    return true;
}

void StatementList::close() {
    if constexpr (SpecialisesNodes) {
        // For a long list the extra memory besides its nodes is not worth it.
        constexpr std::size_t most = 64;
        if (parts_->statements.size() > most) return;
        parts_->steps.reserve(parts_->statements.size());
        for (const auto& statement : parts_->statements)
            parts_->steps.emplace_back(statement.get());
    }
}

bool StatementList::addIdentifier(const FND::String& name, Variable* variable) {
    if (!parts_->identifiers) parts_->identifiers = std::make_unique<NameTable<Variable>>();
    return parts_->identifiers->insert(name, variable);
}

Variable* StatementList::getIdentifier(const FND::String& name) {
    return parts_->identifiers ? parts_->identifiers->find(name) : nullptr;
}

bool StatementList::returnsResult() const {
    return std::any_of(parts_->statements.begin(), parts_->statements.end(),
                       [](const auto& statement) { return statement->returnsResult(); });
}

IfStatement::IfStatement(BoolNode* condition)
    : condition_(condition), own_(std::make_unique<Parts>()), parts_(*own_) {}
IfStatement::IfStatement(BoolNode* condition, Parts& parts)
    : condition_(condition), parts_(parts) {}
IfStatement::~IfStatement() = default;

std::unique_ptr<IfStatement> IfStatement::make(std::unique_ptr<BoolNode> condition) {
    if constexpr (SpecialisesNodes) {
        if (auto* const part = dynamic_cast<ConditionNode*>(condition.get())) {
            return part->makeIf(std::move(condition));
        }
    }
    // The statement has its memory before the condition loses its owner.
    return std::unique_ptr<IfStatement>(new IfStatement(condition.release()));
}

std::int32_t IfStatement::execute() { return parts_.choose(condition_->result()); }

void IfStatement::close() {
    parts_.thenBranch.close();
    parts_.elseBranch.close();
}

bool IfStatement::addStatement(Node* statement) {
    return fillSlot({&parts_.thenBranch, &parts_.elseBranch}, statement);
}

bool IfStatement::returnsResult() const {
    return parts_.thenBranch && parts_.elseBranch && parts_.thenBranch->returnsResult() &&
           parts_.elseBranch->returnsResult();
}

struct WhileStatement::Parts : InNodeMemory {
    explicit Parts(RunControl* given) : control(given) {}

    Condition condition;
    Branch body;
    RunControl* const control;
};

WhileStatement::WhileStatement(BoolNode* condition, RunControl* control)
    : parts_([&] {
          std::unique_ptr<BoolNode> owned(condition);
          auto parts = std::make_unique<Parts>(control);
          parts->condition = Condition(owned.release());
          return parts;
      }()) {}
WhileStatement::~WhileStatement() = default;

std::int32_t WhileStatement::execute() {
    return parts_->condition.repeat({this, parts_->control, parts_->body, nullptr});
}

void WhileStatement::close() { parts_->body.close(); }

bool WhileStatement::addStatement(Node* statement) { return fillSlot({&parts_->body}, statement); }

struct DoStatement::Parts : InNodeMemory {
    explicit Parts(RunControl* given) : control(given) {}

    Condition condition;
    Branch body;
    RunControl* const control;
};

DoStatement::DoStatement(RunControl* control) : parts_(std::make_unique<Parts>(control)) {}
DoStatement::~DoStatement() = default;

void DoStatement::condition(BoolNode* condition) { parts_->condition = Condition(condition); }

std::int32_t DoStatement::execute() {
    const LoopTurn turn{this, parts_->control, parts_->body, nullptr};
    if (const std::int32_t code = turn.execute(); code != goOn) return code;
    return parts_->condition.repeat(turn);
}

void DoStatement::close() { parts_->body.close(); }

bool DoStatement::addStatement(Node* statement) { return fillSlot({&parts_->body}, statement); }

bool DoStatement::returnsResult() const { return parts_->body && parts_->body->returnsResult(); }

struct ForLoop::Parts : InNodeMemory {
    explicit Parts(RunControl* given) : control(given) {}

    Branch init;
    Condition condition;
    Branch update;
    Branch body;
    RunControl* const control;
};

ForLoop::ForLoop(RunControl* control) : parts_(std::make_unique<Parts>(control)) {}
ForLoop::~ForLoop() = default;

void ForLoop::condition(BoolNode* condition) { parts_->condition = Condition(condition); }

std::int32_t ForLoop::execute() {
    if (const std::int32_t code = parts_->init.executeInShort(); code != goOn) return code;
    return parts_->condition.repeat({this, parts_->control, parts_->body, &parts_->update});
}

void ForLoop::close() {
    parts_->init.close();
    parts_->update.close();
    parts_->body.close();
}

bool ForLoop::addStatement(Node* statement) {
    return fillSlot({&parts_->update, &parts_->init, &parts_->body}, statement);
}

std::int32_t ReturnStatement::execute() {
    if (value_) value_->execute();
    return returned;
}

}  // namespace SCR

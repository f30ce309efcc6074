#include "scr/Statement.h"

#include <algorithm>
#include <utility>

#include "scr/Variable.h"
#include "scr/code/Builder.h"
#include "scr/code/Hot.h"
#include "scr/run/CountedWork.h"
#include "scr/run/RunControl.h"
#include "scr/tree/StatementParts.h"

namespace SCR {

namespace {

// Stores `statement` in the first empty slot of `slots`; false when all are in use.
bool fillSlot(std::initializer_list<std::unique_ptr<Node>*> slots, Node* statement) {
    for (std::unique_ptr<Node>* const slot : slots) {
        if (!*slot) {
            slot->reset(statement);
            return true;
        }
    }
    return false;
}

// What all loops consist of.
struct Loop {
    std::unique_ptr<BoolNode> condition;
    std::unique_ptr<Node> body;
    std::unique_ptr<Node> update;  // run after the body; null if there is none
    RunControl* const control;     // null when turns are not counted
    Code::Hot hot;

    explicit Loop(RunControl* given) : control(given) {}

    std::int32_t turn(const Node* loop) const {
        if (control != nullptr) control->turn(loop);
        if (const std::int32_t code = body->execute(); code != Node::goOn) return code;
        return update != nullptr ? update->execute() : Node::goOn;
    }
    /// Executes turns as long as the condition holds, up to one that gives a code other than
    /// `goOn`.
    std::int32_t repeat(const Node* loop) {
        if (hot) return hot.run();
        while (condition->result()) {
            if (const std::int32_t code = turn(loop); code != Node::goOn) return code;
            if (hot.count([&](Code::Builder& code) { lower(code, loop, false); })) {
                return hot.run();
            }
        }
        return Node::goOn;
    }
    // `turnsFirst`: the first turn needs no condition.
    void lower(Code::Builder& code, const Node* loop, bool turnsFirst) const {
        const Code::Label start = code.newLabel();
        const Code::Label test = code.newLabel();
        code.openLoop();
        if (!turnsFirst) code.jumpTo(test);
        code.bind(start);
        if (control != nullptr) code.emit(Code::Op::Turn, {}, {}, {}, loop);
        code.statement(*body);
        if (update != nullptr) code.statement(*update);
        code.bind(test);
        code.jump(*condition, start, true);
        code.closeLoop();
    }
};

}  // namespace

CompoundStatement::~CompoundStatement() = default;

void CompoundStatement::lower(Code::Builder& code) { code.execute(*this); }

StatementList::StatementList() : parts_(std::make_unique<Parts>()) {}
// Not by the destructors of the containers: a block may stand in a block, and so on.
StatementList::~StatementList() {
    for (auto& statement : parts_->statements) delete statement.release();
}

std::int32_t StatementList::execute() { return parts_->run(); }

namespace {

// A statement counts as work on this many bytes: it may hold others and call built-ins. Long lists
// count theirs.
constexpr std::size_t workOfStatementS = 512;
constexpr std::size_t stretchS = 64;
constexpr std::size_t shortS = 16;

// The work to count before statement `number` of a list with `size`; 0 for none.
constexpr std::size_t workBefore(std::size_t number, std::size_t size) {
    if (number == 0) return size > shortS ? std::min(size, stretchS) * workOfStatementS : 0;
    return number % stretchS == 0 ? std::min(size - number, stretchS) * workOfStatementS : 0;
}

}  // namespace

std::int32_t StatementList::Parts::runFrom(std::size_t next) const {
    const std::size_t size = statements.size();
    try {
        for (; next < size; ++next) {
            if (size > shortS) [[unlikely]] {
                if (const std::size_t work = workBefore(next, size); work > 0) countWork(work);
            }
            if (const std::int32_t code = statements[next]->execute(); code != goOn) return code;
        }
    } catch (ScriptStopped& stopped) {
        if (next < size) stopped.passedThrough(statements[next].get());
        throw;
    }
    return goOn;
}

long StatementList::Parts::runRest(RunControl& /*control*/, long list, long next, long /*c*/) {
    return Code::at<const Parts>(list).runFrom(static_cast<std::size_t>(next));
}

void StatementList::Parts::lower(Code::Builder& code) const {
    const std::size_t size = statements.size();
    for (std::size_t next = 0; next < size; ++next) {
        if (code.isFull()) {
            static constexpr Code::Helper helper{Code::guarded<runRest>};
            const Code::Builder::Frame frame(code);
            const Code::Ref rest = code.constant(static_cast<long>(next));
            return code.leaveUnlessGoOn(code.call(helper, code.address(this), rest));
        }
        code.blockStatement(*statements[next], workBefore(next, size));
    }
}

void StatementList::lower(Code::Builder& code) { parts_->lower(code); }

bool StatementList::addStatement(Node* statement) {
    parts_->statements.emplace_back(statement);
    return true;
}

void StatementList::close() {}

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

IfStatement::IfStatement(BoolNode* condition) : condition_(condition) {}
IfStatement::~IfStatement() = default;

std::int32_t IfStatement::execute() {
    if (condition_->result()) return then_ ? then_->execute() : goOn;
    return else_ ? else_->execute() : goOn;
}

void IfStatement::close() {}

void IfStatement::lower(Code::Builder& code) {
    const Code::Label otherwise = code.newLabel();
    code.jump(*condition_, otherwise, false);
    if (then_) code.statement(*then_);
    if (!else_) return code.bind(otherwise);
    const Code::Label end = code.newLabel();
    code.jumpTo(end);
    code.bind(otherwise);
    code.statement(*else_);
    code.bind(end);
}

bool IfStatement::addStatement(Node* statement) { return fillSlot({&then_, &else_}, statement); }

bool IfStatement::returnsResult() const {
    return then_ && else_ && then_->returnsResult() && else_->returnsResult();
}

struct WhileStatement::Parts : Loop, InNodeMemory {
    using Loop::Loop;
};

WhileStatement::WhileStatement(BoolNode* condition, RunControl* control)
    : parts_([&] {
          std::unique_ptr<BoolNode> owned(condition);
          auto parts = std::make_unique<Parts>(control);
          parts->condition = std::move(owned);
          return parts;
      }()) {}
WhileStatement::~WhileStatement() = default;

std::int32_t WhileStatement::execute() { return parts_->repeat(this); }

void WhileStatement::close() {}

void WhileStatement::lower(Code::Builder& code) { parts_->lower(code, this, false); }

bool WhileStatement::addStatement(Node* statement) { return fillSlot({&parts_->body}, statement); }

struct DoStatement::Parts : Loop, InNodeMemory {
    using Loop::Loop;
};

DoStatement::DoStatement(RunControl* control) : parts_(std::make_unique<Parts>(control)) {}
DoStatement::~DoStatement() = default;

void DoStatement::condition(BoolNode* condition) { parts_->condition.reset(condition); }

std::int32_t DoStatement::execute() {
    if (const std::int32_t code = parts_->turn(this); code != goOn) return code;
    return parts_->repeat(this);
}

void DoStatement::close() {}

void DoStatement::lower(Code::Builder& code) { parts_->lower(code, this, true); }

bool DoStatement::addStatement(Node* statement) { return fillSlot({&parts_->body}, statement); }

bool DoStatement::returnsResult() const { return parts_->body && parts_->body->returnsResult(); }

struct ForLoop::Parts : Loop, InNodeMemory {
    using Loop::Loop;

    std::unique_ptr<Node> init;
};

ForLoop::ForLoop(RunControl* control) : parts_(std::make_unique<Parts>(control)) {}
ForLoop::~ForLoop() = default;

void ForLoop::condition(BoolNode* condition) { parts_->condition.reset(condition); }

std::int32_t ForLoop::execute() {
    if (const std::int32_t code = parts_->init->execute(); code != goOn) return code;
    return parts_->repeat(this);
}

void ForLoop::close() {}

void ForLoop::lower(Code::Builder& code) {
    code.statement(*parts_->init);
    parts_->lower(code, this, false);
}

bool ForLoop::addStatement(Node* statement) {
    return fillSlot({&parts_->update, &parts_->init, &parts_->body}, statement);
}

std::int32_t ReturnStatement::execute() {
    if (value_) value_->execute();
    return returned;
}

}  // namespace SCR

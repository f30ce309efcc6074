#include "scr/code/Builder.h"

#include <algorithm>
#include <utility>

#include "scr/Statement.h"
#include "scr/value/Leaves.h"

namespace SCR::Code {

void Lowerable::lowerJump(Builder& code, Label label, bool when) {
    Builder::Frame frame(code);
    const Ref value = lowerValue(code, {});
    frame.end();
    code.jumpIf(when ? Relation::NotEqual : Relation::Equal, value, code.constant(0), label);
}

void Lowerable::lowerStatement(Builder& code) {
    const Builder::Frame frame(code);
    lowerValue(code, {});
}

Ref Builder::constant(long value) {
    const auto [found, isNew] =
        constants_.emplace(value, static_cast<std::uint32_t>(listing_.constants.size()));
    if (isNew) listing_.constants.push_back(value);
    return {Ref::Kind::Constant, found->second};
}

Ref Builder::variable(const long* home) {
    const auto [found, isNew] =
        variables_.emplace(home, static_cast<std::uint32_t>(listing_.variables.size()));
    if (isNew) listing_.variables.push_back(const_cast<long*>(home));
    return {Ref::Kind::Variable, found->second};
}

Ref Builder::temporary() {
    const Ref taken(Ref::Kind::Temporary, inUse_++);
    listing_.temporaries = std::max<std::size_t>(listing_.temporaries, inUse_);
    return taken;
}

Ref Builder::load(const bool* home, Ref target) {
    if (!target) target = temporary();
    emit(Op::LoadBool, target, {}, {}, home);
    return target;
}

Lowerable* Builder::lowerable(Node& node) const {
    return isFull() ? nullptr : dynamic_cast<Lowerable*>(&node);
}

void Builder::jump(BoolNode& condition, Label label, bool when) {
    if (const bool* const value = constantOf<BoolType>(condition)) {
        if (*value == when) jumpTo(label);
        return;
    }
    if (Lowerable* const lowered = lowerable(condition)) {
        return lowered->lowerJump(*this, label, when);
    }
    const Frame frame(*this);
    const Ref value = this->value(condition);
    jumpIf(when ? Relation::NotEqual : Relation::Equal, value, constant(0), label);
}

void Builder::blockStatement(Node& node, std::size_t work) {
    const std::uint32_t outer = statement_;
    listing_.statements.push_back(&node);
    statement_ = static_cast<std::uint32_t>(listing_.statements.size());
    if (work > 0) {
        const Frame frame(*this);
        call(workS, constant(static_cast<long>(work)));
    }
    statement(node);
    statement_ = outer;
}

void Builder::statement(Node& node) {
    if (isFull()) return execute(node);
    if (Lowerable* const lowered = lowerable(node)) return lowered->lowerStatement(*this);
    if (auto* const compound = dynamic_cast<CompoundStatement*>(&node)) {
        return compound->lower(*this);
    }
    if (typeid(node) == typeid(ReturnStatement)) {
        Node* const value = static_cast<ReturnStatement&>(node).value();
        if (value != nullptr) statement(*value);
        return leave(Node::returned);
    }
    execute(node);
}

void Builder::execute(Node& node) {
    const Frame frame(*this);
    leaveUnlessGoOn(call(executeS, address(&node)));
}

Ref Builder::leafOf(const LongNode& node, Ref /*target*/) {
    if (const LongVariable* const read = variableOf<LongType>(node))
        return variable(&read->value());
    if (const long* const value = constantOf<LongType>(node)) return constant(*value);
    return {};
}

Ref Builder::leafOf(const BoolNode& node, Ref target) {
    if (const BoolVariable* const read = variableOf<BoolType>(node)) {
        return load(&read->value(), target);
    }
    if (const bool* const value = constantOf<BoolType>(node)) return constant(*value ? 1 : 0);
    return {};
}

template <class Type>
static Ref addressOf(Builder& code, const Node& node) {
    const auto* const storage = storageOf<Type>(node);
    return storage != nullptr ? code.address(storage) : Ref();
}

Ref Builder::leafOf(const DecimalNode& node, Ref /*target*/) {
    return addressOf<DecimalType>(*this, node);
}
Ref Builder::leafOf(const StringNode& node, Ref /*target*/) {
    return addressOf<StringType>(*this, node);
}
Ref Builder::leafOf(const DateNode& node, Ref /*target*/) {
    return addressOf<DateType>(*this, node);
}
Ref Builder::leafOf(const NexidNode& node, Ref /*target*/) {
    return addressOf<NexidType>(*this, node);
}

Builder::Held Builder::hold(Ref operand) {
    Held held;
    held.code_ = this;
    held.operand_ = operand;
    if (operand.is(Ref::Kind::Variable)) {
        held.copy_ = temporary();
        held.at_ = listing_.operations.size();
        held.effects_ = effects_;
        append(Op::Nothing);
    }
    return held;
}

Ref Builder::Held::release() {
    if (!copy_ || code_->effects_ == effects_) return operand_;
    Operation& copy = code_->listing_.operations[at_];
    copy.op = Op::Move;
    copy.target = copy_;
    copy.a = operand_;
    return copy_;
}

Operation& Builder::append(Op op) {
    Operation& operation = listing_.operations.emplace_back();
    operation.op = op;
    // A listing has fewer operations than that.
    operation.live = static_cast<std::uint16_t>(inUse_);
    operation.loops = static_cast<std::uint8_t>(std::min<std::uint32_t>(loops_, 255));
    operation.statement = statement_;
    return operation;
}

void Builder::emit(Op op, Ref target, Ref a, Ref b, const void* pointer) {
    if (target.is(Ref::Kind::Variable) || op == Op::StoreBool) ++effects_;
    Operation& operation = append(op);
    operation.target = target;
    operation.a = a;
    operation.b = b;
    operation.pointer = pointer;
}

void Builder::jumpTo(Label label) { append(Op::Jump).label = label; }

// A comparison has a constant on its right, wherever the script has it.
static void turnRound(Relation& relation, Ref& a, Ref& b) {
    if (!a.is(Ref::Kind::Constant)) return;
    std::swap(a, b);
    relation = mirrored(relation);
}

void Builder::compare(Relation relation, Ref target, Ref a, Ref b) {
    turnRound(relation, a, b);
    emit(setOf(relation), target, a, b);
}

void Builder::jumpIf(Relation relation, Ref a, Ref b, Label label) {
    turnRound(relation, a, b);
    Operation& operation = append(jumpOf(relation));
    operation.a = a;
    operation.b = b;
    operation.label = label;
}

Ref Builder::call(const Helper& helper, Ref a, Ref b, Ref c, Ref target) {
    if (helper.mayAssign) ++effects_;
    Operation& operation = append(Op::Call);
    operation.a = a;
    operation.b = b;
    operation.c = c;
    operation.pointer = &helper;
    const std::size_t at = listing_.operations.size() - 1;
    if (!target) target = temporary();
    if (target.is(Ref::Kind::Variable)) ++effects_;
    listing_.operations[at].target = target;
    return target;
}

std::size_t Builder::openCall(const Node& place) {
    emit(Op::EnterCall, {}, {}, {}, &place);
    return listing_.operations.size() - 1;
}

void Builder::closeCall(std::size_t opened) {
    const auto first = listing_.operations.begin() + static_cast<std::ptrdiff_t>(opened);
    const auto mayLook = [](const Operation& operation) {
        return operation.op == Op::EnterCall ||
               (operation.op == Op::Call &&
                static_cast<const Helper*>(operation.pointer)->mayAssign);
    };
    if (std::any_of(first + 1, listing_.operations.end(), mayLook)) {
        emit(Op::LeaveCall, {});
        return;
    }
    // Nobody sees the number of open calls meanwhile.
    first->op = Op::CheckCall;
    first->a = constant(0);
    for (auto inner = first + 1; inner != listing_.operations.end(); ++inner) {
        if (inner->op == Op::CheckCall) inner->a = constant(valueOf(inner->a) + 1);
    }
}

Label Builder::newLabel() {
    listing_.labels.push_back(0);
    return static_cast<Label>(listing_.labels.size() - 1);
}

void Builder::bind(Label label) {
    listing_.labels[label] = static_cast<std::uint32_t>(listing_.operations.size());
}

void Builder::switchOn(Ref value, SwitchTable table) {
    Operation& operation = append(Op::Switch);
    operation.a = value;
    operation.label = static_cast<Label>(listing_.switches.size());
    listing_.switches.push_back(std::move(table));
}

void Builder::leave(std::int32_t code) {
    if (inlined_ != nullptr) {
        if (code == Node::returned) return jumpTo(inlined_->returned_);
        inlined_->isOtherUsed_ = true;
        return jumpTo(inlined_->other_);
    }
    emit(Op::Leave, {}, constant(code));
}

void Builder::leaveUnlessGoOn(Ref code) {
    const Label goesOn = newLabel();
    jumpIf(Relation::Equal, code, constant(Node::goOn), goesOn);
    if (inlined_ != nullptr) {
        jumpIf(Relation::Equal, code, constant(Node::returned), inlined_->returned_);
        inlined_->isOtherUsed_ = true;
        jumpTo(inlined_->other_);
    } else {
        emit(Op::Leave, {}, code);
    }
    bind(goesOn);
}

bool Builder::mayInline(const Node& function) const {
    return !isFull() && functions_.size() < mostInlinedCM &&
           std::find(functions_.begin(), functions_.end(), &function) == functions_.end();
}

Builder::Inlined::Inlined(Builder& code, const Node& function)
    : code_(code),
      outer_(std::exchange(code.inlined_, this)),
      statement_(code.statement_),
      returned_(code.newLabel()),
      other_(code.newLabel()) {
    code.functions_.push_back(&function);
}

Builder::Inlined::~Inlined() {
    code_.functions_.pop_back();
    code_.inlined_ = outer_;
    code_.statement_ = statement_;
}

Listing Builder::take() {
    // Whatever runs off the end goes on.
    emit(Op::Leave, {}, constant(Node::goOn));
    return std::move(listing_);
}

}  // namespace SCR::Code

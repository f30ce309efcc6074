#include "scr/SwitchCase.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "scr/Interpreter.h"
#include "scr/message/Messages.h"
#include "scr/parser/ParseErrors.h"
#include "scr/parser/ParseState.h"
#include "scr/parser/ParserStack.h"
#include "scr/run/Memory.h"
#include "scr/run/Work.h"
#include "scr/tree/LongArithmetic.h"
#include "scr/tree/Operand.h"
#include "scr/tree/SwitchAutomaton.h"

namespace SCR {

namespace {

// Pops a label that must be a constant of the type `expected`; null after a report.
std::unique_ptr<Node> popLabel(ParserStack& stack, int expected) {
    const int type = stack.popType();
    auto label = stack.pop<Node>();
    if (Node::baseType(type) != expected) {
        SCR_YaccError(Messages::caseLabelType(expected, type));
        return nullptr;
    }
    if (!Node::isConst(type)) {
        SCR_YaccError(Messages::caseNotConst);
        return nullptr;
    }
    return label;
}

// The memory of a label in a map, with its share of the map's own table.
constexpr std::size_t labelBytesS = 80;

// The usual computed selector.
using SelectorPairs = PairsOf<VariableOperand<LongType>, ConstantOperand<LongType>, LongRemainder>;

template <class Operand>
class LongSwitchOn final : public LongSwitchCase {
public:
    explicit LongSwitchOn(Operand selector) : selector_(std::move(selector)) {}

    std::int32_t execute() override { return choose(selector_.value()); }

private:
    Operand selector_;
};

}  // namespace

bool SwitchCase::addStatement(Node* statement) {
    state_ = State::Filled;
    return bodies_.back().statements->addStatement(statement);
}

void SwitchCase::close() {
    for (Entry& body : bodies_) {
        body.statements->close();
        body.run = StatementRun::of(*body.statements);
    }
}

void SwitchCase::complete(Choice& choice) const {
    if (choice.body == noBody || bodies_[choice.body].fallsThrough) return;
    choice.sum = bodies_[choice.body].run.sum();
}

bool SwitchCase::addBreak() {
    state_ = State::Closed;
    return true;
}

bool SwitchCase::addDefault() {
    if (default_ != noBody) return SCR_YaccError(Messages::secondDefault);
    default_ = openBody();
    return true;
}

SwitchCase::Body SwitchCase::openBody() {
    if (state_ != State::Labelled) {
        if (state_ == State::Filled) bodies_.back().fallsThrough = true;
        bodies_.push_back({std::make_unique<StatementList>(), StatementRun()});
        state_ = State::Labelled;
    }
    return static_cast<Body>(bodies_.size() - 1);
}

bool SwitchCase::returnsResult() const {
    if (default_ == noBody) return false;
    // From the last body to the first: a body returns a result if it does itself or falls through
    // into one that does.
    bool isNextReturning = false;
    for (auto body = bodies_.rbegin(); body != bodies_.rend(); ++body) {
        isNextReturning =
            body->statements->returnsResult() || (body->fallsThrough && isNextReturning);
        if (!isNextReturning) return false;
    }
    return true;
}

std::unique_ptr<LongSwitchCase> LongSwitchCase::make(std::unique_ptr<LongNode> selector) {
    using Made = std::unique_ptr<LongSwitchCase>;
    const auto make = [](auto operand) -> Made {
        return std::make_unique<LongSwitchOn<decltype(operand)>>(std::move(operand));
    };
    return withPair(SelectorPairs(), std::move(selector), make, [&](std::unique_ptr<Node> node) {
        return withOperand<LongType>(std::move(node), make);
    });
}

std::int32_t LongSwitchCase::execute() { return choose(selector_->result()); }

bool LongSwitchCase::nextCase(ParserStack& stack) {
    const std::unique_ptr<Node> label = popLabel(stack, TypeCode::Long);
    if (!label) return false;
    const long value = static_cast<LongNode&>(*label).result();
    if (labels_.contains(value)) return SCR_YaccError(Messages::caseDefined(value));
    chargeBuffer(labelBytesS);
    labels_.emplace(value, openBody());
    return true;
}

bool LongSwitchCase::finalSetup() {
    if (labels_.empty()) return true;
    const auto [least, greatest] =
        std::minmax_element(labels_.begin(), labels_.end(),
                            [](const auto& a, const auto& b) { return a.first < b.first; });
    const unsigned long range =
        static_cast<unsigned long>(greatest->first) - static_cast<unsigned long>(least->first);
    if (range / 4 > labels_.size()) return true;
    chargeBuffer(blockBytes((range + 1) * sizeof(Choice)));
    countWork((range + 1) * sizeof(Choice));
    first_ = static_cast<unsigned long>(least->first);
    table_.resize(range + 1);
    for (const auto& [label, body] : labels_) {
        table_[static_cast<unsigned long>(label) - first_] = Choice(body);
    }
    return true;
}

void LongSwitchCase::close() {
    SwitchCase::close();
    for (Choice& choice : table_) complete(choice);
}

bool StringSwitchCase::nextCase(ParserStack& stack) {
    const std::unique_ptr<Node> label = popLabel(stack, TypeCode::String);
    if (!label) return false;
    const FND::String& value = static_cast<StringNode&>(*label).result();
    if (labels_.contains(value)) return SCR_YaccError(Messages::caseDefined(value));
    chargeBuffer(labelBytesS + blockBytes(value.size() + 1));
    labels_.emplace(value, openBody());
    return true;
}

[[gnu::always_inline]] inline StringSwitchCase::Ends StringSwitchCase::endsOf(
    const FND::String& text) {
    const char* const data = text.data();
    const std::size_t size = text.size();
    Ends ends;
    ends.size = size;
    const auto load = [&]<class Word>(Word /*size*/) {
        Word word;
        std::memcpy(&word, data, sizeof(Word));
        ends.first = word;
        std::memcpy(&word, data + size - sizeof(Word), sizeof(Word));
        ends.last = word;
    };
    if (size >= 8) {
        load(std::uint64_t{});
    } else if (size >= 4) {
        load(std::uint32_t{});
    } else if (size >= 2) {
        load(std::uint16_t{});
    } else {
        ends.first = ends.last = size > 0 ? static_cast<unsigned char>(*data) : 0;
    }
    return ends;
}

// When there are few labels, they usually differ at their ends.
inline std::size_t StringSwitchCase::placeOf(const FND::String& label, const Ends& ends) const {
    constexpr std::size_t few = 64;
    if (lastSlot_ >= few) [[unlikely]]
        return keyHash(label);
    return ((ends.first ^ std::rotl(ends.last, 23)) * 0x9e3779b97f4a7c15) >> placeShift_;
}

bool StringSwitchCase::finalSetup() {
    const std::size_t slots = std::bit_ceil(2 * labels_.size() + 2);
    // NOLINTNEXTLINE(bugprone-sizeof-expression): of pointers
    chargeBuffer(blockBytes(slots * sizeof(Slot)) + blockBytes(slots * sizeof slotLabels_[0]));
    countWork(slots * sizeof(Slot));
    slots_.resize(slots);
    slotLabels_.resize(slots_.size());
    lastSlot_ = slots_.size() - 1;
    placeShift_ = std::countl_zero(slots_.size()) + 1;
    for (const auto& [label, body] : labels_) {
        longest_ = std::max(longest_, label.size());
        const Ends ends = endsOf(label);
        std::size_t place = placeOf(label, ends);
        while (slots_[place & lastSlot_].choice.body != noBody) ++place;
        slots_[place & lastSlot_] = {ends, Choice(body)};
        slotLabels_[place & lastSlot_] = &label;
    }
    return true;
}

void StringSwitchCase::close() {
    SwitchCase::close();
    for (Slot& slot : slots_) complete(slot.choice);
}

[[gnu::always_inline]] inline const SwitchCase::Choice& StringSwitchCase::select(
    const FND::String& value) const {
    const Ends ends = endsOf(value);
    for (std::size_t place = placeOf(value, ends);; ++place) {
        const Slot& slot = slots_[place & lastSlot_];
        // A free slot has the ends of "".
        if (slot.ends == ends && (ends.size <= 16 || *slotLabels_[place & lastSlot_] == value)) {
            return slot.choice;
        }
        if (slot.choice.body == noBody) return slot.choice;
    }
}

SwitchCase::Body StringSwitchCase::selectLong(const FND::String& value) const {
    countWork(value.size());
    if (value.size() > longest_) return noBody;
    const auto found = labels_.find(value);
    return found != labels_.end() ? found->second : noBody;
}

std::int32_t StringSwitchCase::execute() {
    const FND::String& value = selector_->result();
    if (isLong(value.size())) [[unlikely]]
        return run(selectLong(value));
    return run(select(value));
}

RegExprSwitchCase::RegExprSwitchCase(StringNode* selector, std::size_t stateLimit)
    : selector_(selector), automaton_(std::make_shared<SwitchAutomaton>(stateLimit)) {}

RegExprSwitchCase::~RegExprSwitchCase() = default;

bool RegExprSwitchCase::nextCase(ParserStack& stack) {
    std::unique_ptr<Node> label = popLabel(stack, TypeCode::String);
    if (!label) return false;
    const std::size_t number = automaton_->size();
    automaton_->add(std::unique_ptr<StringNode>(static_cast<StringNode*>(label.release())),
                    parsedLine());
    bodies_.push_back(openBody());
    return buildLater(automaton_, number);
}

bool RegExprSwitchCase::finalSetup() { return buildLater(automaton_, SwitchAutomaton::finalStep); }

SwitchCase::Body RegExprSwitchCase::select() const {
    const FND::String& text = selector_->result();
    if (isLong(text.size())) [[unlikely]]
        return selectLong(text);
    const std::int32_t label = automaton_->first(text);
    return label >= 0 ? bodies_[static_cast<std::size_t>(label)] : noBody;
}

SwitchCase::Body RegExprSwitchCase::selectLong(const FND::String& text) const {
    const std::int32_t label = automaton_->firstOfLong(text);
    return label >= 0 ? bodies_[static_cast<std::size_t>(label)] : noBody;
}

std::int32_t RegExprSwitchCase::execute() { return run(select()); }

}  // namespace SCR

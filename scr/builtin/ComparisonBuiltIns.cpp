#include <algorithm>
#include <compare>
#include <memory>
#include <utility>

#include "scr/builtin/base/BuiltIn.h"
#include "scr/builtin/base/BuiltInNode.h"
#include "scr/builtin/base/OperatorChain.h"
#include "scr/parser/ParserStack.h"
#include "scr/run/RunControl.h"
#include "scr/tree/Operand.h"
#include "scr/value/LargeText.h"

namespace SCR {

namespace {

using Code::Relation;

template <Relation relation>
bool holds(const auto& left, const auto& right) {
    if constexpr (relation == Relation::Less) return left < right;
    if constexpr (relation == Relation::Greater) return right < left;
    if constexpr (relation == Relation::Equal) return left == right;
    if constexpr (relation == Relation::NotEqual) return !(left == right);
    if constexpr (relation == Relation::LessEqual) return !(right < left);
    if constexpr (relation == Relation::GreaterEqual) return !(left < right);
}

void noteInvalidDate() {
    if (RunControl* const control = RunControl::current())
        control->invalidDates().areCompared = true;
}

// Long and Bool: left, then right.
template <class Type, Relation relation>
class ForwardComparison final : public BoolNode, public Code::Lowerable {
public:
    ForwardComparison(std::unique_ptr<Node> left, std::unique_ptr<Node> right)
        : left_(std::move(left)), right_(std::move(right)) {}

    bool result() override {
        const auto left = left_.value();
        return holds<relation>(left, right_.value());
    }

    Code::Ref lowerValue(Code::Builder& code, Code::Ref target) override {
        Code::Builder::Frame frame(code);
        const auto [left, right] = lowerOperands(code);
        frame.end();
        if (!target) target = code.temporary();
        code.compare(relation, target, left, right);
        return target;
    }

    void lowerJump(Code::Builder& code, Code::Label label, bool when) override {
        if (jumpAsOther(code, label, when)) return;
        Code::Builder::Frame frame(code);
        const auto [left, right] = lowerOperands(code);
        frame.end();
        code.jumpIf(when ? relation : Code::opposite(relation), left, right, label);
    }

private:
    // A Bool that is compared with a constant is a condition itself, or the opposite of one.
    bool jumpAsOther(Code::Builder& code, Code::Label label, bool when) const {
        constexpr bool isEqual = relation == Relation::Equal;
        if constexpr (std::is_same_v<Type, BoolType> &&
                      (isEqual || relation == Relation::NotEqual)) {
            const bool* const left = constantOf<BoolType>(left_.node());
            const bool* const right = constantOf<BoolType>(right_.node());
            if (left == nullptr && right == nullptr) return false;
            const bool value = right != nullptr ? *right : *left;
            code.jump(right != nullptr ? left_.node() : right_.node(), label,
                      (value == when) == isEqual);
            return true;
        }
        return false;
    }

    std::pair<Code::Ref, Code::Ref> lowerOperands(Code::Builder& code) const {
        Code::Builder::Held left = code.hold(left_.lower(code));
        const Code::Ref right = right_.lower(code);
        return {left.release(), right};
    }

    const Operand<Type> left_;
    const Operand<Type> right_;
};

// String, Decimal and Date: right, then left. `Held` keeps the right operand's value while the left
// one is evaluated.
template <class Type, Relation relation, class Held>
class BackwardComparison final : public BoolNode, public Code::Lowerable {
public:
    BackwardComparison(std::unique_ptr<Node> left, std::unique_ptr<Node> right)
        : left_(std::move(left)), right_(std::move(right)) {}

    bool result() override {
        const Held right = right_.value();
        return compare(left_.value(), right);
    }

    // The value of the operand evaluated first stays where it is, so the other one must not be able
    // to change it.
    Code::Ref lowerValue(Code::Builder& code, Code::Ref target) override {
        if (!std::is_reference_v<Held> && left_.storage() == nullptr) {
            return code.callNode(static_cast<BoolNode&>(*this), target);
        }
        Code::Builder::Frame frame(code);
        const Code::Ref right = right_.lower(code);
        const Code::Ref left = left_.lower(code);
        frame.end();
        static constexpr Code::Helper helper{Code::guarded<compareAt>,
                                             std::is_same_v<Type, StringType>, false};
        return code.call(helper, left, right, {}, target);
    }

private:
    using Value = typename Type::Value;

    static bool compare(const Value& left, const Value& right) {
        if constexpr (std::is_same_v<Value, FND::String>) {
            if (isLarge(std::min(left.size(), right.size()))) [[unlikely]]
                return holds<relation>(compareLarge(left, right), 0);
        }
        if constexpr (std::is_same_v<Type, DateType>) {
            if (!left.isValid() || !right.isValid()) [[unlikely]]
                noteInvalidDate();
        }
        return holds<relation>(left, right);
    }
    static long compareAt(RunControl& /*control*/, long left, long right, long /*c*/) {
        return compare(Code::at<const Value>(left), Code::at<const Value>(right)) ? 1 : 0;
    }

    const Operand<Type> left_;
    const Operand<Type> right_;
};

template <class Type, Relation relation>
Node* comparisonFactory(Interpreter& /*interpreter*/, ParserStack& stack,
                        const FctDescr& /*descriptor*/) {
    constexpr bool isBool = std::is_same_v<Type, BoolType>;
    if constexpr (isBool) {
        if (isChainDue(stack)) {
            OperatorChain<BoolType>::Link link;
            link.apply = [](bool& left, BoolNode& right) {
                left = holds<relation>(left, right.result());
            };
            return OperatorChain<BoolType>::make(stack, std::move(link));
        }
    }
    const bool isLeftActive = stack.traits(1).mayRunScript();
    auto right = stack.pop<Node>();
    auto left = stack.pop<Node>();
    if constexpr (isBool || std::is_same_v<Type, LongType>) {
        return new ForwardComparison<Type, relation>(std::move(left), std::move(right));
    } else {
        using Value = typename Type::Value;
        if constexpr (std::is_same_v<Type, StringType>) {
            if (!isLeftActive) {
                return new BackwardComparison<Type, relation, const Value&>(std::move(left),
                                                                            std::move(right));
            }
        }
        // The left operand may change the object that a reference to the right one's value refers
        // to.
        return new BackwardComparison<Type, relation, Value>(std::move(left), std::move(right));
    }
}

// Evaluates the right operand only when the left one does not decide.
template <bool deciding>
class BoolJunction final : public BoolNode, public Code::Lowerable {
public:
    BoolJunction(std::unique_ptr<BoolNode> left, std::unique_ptr<BoolNode> right)
        : left_(std::move(left)), right_(std::move(right)) {}

    static Node* factory(Interpreter& /*interpreter*/, ParserStack& stack,
                         const FctDescr& /*descriptor*/) {
        if (isChainDue(stack)) {
            OperatorChain<BoolType>::Link link;
            link.apply = [](bool& left, BoolNode& right) {
                if (left != deciding) left = right.result();
            };
            return OperatorChain<BoolType>::make(stack, std::move(link));
        }
        auto right = stack.pop<BoolNode>();
        auto left = stack.pop<BoolNode>();
        return new BoolJunction(std::move(left), std::move(right));
    }

    bool result() override { return left_->result() == deciding ? deciding : right_->result(); }

    Code::Ref lowerValue(Code::Builder& code, Code::Ref /*target*/) override {
        const Code::Ref value = code.temporary();
        const Code::Label isDecided = code.newLabel();
        const Code::Label end = code.newLabel();
        lowerJump(code, isDecided, deciding);
        code.emit(Code::Op::Move, value, code.constant(deciding ? 0 : 1));
        code.jumpTo(end);
        code.bind(isDecided);
        code.emit(Code::Op::Move, value, code.constant(deciding ? 1 : 0));
        code.bind(end);
        return value;
    }

    void lowerJump(Code::Builder& code, Code::Label label, bool when) override {
        if (when == deciding) {
            code.jump(*left_, label, when);
            code.jump(*right_, label, when);
            return;
        }
        const Code::Label isDecided = code.newLabel();
        code.jump(*left_, isDecided, deciding);
        code.jump(*right_, label, when);
        code.bind(isDecided);
    }

private:
    const std::unique_ptr<BoolNode> left_;
    const std::unique_ptr<BoolNode> right_;
};

using BoolAND = BoolJunction<false>;
using BoolOR = BoolJunction<true>;

struct NexidEqual final : BuiltInNode<NexidEqual, BoolType(NexidType, NexidType)> {
    static bool value(Interpreter& /*interpreter*/, const FND::Identifier& left,
                      const FND::Identifier& right) {
        return left == right;
    }
};

struct NexidNotEqual final : BuiltInNode<NexidNotEqual, BoolType(NexidType, NexidType)> {
    static bool value(Interpreter& /*interpreter*/, const FND::Identifier& left,
                      const FND::Identifier& right) {
        return !(left == right);
    }
};

constexpr std::string_view stringOrderS =
    "Strings are compared byte by byte as unsigned numbers; of two of which one begins with the "
    "other, the shorter one is less. `right` is evaluated first.";
constexpr std::string_view decimalOrderS =
    "Compares the values, whatever their numbers of digits; INVALID_DECIMAL equals itself and is "
    "less than every number. `right` is evaluated first.";
constexpr std::string_view dateOrderS =
    "Compares the points in time; the invalid date is after every valid one. `right` is evaluated "
    "first.";

constexpr BuiltIn comparisonBuiltInsS[] = {
    {.number = 59,
     .signature = "Bool Long<(Long left, Long right)",
     .factory = comparisonFactory<LongType, Relation::Less>,
     .manual = "Whether `left` is less than `right`.",
     .example = "1 < 2"},
    {.number = 60,
     .signature = "Bool Long>(Long left, Long right)",
     .factory = comparisonFactory<LongType, Relation::Greater>,
     .manual = "Whether `left` is greater than `right`.",
     .example = "2 > 1"},
    {.number = 61,
     .signature = "Bool Long==(Long left, Long right)",
     .factory = comparisonFactory<LongType, Relation::Equal>,
     .manual = "Whether the operands are equal.",
     .example = "2 == 2"},
    {.number = 62,
     .signature = "Bool Long!=(Long left, Long right)",
     .factory = comparisonFactory<LongType, Relation::NotEqual>,
     .manual = "Whether the operands differ.",
     .example = "1 != 2"},
    {.number = 63,
     .signature = "Bool Long<=(Long left, Long right)",
     .factory = comparisonFactory<LongType, Relation::LessEqual>,
     .manual = "Whether `left` is not greater than `right`.",
     .example = "2 <= 2"},
    {.number = 64,
     .signature = "Bool Long>=(Long left, Long right)",
     .factory = comparisonFactory<LongType, Relation::GreaterEqual>,
     .manual = "Whether `left` is not less than `right`.",
     .example = "2 >= 2"},
    {.number = 65,
     .signature = "Bool Bool==(Bool left, Bool right)",
     .factory = comparisonFactory<BoolType, Relation::Equal>,
     .facts = {.isChained = true},
     .manual = "Whether the operands are equal.",
     .example = "true == true"},
    {.number = 66,
     .signature = "Bool Bool!=(Bool left, Bool right)",
     .factory = comparisonFactory<BoolType, Relation::NotEqual>,
     .facts = {.isChained = true},
     .manual = "Whether the operands differ.",
     .example = "true != false"},
    {.number = 67,
     .signature = "Bool String<(String left, String right)",
     .factory = comparisonFactory<StringType, Relation::Less>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = stringOrderS,
     .example = R"("ab" < "abc")"},
    {.number = 68,
     .signature = "Bool String>(String left, String right)",
     .factory = comparisonFactory<StringType, Relation::Greater>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = stringOrderS,
     .example = R"("b" > "abc")"},
    {.number = 69,
     .signature = "Bool String==(String left, String right)",
     .factory = comparisonFactory<StringType, Relation::Equal>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = "Whether the operands have the same bytes. `right` is evaluated first.",
     .example = R"("a" == "a")"},
    {.number = 70,
     .signature = "Bool String!=(String left, String right)",
     .factory = comparisonFactory<StringType, Relation::NotEqual>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = "Whether the operands differ in any byte. `right` is evaluated first.",
     .example = R"("a" != "A")"},
    {.number = 71,
     .signature = "Bool String<=(String left, String right)",
     .factory = comparisonFactory<StringType, Relation::LessEqual>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = stringOrderS,
     .example = R"("a" <= "a")"},
    {.number = 72,
     .signature = "Bool String>=(String left, String right)",
     .factory = comparisonFactory<StringType, Relation::GreaterEqual>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = stringOrderS,
     .example = R"("a" >= "a")"},
    {.number = 73,
     .signature = "Bool Decimal<(Decimal left, Decimal right)",
     .factory = comparisonFactory<DecimalType, Relation::Less>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = decimalOrderS,
     .example = "1.5 < 1.75"},
    {.number = 74,
     .signature = "Bool Decimal>(Decimal left, Decimal right)",
     .factory = comparisonFactory<DecimalType, Relation::Greater>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = decimalOrderS,
     .example = "2 > 1.99"},
    {.number = 75,
     .signature = "Bool Decimal==(Decimal left, Decimal right)",
     .factory = comparisonFactory<DecimalType, Relation::Equal>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = decimalOrderS,
     .example = "1.50 == 1.5"},
    {.number = 76,
     .signature = "Bool Decimal!=(Decimal left, Decimal right)",
     .factory = comparisonFactory<DecimalType, Relation::NotEqual>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = decimalOrderS,
     .example = "1.5 != 1.51"},
    {.number = 77,
     .signature = "Bool Decimal<=(Decimal left, Decimal right)",
     .factory = comparisonFactory<DecimalType, Relation::LessEqual>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = decimalOrderS,
     .example = "1.5 <= 1.50"},
    {.number = 78,
     .signature = "Bool Decimal>=(Decimal left, Decimal right)",
     .factory = comparisonFactory<DecimalType, Relation::GreaterEqual>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = decimalOrderS,
     .example = "1.5 >= 1.50"},
    {.number = 79,
     .signature = "Bool Date<(Date left, Date right)",
     .factory = comparisonFactory<DateType, Relation::Less>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = dateOrderS,
     .example = "MIN_DATE < MAX_DATE"},
    {.number = 80,
     .signature = "Bool Date>(Date left, Date right)",
     .factory = comparisonFactory<DateType, Relation::Greater>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = dateOrderS,
     .example = "MAX_DATE > MIN_DATE"},
    {.number = 81,
     .signature = "Bool Date==(Date left, Date right)",
     .factory = comparisonFactory<DateType, Relation::Equal>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = dateOrderS,
     .example = "MAX_DATE == MAX_DATE"},
    {.number = 82,
     .signature = "Bool Date!=(Date left, Date right)",
     .factory = comparisonFactory<DateType, Relation::NotEqual>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = dateOrderS,
     .example = "MAX_DATE != MIN_DATE"},
    {.number = 83,
     .signature = "Bool Date<=(Date left, Date right)",
     .factory = comparisonFactory<DateType, Relation::LessEqual>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = dateOrderS,
     .example = "MIN_DATE <= MAX_DATE"},
    {.number = 84,
     .signature = "Bool Date>=(Date left, Date right)",
     .factory = comparisonFactory<DateType, Relation::GreaterEqual>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = dateOrderS,
     .example = "MAX_DATE >= MIN_DATE"},
    {.number = 86,
     .signature = "Bool Nexid==(Nexid left, Nexid right)",
     .factory = NexidEqual::factory,
     .manual = "Whether type, database, id and revision are equal.",
     .example = "NULL_NEXID == NULL_NEXID"},
    {.number = 87,
     .signature = "Bool Nexid!=(Nexid left, Nexid right)",
     .factory = NexidNotEqual::factory,
     .manual = "Whether type, database, id or revision differ.",
     .example = "NULL_NEXID != INVALID_NEXID"},
    {.number = 88,
     .signature = "Bool BoolAND(Bool left, Bool right)",
     .factory = BoolAND::factory,
     .facts = {.order = CallFacts::Order::Lazy, .isChained = true},
     .manual = "The operators `and` and `AND`: `right` is evaluated only when `left` is true. "
               "`and` and `or` bind equally tight, from left to right.",
     .example = "true and true"},
    {.number = 89,
     .signature = "Bool BoolOR(Bool left, Bool right)",
     .factory = BoolOR::factory,
     .facts = {.order = CallFacts::Order::Lazy, .isChained = true},
     .manual = "The operators `or` and `OR`: `right` is evaluated only when `left` is false. "
               "`and` and `or` bind equally tight, from left to right.",
     .example = "false or true"},
};

}  // namespace

std::span<const BuiltIn> comparisonBuiltIns() { return comparisonBuiltInsS; }

}  // namespace SCR

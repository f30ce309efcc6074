#include <algorithm>
#include <compare>

#include "scr/builtin/BuiltIn.h"
#include "scr/builtin/BuiltInNode.h"
#include "scr/builtin/OperatorChain.h"
#include "scr/parser/ParserStack.h"
#include "scr/tree/Condition.h"
#include "scr/tree/ElementAccess.h"
#include "scr/tree/LongArithmetic.h"
#include "scr/tree/Operand.h"
#include "scr/tree/StatementParts.h"
#include "scr/value/LargeText.h"

namespace SCR {

namespace {

struct Less {
    static bool apply(const auto& left, const auto& right) { return left < right; }
};
struct Greater {
    static bool apply(const auto& left, const auto& right) { return right < left; }
};
struct Equal {
    static bool apply(const auto& left, const auto& right) { return left == right; }
};
struct NotEqual {
    static bool apply(const auto& left, const auto& right) { return !(left == right); }
};
struct LessEqual {
    static bool apply(const auto& left, const auto& right) { return !(right < left); }
};
struct GreaterEqual {
    static bool apply(const auto& left, const auto& right) { return !(left < right); }
};

// The if-statement of a comparison.
template <class Comparison>
class IfComparison final : public IfStatement {
public:
    IfComparison(Comparison& comparison, std::unique_ptr<BoolNode> condition)
        : IfStatement(condition.release(), branches_), comparison_(comparison) {}

    std::int32_t execute() override { return branches_.choose(comparison_.holds()); }

private:
    Parts branches_;
    Comparison& comparison_;  // the condition
};

// Long and Bool: left, then right.
template <class Operation, class Left, class Right>
class ForwardComparison final : public ConditionNode {
public:
    ForwardComparison(Left left, Right right) : left_(std::move(left)), right_(std::move(right)) {}

    bool holds() const {
        const auto left = left_.value();
        return Operation::apply(left, right_.value());
    }

    bool result() override { return holds(); }

    std::int32_t repeat(const LoopTurn& turn) override {
        return turn.repeatWhile([this] { return holds(); });
    }

    std::unique_ptr<IfStatement> makeIf(std::unique_ptr<BoolNode> self) override {
        return std::make_unique<IfComparison<ForwardComparison>>(*this, std::move(self));
    }

private:
    Left left_;
    Right right_;
};

// String, Decimal and Date: right, then left. `Held` keeps the right operand's value while the left
// one is evaluated.
template <class Operation, class Held, class Left, class Right>
class BackwardComparison final : public BoolNode {
public:
    BackwardComparison(Left left, Right right) : left_(std::move(left)), right_(std::move(right)) {}

    bool result() override {
        const Held right = right_.value();
        const auto& left = left_.value();
        if constexpr (std::is_same_v<std::remove_cvref_t<Held>, FND::String>) {
            if (isLarge(std::min(left.size(), right.size()))) [[unlikely]]
                return Operation::apply(compareLarge(left, right), 0);
        }
        return Operation::apply(left, static_cast<const Held&>(right));
    }

private:
    Left left_;
    Right right_;
};

template <class Type>
constexpr bool isComparedForwardS =
    std::is_same_v<Type, LongType> || std::is_same_v<Type, BoolType>;

template <class Type, class Operation, class Left, class Right>
Node* makeComparison(Left left, Right right) {
    if constexpr (isComparedForwardS<Type>) {
        return new ForwardComparison<Operation, Left, Right>(std::move(left), std::move(right));
    } else {
        using Held = std::conditional_t<std::is_same_v<Type, StringType>, const FND::String&,
                                        typename Type::Value>;
        return new BackwardComparison<Operation, Held, Left, Right>(std::move(left),
                                                                    std::move(right));
    }
}

// Remainders that scripts compare with a constant.
using TestedPairs =
    PairList<LongPair<LongRemainder, VariableOperand<LongType>, ConstantOperand<LongType>>,
             LongPair<LongRemainder,
                      LongPair<LongAddition, VariableOperand<LongType>, VariableOperand<LongType>>,
                      ConstantOperand<LongType>>>;

template <class Type>
class Compare {
public:
    template <class Operation>
    static Node* factory(Interpreter& /*interpreter*/, ParserStack& stack,
                         const FctDescr& /*descriptor*/) {
        if constexpr (std::is_same_v<Type, BoolType>) {
            if (isChainDue(stack)) {
                OperatorChain<BoolType>::Link link;
                link.apply = [](bool& left, BoolNode& right) {
                    left = Operation::apply(left, right.result());
                };
                return OperatorChain<BoolType>::make(stack, std::move(link));
            }
        }
        const bool isLeftActive = stack.traits(1).mayRunScript;
        auto right = stack.pop<Node>();
        auto left = stack.pop<Node>();
        if constexpr (std::is_same_v<Type, StringType>) {
            // The left operand may change the object that a reference to the right one's value
            // refers to.
            if (isLeftActive) {
                using Any = AnyOperand<Type>;
                return new BackwardComparison<Operation, FND::String, Any, Any>(
                    Any(std::move(left)), Any(std::move(right)));
            }
        }
        return withOperand<Type>(std::move(right), [&](auto rightOperand) -> Node* {
            const auto make = [&](auto leftOperand) {
                return makeComparison<Type, Operation>(std::move(leftOperand),
                                                       std::move(rightOperand));
            };
            const auto makeWithLeaf = [&](std::unique_ptr<Node> node) {
                if constexpr (SpecialisesNodes && isComparedForwardS<Type>) {
                    if (isNamedElement<Type>(*node)) {
                        return make(ElementOperand<Type>(std::move(node)));
                    }
                }
                return withOperand<Type>(std::move(node), make);
            };
            if constexpr (std::is_same_v<decltype(rightOperand), ConstantOperand<LongType>>) {
                return withPair(TestedPairs(), std::move(left), make, makeWithLeaf);
            } else {
                return makeWithLeaf(std::move(left));
            }
        });
    }
};

// Evaluates the right operand only when the left one does not decide.
template <bool deciding>
class BoolJunction final : public BoolNode {
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
     .factory = Compare<LongType>::factory<Less>,
     .manual = "Whether `left` is less than `right`.",
     .example = "1 < 2"},
    {.number = 60,
     .signature = "Bool Long>(Long left, Long right)",
     .factory = Compare<LongType>::factory<Greater>,
     .manual = "Whether `left` is greater than `right`.",
     .example = "2 > 1"},
    {.number = 61,
     .signature = "Bool Long==(Long left, Long right)",
     .factory = Compare<LongType>::factory<Equal>,
     .manual = "Whether the operands are equal.",
     .example = "2 == 2"},
    {.number = 62,
     .signature = "Bool Long!=(Long left, Long right)",
     .factory = Compare<LongType>::factory<NotEqual>,
     .manual = "Whether the operands differ.",
     .example = "1 != 2"},
    {.number = 63,
     .signature = "Bool Long<=(Long left, Long right)",
     .factory = Compare<LongType>::factory<LessEqual>,
     .manual = "Whether `left` is not greater than `right`.",
     .example = "2 <= 2"},
    {.number = 64,
     .signature = "Bool Long>=(Long left, Long right)",
     .factory = Compare<LongType>::factory<GreaterEqual>,
     .manual = "Whether `left` is not less than `right`.",
     .example = "2 >= 2"},
    {.number = 65,
     .signature = "Bool Bool==(Bool left, Bool right)",
     .factory = Compare<BoolType>::factory<Equal>,
     .facts = {.isChained = true},
     .manual = "Whether the operands are equal.",
     .example = "true == true"},
    {.number = 66,
     .signature = "Bool Bool!=(Bool left, Bool right)",
     .factory = Compare<BoolType>::factory<NotEqual>,
     .facts = {.isChained = true},
     .manual = "Whether the operands differ.",
     .example = "true != false"},
    {.number = 67,
     .signature = "Bool String<(String left, String right)",
     .factory = Compare<StringType>::factory<Less>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = stringOrderS,
     .example = R"("ab" < "abc")"},
    {.number = 68,
     .signature = "Bool String>(String left, String right)",
     .factory = Compare<StringType>::factory<Greater>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = stringOrderS,
     .example = R"("b" > "abc")"},
    {.number = 69,
     .signature = "Bool String==(String left, String right)",
     .factory = Compare<StringType>::factory<Equal>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = "Whether the operands have the same bytes. `right` is evaluated first.",
     .example = R"("a" == "a")"},
    {.number = 70,
     .signature = "Bool String!=(String left, String right)",
     .factory = Compare<StringType>::factory<NotEqual>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = "Whether the operands differ in any byte. `right` is evaluated first.",
     .example = R"("a" != "A")"},
    {.number = 71,
     .signature = "Bool String<=(String left, String right)",
     .factory = Compare<StringType>::factory<LessEqual>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = stringOrderS,
     .example = R"("a" <= "a")"},
    {.number = 72,
     .signature = "Bool String>=(String left, String right)",
     .factory = Compare<StringType>::factory<GreaterEqual>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = stringOrderS,
     .example = R"("a" >= "a")"},
    {.number = 73,
     .signature = "Bool Decimal<(Decimal left, Decimal right)",
     .factory = Compare<DecimalType>::factory<Less>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = decimalOrderS,
     .example = "1.5 < 1.75"},
    {.number = 74,
     .signature = "Bool Decimal>(Decimal left, Decimal right)",
     .factory = Compare<DecimalType>::factory<Greater>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = decimalOrderS,
     .example = "2 > 1.99"},
    {.number = 75,
     .signature = "Bool Decimal==(Decimal left, Decimal right)",
     .factory = Compare<DecimalType>::factory<Equal>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = decimalOrderS,
     .example = "1.50 == 1.5"},
    {.number = 76,
     .signature = "Bool Decimal!=(Decimal left, Decimal right)",
     .factory = Compare<DecimalType>::factory<NotEqual>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = decimalOrderS,
     .example = "1.5 != 1.51"},
    {.number = 77,
     .signature = "Bool Decimal<=(Decimal left, Decimal right)",
     .factory = Compare<DecimalType>::factory<LessEqual>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = decimalOrderS,
     .example = "1.5 <= 1.50"},
    {.number = 78,
     .signature = "Bool Decimal>=(Decimal left, Decimal right)",
     .factory = Compare<DecimalType>::factory<GreaterEqual>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = decimalOrderS,
     .example = "1.5 >= 1.50"},
    {.number = 79,
     .signature = "Bool Date<(Date left, Date right)",
     .factory = Compare<DateType>::factory<Less>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = dateOrderS,
     .example = "MIN_DATE < MAX_DATE"},
    {.number = 80,
     .signature = "Bool Date>(Date left, Date right)",
     .factory = Compare<DateType>::factory<Greater>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = dateOrderS,
     .example = "MAX_DATE > MIN_DATE"},
    {.number = 81,
     .signature = "Bool Date==(Date left, Date right)",
     .factory = Compare<DateType>::factory<Equal>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = dateOrderS,
     .example = "MAX_DATE == MAX_DATE"},
    {.number = 82,
     .signature = "Bool Date!=(Date left, Date right)",
     .factory = Compare<DateType>::factory<NotEqual>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = dateOrderS,
     .example = "MAX_DATE != MIN_DATE"},
    {.number = 83,
     .signature = "Bool Date<=(Date left, Date right)",
     .factory = Compare<DateType>::factory<LessEqual>,
     .facts = {.order = CallFacts::Order::Backward},
     .manual = dateOrderS,
     .example = "MIN_DATE <= MAX_DATE"},
    {.number = 84,
     .signature = "Bool Date>=(Date left, Date right)",
     .factory = Compare<DateType>::factory<GreaterEqual>,
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

#include <limits>

#include "scr/Interpreter.h"
#include "scr/Operand.h"
#include "scr/builtin/BuiltIn.h"
#include "scr/builtin/LongArithmetic.h"
#include "scr/builtin/StringSum.h"
#include "scr/parser/ParserStack.h"

namespace SCR {

namespace {

class DecimalArithmetic : public DecimalNode {};

struct DecimalAddition {
    static FND::Decimal apply(const FND::Decimal& left, const FND::Decimal& right) {
        return left + right;
    }
};

struct DecimalSubtraction {
    static FND::Decimal apply(const FND::Decimal& left, const FND::Decimal& right) {
        return left - right;
    }
};

struct DecimalMultiplication {
    static FND::Decimal apply(const FND::Decimal& left, const FND::Decimal& right) {
        return left * right;
    }
};

template <class Operation, class Left, class Right>
class DecimalBinary final : public DecimalArithmetic {
public:
    DecimalBinary(Left left, Right right) : left_(std::move(left)), right_(std::move(right)) {}

    const FND::Decimal& result() override {
        const FND::Decimal left = left_.value();
        result_ = Operation::apply(left, right_.value());
        return result_;
    }

private:
    Left left_;
    Right right_;
    FND::Decimal result_;
};

// Evaluates the divisor first, and nothing else when it is zero: then the quotient is 0.0.
template <class Left, class Right>
class DecimalQuotient final : public DecimalArithmetic {
public:
    DecimalQuotient(Left left, Right right) : left_(std::move(left)), right_(std::move(right)) {}

    const FND::Decimal& result() override {
        const FND::Decimal right = right_.value();
        result_ = right == FND_DECIMAL_NULL ? zeroS : left_.value() / right;
        return result_;
    }

private:
    static inline const FND::Decimal zeroS = FND::Decimal::fromString("0.0");

    Left left_;
    Right right_;
    FND::Decimal result_;
};

class StringArithmetic : public StringNode {};

// For a right operand that may run script code, and with it change the left one's variable or this
// very node's result.
class HeldConcatenation final : public StringArithmetic {
public:
    HeldConcatenation(RunControl& control, std::unique_ptr<Node> left, std::unique_ptr<Node> right)
        : control_(control), left_(std::move(left)), right_(std::move(right)) {}

    const FND::String& result() override {
        const HeldCopy<FND::String> left(left_.value());
        const FND::String& right = right_.value();
        control_.checkString(this, left.value().size() + right.size());
        growBuffer(result_, left.value().size() + right.size());
        result_.assign(left.value());
        result_.append(right);
        return result_;
    }

private:
    RunControl& control_;
    AnyOperand<StringType> left_;
    AnyOperand<StringType> right_;
    FND::String result_;
};

// A factory that pops two operands and builds the instance of `NodeTemplate` for their kinds.
template <class Type, template <class, class> class NodeTemplate>
struct BinaryFactory {
    static Node* factory(Interpreter& /*interpreter*/, ParserStack& stack,
                         const FctDescr& /*descriptor*/) {
        auto right = stack.pop<Node>();
        auto left = stack.pop<Node>();
        return withOperands<Type>(
            std::move(left), std::move(right), [](auto leftOperand, auto rightOperand) -> Node* {
                return new NodeTemplate<decltype(leftOperand), decltype(rightOperand)>(
                    std::move(leftOperand), std::move(rightOperand));
            });
    }
};

template <class Left, class Right>
using DecimalSum = DecimalBinary<DecimalAddition, Left, Right>;
template <class Left, class Right>
using DecimalDifference = DecimalBinary<DecimalSubtraction, Left, Right>;
template <class Left, class Right>
using DecimalProduct = DecimalBinary<DecimalMultiplication, Left, Right>;

// Takes a pair of variables and constants on either side into the node.
template <class Operation>
struct LongFactory {
    using Any = AnyOperand<LongType>;
    using Named = VariableOperand<LongType>;

    static Node* factory(Interpreter& /*interpreter*/, ParserStack& stack,
                         const FctDescr& /*descriptor*/) {
        auto right = stack.pop<Node>();
        auto left = stack.pop<Node>();
        return withOperand<LongType>(std::move(right), [&](auto operand) {
            return takeLeft(std::move(left), std::move(operand));
        });
    }

private:
    template <class Right>
    static Node* takeLeft(std::unique_ptr<Node> left, Right right) {
        const auto makeWith = [&](auto operand) {
            return make(std::move(operand), std::move(right));
        };
        const auto makeWithLeaf = [&](std::unique_ptr<Node> node) {
            return withOperand<LongType>(std::move(node), makeWith);
        };
        if constexpr (std::is_same_v<Operation, LongRemainder> &&
                      std::is_same_v<Right, ConstantOperand<LongType>>) {
            return withPair(JoinedPairs<InnerPairs, CyclePairs>::Type(), std::move(left), makeWith,
                            makeWithLeaf);
        } else {
            return withPair(InnerPairs(), std::move(left), makeWith, makeWithLeaf);
        }
    }

    static Node* takeLeft(std::unique_ptr<Node> left, Any right) {
        return withOperand<LongType>(std::move(left), [&](auto operand) {
            return takeRight(std::move(operand), std::move(right));
        });
    }

    template <class Left>
    static Node* takeRight(Left left, Any right) {
        return make(std::move(left), std::move(right));
    }

    static Node* takeRight(Named left, Any right) {
        const auto makeWith = [&](auto operand) { return make(left, std::move(operand)); };
        return withPair(InnerPairs(), std::move(right).node(), makeWith,
                        [&](std::unique_ptr<Node> node) { return makeWith(Any(std::move(node))); });
    }

    template <class Left, class Right>
    static Node* make(Left left, Right right) {
        using Pair = LongPair<Operation, Left, Right>;
        return new LongPairNode<Pair>(Pair(std::move(left), std::move(right)));
    }
};

using LongAdd = LongFactory<LongAddition>;
using LongSub = LongFactory<LongSubtraction>;
using LongMul = LongFactory<LongMultiplication>;
using LongDiv = LongFactory<LongQuotient>;
using LongMod = LongFactory<LongRemainder>;
using DecimalAdd = BinaryFactory<DecimalType, DecimalSum>;
using DecimalSub = BinaryFactory<DecimalType, DecimalDifference>;
using DecimalMul = BinaryFactory<DecimalType, DecimalProduct>;
using DecimalDiv = BinaryFactory<DecimalType, DecimalQuotient>;

struct StringAdd {
    static Node* factory(Interpreter& interpreter, ParserStack& stack,
                         const FctDescr& /*descriptor*/) {
        RunControl& control = interpreter.runControl();
        const bool isRightActive = stack.traits().isActive;
        auto right = stack.pop<Node>();
        auto left = stack.pop<Node>();
        if (isRightActive) return new HeldConcatenation(control, std::move(left), std::move(right));
        return StringSum::make(control, std::move(left), std::move(right)).release();
    }
};

class LongNegation final : public LongNode {
public:
    explicit LongNegation(std::unique_ptr<LongNode> operand) : operand_(std::move(operand)) {}

    static Node* factory(Interpreter& /*interpreter*/, ParserStack& stack,
                         const FctDescr& /*descriptor*/) {
        return new LongNegation(stack.pop<LongNode>());
    }

    long result() override { return LongSubtraction::apply(0, operand_->result()); }

private:
    const std::unique_ptr<LongNode> operand_;
};

class DecimalNegation final : public DecimalNode {
public:
    explicit DecimalNegation(std::unique_ptr<DecimalNode> operand) : operand_(std::move(operand)) {}

    static Node* factory(Interpreter& /*interpreter*/, ParserStack& stack,
                         const FctDescr& /*descriptor*/) {
        return new DecimalNegation(stack.pop<DecimalNode>());
    }

    const FND::Decimal& result() override {
        result_ = -operand_->result();
        return result_;
    }

private:
    const std::unique_ptr<DecimalNode> operand_;
    FND::Decimal result_;
};

constexpr BuiltIn arithmeticBuiltInsS[] = {
    {.number = 7,
     .signature = "Long Long+(Long left, Long right)",
     .factory = LongAdd::factory,
     .manual = "The sum. It wraps around when it does not fit in 64 bits.",
     .example = "2 + 3 == 5"},
    {.number = 8,
     .signature = "Long Long*(Long left, Long right)",
     .factory = LongMul::factory,
     .manual = "The product. It wraps around when it does not fit in 64 bits.",
     .example = "2 * 3 == 6"},
    {.number = 9,
     .signature = "Long Long-(Long left, Long right)",
     .factory = LongSub::factory,
     .manual = "The difference. It wraps around when it does not fit in 64 bits.",
     .example = "2 - 3 == -1"},
    {.number = 10,
     .signature = "Long Long/(Long left, Long right)",
     .factory = LongDiv::factory,
     .manual = "The quotient, truncated toward zero. A divisor of 0 gives 0, and `left` is not "
               "evaluated then.",
     .example = "-7 / 2 == -3"},
    {.number = 11,
     .signature = "Long Long%(Long left, Long right)",
     .factory = LongMod::factory,
     .manual = "The remainder of the division, with the sign of `left`. A divisor of 0 gives 0, "
               "and `left` is not evaluated then.",
     .example = "-7 % 2 == -1"},
    {.number = 12,
     .signature = "Long LongNegation(Long operand)",
     .factory = LongNegation::factory,
     .manual = "Unary minus. The smallest Long stays itself.",
     .example = "Long n = 3; -n == -3"},
    {.number = 13,
     .signature = "Decimal Decimal+(Decimal left, Decimal right)",
     .factory = DecimalAdd::factory,
     .manual = "The sum, exact when it fits in the digits of a Decimal, otherwise rounded half to "
               "even.",
     .example = "0.1 + 0.2 == 0.3"},
    {.number = 14,
     .signature = "Decimal Decimal*(Decimal left, Decimal right)",
     .factory = DecimalMul::factory,
     .manual = "The product, exact when it fits in the digits of a Decimal, otherwise rounded "
               "half to even.",
     .example = "1.5 * 1.5 == 2.25"},
    {.number = 15,
     .signature = "Decimal Decimal-(Decimal left, Decimal right)",
     .factory = DecimalSub::factory,
     .manual = "The difference, exact when it fits in the digits of a Decimal, otherwise rounded "
               "half to even.",
     .example = "0.3 - 0.1 == 0.2"},
    {.number = 16,
     .signature = "Decimal Decimal/(Decimal left, Decimal right)",
     .factory = DecimalDiv::factory,
     .manual = "The quotient, rounded half to even to the digits of a Decimal. A divisor of zero "
               "gives 0.0, and `left` is not evaluated then.",
     .example = "1.0 / 8 == 0.125"},
    {.number = 17,
     .signature = "Decimal DecimalNegation(Decimal operand)",
     .factory = DecimalNegation::factory,
     .manual = "Unary minus.",
     .example = "Decimal d = 2.5; -d == -2.5"},
    {.number = 18,
     .signature = "String String+(String left, String right)",
     .factory = StringAdd::factory,
     .manual = "`left` followed by `right`.",
     .example = R"("ab" + "c" == "abc")"},
};

}  // namespace

std::span<const BuiltIn> arithmeticBuiltIns() { return arithmeticBuiltInsS; }

}  // namespace SCR

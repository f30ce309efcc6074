#include <algorithm>
#include <memory>
#include <optional>
#include <vector>

#include "scr/Interpreter.h"
#include "scr/builtin/base/BuiltIn.h"
#include "scr/builtin/base/OperatorChain.h"
#include "scr/builtin/base/StringSum.h"
#include "scr/parser/ParserStack.h"
#include "scr/run/MemoryCharge.h"
#include "scr/run/RunControl.h"
#include "scr/tree/Operand.h"
#include "scr/value/LongArithmetic.h"

namespace SCR {

namespace {

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

struct DecimalDivision {
    static FND::Decimal apply(const FND::Decimal& left, const FND::Decimal& right) {
        return right == FND_DECIMAL_NULL ? zeroS : left / right;
    }
    static inline const FND::Decimal zeroS = FND::Decimal::fromString("0.0");
};

template <class Operation>
inline constexpr bool isDivisionS =
    std::is_same_v<Operation, LongQuotient> || std::is_same_v<Operation, LongRemainder> ||
    std::is_same_v<Operation, DecimalDivision>;

// Left is evaluated first. A division evaluates the divisor first, and if it is 0 nothing else.
template <class Operation>
class LongBinary final : public LongNode, public Code::Lowerable {
public:
    LongBinary(std::unique_ptr<Node> left, std::unique_ptr<Node> right)
        : left_(std::move(left)), right_(std::move(right)) {}

    long result() override {
        if constexpr (isDivisionS<Operation>) {
            const long right = right_.value();
            return right != 0 ? Operation::apply(left_.value(), right) : 0;
        } else {
            const long left = left_.value();
            return Operation::apply(left, right_.value());
        }
    }

    Code::Ref lowerValue(Code::Builder& code, Code::Ref target) override {
        if constexpr (isDivisionS<Operation>) {
            return lowerDivision(code, target);
        } else {
            Code::Builder::Frame frame(code);
            Code::Builder::Held left = code.hold(left_.lower(code));
            const Code::Ref right = right_.lower(code);
            const Code::Ref operand = left.release();
            frame.end();
            if (!target) target = code.temporary();
            code.emit(opS, target, operand, right);
            return target;
        }
    }

private:
    static constexpr Code::Op opS =
        std::is_same_v<Operation, LongAddition>         ? Code::Op::Add
        : std::is_same_v<Operation, LongSubtraction>    ? Code::Op::Subtract
        : std::is_same_v<Operation, LongMultiplication> ? Code::Op::Multiply
        : std::is_same_v<Operation, LongQuotient>       ? Code::Op::Divide
                                                        : Code::Op::Remainder;

    Code::Ref lowerDivision(Code::Builder& code, Code::Ref target) {
        if (!target) target = code.temporary();
        const Code::Builder::Frame frame(code);
        Code::Builder::Held right = code.hold(right_.lower(code));
        const Code::Ref tested = right.operand();
        const bool isKnown = tested.is(Code::Ref::Kind::Constant);
        if (isKnown && code.valueOf(tested) == 0) return tested;
        const Code::Label isZero = code.newLabel();
        if (!isKnown) code.jumpIf(Code::Relation::Equal, tested, code.constant(0), isZero);
        const Code::Ref left = left_.lower(code);
        code.emit(opS, target, left, right.release());
        if (!isKnown) {
            const Code::Label end = code.newLabel();
            code.jumpTo(end);
            code.bind(isZero);
            code.emit(Code::Op::Move, target, code.constant(0));
            code.bind(end);
        }
        return target;
    }

    Operand<LongType> left_;
    Operand<LongType> right_;
};

// The same for Decimals.
template <class Operation>
class DecimalBinary final : public DecimalNode, public Code::Lowerable {
public:
    DecimalBinary(std::unique_ptr<Node> left, std::unique_ptr<Node> right)
        : left_(std::move(left)), right_(std::move(right)) {}

    const FND::Decimal& result() override {
        if constexpr (isDivisionS<Operation>) {
            const FND::Decimal right = right_.value();
            result_ = right == FND_DECIMAL_NULL ? DecimalDivision::zeroS : left_.value() / right;
        } else {
            const FND::Decimal left = left_.value();
            result_ = Operation::apply(left, right_.value());
        }
        return result_;
    }

    // The target is a place for the result. The operand evaluated first stays where it is, so the
    // other one must not be able to change it.
    Code::Ref lowerValue(Code::Builder& code, Code::Ref target) override {
        constexpr bool isDivision = isDivisionS<Operation>;
        if ((isDivision ? left_ : right_).storage() == nullptr) {
            return code.callNode(static_cast<DecimalNode&>(*this), target);
        }
        const Code::Builder::Frame frame(code);
        const Code::Ref left = left_.lower(code);
        const Code::Ref right = right_.lower(code);
        if (!target) target = code.address(&result_);
        static constexpr Code::Helper helper{Code::guarded<applyTo>, false, false};
        code.call(helper, target, left, right);
        return target;
    }

private:
    static long applyTo(RunControl& /*control*/, long target, long left, long right) {
        Code::at<FND::Decimal>(target) = Operation::apply(Code::at<const FND::Decimal>(left),
                                                          Code::at<const FND::Decimal>(right));
        return 0;
    }

    Operand<DecimalType> left_;
    Operand<DecimalType> right_;
    FND::Decimal result_;
};

// An operation as a link of a chain.
template <class Type, class Operation>
typename OperatorChain<Type>::Link linkOf() {
    using Chain = OperatorChain<Type>;
    typename Chain::Link link;
    if constexpr (std::is_same_v<typename Chain::Value, long> && isDivisionS<Operation>) {
        link.divide = [](const long& left, const long& right) {
            return right != 0 ? Operation::apply(left, right) : 0;
        };
    } else if constexpr (std::is_same_v<Operation, DecimalDivision>) {
        link.divide = Operation::apply;
    } else {
        link.apply = [](typename Chain::Value& left, typename Chain::Operand& right) {
            left = Operation::apply(left, right.result());
        };
    }
    return link;
}

// A text that is put together while script code runs.
class HeldText {
public:
    const FND::String& text() const { return text_; }

    void append(const FND::String& more) {
        const std::size_t size = text_.size() + more.size();
        if (size > text_.capacity()) {
            const std::size_t capacity = std::max(size, 2 * text_.capacity());
            BufferCharge charge(blockBytes(capacity + 1));
            reserveInPieces(text_, capacity);
            charge_.emplace(std::move(charge));
        }
        appendInPieces(text_, more);
    }

private:
    std::optional<BufferCharge> charge_;
    FND::String text_;
};

// Strings one after the other. Any but the first may run script code, which can change the
// variables of those before it or the result of this very node.
class HeldConcatenation final : public StringNode {
public:
    HeldConcatenation(RunControl& control, std::unique_ptr<Node> first) : control_(control) {
        add(std::move(first));
    }

    void add(std::unique_ptr<Node> operand) { parts_.emplace_back(std::move(operand)); }

    const FND::String& result() override {
        HeldText held;
        for (auto part = parts_.begin(); part != parts_.end() - 1; ++part) {
            const FND::String& text = part->value();
            control_.checkString(this, held.text().size() + text.size());
            held.append(text);
        }
        const FND::String& last = parts_.back().value();
        const std::size_t size = held.text().size() + last.size();
        control_.checkString(this, size);
        growBuffer(result_, size);
        result_.assign(held.text());
        result_.append(last);
        return result_;
    }

private:
    RunControl& control_;
    std::vector<Operand<StringType>> parts_;
    FND::String result_;
};

template <class Operation>
struct DecimalFactory {
    static Node* factory(Interpreter& /*interpreter*/, ParserStack& stack,
                         const FctDescr& /*descriptor*/) {
        if (isChainDue(stack)) {
            return OperatorChain<DecimalType>::make(stack, linkOf<DecimalType, Operation>());
        }
        auto right = stack.pop<Node>();
        auto left = stack.pop<Node>();
        return new DecimalBinary<Operation>(std::move(left), std::move(right));
    }
};

template <class Operation>
struct LongFactory {
    static Node* factory(Interpreter& /*interpreter*/, ParserStack& stack,
                         const FctDescr& /*descriptor*/) {
        if (isChainDue(stack)) {
            return OperatorChain<LongType>::make(stack, linkOf<LongType, Operation>());
        }
        auto right = stack.pop<Node>();
        auto left = stack.pop<Node>();
        return new LongBinary<Operation>(std::move(left), std::move(right));
    }
};

using LongAdd = LongFactory<LongAddition>;
using LongSub = LongFactory<LongSubtraction>;
using LongMul = LongFactory<LongMultiplication>;
using LongDiv = LongFactory<LongQuotient>;
using LongMod = LongFactory<LongRemainder>;
using DecimalAdd = DecimalFactory<DecimalAddition>;
using DecimalSub = DecimalFactory<DecimalSubtraction>;
using DecimalMul = DecimalFactory<DecimalMultiplication>;
using DecimalDiv = DecimalFactory<DecimalDivision>;

struct StringAdd {
    static Node* factory(Interpreter& interpreter, ParserStack& stack,
                         const FctDescr& /*descriptor*/) {
        RunControl& control = interpreter.runControl();
        const bool isRightActive = stack.traits().mayRunScript();
        auto right = stack.pop<Node>();
        auto left = stack.pop<Node>();
        const Node& node = *left;
        if (&typeid(node) == &typeid(HeldConcatenation)) {
            static_cast<HeldConcatenation&>(*left).add(std::move(right));
            return left.release();
        }
        if (isRightActive) {
            auto held = std::make_unique<HeldConcatenation>(control, std::move(left));
            held->add(std::move(right));
            return held.release();
        }
        return StringSum::make(control, std::move(left), std::move(right)).release();
    }
};

class LongNegation final : public LongNode, public Code::Lowerable {
public:
    explicit LongNegation(std::unique_ptr<Node> operand) : operand_(std::move(operand)) {}

    static Node* factory(Interpreter& /*interpreter*/, ParserStack& stack,
                         const FctDescr& /*descriptor*/) {
        return new LongNegation(stack.pop<Node>());
    }

    long result() override { return LongSubtraction::apply(0, operand_.value()); }

    Code::Ref lowerValue(Code::Builder& code, Code::Ref target) override {
        Code::Builder::Frame frame(code);
        const Code::Ref operand = operand_.lower(code);
        frame.end();
        if (!target) target = code.temporary();
        code.emit(Code::Op::Negate, target, operand);
        return target;
    }

private:
    const Operand<LongType> operand_;
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
     .facts = {.isChained = true},
     .manual = "The sum. It wraps around when it does not fit in 64 bits.",
     .example = "2 + 3 == 5"},
    {.number = 8,
     .signature = "Long Long*(Long left, Long right)",
     .factory = LongMul::factory,
     .facts = {.isChained = true},
     .manual = "The product. It wraps around when it does not fit in 64 bits.",
     .example = "2 * 3 == 6"},
    {.number = 9,
     .signature = "Long Long-(Long left, Long right)",
     .factory = LongSub::factory,
     .facts = {.isChained = true},
     .manual = "The difference. It wraps around when it does not fit in 64 bits.",
     .example = "2 - 3 == -1"},
    {.number = 10,
     .signature = "Long Long/(Long left, Long right)",
     .factory = LongDiv::factory,
     .facts = {.order = CallFacts::Order::Backward, .isChained = true},
     .manual = "The quotient, truncated toward zero. A divisor of 0 gives 0, and `left` is not "
               "evaluated then.",
     .example = "-7 / 2 == -3"},
    {.number = 11,
     .signature = "Long Long%(Long left, Long right)",
     .factory = LongMod::factory,
     .facts = {.order = CallFacts::Order::Backward, .isChained = true},
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
     .facts = {.isChained = true},
     .manual = "The sum, exact when it fits in the digits of a Decimal, otherwise rounded half to "
               "even.",
     .example = "0.1 + 0.2 == 0.3"},
    {.number = 14,
     .signature = "Decimal Decimal*(Decimal left, Decimal right)",
     .factory = DecimalMul::factory,
     .facts = {.isChained = true},
     .manual = "The product, exact when it fits in the digits of a Decimal, otherwise rounded "
               "half to even.",
     .example = "1.5 * 1.5 == 2.25"},
    {.number = 15,
     .signature = "Decimal Decimal-(Decimal left, Decimal right)",
     .factory = DecimalSub::factory,
     .facts = {.isChained = true},
     .manual = "The difference, exact when it fits in the digits of a Decimal, otherwise rounded "
               "half to even.",
     .example = "0.3 - 0.1 == 0.2"},
    {.number = 16,
     .signature = "Decimal Decimal/(Decimal left, Decimal right)",
     .factory = DecimalDiv::factory,
     .facts = {.order = CallFacts::Order::Backward, .isChained = true},
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
     .facts = {.isChained = true},
     .manual = "`left` followed by `right`.",
     .example = R"("ab" + "c" == "abc")"},
};

}  // namespace

std::span<const BuiltIn> arithmeticBuiltIns() { return arithmeticBuiltInsS; }

}  // namespace SCR

#pragma once

#include <typeinfo>

#include "scr/tree/ConstantDivisor.h"
#include "scr/tree/Operand.h"

namespace SCR {

// The operations on two Longs. They wrap around.

struct LongAddition {
    static long apply(long left, long right) {
        return static_cast<long>(static_cast<unsigned long>(left) +
                                 static_cast<unsigned long>(right));
    }
};

struct LongSubtraction {
    static long apply(long left, long right) {
        return static_cast<long>(static_cast<unsigned long>(left) -
                                 static_cast<unsigned long>(right));
    }
};

struct LongMultiplication {
    static long apply(long left, long right) {
        return static_cast<long>(static_cast<unsigned long>(left) *
                                 static_cast<unsigned long>(right));
    }
};

/// Only called with a divisor other than 0.
struct LongQuotient {
    static long apply(long left, long right) {
        // The smallest value has no positive counterpart: it wraps to itself.
        if (right == -1) return LongSubtraction::apply(0, left);
        return left / right;
    }
    static long apply(long left, const ConstantDivisor& right) { return right.quotient(left); }
};

/// Only called with a divisor other than 0.
struct LongRemainder {
    static long apply(long left, long right) { return right == -1 ? 0 : left % right; }
    static long apply(long left, const ConstantDivisor& right) { return right.remainder(left); }
};

template <class Operation>
inline constexpr bool isDivisionS =
    std::is_same_v<Operation, LongQuotient> || std::is_same_v<Operation, LongRemainder>;

/// An operation with its operands; itself an operand of the node around it. Left is evaluated
/// first; a division evaluates the divisor first, and if it is 0 nothing else.
template <class Operation, class Left, class Right>
class LongPair {
public:
    /// Whether it is a difference.
    static constexpr bool subtracts = std::is_same_v<Operation, LongSubtraction>;

    LongPair(Left left, Right right) : left_(std::move(left)), right_(std::move(right)) {}

    const Left& left() const { return left_; }
    const Right& right() const { return right_; }

    // Otherwise GCC calls it, and a call costs more than the function does.
    [[gnu::always_inline]] long value() const {
        if constexpr (isDivisionS<Operation>) {
            const long right = right_.value();
            return right != 0 ? Operation::apply(left_.value(), right) : 0;
        } else {
            const long left = left_.value();
            return Operation::apply(left, right_.value());
        }
    }

private:
    Left left_;
    Right right_;
};

template <class Operation, class Left>
requires isDivisionS<Operation>
class LongPair<Operation, Left, ConstantOperand<LongType>> {
public:
    LongPair(Left left, const ConstantOperand<LongType>& right)
        : left_(std::move(left)), right_(right.value()) {}

    [[gnu::always_inline]] long value() const {
        return right_.isZero() ? 0 : Operation::apply(left_.value(), right_);
    }

private:
    Left left_;
    ConstantDivisor right_;
};

/// The node of a pair. The node around it may take the pair over and then drops this one.
template <class Pair>
class LongPairNode final : public LongNode {
public:
    explicit LongPairNode(Pair pair) : pair_(std::move(pair)) {}
    long result() override { return pair_.value(); }
    Pair& pair() { return pair_; }

private:
    Pair pair_;
};

/// The kinds of pairs that `withPair` recognises.
template <class... Pairs>
struct PairList {};

/// Calls `make` with the pair of `node` when `node` holds one of the pairs listed; otherwise calls
/// `other` with the node. Both have the same return type.
template <class Make, class Other>
auto withPair(PairList<> /*none*/, std::unique_ptr<Node> node, Make&& /*make*/, Other&& other) {
    return other(std::move(node));
}

template <class Pair, class... Pairs, class Make, class Other>
auto withPair(PairList<Pair, Pairs...> /*pairs*/, std::unique_ptr<Node> node, Make&& make,
              Other&& other) {
    if constexpr (SpecialisesNodes) {
        Node& operand = *node;
        if (&typeid(operand) == &typeid(LongPairNode<Pair>)) {
            return make(std::move(static_cast<LongPairNode<Pair>&>(operand).pair()));
        }
    }
    return withPair(PairList<Pairs...>(), std::move(node), make, other);
}

template <class Left, class Right, class... Operations>
using PairsOf = PairList<LongPair<Operations, Left, Right>...>;

template <class... Lists>
struct JoinedPairs;
template <class... Pairs>
struct JoinedPairs<PairList<Pairs...>> {
    using Type = PairList<Pairs...>;
};
template <class... Pairs, class... Others, class... Lists>
struct JoinedPairs<PairList<Pairs...>, PairList<Others...>, Lists...>
    : JoinedPairs<PairList<Pairs..., Others...>, Lists...> {};

/// The pairs most common inside of larger expressions: two variables, or a variable and a constant.
using InnerPairs =
    JoinedPairs<PairsOf<VariableOperand<LongType>, VariableOperand<LongType>, LongAddition,
                        LongSubtraction, LongMultiplication>,
                PairsOf<VariableOperand<LongType>, ConstantOperand<LongType>, LongAddition,
                        LongSubtraction, LongMultiplication, LongRemainder>>::Type;

template <class Left, class Right>
using AllPairs = PairsOf<Left, Right, LongAddition, LongSubtraction, LongMultiplication,
                         LongQuotient, LongRemainder>;

/// Sums and differences of a variable with each of the pairs given.
template <class Pairs>
struct SumsWith;
template <class... Pairs>
struct SumsWith<PairList<Pairs...>> {
    using Type = PairList<LongPair<LongAddition, VariableOperand<LongType>, Pairs>...,
                          LongPair<LongSubtraction, VariableOperand<LongType>, Pairs>...>;
};

/// Remainders by a constant of each of the pairs given.
template <class Pairs>
struct RemaindersOf;
template <class... Pairs>
struct RemaindersOf<PairList<Pairs...>> {
    using Type = PairList<LongPair<LongRemainder, Pairs, ConstantOperand<LongType>>...>;
};

/// Sums and products of two leaves, and a product plus something: common in keys, cycles and
/// pseudo-random numbers.
using CyclePairs = PairList<
    LongPair<LongAddition, VariableOperand<LongType>, VariableOperand<LongType>>,
    LongPair<LongAddition, VariableOperand<LongType>, ConstantOperand<LongType>>,
    LongPair<LongMultiplication, VariableOperand<LongType>, ConstantOperand<LongType>>,
    LongPair<LongAddition,
             LongPair<LongMultiplication, VariableOperand<LongType>, ConstantOperand<LongType>>,
             VariableOperand<LongType>>,
    LongPair<LongAddition,
             LongPair<LongMultiplication, VariableOperand<LongType>, ConstantOperand<LongType>>,
             ConstantOperand<LongType>>>;

/// Common right sides of assignments: an operation of any two simple operands, or of a variable and
/// a pair.
using AssignedPairs = JoinedPairs<AllPairs<VariableOperand<LongType>, ConstantOperand<LongType>>,
                                  AllPairs<VariableOperand<LongType>, VariableOperand<LongType>>,
                                  AllPairs<VariableOperand<LongType>, AnyOperand<LongType>>,
                                  AllPairs<AnyOperand<LongType>, VariableOperand<LongType>>,
                                  AllPairs<AnyOperand<LongType>, ConstantOperand<LongType>>,
                                  AllPairs<AnyOperand<LongType>, AnyOperand<LongType>>,
                                  SumsWith<InnerPairs>::Type, RemaindersOf<CyclePairs>::Type>::Type;

}  // namespace SCR

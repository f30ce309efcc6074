#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <vector>

#include "scr/Variable.h"
#include "scr/parser/ParserStack.h"
#include "scr/run/CountedWork.h"
#include "scr/run/MemoryCharge.h"
#include "scr/run/NodeMemory.h"
#include "scr/tree/Operand.h"

namespace SCR {

/// Whether the operator for the two topmost operands of `stack` should go on a chain, because the
/// row of operators on its left is long.
inline bool isChainDue(const ParserStack& stack) {
    constexpr int longest = 8;  // operators, and levels of their operands
    return stack.traits(1).operators() >= longest || stack.traits(1).depth() >= longest;
}

/// A row of operators of one type, as in `a + b - c`, each of which takes the result of those
/// before it. It is evaluated in a loop, so the row may have any length. Short rows are nested
/// pairs of operands instead, which are faster; a chain starts from such a pair. So nodes nest
/// hardly deeper than the expression itself.
template <class Type>
class OperatorChain final : public Type::Node {
public:
    using Value = typename Type::Value;
    using Operand = typename Type::Node;

    /// An operator and the operand on its right.
    struct Link {
        /// Evaluates the operand and changes `left`, the value of everything before it.
        void (*apply)(Value& left, Operand& right) = nullptr;
        /// Used instead by an operator that evaluates its operand before everything on its left,
        /// and nothing on its left when the operand is zero. Gives the result; `left` is any zero
        /// then.
        Value (*divide)(const Value& left, const Value& right) = nullptr;
        std::unique_ptr<Operand> right;
    };

    /// Pops the two topmost operands of `stack` and makes a chain of them; when the left one
    /// already is a chain, appends a link to it. `link` has no operand yet.
    static Node* make(ParserStack& stack, Link link) {
        link.right = stack.pop<Operand>();
        std::unique_ptr<Node> left = stack.pop<Node>();
        std::unique_ptr<OperatorChain> chain;
        if (const Node& node = *left; &typeid(node) == &typeid(OperatorChain)) {
            chain.reset(static_cast<OperatorChain*>(left.release()));
        } else {
            chain.reset(new OperatorChain(std::move(left)));
        }
        if (link.divide != nullptr) ++chain->divisions_;
        chain->links_.push_back(std::move(link));
        return chain.release();
    }

    typename Type::Argument result() override {
        // A function that calls itself may evaluate this node again meanwhile.
        result_ = divisions_ == 0 ? valueOfRow() : valueWithDivisions();
        return result_;
    }

private:
    explicit OperatorChain(std::unique_ptr<Node> first)
        : first_(static_cast<Operand*>(first.release())) {}

    // The divisors of one evaluation; filled from the last one on.
    class Divisors {
    public:
        explicit Divisors(std::size_t count)
            : charge_(count > fewCM ? blockBytes(count * sizeof(Value)) : 0),
              many_(count > fewCM ? std::make_unique<Value[]>(count) : nullptr),
              next_(many_ ? many_.get() + count : few_.data() + fewCM) {}
        // Whether the divisor is zero.
        bool push(const Value& divisor) { return (*--next_ = divisor) == Type::null(); }
        const Value& pop() { return *next_++; }

    private:
        static constexpr std::size_t fewCM = 2;

        std::array<Value, fewCM> few_{};
        const BufferCharge charge_;
        const std::unique_ptr<Value[]> many_;
        Value* next_;
    };

    // Chains may nest as deep as expressions, so the frames of these two are kept small.
    [[gnu::noinline]] Value valueOfRow() {
        Value value = first_->result();
        for (std::size_t i = 0; i < links_.size(); ++i) {
            links_[i].apply(value, *links_[i].right);
            count(i);
        }
        return value;
    }

    [[gnu::noinline]] Value valueWithDivisions() {
        Divisors divisors(divisions_);
        bool isZero = false;
        std::size_t i = links_.size();
        while (i > 0 && !isZero) {
            const Link& link = links_[--i];
            count(i);
            if (link.divide != nullptr) isZero = divisors.push(link.right->result());
        }
        Value value = isZero ? Type::null() : first_->result();
        for (; i < links_.size(); ++i) {
            const Link& link = links_[i];
            if (link.divide != nullptr) {
                value = link.divide(value, divisors.pop());
            } else {
                link.apply(value, *link.right);
            }
            count(i);
        }
        return value;
    }

    static void count(std::size_t link) {
        constexpr std::size_t each = 64 * 1024;
        if (link % each == each - 1) [[unlikely]]
            countWork(each);
    }

    const std::unique_ptr<Operand> first_;
    std::vector<Link, NodeAllocator<Link>> links_;
    std::size_t divisions_ = 0;
    Value result_{};
};

}  // namespace SCR

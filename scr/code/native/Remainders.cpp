#include "scr/code/native/Remainders.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace SCR::Code {

namespace {

// Whether it only computes: it goes nowhere and calls nothing.
bool isArithmetic(Op op) { return op <= Op::GreaterEqual || isSelect(op); }

bool comparesWithZero(const Listing& listing, const Operation& operation) {
    switch (operation.op) {
        case Op::Equal:
        case Op::NotEqual:
        case Op::JumpEqual:
        case Op::JumpNotEqual:
        case Op::SelectEqual:
        case Op::SelectNotEqual:
            return !operation.testsRemainder && operation.b.is(Ref::Kind::Constant) &&
                   listing.constants[operation.b.index()] == 0;
        default:
            return false;
    }
}

class RemainderPass {
public:
    explicit RemainderPass(Listing& listing)
        : listing_(listing), isEntered_(listing.operations.size() + 1) {
        for (const std::uint32_t place : listing.labels) isEntered_[place] = true;
    }

    void run() {
        std::vector<Operation>& operations = listing_.operations;
        for (std::size_t i = 0; i < operations.size(); ++i) {
            Operation& comparison = operations[i];
            if (!comparesWithZero(listing_, comparison)) continue;
            const std::size_t division = divisionOf(i);
            if (division == i) continue;
            comparison.testsRemainder = true;
            comparison.a = operations[division].a;
            comparison.b = operations[division].b;
            operations[division].op = Op::Nothing;
            operations[division].target = {};
        }
    }

private:
    // The division whose remainder only the comparison `at` reads, with the number still at hand;
    // otherwise `at`.
    std::size_t divisionOf(std::size_t at) const {
        const Ref remainder = listing_.operations[at].a;
        if (!remainder.is(Ref::Kind::Temporary)) return at;
        // It is needed later.
        if (remainder.index() < listing_.operations[at].live) return at;
        std::size_t i = at;
        while (i > 0 && !isEntered_[i]) {
            const Operation& operation = listing_.operations[--i];
            if (!isArithmetic(operation.op)) return at;
            if (operation.target != remainder) continue;
            const bool isOfConstant =
                operation.op == Op::Remainder && operation.b.is(Ref::Kind::Constant);
            return isOfConstant && keeps(operation.a, i, at) ? i : at;
        }
        return at;
    }
    // Whether nothing is stored in `operand` by the operations from `first` to before `end`.
    bool keeps(Ref operand, std::size_t first, std::size_t end) const {
        const auto from = listing_.operations.begin();
        return std::none_of(
            from + static_cast<std::ptrdiff_t>(first), from + static_cast<std::ptrdiff_t>(end),
            [&](const Operation& operation) { return operation.target == operand; });
    }
    Listing& listing_;
    std::vector<bool> isEntered_;  // by operation: whether a label stands before it
};

}  // namespace

void testRemainders(Listing& listing) { RemainderPass(listing).run(); }

}  // namespace SCR::Code

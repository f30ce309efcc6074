#pragma once

#include <cstdint>
#include <unordered_map>

#include "scr/code/native/Frame.h"

namespace SCR::Code {

/// How sums, products, quotients, remainders and comparisons of integers become instructions.
class Arithmetic : protected Frame {
protected:
    using Frame::Frame;

    // `instruction` adds or multiplies.
    void emitCommutative(const Operation& operation, asmjit::InstId instruction);
    void emitSubtract(const Operation& operation);
    // A quotient or a remainder, towards zero. The divisor is not 0.
    void emitDivision(const Operation& operation);
    // Compares, for an operation of the group that begins with `first`; gives the condition under
    // which its relation holds.
    x86::CondCode emitCompare(const Operation& operation, Op first);
    // The constants in memory that the instructions need; after all of them.
    void emitConstants();

private:
    // Whether the register is the operand's own.
    bool uses(x86::Gp work, Ref ref) const;
    // Multiplies by a power of two or one more than a small one, without a multiplication.
    bool multiplyBySum(x86::Gp work, Ref a, Ref b);
    // Adds a constant to a variable in memory, as counters of an observed script are.
    bool addInPlace(Ref target, Ref a, Ref b);
    // Adds into a third register with one instruction, when both operands suit it.
    bool addInOne(x86::Gp work, Ref a, Ref b);
    // By a multiplication.
    void emitConstantDivision(const Operation& operation, long divisor, bool givesQuotient);
    x86::CondCode emitRemainderTest(const Operation& operation, Relation relation);
    // Whether nobody needs the register of the first operand after this operation, which must be
    // the one that is being emitted.
    bool isLastUse(const Operation& operation) const;
    // A constant that no instruction can hold.
    x86::Mem inMemory(std::uint64_t value);

    std::unordered_map<std::uint64_t, asmjit::Label> pool_;  // constants in memory
};

}  // namespace SCR::Code

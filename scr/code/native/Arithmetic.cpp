#include "scr/code/native/Arithmetic.h"

#include <array>
#include <bit>
#include <utility>

#include "scr/code/native/Divisor.h"

namespace SCR::Code {

namespace {

constexpr std::array conditionsS{x86::CondCode::kSignedLT, x86::CondCode::kSignedGT,
                                 x86::CondCode::kEqual,    x86::CondCode::kNotEqual,
                                 x86::CondCode::kSignedLE, x86::CondCode::kSignedGE};

}  // namespace

// Registers and labels are small values.
// NOLINTBEGIN(performance-unnecessary-value-param)

bool Arithmetic::uses(x86::Gp work, Ref ref) const {
    const x86::Gp* const own = registerOf(ref);
    return own != nullptr && *own == work;
}

void Arithmetic::emitCommutative(const Operation& operation, asmjit::InstId instruction) {
    const x86::Gp work = workFor(operation.target);
    Ref a = operation.a;
    Ref b = operation.b;
    if (uses(work, b) || (a.is(Ref::Kind::Constant) && !b.is(Ref::Kind::Constant))) {
        std::swap(a, b);
    }
    if (instruction == x86::Inst::kIdImul && multiplyBySum(work, a, b)) {
        return store(operation.target, work);
    }
    if (instruction == x86::Inst::kIdImul && isShort(b)) {
        asm_.imul(work, inRegister(a, work), imm(constantOf(b)));
    } else {
        if (instruction == x86::Inst::kIdAdd && addInPlace(operation.target, a, b)) return;
        if (instruction == x86::Inst::kIdAdd && addInOne(work, a, b)) {
            return store(operation.target, work);
        }
        load(work, a);
        withSource(b, x86::rcx, [&](const auto& source) { asm_.emit(instruction, work, source); });
    }
    store(operation.target, work);
}

bool Arithmetic::multiplyBySum(x86::Gp work, Ref a, Ref b) {
    if (!isShort(b) || constantOf(b) < 2) return false;
    const auto factor = static_cast<unsigned long>(constantOf(b));
    if (factor == 3 || factor == 5 || factor == 9) {
        const x86::Gp number = inRegister(a, work);
        asm_.lea(work, x86::ptr(number, number, factor == 3 ? 1 : factor == 5 ? 2 : 3));
    } else if (const x86::Gp* const own = registerOf(a); factor == 2 && own != nullptr) {
        asm_.lea(work, x86::ptr(*own, *own));
    } else if (std::has_single_bit(factor)) {
        load(work, a);
        asm_.shl(work, imm(std::countr_zero(factor)));
    } else {
        return false;
    }
    return true;
}

bool Arithmetic::addInPlace(Ref target, Ref a, Ref b) {
    if (target != a || !isShort(b) || !target.is(Ref::Kind::Variable)) return false;
    if (registerOf(target) != nullptr) return false;
    asm_.add(at(listing_.variables[target.index()], x86::rcx, 8), imm(constantOf(b)));
    return true;
}

bool Arithmetic::addInOne(x86::Gp work, Ref a, Ref b) {
    const x86::Gp* const first = registerOf(a);
    if (first == nullptr || *first == work) return false;
    if (const x86::Gp* const second = registerOf(b)) {
        asm_.lea(work, x86::ptr(*first, *second));
    } else if (isShort(b)) {
        asm_.lea(work, x86::ptr(*first, static_cast<std::int32_t>(constantOf(b))));
    } else {
        return false;
    }
    return true;
}

void Arithmetic::emitSubtract(const Operation& operation) {
    x86::Gp work = workFor(operation.target);
    if (uses(work, operation.b) && !uses(work, operation.a)) work = x86::rax;
    load(work, operation.a);
    withSource(operation.b, x86::rcx, [&](const auto& source) { asm_.sub(work, source); });
    store(operation.target, work);
}

void Arithmetic::emitDivision(const Operation& operation) {
    const bool givesQuotient = operation.op == Op::Divide;
    if (operation.b.is(Ref::Kind::Constant)) {
        return emitConstantDivision(operation, constantOf(operation.b), givesQuotient);
    }
    const asmjit::Label isUsual = asm_.newLabel();
    const asmjit::Label end = asm_.newLabel();
    load(x86::rcx, operation.b);
    load(x86::rax, operation.a);
    asm_.cmp(x86::rcx, imm(-1));
    asm_.jne(isUsual);
    // The processor refuses the smallest value.
    asm_.neg(x86::rax);
    asm_.xor_(x86::edx, x86::edx);
    asm_.jmp(end);
    asm_.bind(isUsual);
    asm_.cqo();
    asm_.idiv(x86::rcx);
    asm_.bind(end);
    store(operation.target, givesQuotient ? x86::rax : x86::rdx);
}

void Arithmetic::emitConstantDivision(const Operation& operation, long divisor,
                                      bool givesQuotient) {
    if (divisor == 1 || divisor == -1) {
        if (givesQuotient) {
            load(x86::rax, operation.a);
            if (divisor == -1) asm_.neg(x86::rax);
        } else {
            asm_.xor_(x86::eax, x86::eax);
        }
        return store(operation.target, x86::rax);
    }
    const x86::Gp number = inRegister(operation.a, x86::rcx);
    const auto size =
        divisor < 0 ? 0 - static_cast<unsigned long>(divisor) : static_cast<unsigned long>(divisor);
    if (!givesQuotient && std::has_single_bit(size) && size <= std::size_t{1} << 30) {
        // What a negative number lacks to the next power is added, and taken off afterwards.
        asm_.mov(x86::rdx, number);
        asm_.sar(x86::rdx, imm(63));
        asm_.shr(x86::rdx, imm(64 - std::countr_zero(size)));
        asm_.lea(x86::rax, x86::ptr(number, x86::rdx));
        asm_.and_(x86::rax, imm(static_cast<std::int64_t>(size - 1)));
        asm_.sub(x86::rax, x86::rdx);
        return store(operation.target, x86::rax);
    }
    const Divisor factor = Divisor::of(divisor);
    asm_.mov(x86::rax, imm(factor.factor));
    asm_.imul(number);
    if (divisor > 0 && factor.factor < 0) asm_.add(x86::rdx, number);
    if (divisor < 0 && factor.factor > 0) asm_.sub(x86::rdx, number);
    if (factor.shift > 0) asm_.sar(x86::rdx, imm(factor.shift));
    // Towards zero.
    asm_.mov(x86::rax, x86::rdx);
    asm_.shr(x86::rax, imm(63));
    asm_.add(x86::rdx, x86::rax);
    if (givesQuotient) return store(operation.target, x86::rdx);
    if (divisor == static_cast<std::int32_t>(divisor)) {
        asm_.imul(x86::rax, x86::rdx, imm(divisor));
    } else {
        asm_.mov(x86::rax, imm(divisor));
        asm_.imul(x86::rax, x86::rdx);
    }
    asm_.mov(x86::rdx, number);
    asm_.sub(x86::rdx, x86::rax);
    store(operation.target, x86::rdx);
}

x86::CondCode Arithmetic::emitCompare(const Operation& operation, Op first) {
    const Relation relation = relationOf(operation.op, first);
    if (operation.testsRemainder) return emitRemainderTest(operation, relation);
    const x86::Gp left = inRegister(operation.a, x86::rax);
    if (isShort(operation.b) && constantOf(operation.b) == 0) {
        asm_.test(left, left);
    } else {
        withSource(operation.b, x86::rcx, [&](const auto& source) { asm_.cmp(left, source); });
    }
    return conditionsS[static_cast<std::size_t>(relation)];
}

x86::CondCode Arithmetic::emitRemainderTest(const Operation& operation, Relation relation) {
    const bool isEqual = relation == Relation::Equal;
    const long divisor = constantOf(operation.b);
    const auto size =
        divisor < 0 ? 0 - static_cast<unsigned long>(divisor) : static_cast<unsigned long>(divisor);
    if (std::has_single_bit(size)) {
        const x86::Gp number = inRegister(operation.a, x86::rax);
        asm_.mov(x86::rcx, imm(static_cast<std::int64_t>(size - 1)));
        asm_.test(number, x86::rcx);
        return isEqual ? x86::CondCode::kEqual : x86::CondCode::kNotEqual;
    }
    const MultipleTest test = MultipleTest::of(size);
    const x86::Gp work = isLastUse(operation) ? *registerOf(operation.a) : x86::rax;
    load(work, operation.a);
    asm_.imul(work, inMemory(test.factor));
    asm_.add(work, inMemory(test.sum));
    if (test.rotation > 0) asm_.ror(work, imm(test.rotation));
    // This way round one flag tells.
    asm_.cmp(inMemory(test.greatest), work);
    return isEqual ? x86::CondCode::kUnsignedGE : x86::CondCode::kUnsignedLT;
}

bool Arithmetic::isLastUse(const Operation& operation) const {
    if (!operation.a.is(Ref::Kind::Temporary) || registerOf(operation.a) == nullptr) {
        return false;
    }
    if (operation.a.index() < operation.live) return false;
    // Several choices may follow one comparison, with copies between them.
    std::size_t next = current_ + 1;
    while (next < listing_.operations.size() && listing_.operations[next].op == Op::Move) {
        ++next;
    }
    return next == listing_.operations.size() || !isSelect(listing_.operations[next].op);
}

x86::Mem Arithmetic::inMemory(std::uint64_t value) {
    const auto [found, isNew] = pool_.try_emplace(value);
    if (isNew) found->second = asm_.newLabel();
    return x86::qword_ptr(found->second);
}

void Arithmetic::emitConstants() {
    asm_.align(asmjit::AlignMode::kData, 8);
    for (const auto& [value, at] : pool_) {
        asm_.bind(at);
        asm_.embedUInt64(value);
    }
}

// NOLINTEND(performance-unnecessary-value-param)

}  // namespace SCR::Code

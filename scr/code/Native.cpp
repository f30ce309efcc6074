#include "scr/code/Native.h"

#include <asmjit/x86.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstring>
#include <functional>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "scr/Array.h"
#include "scr/code/Divisor.h"
#include "scr/code/Helpers.h"
#include "scr/code/PendingStores.h"
#include "scr/code/Remainders.h"
#include "scr/code/Selects.h"

namespace SCR::Code {

namespace {

namespace x86 = asmjit::x86;
using asmjit::imm;

// Memory with code: written once, then executed only. It belongs to this process alone.
class CodePages {
public:
    CodePages() = default;
    CodePages(CodePages&& other) noexcept
        : start_(std::exchange(other.start_, nullptr)), size_(other.size_) {}
    CodePages& operator=(CodePages&&) = delete;
    ~CodePages() {
        if (start_ != nullptr) munmap(start_, size_);
    }

    void* reserve(std::size_t size) {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        size_ = (size + page - 1) / page * page;
        void* const mapped =
            mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        start_ = mapped != MAP_FAILED ? mapped : nullptr;
        return start_;
    }
    std::size_t size() const { return size_; }
    bool makeExecutable() const { return mprotect(start_, size_, PROT_READ | PROT_EXEC) == 0; }

private:
    void* start_ = nullptr;
    std::size_t size_ = 0;
};

class NativeFragment final : public Fragment {
public:
    NativeFragment(CodePages pages, void* entry, std::vector<const Node*> statements,
                   RunControl& control)
        : Fragment(reinterpret_cast<Entry>(entry), &control, control, std::move(statements)),
          pages_(std::move(pages)) {}

    std::size_t bytes() const override {
        return sizeof *this + pages_.size() + bytesOfStatements();
    }

private:
    const CodePages pages_;
};

// Notes the first error of the assembler, which is then silent.
class FirstError final : public asmjit::ErrorHandler {
public:
    void handleError(asmjit::Error error, const char* /*message*/,
                     asmjit::BaseEmitter* /*origin*/) override {
        if (first_ == asmjit::kErrorOk) first_ = error;
    }
    bool isSet() const { return first_ != asmjit::kErrorOk; }

private:
    asmjit::Error first_ = asmjit::kErrorOk;
};

// Temporaries live in registers that calls do not keep, and the variables used most in registers
// that they do. A variable's home is right whenever anything else runs.
constexpr std::array temporaryRegistersS{x86::r8, x86::r9, x86::r10, x86::r11};
constexpr std::array variableRegistersS{x86::rbx, x86::rbp, x86::r12, x86::r13};
constexpr x86::Gp countRegisterS = x86::r14;  // the turns before the next look
constexpr x86::Gp controlRegisterS = x86::r15;

// Registers and labels are small values.
// NOLINTBEGIN(performance-unnecessary-value-param)
class Translator {
public:
    Translator(const Listing& listing, RunControl& control, asmjit::CodeHolder& holder)
        : listing_(listing), control_(control), asm_(&holder) {}

    void translate() {
        chooseVariables();
        pending_.emplace(listing_, cached_);
        for (std::size_t i = 0; i < listing_.labels.size(); ++i) labels_.push_back(asm_.newLabel());
        leave_ = asm_.newLabel();
        prologue();
        std::vector<std::pair<std::uint32_t, Label>> bound;
        for (Label label = 0; label < listing_.labels.size(); ++label) {
            bound.emplace_back(listing_.labels[label], label);
        }
        std::sort(bound.begin(), bound.end());
        auto next = bound.begin();
        for (std::uint32_t i = 0; i < listing_.operations.size(); ++i) {
            // Where a turn of a loop begins.
            if (listing_.operations[i].op == Op::Turn) asm_.align(asmjit::AlignMode::kCode, 32);
            for (; next != bound.end() && next->first == i; ++next)
                asm_.bind(labels_[next->second]);
            current_ = i;
            emit(listing_.operations[i]);
        }
        epilogue();
        for (std::size_t i = 0; i < cold_.size(); ++i) {
            asm_.bind(cold_[i].at);
            current_ = cold_[i].operation;
            const std::function<void()> emit = std::move(cold_[i].emit);
            emit();
        }
        for (const auto& [at, number] : tables_) emitTable(at, listing_.switches[number]);
        asm_.align(asmjit::AlignMode::kData, 8);
        for (const auto& [value, at] : pool_) {
            asm_.bind(at);
            asm_.embedUInt64(value);
        }
    }

private:
    // Code out of the way.
    struct Cold {
        asmjit::Label at;
        std::size_t operation;  // that it belongs to
        std::function<void()> emit;
    };

    // Choice of registers.

    void chooseVariables() {
        std::vector<std::pair<double, std::size_t>> uses(listing_.variables.size());
        for (std::size_t i = 0; i < uses.size(); ++i) uses[i].second = i;
        for (const Operation& operation : listing_.operations) {
            double weight = 1;
            for (int loop = 0; loop < std::min<int>(operation.loops, 8); ++loop) weight *= 8;
            const auto use = [&](Ref ref) {
                if (ref.is(Ref::Kind::Variable)) uses[ref.index()].first += weight;
            };
            use(operation.target);
            use(operation.a);
            use(operation.b);
            if (operation.op == Op::Call || isSelect(operation.op)) use(operation.c);
        }
        std::sort(uses.begin(), uses.end(), std::greater<>());
        registers_.assign(uses.size(), nullptr);
        // A register has to be kept and loaded, which a few uses are not worth.
        constexpr double fewUses = 2;
        for (std::size_t i = 0; i < std::min(uses.size(), variableRegistersS.size()); ++i) {
            if (uses[i].first <= fewUses) break;
            registers_[uses[i].second] = &variableRegistersS[i];
            cached_.push_back(uses[i].second);
            kept_.push_back(variableRegistersS[i]);
        }
        callsOut_ = std::any_of(listing_.operations.begin(), listing_.operations.end(),
                                [](const Operation& operation) { return mayCall(operation.op); });
        if (callsOut_) kept_.push_back(countRegisterS);
        kept_.push_back(controlRegisterS);
    }
    static bool mayCall(Op op) {
        return op == Op::Turn || op == Op::EnterCall || op == Op::CheckCall || op == Op::Call ||
               op == Op::LoadElement || op == Op::StoreElement;
    }

    // The register that always holds the operand's value; null if there is none.
    const x86::Gp* registerOf(Ref ref) const {
        if (ref.is(Ref::Kind::Variable)) return registers_[ref.index()];
        if (ref.is(Ref::Kind::Temporary) && ref.index() < temporaryRegistersS.size()) {
            return &temporaryRegistersS[ref.index()];
        }
        return nullptr;
    }

    // Memory.

    static x86::Mem slotOf(std::size_t temporary) {
        return x86::qword_ptr(x86::rsp, static_cast<std::int32_t>(temporary * 8));
    }

    // What lies at `address`. `scratch` may be needed to reach it.
    x86::Mem at(const void* address, x86::Gp scratch, std::uint32_t size) {
        const std::int64_t distance =
            reinterpret_cast<std::intptr_t>(address) - reinterpret_cast<std::intptr_t>(&control_);
        if (distance == static_cast<std::int32_t>(distance)) {
            return x86::Mem(controlRegisterS, static_cast<std::int32_t>(distance), size);
        }
        asm_.mov(scratch, imm(reinterpret_cast<std::intptr_t>(address)));
        return x86::Mem(scratch, 0, size);
    }
    // The object of the control at `begin`, an offset away.
    x86::Mem indexed(const void* begin, x86::Gp offset) const {
        const std::int64_t distance =
            reinterpret_cast<std::intptr_t>(begin) - reinterpret_cast<std::intptr_t>(&control_);
        return x86::Mem(controlRegisterS, offset, 0, static_cast<std::int32_t>(distance));
    }
    x86::Mem counter(const void* field, std::uint32_t size = 8) {
        return at(field, x86::rax, size);
    }

    // Operands.

    long constantOf(Ref ref) const { return listing_.constants[ref.index()]; }
    bool isShort(Ref ref) const {
        return ref.is(Ref::Kind::Constant) &&
               constantOf(ref) == static_cast<std::int32_t>(constantOf(ref));
    }

    // Loads the operand's value into `to`.
    void load(x86::Gp to, Ref ref) {
        if (const x86::Gp* const from = registerOf(ref)) {
            if (*from != to) asm_.mov(to, *from);
        } else if (ref.is(Ref::Kind::Variable)) {
            asm_.mov(to, at(listing_.variables[ref.index()], to, 8));
        } else if (ref.is(Ref::Kind::Temporary)) {
            asm_.mov(to, slotOf(ref.index()));
        } else if (const long value = ref ? constantOf(ref) : 0; value == 0) {
            asm_.xor_(to.r32(), to.r32());
        } else {
            asm_.mov(to, imm(value));
        }
    }
    // A register with the operand's value: its own or `scratch`.
    x86::Gp inRegister(Ref ref, x86::Gp scratch) {
        if (const x86::Gp* const own = registerOf(ref)) return *own;
        load(scratch, ref);
        return scratch;
    }
    // Calls `use` with the operand as a register, a place in memory or a constant.
    template <class Use>
    void withSource(Ref ref, x86::Gp scratch, const Use& use) {
        if (const x86::Gp* const own = registerOf(ref)) return use(*own);
        if (isShort(ref)) return use(imm(constantOf(ref)));
        if (ref.is(Ref::Kind::Temporary)) return use(slotOf(ref.index()));
        if (ref.is(Ref::Kind::Variable)) {
            return use(at(listing_.variables[ref.index()], scratch, 8));
        }
        load(scratch, ref);
        use(scratch);
    }

    // The register in which to compute the target's value.
    x86::Gp workFor(Ref target) const {
        const x86::Gp* const own = registerOf(target);
        return own != nullptr ? *own : x86::rax;
    }
    bool isInRegisterOnly(Ref target) const {
        const bool isLate = listing_.operations[current_].isPassing || pending_->isLate(current_);
        return isLate && registerOf(target) != nullptr;
    }
    // Stores a value in the target.
    void store(Ref target, x86::Gp value) {
        if (const x86::Gp* const own = registerOf(target)) {
            if (*own != value) asm_.mov(*own, value);
        }
        if (target.is(Ref::Kind::Variable) && !isInRegisterOnly(target)) {
            const x86::Gp scratch = value == x86::rcx ? x86::rdx : x86::rcx;
            asm_.mov(at(listing_.variables[target.index()], scratch, 8), value);
        } else if (registerOf(target) == nullptr && target.is(Ref::Kind::Temporary)) {
            asm_.mov(slotOf(target.index()), value);
        }
    }

    // Stores the variables whose homes are out of date.
    void storePending() {
        const PendingStores::Set pending = pending_->before(current_);
        for (std::size_t i = 0; i < cached_.size(); ++i) {
            if ((pending >> i & 1) == 0) continue;
            const std::size_t variable = cached_[i];
            asm_.mov(at(listing_.variables[variable], x86::rax, 8), *registers_[variable]);
        }
    }

    // Entry and exit.

    void prologue() {
        asm_.endbr64();
        for (const x86::Gp& kept : kept_) asm_.push(kept);
        const bool hasSlots = listing_.temporaries > temporaryRegistersS.size();
        if (callsOut_ || hasSlots) {
            // After the return address and the registers, calls need a multiple of 16.
            const std::size_t pushed = (kept_.size() + 1) * 8;
            const std::size_t all = (pushed + listing_.temporaries * 8 + 15) / 16 * 16;
            frame_ = static_cast<std::int32_t>(all - pushed);
        }
        if (frame_ != 0) asm_.sub(x86::rsp, frame_);
        asm_.mov(controlRegisterS, x86::rdi);
        if (callsOut_) loadCount();
        const std::vector<bool> isSet = setAtOnce();
        for (const std::size_t variable : cached_) {
            if (!isSet[variable]) loadVariable(variable);
        }
    }
    void epilogue() {
        asm_.bind(leave_);
        if (callsOut_) {
            asm_.mov(at(&control_.counters().untilLook, x86::rcx, 8), countRegisterS);
        }
        if (frame_ != 0) asm_.add(x86::rsp, frame_);
        for (auto kept = kept_.rbegin(); kept != kept_.rend(); ++kept) asm_.pop(*kept);
        asm_.ret();
    }
    // By variable: whether it is set before anything can read it.
    std::vector<bool> setAtOnce() const {
        std::vector<bool> isSet(listing_.variables.size());
        std::vector<bool> isRead(listing_.variables.size());
        const auto read = [&](Ref ref) {
            if (ref.is(Ref::Kind::Variable)) isRead[ref.index()] = true;
        };
        std::size_t end = listing_.operations.size();
        for (const std::uint32_t label : listing_.labels) end = std::min<std::size_t>(end, label);
        for (std::size_t i = 0; i < end; ++i) {
            const Operation& operation = listing_.operations[i];
            if (operation.op > Op::SelectGreaterEqual || isJump(operation.op)) break;
            read(operation.a);
            read(operation.b);
            if (isSelect(operation.op)) {
                read(operation.c);
                read(operation.target);
            }
            const Ref target = operation.target;
            if (target.is(Ref::Kind::Variable) && !isRead[target.index()]) {
                isSet[target.index()] = true;
            }
        }
        return isSet;
    }
    void loadVariables() {
        for (const std::size_t variable : cached_) loadVariable(variable);
    }
    void loadVariable(std::size_t variable) {
        const x86::Gp own = *registers_[variable];
        asm_.mov(own, at(listing_.variables[variable], own, 8));
    }
    // Keeps the temporaries that are needed after a call, and takes them back.
    void keepTemporaries(std::size_t live) {
        for (std::size_t i = 0; i < std::min(live, temporaryRegistersS.size()); ++i) {
            asm_.mov(slotOf(i), temporaryRegistersS[i]);
        }
    }
    void takeTemporaries(std::size_t live) {
        for (std::size_t i = 0; i < std::min(live, temporaryRegistersS.size()); ++i) {
            asm_.mov(temporaryRegistersS[i], slotOf(i));
        }
    }

    asmjit::Label newCold(std::function<void()> emit) {
        cold_.push_back({asm_.newLabel(), current_, std::move(emit)});
        return cold_.back().at;
    }
    // Leaves with a failure in the operation's statement.
    asmjit::Label failureIn(const Operation& operation) {
        const auto [found, isNew] = failures_.try_emplace(operation.statement);
        if (isNew) {
            found->second = newCold([this, statement = operation.statement] {
                asm_.mov(counter(&control_.counters().failedAt, 4), imm(statement));
                asm_.jmp(leave_);
            });
        }
        return found->second;
    }
    // Calls a function for the node of the operation, and goes on at `back` unless it failed.
    asmjit::Label newCall(const Operation& operation, asmjit::Label back,
                          void (*function)(RunControl&, const Node*) noexcept) {
        return newCold([this, &operation, back, function] {
            storePending();
            keepTemporaries(operation.live);
            asm_.mov(x86::rsi, imm(reinterpret_cast<std::intptr_t>(operation.pointer)));
            call(reinterpret_cast<const void*>(function));
            checkFailure(operation);
            takeTemporaries(operation.live);
            asm_.jmp(back);
        });
    }
    // The other arguments are in place. Functions that ask whether the script has to stop count
    // turns.
    void call(const void* function, bool asks = true) {
        if (asks) asm_.mov(counter(&control_.counters().untilLook), countRegisterS);
        asm_.mov(x86::rdi, controlRegisterS);
        asm_.mov(x86::rax, imm(reinterpret_cast<std::intptr_t>(function)));
        asm_.call(x86::rax);
        if (asks) loadCount();
    }
    void loadCount() {
        asm_.mov(countRegisterS, at(&control_.counters().untilLook, countRegisterS, 8));
    }
    void checkFailure(const Operation& operation) {
        const x86::Mem hasFailed = at(&control_.counters().hasFailed, x86::rcx, 4);
        asm_.cmp(hasFailed, imm(0));
        asm_.jne(failureIn(operation));
    }

    // Operations.

    void emit(const Operation& operation) {
        switch (operation.op) {
            case Op::Nothing:
                break;
            case Op::Move:
                emitMove(operation);
                break;
            case Op::Add:
                emitCommutative(operation, x86::Inst::kIdAdd);
                break;
            case Op::Multiply:
                emitCommutative(operation, x86::Inst::kIdImul);
                break;
            case Op::Subtract:
                emitSubtract(operation);
                break;
            case Op::Divide:
            case Op::Remainder:
                emitDivision(operation);
                break;
            case Op::Negate: {
                const x86::Gp work = workFor(operation.target);
                load(work, operation.a);
                asm_.neg(work);
                store(operation.target, work);
                break;
            }
            case Op::Less:
            case Op::Greater:
            case Op::Equal:
            case Op::NotEqual:
            case Op::LessEqual:
            case Op::GreaterEqual: {
                const x86::CondCode holds = emitCompare(operation, Op::Less);
                asm_.set(holds, x86::al);
                asm_.movzx(x86::eax, x86::al);
                store(operation.target, x86::rax);
                break;
            }
            case Op::JumpLess:
            case Op::JumpGreater:
            case Op::JumpEqual:
            case Op::JumpNotEqual:
            case Op::JumpLessEqual:
            case Op::JumpGreaterEqual: {
                const x86::CondCode holds = emitCompare(operation, Op::JumpLess);
                asm_.j(holds, labels_[operation.label]);
                break;
            }
            case Op::Jump:
                asm_.jmp(labels_[operation.label]);
                break;
            case Op::LoadBool: {
                const x86::Gp work = workFor(operation.target);
                asm_.movzx(work.r32(), at(operation.pointer, work, 1));
                store(operation.target, work);
                break;
            }
            case Op::StoreBool:
                emitStoreBool(operation);
                break;
            case Op::SelectLess:
            case Op::SelectGreater:
            case Op::SelectEqual:
            case Op::SelectNotEqual:
            case Op::SelectLessEqual:
            case Op::SelectGreaterEqual:
                emitSelect(operation);
                break;
            case Op::Note:
                asm_.mov(at(operation.pointer, x86::rax, 8), imm(constantOf(operation.a)));
                break;
            case Op::Turn:
                emitTurn(operation);
                break;
            case Op::EnterCall:
                emitEnterCall(operation);
                break;
            case Op::LeaveCall:
                asm_.dec(counter(&control_.counters().openCalls));
                break;
            case Op::CheckCall:
                emitCheckCall(operation);
                break;
            case Op::Switch:
                emitSwitch(operation);
                break;
            case Op::LoadElement:
                emitLoadElement(operation);
                break;
            case Op::StoreElement:
                emitStoreElement(operation);
                break;
            case Op::Call:
                emitCall(operation);
                break;
            case Op::Leave:
                storePending();
                load(x86::rax, operation.a);
                asm_.jmp(leave_);
                break;
        }
    }

    void emitMove(const Operation& operation) {
        if (operation.target == operation.a) return;
        const x86::Gp* const own = registerOf(operation.target);
        if (own != nullptr) {
            load(*own, operation.a);
            store(operation.target, *own);
        } else if (isShort(operation.a) && operation.target.is(Ref::Kind::Variable)) {
            asm_.mov(at(listing_.variables[operation.target.index()], x86::rcx, 8),
                     imm(constantOf(operation.a)));
        } else {
            store(operation.target, inRegister(operation.a, x86::rax));
        }
    }

    // Whether the register is the operand's own.
    bool uses(x86::Gp work, Ref ref) const {
        const x86::Gp* const own = registerOf(ref);
        return own != nullptr && *own == work;
    }

    void emitCommutative(const Operation& operation, asmjit::InstId instruction) {
        const x86::Gp work = workFor(operation.target);
        Ref a = operation.a;
        Ref b = operation.b;
        if (uses(work, b) || (a.is(Ref::Kind::Constant) && !b.is(Ref::Kind::Constant))) {
            std::swap(a, b);
        }
        if (instruction == x86::Inst::kIdImul && isShort(b)) {
            asm_.imul(work, inRegister(a, work), imm(constantOf(b)));
        } else {
            if (instruction == x86::Inst::kIdAdd && addInOne(work, a, b)) {
                return store(operation.target, work);
            }
            load(work, a);
            withSource(b, x86::rcx,
                       [&](const auto& source) { asm_.emit(instruction, work, source); });
        }
        store(operation.target, work);
    }

    // Adds into a third register with one instruction, when both operands suit it.
    bool addInOne(x86::Gp work, Ref a, Ref b) {
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

    void emitSubtract(const Operation& operation) {
        x86::Gp work = workFor(operation.target);
        if (uses(work, operation.b) && !uses(work, operation.a)) work = x86::rax;
        load(work, operation.a);
        withSource(operation.b, x86::rcx, [&](const auto& source) { asm_.sub(work, source); });
        store(operation.target, work);
    }

    void emitDivision(const Operation& operation) {
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

    // By a multiplication. The divisor is not 0.
    void emitConstantDivision(const Operation& operation, long divisor, bool givesQuotient) {
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
        const auto size = divisor < 0 ? 0 - static_cast<unsigned long>(divisor)
                                      : static_cast<unsigned long>(divisor);
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

    // Compares, for an operation of the group that begins with `first`; gives the condition under
    // which its relation holds.
    x86::CondCode emitCompare(const Operation& operation, Op first) {
        const Relation relation = relationOf(operation.op, first);
        if (operation.testsRemainder) return emitRemainderTest(operation, relation);
        const x86::Gp left = inRegister(operation.a, x86::rax);
        if (isShort(operation.b) && constantOf(operation.b) == 0) {
            asm_.test(left, left);
        } else {
            withSource(operation.b, x86::rcx, [&](const auto& source) { asm_.cmp(left, source); });
        }
        return conditionsCM[static_cast<std::size_t>(relation)];
    }
    x86::CondCode emitRemainderTest(const Operation& operation, Relation relation) {
        const bool isEqual = relation == Relation::Equal;
        const long divisor = constantOf(operation.b);
        const auto size = divisor < 0 ? 0 - static_cast<unsigned long>(divisor)
                                      : static_cast<unsigned long>(divisor);
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
    // Whether nobody needs the register of the first operand after this operation, which must be
    // the one that is being emitted.
    bool isLastUse(const Operation& operation) const {
        if (!operation.a.is(Ref::Kind::Temporary) || registerOf(operation.a) == nullptr) {
            return false;
        }
        if (operation.a.index() < operation.live) return false;
        // Several choices may follow one comparison.
        if (current_ + 1 == listing_.operations.size()) return true;
        const Operation& next = listing_.operations[current_ + 1];
        return !isSelect(next.op);
    }
    // A constant that no instruction can hold.
    x86::Mem inMemory(std::uint64_t value) {
        const auto [found, isNew] = pool_.try_emplace(value);
        if (isNew) found->second = asm_.newLabel();
        return x86::qword_ptr(found->second);
    }

    void emitSelect(const Operation& operation) {
        const x86::Gp value = inRegister(operation.c, x86::rdx);
        const x86::Gp work = inRegister(operation.target, x86::rsi);
        const x86::CondCode holds = emitCompare(operation, Op::SelectLess);
        asm_.cmov(holds, work, value);
        store(operation.target, work);
    }

    void emitStoreBool(const Operation& operation) {
        if (isShort(operation.a)) {
            asm_.mov(at(operation.pointer, x86::rcx, 1), imm(constantOf(operation.a)));
        } else {
            const x86::Gp value = inRegister(operation.a, x86::rax);
            asm_.mov(at(operation.pointer, x86::rcx, 1), value.r8());
        }
    }

    void emitTurn(const Operation& operation) {
        const asmjit::Label back = asm_.newLabel();
        asm_.sub(countRegisterS, imm(1));
        asm_.js(newCall(operation, back, look));
        asm_.bind(back);
    }

    void emitEnterCall(const Operation& operation) {
        RunCounters& counters = control_.counters();
        const asmjit::Label back = asm_.newLabel();
        emitTurn(operation);
        asm_.mov(x86::rax, at(&counters.openCalls, x86::rax, 8));
        asm_.inc(x86::rax);
        asm_.mov(at(&counters.openCalls, x86::rcx, 8), x86::rax);
        static_assert(sizeof(CallPlace) == 16 && offsetof(CallPlace, number) == 8);
        asm_.mov(x86::ecx, x86::eax);
        asm_.and_(x86::ecx, imm(RunCounters::placesCM - 1));
        asm_.shl(x86::ecx, imm(4));
        asm_.lea(x86::rcx, indexed(counters.places.data(), x86::rcx));
        asm_.mov(x86::rdx, imm(reinterpret_cast<std::intptr_t>(operation.pointer)));
        asm_.mov(x86::qword_ptr(x86::rcx), x86::rdx);
        asm_.mov(x86::qword_ptr(x86::rcx, 8), x86::rax);
        const asmjit::Label stop = newCall(operation, back, checkCall);
        asm_.cmp(x86::rax, at(&counters.mostCalls, x86::rcx, 8));
        asm_.jg(stop);
        asm_.cmp(x86::rsp, at(&counters.stackEnd, x86::rcx, 8));
        asm_.jb(stop);
        asm_.bind(back);
    }

    void emitCheckCall(const Operation& operation) {
        RunCounters& counters = control_.counters();
        emitTurn(operation);
        const asmjit::Label stop = newCold([this, &operation, &counters] {
            storePending();
            asm_.mov(x86::rax, imm(constantOf(operation.a) + 1));
            asm_.add(at(&counters.openCalls, x86::rcx, 8), x86::rax);
            asm_.mov(x86::rsi, imm(reinterpret_cast<std::intptr_t>(operation.pointer)));
            call(reinterpret_cast<const void*>(checkCall));
            asm_.jmp(failureIn(operation));
        });
        asm_.mov(x86::rax, at(&counters.openCalls, x86::rax, 8));
        if (const long more = constantOf(operation.a); more != 0) asm_.add(x86::rax, imm(more));
        asm_.cmp(x86::rax, at(&counters.mostCalls, x86::rcx, 8));
        asm_.jge(stop);
        asm_.cmp(x86::rsp, at(&counters.stackEnd, x86::rcx, 8));
        asm_.jb(stop);
    }

    void emitSwitch(const Operation& operation) {
        constexpr std::size_t fewLabels = 8;
        const SwitchTable& table = listing_.switches[operation.label];
        load(x86::rax, operation.a);
        if (table.labels.size() < fewLabels) {
            for (std::size_t i = 0; i < table.labels.size(); ++i) {
                const long value = static_cast<long>(static_cast<unsigned long>(table.first) + i);
                if (value == static_cast<std::int32_t>(value)) {
                    asm_.cmp(x86::rax, imm(value));
                } else {
                    asm_.mov(x86::rcx, imm(value));
                    asm_.cmp(x86::rax, x86::rcx);
                }
                asm_.je(labels_[table.labels[i]]);
            }
            asm_.jmp(labels_[table.otherwise]);
            return;
        }
        if (table.first != 0) {
            asm_.mov(x86::rcx, imm(table.first));
            asm_.sub(x86::rax, x86::rcx);
        }
        asm_.cmp(x86::rax, imm(static_cast<std::int32_t>(table.labels.size())));
        asm_.jae(labels_[table.otherwise]);
        tables_.emplace_back(asm_.newLabel(), operation.label);
        asm_.lea(x86::rcx, x86::ptr(tables_.back().first));
        asm_.add(x86::rcx, x86::qword_ptr(x86::rcx, x86::rax, 3));
        asm_.jmp(x86::rcx);
    }
    void emitTable(asmjit::Label at, const SwitchTable& table) {
        asm_.align(asmjit::AlignMode::kData, 8);
        asm_.bind(at);
        for (const Label label : table.labels) asm_.embedLabelDelta(labels_[label], at, 8);
    }

    // Compares the index with the number of elements at hand, goes to `other` for any other element
    // and loads the address of the values into rcx.
    void lookUp(const ElementPlace& place, x86::Gp index, asmjit::Label other) {
        asm_.cmp(index, at(&place.block->size, x86::rcx, 8));
        asm_.jae(other);
        asm_.mov(x86::rcx, at(&place.block->values, x86::rcx, 8));
    }
    // The call for any other element; its operands are still where they were.
    asmjit::Label newElementCall(const Operation& operation, asmjit::Label back,
                                 const ElementPlace& place, const Helper& helper) {
        return newCold([this, &operation, back, &place, &helper] {
            storePending();
            keepTemporaries(operation.live);
            if (operation.b) load(x86::rcx, operation.b);
            load(x86::rdx, operation.a);
            asm_.mov(x86::rsi, imm(reinterpret_cast<std::intptr_t>(place.access)));
            call(reinterpret_cast<const void*>(helper.run));
            checkFailure(operation);
            takeTemporaries(operation.live);
            if (operation.target) store(operation.target, x86::rax);
            asm_.jmp(back);
        });
    }

    void emitLoadElement(const Operation& operation) {
        const auto& place = *static_cast<const ElementPlace*>(operation.pointer);
        const asmjit::Label back = asm_.newLabel();
        const x86::Gp index = inRegister(operation.a, x86::rax);
        const x86::Gp work = workFor(operation.target);
        lookUp(place, index, newElementCall(operation, back, place, *place.load));
        if (place.isBool) {
            asm_.movzx(work.r32(), x86::byte_ptr(x86::rcx, index));
        } else {
            asm_.mov(work, x86::qword_ptr(x86::rcx, index, 3));
        }
        store(operation.target, work);
        asm_.bind(back);
    }

    void emitStoreElement(const Operation& operation) {
        const auto& place = *static_cast<const ElementPlace*>(operation.pointer);
        const asmjit::Label back = asm_.newLabel();
        const x86::Gp index = inRegister(operation.a, x86::rax);
        lookUp(place, index, newElementCall(operation, back, place, *place.store));
        const x86::Mem element =
            place.isBool ? x86::byte_ptr(x86::rcx, index) : x86::qword_ptr(x86::rcx, index, 3);
        if (isShort(operation.b)) {
            asm_.mov(element, imm(constantOf(operation.b)));
        } else {
            const x86::Gp value = inRegister(operation.b, x86::rdx);
            if (place.isBool) {
                asm_.mov(element, value.r8());
            } else {
                asm_.mov(element, value);
            }
        }
        asm_.bind(back);
    }

    void emitCall(const Operation& operation) {
        const auto& helper = *static_cast<const Helper*>(operation.pointer);
        storePending();
        keepTemporaries(operation.live);
        if (operation.a) load(x86::rsi, operation.a);
        if (operation.b) load(x86::rdx, operation.b);
        if (operation.c) load(x86::rcx, operation.c);
        call(reinterpret_cast<const void*>(helper.run), helper.mayFail);
        if (helper.mayFail) checkFailure(operation);
        takeTemporaries(operation.live);
        if (helper.mayAssign) loadVariables();
        store(operation.target, x86::rax);
    }

    static constexpr std::array conditionsCM{x86::CondCode::kSignedLT, x86::CondCode::kSignedGT,
                                             x86::CondCode::kEqual,    x86::CondCode::kNotEqual,
                                             x86::CondCode::kSignedLE, x86::CondCode::kSignedGE};

    const Listing& listing_;
    RunControl& control_;
    x86::Assembler asm_;
    std::vector<asmjit::Label> labels_;
    asmjit::Label leave_;
    std::vector<const x86::Gp*> registers_;  // by variable; null if it has none
    std::vector<std::size_t> cached_;        // the variables that have one
    std::vector<x86::Gp> kept_;              // the registers whose values belong to the caller
    bool callsOut_ = false;                  // anything of the library
    std::vector<Cold> cold_;
    std::unordered_map<std::uint32_t, asmjit::Label> failures_;  // by statement
    std::vector<std::pair<asmjit::Label, Label>> tables_;
    std::unordered_map<std::uint64_t, asmjit::Label> pool_;  // constants in memory
    std::int32_t frame_ = 0;
    std::size_t current_ = 0;  // the operation that is being emitted
    std::optional<PendingStores> pending_;
};
// NOLINTEND(performance-unnecessary-value-param)

}  // namespace

std::unique_ptr<Fragment> makeNative(const Listing& plain, RunControl& control) {
    Listing listing = plain;  // the portable code takes it as it is
    testRemainders(listing);
    useSelects(listing);
    FirstError error;
    asmjit::CodeHolder holder;
    holder.init(asmjit::Environment::host());
    holder.setErrorHandler(&error);
    Translator(listing, control, holder).translate();
    holder.flatten();
    holder.resolveUnresolvedLinks();
    if (error.isSet()) return nullptr;
    CodePages pages;
    void* const start = pages.reserve(holder.codeSize());
    if (start == nullptr) return nullptr;
    holder.relocateToBase(reinterpret_cast<std::uintptr_t>(start));
    holder.copyFlattenedData(start, holder.codeSize());
    if (error.isSet() || !pages.makeExecutable()) return nullptr;
    return std::make_unique<NativeFragment>(std::move(pages), start, listing.statements, control);
}

bool hasNative() {
    CodePages pages;
    return pages.reserve(1) != nullptr && pages.makeExecutable();
}

}  // namespace SCR::Code

// The library's own way to report a failed assertion uses the standard error stream of the process,
// which code in a shared library cannot reach as it was compiled. Nothing that a script contains
// leads to one.
namespace asmjit {

const char* DebugUtils::errorAsString(Error /*error*/) noexcept { return ""; }
void DebugUtils::debugOutput(const char* /*text*/) noexcept {}
void DebugUtils::assertionFailed(const char* /*file*/, int /*line*/,
                                 const char* /*text*/) noexcept {
    std::abort();
}

}  // namespace asmjit

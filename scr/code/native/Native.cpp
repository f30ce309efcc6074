#include "scr/code/native/Native.h"

#include <asmjit/x86.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <utility>
#include <vector>

#include "scr/Array.h"
#include "scr/code/Helpers.h"
#include "scr/code/native/Arithmetic.h"
#include "scr/code/native/CodePages.h"
#include "scr/code/native/Comparisons.h"
#include "scr/code/native/LateNotes.h"
#include "scr/code/native/Remainders.h"
#include "scr/code/native/Selects.h"
#include "scr/value/Slots.h"

namespace SCR::Code {

namespace {

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

// Registers and labels are small values.
// NOLINTBEGIN(performance-unnecessary-value-param)
class Translator : private Arithmetic {
public:
    Translator(const Listing& listing, RunControl& control, asmjit::CodeHolder& holder)
        : Arithmetic(listing, control, holder) {}

    void translate() {
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
        emitCold();
        for (const auto& [at, number] : tables_) emitTable(at, listing_.switches[number]);
        emitConstants();
    }

private:
    void emit(const Operation& operation) {
        switch (operation.op) {
            case Op::Nothing:
            case Op::LateNote:
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
            if (helper.mayAssign) loadVariables();
            if (operation.target) store(operation.target, x86::rax);
            asm_.jmp(back);
        });
    }

    // Strings lie in chunks of slots. Those of the first thousands of elements, which a table
    // finds, are usual.
    void emitLoadAddress(const Operation& operation, const ElementPlace& place) {
        const ElementSlots& slots = place.slots;
        const asmjit::Label back = asm_.newLabel();
        const asmjit::Label other = newElementCall(operation, back, place, *place.load);
        const x86::Gp index = inRegister(operation.a, x86::rax);
        asm_.cmp(index, at(slots.size, x86::rcx, 8));
        asm_.jae(other);
        asm_.cmp(index, imm(Slots::pageSlotsS));
        asm_.jae(other);
        asm_.mov(x86::rcx, index);
        asm_.shr(x86::rcx, imm(std::countr_zero(Slots::firstSlotsS)));
        asm_.mov(x86::rdx, imm(reinterpret_cast<std::intptr_t>(Slots::smallChunksS.data())));
        asm_.movzx(x86::ecx, x86::byte_ptr(x86::rdx, x86::rcx));
        static_assert(sizeof(SlotChunk) == 16 && offsetof(SlotChunk, slots) == 0);
        asm_.shl(x86::ecx, imm(4));
        asm_.add(x86::rcx, at(slots.chunks, x86::rdx, 8));
        asm_.mov(x86::rdx, x86::qword_ptr(x86::rcx, offsetof(SlotChunk, slots)));
        asm_.test(x86::rdx, x86::rdx);
        asm_.jz(other);
        asm_.mov(x86::rsi, index);
        asm_.sub(x86::rsi, x86::qword_ptr(x86::rcx, offsetof(SlotChunk, first)));
        asm_.imul(x86::rsi, x86::rsi, imm(slots.slotSize));
        const x86::Gp work = workFor(operation.target);
        asm_.lea(work, x86::ptr(x86::rdx, x86::rsi, 0, static_cast<int>(slots.valueOffset)));
        store(operation.target, work);
        asm_.bind(back);
    }
    // Whether a list of chunks begins with the address of the first, as code reads it.
    static bool canRead(const std::vector<SlotChunk>& chunks) {
        return *reinterpret_cast<const SlotChunk* const*>(&chunks) == chunks.data();
    }

    void emitLoadElement(const Operation& operation) {
        const auto& place = *static_cast<const ElementPlace*>(operation.pointer);
        if (place.slots.chunks != nullptr && canRead(*place.slots.chunks)) {
            return emitLoadAddress(operation, place);
        }
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

    std::vector<std::pair<asmjit::Label, Label>> tables_;
};
// NOLINTEND(performance-unnecessary-value-param)

}  // namespace

std::unique_ptr<Fragment> makeNative(const Listing& plain, RunControl& control) {
    Listing listing = plain;  // the portable code takes it as it is
    dropKnownComparisons(listing);
    delayNotes(listing);
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

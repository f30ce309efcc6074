#pragma once

#include <asmjit/x86.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <unordered_map>
#include <vector>

#include "scr/code/Operation.h"
#include "scr/code/native/PendingStores.h"

namespace SCR {

class Node;
class RunControl;

namespace Code {

namespace x86 = asmjit::x86;
using asmjit::imm;

/// Temporaries live in registers that calls do not keep, and the variables used most in registers
/// that they do. A variable's home is right whenever anything else runs.
inline constexpr std::array temporaryRegistersS{x86::r8, x86::r9, x86::r10, x86::r11};
inline constexpr std::array variableRegistersS{x86::rbx, x86::rbp, x86::r12, x86::r13};
inline constexpr x86::Gp countRegisterS = x86::r14;  ///< the turns before the next look
inline constexpr x86::Gp controlRegisterS = x86::r15;

/// Where the code of a fragment finds the values of its operations, and how it is entered and left
/// and calls the library: what all operations share.
class Frame {
protected:
    Frame(const Listing& listing, RunControl& control, asmjit::CodeHolder& holder);
    Frame(const Frame&) = delete;
    Frame& operator=(const Frame&) = delete;
    ~Frame() = default;

    void chooseVariables();
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
    x86::Mem at(const void* address, x86::Gp scratch, std::uint32_t size);
    // The object of the control at `begin`, an offset away.
    x86::Mem indexed(const void* begin, x86::Gp offset) const;
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
    void load(x86::Gp to, Ref ref);
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
    // Stores a value in the target.
    void store(Ref target, x86::Gp value);
    // Stores the variables whose homes are out of date, and the notes that were put off.
    void storePending();

    // Entry and exit.

    void prologue();
    void epilogue();
    void loadVariables() {
        for (const std::size_t variable : cached_) loadVariable(variable);
    }
    // Keeps the temporaries that are needed after a call, and takes them back, with the variables
    // in registers that the call did not keep.
    void keepTemporaries(std::size_t live);
    void takeTemporaries(std::size_t live);

    // Calls.

    // Code out of the way, which `emit` makes after the rest.
    asmjit::Label newCold(std::function<void()> emit);
    // Emits that code.
    void emitCold();
    // Leaves with a failure in the operation's statement.
    asmjit::Label failureIn(const Operation& operation);
    // Calls a function for the node of the operation, and goes on at `back` unless it failed.
    asmjit::Label newCall(const Operation& operation, asmjit::Label back,
                          void (*function)(RunControl&, const Node*) noexcept);
    // The other arguments are in place. Functions that ask whether the script has to stop count
    // turns.
    void call(const void* function, bool asks = true);
    void checkFailure(const Operation& operation);

    const Listing& listing_;
    RunControl& control_;
    x86::Assembler asm_;
    std::vector<asmjit::Label> labels_;
    asmjit::Label leave_;
    std::size_t current_ = 0;  // the operation that is being emitted

private:
    struct Cold {
        asmjit::Label at;
        std::size_t operation;  // that it belongs to
        std::function<void()> emit;
    };

    bool isInRegisterOnly(Ref target) const {
        const bool isLate = listing_.operations[current_].isPassing || pending_->isLate(current_);
        return isLate && registerOf(target) != nullptr;
    }
    // By variable: whether it is set before anything can read it.
    std::vector<bool> setAtOnce() const;
    void loadVariable(std::size_t variable) {
        const x86::Gp own = *registers_[variable];
        asm_.mov(own, at(listing_.variables[variable], own, 8));
    }
    void loadCount();

    std::vector<const x86::Gp*> registers_;  // by variable; null if it has none
    std::vector<std::size_t> cached_;        // the variables that have one
    std::vector<x86::Gp> kept_;              // the registers whose values belong to the caller
    bool callsOut_ = false;                  // anything of the library
    std::vector<Cold> cold_;
    std::unordered_map<std::uint32_t, asmjit::Label> failures_;  // by statement
    std::int32_t frame_ = 0;
    std::optional<PendingStores> pending_;
};

}  // namespace Code
}  // namespace SCR

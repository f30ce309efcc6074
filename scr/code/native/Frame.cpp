#include "scr/code/native/Frame.h"

#include <algorithm>
#include <utility>

#include "scr/run/RunControl.h"

namespace SCR::Code {

namespace {

bool mayCall(Op op) {
    return op == Op::Turn || op == Op::EnterCall || op == Op::CheckCall || op == Op::Call ||
           op == Op::LoadElement || op == Op::StoreElement;
}

}  // namespace

// Registers and labels are small values.
// NOLINTBEGIN(performance-unnecessary-value-param)

Frame::Frame(const Listing& listing, RunControl& control, asmjit::CodeHolder& holder)
    : listing_(listing), control_(control), asm_(&holder), leave_(asm_.newLabel()) {
    chooseVariables();
    pending_.emplace(listing_, cached_);
    for (std::size_t i = 0; i < listing_.labels.size(); ++i) labels_.push_back(asm_.newLabel());
}

void Frame::chooseVariables() {
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
    const auto any = [&](bool (*is)(Op)) {
        return std::any_of(listing_.operations.begin(), listing_.operations.end(),
                           [&](const Operation& operation) { return is(operation.op); });
    };
    callsOut_ = any(mayCall);
    std::vector<const x86::Gp*> registers;
    registers.reserve(variableRegistersS.size() + temporaryRegistersS.size());
    for (const x86::Gp& own : variableRegistersS) registers.push_back(&own);
    // Where calls are unusual, those that temporaries leave serve, too.
    if (!any([](Op op) { return op == Op::Call; })) {
        for (std::size_t i = listing_.temporaries; i < temporaryRegistersS.size(); ++i) {
            registers.push_back(&temporaryRegistersS[i]);
        }
    }
    // A register has to be kept and loaded, which a few uses are not worth.
    constexpr double fewUses = 2;
    for (std::size_t i = 0; i < std::min(uses.size(), registers.size()); ++i) {
        if (uses[i].first <= fewUses) break;
        registers_[uses[i].second] = registers[i];
        cached_.push_back(uses[i].second);
        if (i < variableRegistersS.size()) kept_.push_back(*registers[i]);
    }
    if (callsOut_) kept_.push_back(countRegisterS);
    kept_.push_back(controlRegisterS);
}

x86::Mem Frame::at(const void* address, x86::Gp scratch, std::uint32_t size) {
    const std::int64_t distance =
        reinterpret_cast<std::intptr_t>(address) - reinterpret_cast<std::intptr_t>(&control_);
    if (distance == static_cast<std::int32_t>(distance)) {
        return x86::Mem(controlRegisterS, static_cast<std::int32_t>(distance), size);
    }
    asm_.mov(scratch, imm(reinterpret_cast<std::intptr_t>(address)));
    return x86::Mem(scratch, 0, size);
}

x86::Mem Frame::indexed(const void* begin, x86::Gp offset) const {
    const std::int64_t distance =
        reinterpret_cast<std::intptr_t>(begin) - reinterpret_cast<std::intptr_t>(&control_);
    return x86::Mem(controlRegisterS, offset, 0, static_cast<std::int32_t>(distance));
}

void Frame::load(x86::Gp to, Ref ref) {
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

void Frame::store(Ref target, x86::Gp value) {
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

void Frame::storePending() {
    const PendingStores::Set pending = pending_->before(current_);
    for (std::size_t i = 0; i < cached_.size(); ++i) {
        if ((pending >> i & 1) == 0) continue;
        const std::size_t variable = cached_[i];
        asm_.mov(at(listing_.variables[variable], x86::rax, 8), *registers_[variable]);
    }
    const std::uint32_t notes = listing_.operations[current_].notes;
    if (notes == 0) return;
    for (const auto& [word, value] : listing_.notes[notes - 1]) {
        asm_.mov(at(word, x86::rax, 8), imm(value));
    }
}

void Frame::prologue() {
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

void Frame::epilogue() {
    asm_.bind(leave_);
    if (callsOut_) {
        asm_.mov(at(&control_.counters().untilLook, x86::rcx, 8), countRegisterS);
    }
    if (frame_ != 0) asm_.add(x86::rsp, frame_);
    for (auto kept = kept_.rbegin(); kept != kept_.rend(); ++kept) asm_.pop(*kept);
    asm_.ret();
}

void Frame::keepTemporaries(std::size_t live) {
    for (std::size_t i = 0; i < std::min(live, temporaryRegistersS.size()); ++i) {
        asm_.mov(slotOf(i), temporaryRegistersS[i]);
    }
}

void Frame::takeTemporaries(std::size_t live) {
    for (std::size_t i = variableRegistersS.size(); i < cached_.size(); ++i) {
        loadVariable(cached_[i]);
    }
    for (std::size_t i = 0; i < std::min(live, temporaryRegistersS.size()); ++i) {
        asm_.mov(temporaryRegistersS[i], slotOf(i));
    }
}

asmjit::Label Frame::newCold(std::function<void()> emit) {
    cold_.push_back({asm_.newLabel(), current_, std::move(emit)});
    return cold_.back().at;
}

void Frame::emitCold() {
    for (std::size_t i = 0; i < cold_.size(); ++i) {
        asm_.bind(cold_[i].at);
        current_ = cold_[i].operation;
        const std::function<void()> emit = std::move(cold_[i].emit);
        emit();
    }
}

asmjit::Label Frame::failureIn(const Operation& operation) {
    const auto [found, isNew] = failures_.try_emplace(operation.statement);
    if (isNew) {
        found->second = newCold([this, statement = operation.statement] {
            asm_.mov(counter(&control_.counters().failedAt, 4), imm(statement));
            asm_.jmp(leave_);
        });
    }
    return found->second;
}

asmjit::Label Frame::newCall(const Operation& operation, asmjit::Label back,
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

void Frame::call(const void* function, bool asks) {
    if (asks) asm_.mov(counter(&control_.counters().untilLook), countRegisterS);
    asm_.mov(x86::rdi, controlRegisterS);
    asm_.mov(x86::rax, imm(reinterpret_cast<std::intptr_t>(function)));
    asm_.call(x86::rax);
    if (asks) loadCount();
}

void Frame::checkFailure(const Operation& operation) {
    const x86::Mem hasFailed = at(&control_.counters().hasFailed, x86::rcx, 4);
    asm_.cmp(hasFailed, imm(0));
    asm_.jne(failureIn(operation));
}

std::vector<bool> Frame::setAtOnce() const {
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

void Frame::loadCount() {
    asm_.mov(countRegisterS, at(&control_.counters().untilLook, countRegisterS, 8));
}

// NOLINTEND(performance-unnecessary-value-param)

}  // namespace SCR::Code

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>
#include <vector>

#include "scr/Array.h"
#include "scr/code/Fragment.h"
#include "scr/code/Helpers.h"
#include "scr/value/LongArithmetic.h"

// The addresses of labels are an extension of both compilers.
#pragma GCC diagnostic ignored "-Wpedantic"

namespace SCR::Code {

namespace {

struct Table;

// Operands are addresses: of temporaries, of constants and of the homes of variables.
struct Instruction {
    const void* handler;
    union {
        long* target;
        const Instruction* next;  // of a jump
        const Node* place;
        bool* home;
        const ElementPlace* storedElement;
    };
    union {
        const long* a;
        const bool* source;
    };
    union {
        const long* b;
        const Table* table;           // of a switch
        const ElementPlace* element;  // of a load
    };
};
static_assert(sizeof(Instruction) == 4 * sizeof(void*));

// What follows a call: more of its operands.
struct CallInstruction {
    const Helper* helper;
    const long* c;
    const void* unused[2];
};
static_assert(sizeof(CallInstruction) == sizeof(Instruction));

struct Table {
    long first;
    std::vector<const Instruction*> labels;
    const Instruction* otherwise;
};

using Handlers = std::array<const void*, static_cast<std::size_t>(Op::Leave) + 1>;

// Runs from `next` on; with null it sets `handlers` only. Gives the code, or stops at the failed
// instruction, which it leaves in `next`.
std::int32_t interpret(const Instruction*& start, RunControl& control, Handlers* handlers) {
    if (handlers != nullptr) {
        const auto set = [&](Op op, const void* handler) {
            (*handlers)[static_cast<std::size_t>(op)] = handler;
        };
        set(Op::Nothing, &&nothing);
        set(Op::Move, &&move);
        set(Op::Add, &&add);
        set(Op::Subtract, &&subtract);
        set(Op::Multiply, &&multiply);
        set(Op::Divide, &&divide);
        set(Op::Remainder, &&remainder);
        set(Op::Negate, &&negate);
        set(Op::Less, &&less);
        set(Op::Greater, &&greater);
        set(Op::Equal, &&equal);
        set(Op::NotEqual, &&notEqual);
        set(Op::LessEqual, &&lessEqual);
        set(Op::GreaterEqual, &&greaterEqual);
        set(Op::JumpLess, &&jumpLess);
        set(Op::JumpGreater, &&jumpGreater);
        set(Op::JumpEqual, &&jumpEqual);
        set(Op::JumpNotEqual, &&jumpNotEqual);
        set(Op::JumpLessEqual, &&jumpLessEqual);
        set(Op::JumpGreaterEqual, &&jumpGreaterEqual);
        set(Op::Jump, &&jump);
        set(Op::LoadBool, &&loadBool);
        set(Op::StoreBool, &&storeBool);
        set(Op::Note, &&move);
        set(Op::LateNote, &&move);
        set(Op::Turn, &&turn);
        set(Op::EnterCall, &&enterCall);
        set(Op::LeaveCall, &&leaveCall);
        set(Op::CheckCall, &&checkCall);
        set(Op::Switch, &&switchOn);
        set(Op::LoadElement, &&loadElement);
        set(Op::StoreElement, &&storeElement);
        set(Op::Call, &&call);
        set(Op::Leave, &&leave);
        return 0;
    }

    const Instruction* at = start;
    RunCounters& counters = control.counters();
// NOLINTBEGIN(bugprone-macro-parentheses): labels and statements
#define KESTREL_GO goto * at->handler
#define KESTREL_NEXT \
    ++at;            \
    KESTREL_GO
#define KESTREL_COMPARISON(name, jumpName, sign)  \
    name:                                         \
    *at->target = *at->a sign * at->b ? 1 : 0;    \
    KESTREL_NEXT;                                 \
    jumpName:                                     \
    at = *at->a sign * at->b ? at->next : at + 1; \
    KESTREL_GO;

    // NOLINTEND(bugprone-macro-parentheses)

    KESTREL_GO;
nothing:
    KESTREL_NEXT;
move:
    *at->target = *at->a;
    KESTREL_NEXT;
add:
    *at->target = LongAddition::apply(*at->a, *at->b);
    KESTREL_NEXT;
subtract:
    *at->target = LongSubtraction::apply(*at->a, *at->b);
    KESTREL_NEXT;
multiply:
    *at->target = LongMultiplication::apply(*at->a, *at->b);
    KESTREL_NEXT;
divide:
    *at->target = LongQuotient::apply(*at->a, *at->b);
    KESTREL_NEXT;
remainder:
    *at->target = LongRemainder::apply(*at->a, *at->b);
    KESTREL_NEXT;
negate:
    *at->target = LongSubtraction::apply(0, *at->a);
    KESTREL_NEXT;
    KESTREL_COMPARISON(less, jumpLess, <)
    KESTREL_COMPARISON(greater, jumpGreater, >)
    KESTREL_COMPARISON(equal, jumpEqual, ==)
    KESTREL_COMPARISON(notEqual, jumpNotEqual, !=)
    KESTREL_COMPARISON(lessEqual, jumpLessEqual, <=)
    KESTREL_COMPARISON(greaterEqual, jumpGreaterEqual, >=)
jump:
    at = at->next;
    KESTREL_GO;
loadBool:
    *at->target = *at->source ? 1 : 0;
    KESTREL_NEXT;
storeBool:
    *at->home = *at->a != 0;
    KESTREL_NEXT;
turn:
    if (--counters.untilLook < 0) [[unlikely]] {
        look(control, at->place);
        if (counters.hasFailed != 0) goto failed;
    }
    KESTREL_NEXT;
enterCall:
    Code::enterCall(control, at->place);
    if (counters.hasFailed != 0) [[unlikely]]
        goto failed;
    KESTREL_NEXT;
leaveCall:
    control.leaveCall();
    KESTREL_NEXT;
checkCall:
    if (--counters.untilLook < 0) [[unlikely]] {
        look(control, at->place);
        if (counters.hasFailed != 0) goto failed;
    }
    if (counters.openCalls + *at->a >= counters.mostCalls ||
        static_cast<char*>(__builtin_frame_address(0)) < counters.stackEnd) [[unlikely]] {
        counters.openCalls += *at->a + 1;
        Code::checkCall(control, at->place);
        goto failed;
    }
    KESTREL_NEXT;
switchOn : {
    const Table& table = *at->table;
    const unsigned long index =
        static_cast<unsigned long>(*at->a) - static_cast<unsigned long>(table.first);
    at = index < table.labels.size() ? table.labels[index] : table.otherwise;
    KESTREL_GO;
}
loadElement : {
    const ElementPlace& place = *at->element;
    const auto index = static_cast<unsigned long>(*at->a);
    if (index < place.block->size) [[likely]] {
        const std::byte* const values = place.block->values;
        *at->target = place.isBool ? static_cast<long>(values[index])
                                   : reinterpret_cast<const long*>(values)[index];
        KESTREL_NEXT;
    }
    const long value = place.load->run(control, reinterpret_cast<long>(place.access), *at->a, 0);
    if (counters.hasFailed != 0) [[unlikely]]
        goto failed;
    *at->target = value;
    KESTREL_NEXT;
}
storeElement : {
    const ElementPlace& place = *at->storedElement;
    const auto index = static_cast<unsigned long>(*at->a);
    if (index < place.block->size) [[likely]] {
        std::byte* const values = place.block->values;
        if (place.isBool) {
            values[index] = static_cast<std::byte>(*at->b);
        } else {
            reinterpret_cast<long*>(values)[index] = *at->b;
        }
        KESTREL_NEXT;
    }
    place.store->run(control, reinterpret_cast<long>(place.access), *at->a, *at->b);
    if (counters.hasFailed != 0) [[unlikely]]
        goto failed;
    KESTREL_NEXT;
}
call : {
    const auto& more = reinterpret_cast<const CallInstruction&>(at[1]);
    const long value = more.helper->run(control, *at->a, *at->b, *more.c);
    if (counters.hasFailed != 0) [[unlikely]]
        goto failed;
    *at->target = value;
    at += 2;
    KESTREL_GO;
}
leave:
    return static_cast<std::int32_t>(*at->a);
failed:
    start = at;
    return 0;
#undef KESTREL_COMPARISON
#undef KESTREL_NEXT
#undef KESTREL_GO
}

class PortableFragment final : public Fragment {
public:
    PortableFragment(Listing listing, RunControl& control);

    std::size_t bytes() const override {
        return sizeof *this + bytesOfStatements() + listing_.operations.size() * sizeof(Operation) +
               instructions_.size() * (sizeof(Instruction) + sizeof(std::uint32_t));
    }

private:
    static std::int32_t enter(void* fragment);
    const long* operand(Ref ref) const;
    std::int32_t runOnce();

    Listing listing_;
    std::vector<long> temporaries_;
    std::vector<Instruction> instructions_;
    std::vector<Table> tables_;
    std::vector<std::uint32_t> statementNumbers_;  // by instruction
    int active_ = 0;
};

const long* PortableFragment::operand(Ref ref) const {
    static constexpr long unused = 0;
    switch (ref.kind()) {
        case Ref::Kind::Temporary:
            return &temporaries_[ref.index()];
        case Ref::Kind::Variable:
            return listing_.variables[ref.index()];
        case Ref::Kind::Constant:
            return &listing_.constants[ref.index()];
        case Ref::Kind::None:
            break;
    }
    return &unused;
}

PortableFragment::PortableFragment(Listing listing, RunControl& control)
    : Fragment(enter, this, control, std::move(listing.statements)),
      listing_(std::move(listing)),
      temporaries_(listing_.temporaries + 1) {
    static const Handlers handlers = [&] {
        Handlers filled{};
        const Instruction* none = nullptr;
        interpret(none, control, &filled);
        return filled;
    }();
    const std::vector<Operation>& operations = listing_.operations;
    std::vector<std::uint32_t> places;  // of the operations
    std::uint32_t count = 0;
    for (const Operation& operation : operations) {
        places.push_back(count);
        if (operation.op == Op::Call) {
            count += 2;
        } else if (operation.op != Op::Nothing) {
            ++count;
        }
    }
    places.push_back(count);
    instructions_.resize(count);
    const auto at = [&](Label label) {
        return instructions_.data() + places[listing_.labels[label]];
    };
    for (const SwitchTable& from : listing_.switches) {
        Table& table = tables_.emplace_back();
        table.first = from.first;
        for (const Label label : from.labels) table.labels.push_back(at(label));
        table.otherwise = at(from.otherwise);
    }
    statementNumbers_.reserve(count);
    for (std::size_t i = 0; i < operations.size(); ++i) {
        const Operation& operation = operations[i];
        if (operation.op == Op::Nothing) continue;
        Instruction& made = instructions_[places[i]];
        made.handler = handlers[static_cast<std::size_t>(operation.op)];
        made.target = const_cast<long*>(operand(operation.target));
        made.a = operand(operation.a);
        made.b = operand(operation.b);
        statementNumbers_.push_back(operation.statement);
        switch (operation.op) {
            case Op::JumpLess:
            case Op::JumpGreater:
            case Op::JumpEqual:
            case Op::JumpNotEqual:
            case Op::JumpLessEqual:
            case Op::JumpGreaterEqual:
            case Op::Jump:
                made.next = at(operation.label);
                break;
            case Op::Switch:
                made.table = &tables_[operation.label];
                break;
            case Op::LoadBool:
                made.source = static_cast<const bool*>(operation.pointer);
                break;
            case Op::StoreBool:
                made.home = static_cast<bool*>(const_cast<void*>(operation.pointer));
                break;
            case Op::Note:
            case Op::LateNote:
                made.target = static_cast<long*>(const_cast<void*>(operation.pointer));
                break;
            case Op::Turn:
            case Op::CheckCall:
            case Op::EnterCall:
                made.place = static_cast<const Node*>(operation.pointer);
                break;
            case Op::LoadElement:
                made.element = static_cast<const ElementPlace*>(operation.pointer);
                break;
            case Op::StoreElement:
                made.storedElement = static_cast<const ElementPlace*>(operation.pointer);
                break;
            case Op::Call: {
                const CallInstruction more{
                    static_cast<const Helper*>(operation.pointer), operand(operation.c), {}};
                std::memcpy(&instructions_[places[i] + 1], &more, sizeof more);
                statementNumbers_.push_back(operation.statement);
                break;
            }
            default:
                break;
        }
    }
}

std::int32_t PortableFragment::enter(void* fragment) {
    auto& self = *static_cast<PortableFragment*>(fragment);
    if (self.active_ == 0) return self.runOnce();
    // The one that runs has values in the temporaries.
    const std::vector<long> kept = self.temporaries_;
    const std::int32_t code = self.runOnce();
    std::copy(kept.begin(), kept.end(), self.temporaries_.begin());
    return code;
}

std::int32_t PortableFragment::runOnce() {
    const Instruction* at = instructions_.data();
    ++active_;
    const std::int32_t code = interpret(at, control(), nullptr);
    --active_;
    if (control().counters().hasFailed != 0) [[unlikely]] {
        control().counters().failedAt =
            statementNumbers_[static_cast<std::size_t>(at - instructions_.data())];
    }
    return code;
}

}  // namespace

std::unique_ptr<Fragment> makePortable(Listing listing, RunControl& control) {
    return std::make_unique<PortableFragment>(std::move(listing), control);
}

}  // namespace SCR::Code

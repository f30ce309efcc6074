#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "scr/value/Slots.h"

namespace SCR {

class Node;
class RunControl;
struct ArrayBlock;

namespace Code {

/// What an operation reads or writes: a temporary, the value of a Long variable in its home, or a
/// constant. An address is a value like any other.
class Ref {
public:
    enum class Kind : std::uint32_t { None, Temporary, Variable, Constant };

    Ref() = default;
    Ref(Kind kind, std::size_t index)
        : kind_(kind), index_(static_cast<std::uint32_t>(index) & indexMaskCM) {}

    Kind kind() const { return kind_; }
    bool is(Kind kind) const { return kind_ == kind; }
    explicit operator bool() const { return kind_ != Kind::None; }
    /// The number of the temporary, or the index into the list of variables or constants.
    std::size_t index() const { return index_; }
    bool operator==(const Ref&) const = default;

private:
    static constexpr std::uint32_t indexMaskCM = (1U << 30) - 1;

    Kind kind_ : 2 = Kind::None;
    std::uint32_t index_ : 30 = 0;
};

/// What an operation does. `target`, `a`, `b`, `c`, `label` and `pointer` are its parts.
enum class Op : std::uint8_t {
    Nothing,
    Move,
    // target = a ? b. Sums, differences and products wrap around. The divisor is never 0.
    Add,
    Subtract,
    Multiply,
    Divide,
    Remainder,
    Negate,
    // target = 1 if the comparison holds, otherwise 0. In the order of `Relation`.
    Less,
    Greater,
    Equal,
    NotEqual,
    LessEqual,
    GreaterEqual,
    // Goes to the label if the comparison holds. In the same order.
    JumpLess,
    JumpGreater,
    JumpEqual,
    JumpNotEqual,
    JumpLessEqual,
    JumpGreaterEqual,
    Jump,
    // A Bool variable, whose home is at `pointer`: target = it, it = a (0 or 1).
    LoadBool,
    StoreBool,
    // target = c if the comparison of a with b holds, otherwise target stays. In the same order.
    // Only `useSelects` makes them.
    SelectLess,
    SelectGreater,
    SelectEqual,
    SelectNotEqual,
    SelectLessEqual,
    SelectGreaterEqual,
    // For who observes the script: stores a, a constant, at `pointer`.
    Note,
    // The same, for a word that others look at only while the code calls something.
    LateNote,
    // Counts a turn of the loop `pointer`.
    Turn,
    // Counts the call made by the node `pointer` and opens it; closes it.
    EnterCall,
    LeaveCall,
    // Counts the call, and checks that it and a more could be open: for a body that makes no other
    // call.
    CheckCall,
    // Goes to the label for a in the table `pointer`.
    Switch,
    // target = the element a of the array, that element = b; `pointer` is its `ElementPlace`.
    LoadElement,
    StoreElement,
    // target = the helper `pointer` with a, b, c.
    Call,
    // Leaves the fragment with the control-flow code a.
    Leave,
};

enum class Relation : std::uint8_t { Less, Greater, Equal, NotEqual, LessEqual, GreaterEqual };

/// The relation that holds when the given one does not.
constexpr Relation opposite(Relation relation) {
    constexpr Relation opposites[] = {Relation::GreaterEqual, Relation::LessEqual,
                                      Relation::NotEqual,     Relation::Equal,
                                      Relation::Greater,      Relation::Less};
    return opposites[static_cast<std::size_t>(relation)];
}

/// The relation of b to a when a has the given one to b.
constexpr Relation mirrored(Relation relation) {
    constexpr Relation mirrors[] = {Relation::Greater,      Relation::Less,
                                    Relation::Equal,        Relation::NotEqual,
                                    Relation::GreaterEqual, Relation::LessEqual};
    return mirrors[static_cast<std::size_t>(relation)];
}

constexpr Op setOf(Relation relation) {
    return static_cast<Op>(static_cast<int>(Op::Less) + static_cast<int>(relation));
}
constexpr Op jumpOf(Relation relation) {
    return static_cast<Op>(static_cast<int>(Op::JumpLess) + static_cast<int>(relation));
}
constexpr Op selectOf(Relation relation) {
    return static_cast<Op>(static_cast<int>(Op::SelectLess) + static_cast<int>(relation));
}

/// Whether it goes to the label that it holds, always or under a condition.
constexpr bool isJump(Op op) { return op >= Op::JumpLess && op <= Op::Jump; }
constexpr bool isCompareJump(Op op) { return op >= Op::JumpLess && op <= Op::JumpGreaterEqual; }
constexpr bool isSelect(Op op) { return op >= Op::SelectLess && op <= Op::SelectGreaterEqual; }
/// The relation of an operation of the group that begins with `first`.
constexpr Relation relationOf(Op op, Op first) {
    return static_cast<Relation>(static_cast<int>(op) - static_cast<int>(first));
}

/// A place in the code that jumps go to.
using Label = std::uint32_t;

/// A function of the library that an operation calls. It throws nothing: when something is thrown
/// inside, it notes that in the control, and the code leaves with it.
struct Helper {
    long (*run)(RunControl& control, long a, long b, long c) noexcept;
    /// Whether it may note a failure.
    bool mayFail = true;
    /// Whether it may run script code, and so change Long and Bool variables.
    bool mayAssign = true;
};

/// The elements of a named array of Longs, Bools or Strings.
struct ElementPlace {
    /// The array's own, which holds the values of the elements that need no more than a look; an
    /// empty one for Strings.
    const ArrayBlock* block;
    /// For Strings, whose value is their address.
    ElementSlots slots;
    /// Whether they are Bools.
    bool isBool;
    /// For any other element: called with `access`, the index and the value to store.
    const void* access;
    const Helper* load;
    const Helper* store;
};

/// The labels of a switch over Longs. Values from `first` on look into `labels`, others go to
/// `otherwise`.
struct SwitchTable {
    long first = 0;
    std::vector<Label> labels;
    Label otherwise = 0;
};

struct Operation {
    Op op = Op::Nothing;
    /// How many temporaries are in use while it runs, its operands aside.
    std::uint16_t live = 0;
    /// How many loops of the code are around it.
    std::uint8_t loops = 0;
    /// Of a comparison for being equal: whether it compares not a with b, but the remainder of a
    /// divided by the constant b with 0. Only `testRemainders` sets it.
    bool testsRemainder = false;
    /// Whether the target's value is set again before anybody can see its home. Only `useSelects`
    /// sets it.
    bool isPassing = false;
    /// The statement that it belongs to.
    std::uint32_t statement = 0;
    Ref target;
    Ref a;
    Ref b;
    union {
        Ref c{};
        Label label;
    };
    const void* pointer = nullptr;
    /// Of what calls or leaves: which of `Listing::notes` are stored first, from 1 on; 0: none.
    /// Only `delayNotes` sets it.
    std::uint32_t notes = 0;
};

/// Intermediate code: operations on temporaries, on variables in their homes and on constants. The
/// code of a loop or a body of statements, which runs from its first operation to a `Leave`.
struct Listing {
    std::vector<Operation> operations;
    /// By label: the number of the operation that it stands before.
    std::vector<std::uint32_t> labels;
    std::vector<long*> variables;
    std::vector<long> constants;
    std::vector<const Node*> statements;
    std::vector<SwitchTable> switches;
    std::size_t temporaries = 0;
    /// Sets of words and what is stored in them.
    std::vector<std::vector<std::pair<void*, long>>> notes;
};

}  // namespace Code
}  // namespace SCR

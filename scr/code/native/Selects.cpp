#include "scr/code/native/Selects.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace SCR::Code {

namespace {

// The most work of both sides together, in simple operations, and the most values to choose.
constexpr int mostWorkS = 10;
constexpr std::size_t mostValuesS = 2;
constexpr int mostRoundsS = 4;

// Replaces the branches of one listing that are innermost now.
class Round {
public:
    explicit Round(Listing& listing) : listing_(listing), entries_(operations().size() + 1) {
        for (const Operation& operation : operations()) {
            if (operation.op == Op::Jump || isCompareJump(operation.op)) enter(operation.label);
        }
        for (const SwitchTable& table : listing.switches) {
            for (const Label label : table.labels) enter(label);
            enter(table.otherwise);
        }
    }

    /// Whether there was one.
    bool run() {
        std::vector<std::uint32_t> places;  // the new ones of the operations
        bool isChanged = false;
        for (std::size_t i = 0; i <= operations().size();) {
            places.resize(i + 1, static_cast<std::uint32_t>(made_.size()));
            if (i == operations().size()) break;
            if (const std::size_t end = replace(i); end != i) {
                // Nothing else goes to the operations between.
                places.resize(end, static_cast<std::uint32_t>(made_.size()));
                isChanged = true;
                i = end;
            } else {
                made_.push_back(operations()[i++]);
            }
        }
        if (!isChanged) return false;
        for (std::uint32_t& label : listing_.labels) label = places[label];
        operations() = std::move(made_);
        return true;
    }

private:
    // Operations that follow one another, and what they set: with what holds its value then.
    struct Side {
        std::size_t first;
        std::size_t end;
        std::vector<std::pair<Ref, Ref>> values = {};

        Ref valueOf(Ref operand) const {
            const auto found = std::find_if(values.begin(), values.end(), [&](const auto& value) {
                return value.first == operand;
            });
            return found != values.end() ? found->second : operand;
        }
    };

    std::vector<Operation>& operations() const { return listing_.operations; }

    void enter(Label label) { ++entries_[listing_.labels[label]]; }

    // Replaces a branch that begins at `at`; gives its end, or `at` when there is none.
    std::size_t replace(std::size_t at) {
        const Operation jump = operations()[at];
        if (!isCompareJump(jump.op)) return at;
        const std::size_t target = listing_.labels[jump.label];
        if (target <= at || target - at > mostOperationsCM) return at;
        Side then{at + 1, target};
        Side otherwise{target, target};
        std::size_t end = target;
        if (const Operation& last = operations()[target - 1];
            target - 1 > at && last.op == Op::Jump) {
            end = listing_.labels[last.label];
            // The other side belongs to this branch alone.
            if (end < target || end - target > mostOperationsCM || entries_[target] > 1) return at;
            then.end = target - 1;
            otherwise.end = end;
        }
        for (std::size_t i = at + 1; i < end; ++i) {
            if (i != target && entries_[i] > 0) return at;
        }
        free_ = jump.live;
        noteTemporaries(jump);
        int work = 0;
        for (const Side* const side : {&then, &otherwise}) {
            for (std::size_t i = side->first; i < side->end; ++i) {
                work += workOf(operations()[i]);
                noteTemporaries(operations()[i]);
            }
        }
        if (work == 0 || work > mostWorkS) return at;
        const std::size_t before = made_.size();
        if (!compute(jump, then, otherwise)) {
            made_.resize(before);
            return at;
        }
        listing_.temporaries = std::max<std::size_t>(listing_.temporaries, free_);
        return end;
    }

    // Whether dividing by it never fails.
    bool isDivisor(Ref operand) const {
        return operand.is(Ref::Kind::Constant) && listing_.constants[operand.index()] != 0;
    }
    int workOf(const Operation& operation) const {
        constexpr int tooMuch = mostWorkS + 1;
        switch (operation.op) {
            case Op::Nothing:
                return 0;
            case Op::Divide:
            case Op::Remainder:
                return isDivisor(operation.b) ? 4 : tooMuch;
            case Op::Multiply:
                return 2;
            case Op::Move:
            case Op::Add:
            case Op::Subtract:
            case Op::Negate:
                return 1;
            default:
                if (operation.op >= Op::Less && operation.op <= Op::GreaterEqual) return 2;
                return isSelect(operation.op) ? 2 : tooMuch;
        }
    }

    void noteTemporaries(const Operation& operation) {
        const auto note = [this](Ref ref) {
            if (ref.is(Ref::Kind::Temporary)) free_ = std::max(free_, ref.index() + 1);
        };
        note(operation.target);
        note(operation.a);
        note(operation.b);
        if (isSelect(operation.op)) note(operation.c);
    }

    // Emits the operations of a side. What they set goes to temporaries of their own; only the last
    // values of `inPlace` go where they belong.
    void compute(Side& side, const std::vector<Ref>& inPlace) {
        for (std::size_t i = side.first; i < side.end; ++i) {
            Operation operation = operations()[i];
            if (operation.op == Op::Nothing) continue;
            const Ref set = operation.target;
            const bool staysThere = contains(inPlace, set) && !isSetIn(set, i + 1, side.end);
            const Ref value = staysThere ? set : Ref(Ref::Kind::Temporary, free_++);
            operation.a = side.valueOf(operation.a);
            operation.b = side.valueOf(operation.b);
            if (isSelect(operation.op)) {
                // The target is an operand as well.
                operation.c = side.valueOf(operation.c);
                if (const Ref former = side.valueOf(set); former != value) {
                    emitMove(operation, value, former);
                }
            }
            std::erase_if(side.values, [&](const auto& other) { return other.first == set; });
            if (value != set) side.values.emplace_back(set, value);
            operation.target = value;
            operation.isPassing = staysThere;
            made_.push_back(operation);
        }
    }

    // Emits both sides and the choice between their values. False when there is nothing to choose,
    // or too much.
    bool compute(const Operation& jump, Side& then, Side& otherwise) {
        // Temporaries that are taken in the branch are not needed after it.
        const auto needed = [&](const Side& side) {
            std::vector<Ref> sets;
            for (std::size_t i = side.first; i < side.end; ++i) {
                const Ref set = operations()[i].target;
                if (set.is(Ref::Kind::Variable) ||
                    (set.is(Ref::Kind::Temporary) && set.index() < jump.live)) {
                    if (!contains(sets, set)) sets.push_back(set);
                }
            }
            return sets;
        };
        const std::vector<Ref> ofThen = needed(then);
        const std::vector<Ref> ofOtherwise = needed(otherwise);
        std::vector<Ref> all = ofThen;
        std::vector<Ref> ofBoth;
        for (const Ref set : ofOtherwise) (contains(ofThen, set) ? ofBoth : all).push_back(set);
        if (all.empty() || all.size() > mostValuesS) return false;
        // Each choice compares again, when some of the values may have changed.
        Operation choice = jump;
        for (Ref* const operand : {&choice.a, &choice.b}) {
            if (!contains(all.size() > 1 ? all : ofBoth, *operand)) continue;
            const Ref copy(Ref::Kind::Temporary, free_++);
            emitMove(jump, copy, *operand);
            *operand = copy;
        }
        compute(then, {});
        compute(otherwise, ofBoth);
        // The jump goes to the other side when the relation holds.
        const Relation relation = relationOf(jump.op, Op::JumpLess);
        for (const Ref set : ofThen) select(choice, opposite(relation), set, then.valueOf(set));
        for (const Ref set : ofOtherwise) {
            if (!contains(ofThen, set)) select(choice, relation, set, otherwise.valueOf(set));
        }
        return true;
    }
    static bool contains(const std::vector<Ref>& refs, Ref ref) {
        return std::find(refs.begin(), refs.end(), ref) != refs.end();
    }
    bool isSetIn(Ref set, std::size_t first, std::size_t end) const {
        const auto from = operations().begin();
        return std::any_of(from + static_cast<std::ptrdiff_t>(first),
                           from + static_cast<std::ptrdiff_t>(end),
                           [&](const Operation& operation) { return operation.target == set; });
    }
    void emitMove(const Operation& near, Ref target, Ref from) {
        Operation& move = made_.emplace_back(near);
        move.op = Op::Move;
        move.testsRemainder = false;
        move.isPassing = false;
        move.target = target;
        move.a = from;
        move.b = {};
        move.c = {};
    }
    void select(const Operation& jump, Relation relation, Ref target, Ref value) {
        Operation chosen = jump;
        chosen.op = selectOf(relation);
        chosen.target = target;
        chosen.c = value;
        made_.push_back(chosen);
    }

    static constexpr std::size_t mostOperationsCM = 24;  // of a side

    Listing& listing_;
    std::vector<std::uint32_t> entries_;  // by operation: how many jumps go there
    std::vector<Operation> made_;
    std::size_t free_ = 0;  // the first temporary that the branch does not use
};

}  // namespace

void useSelects(Listing& listing) {
    for (int round = 0; round < mostRoundsS && Round(listing).run(); ++round) {
    }
}

}  // namespace SCR::Code

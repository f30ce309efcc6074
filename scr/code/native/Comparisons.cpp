#include "scr/code/native/Comparisons.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <optional>
#include <vector>

namespace SCR::Code {

namespace {

// How one value may stand to another: a set of these bits.
using Order = unsigned;
constexpr Order lessS = 1;
constexpr Order equalS = 2;
constexpr Order greaterS = 4;

constexpr Order orderOf(Relation relation) {
    constexpr Order orders[] = {lessS,          greaterS,         equalS, lessS | greaterS,
                                lessS | equalS, greaterS | equalS};
    return orders[static_cast<std::size_t>(relation)];
}

constexpr Order mirrored(Order order) {
    return (order & equalS) | ((order & lessS) != 0 ? greaterS : 0) |
           ((order & greaterS) != 0 ? lessS : 0);
}

// Values from `least` to `greatest`.
struct Range {
    long least = std::numeric_limits<long>::min();
    long greatest = std::numeric_limits<long>::max();
};

// What is known of values at one place of the code.
class Facts {
public:
    explicit Facts(const Listing& listing) : listing_(listing) {}

    void clear() {
        ranges_.clear();
        orders_.clear();
    }
    // `ref` gets another value.
    void forget(Ref ref) {
        std::erase_if(ranges_, [&](const auto& known) { return known.ref == ref; });
        std::erase_if(orders_, [&](const auto& known) { return known.a == ref || known.b == ref; });
    }
    // Whether the relation holds; nothing when it may or may not.
    std::optional<bool> holds(Relation relation, Ref a, Ref b) const {
        const Order possible = orderBetween(a, b);
        const Order wanted = orderOf(relation);
        if ((possible & wanted) == possible) return true;
        if ((possible & wanted) == 0) return false;
        return std::nullopt;
    }
    // The relation holds.
    void learn(Relation relation, Ref a, Ref b) {
        const Order order = orderOf(relation);
        if (b.is(Ref::Kind::Constant)) return limit(a, order, listing_.constants[b.index()]);
        if (a.is(Ref::Kind::Constant)) {
            return limit(b, mirrored(order), listing_.constants[a.index()]);
        }
        if (orders_.size() < mostCM) orders_.push_back({a, b, orderBetween(a, b) & order});
    }

private:
    // So that code of any length takes time in proportion to it.
    static constexpr std::size_t mostCM = 16;

    struct KnownRange {
        Ref ref;
        Range range;
    };
    struct KnownOrder {
        Ref a;
        Ref b;
        Order order;
    };

    Range rangeOf(Ref ref) const {
        if (ref.is(Ref::Kind::Constant)) {
            const long value = listing_.constants[ref.index()];
            return {value, value};
        }
        for (const KnownRange& known : ranges_) {
            if (known.ref == ref) return known.range;
        }
        return {};
    }

    Order orderBetween(Ref a, Ref b) const {
        const Range left = rangeOf(a);
        const Range right = rangeOf(b);
        Order order = 0;
        if (left.least < right.greatest) order |= lessS;
        if (left.greatest > right.least) order |= greaterS;
        if (left.least <= right.greatest && right.least <= left.greatest) order |= equalS;
        if (a == b) order &= equalS;
        for (const KnownOrder& known : orders_) {
            if (known.a == a && known.b == b) order &= known.order;
            if (known.a == b && known.b == a) order &= mirrored(known.order);
        }
        return order;
    }

    void limit(Ref ref, Order order, long value) {
        Range range = rangeOf(ref);
        const bool mayBeEqual = (order & equalS) != 0;
        if ((order & greaterS) == 0) {
            // The values that are possible stay at least one: the relation was not known not to
            // hold.
            range.greatest = std::min(range.greatest, mayBeEqual ? value : value - 1);
        }
        if ((order & lessS) == 0) {
            range.least = std::max(range.least, mayBeEqual ? value : value + 1);
        }
        if (!mayBeEqual && value == range.least) ++range.least;
        if (!mayBeEqual && value == range.greatest) --range.greatest;
        for (KnownRange& known : ranges_) {
            if (known.ref == ref) {
                known.range = range;
                return;
            }
        }
        if (ranges_.size() < mostCM) ranges_.push_back({ref, range});
    }

    const Listing& listing_;
    std::vector<KnownRange> ranges_;
    std::vector<KnownOrder> orders_;
};

bool isComparison(Op op) { return op >= Op::Less && op <= Op::GreaterEqual; }
// Whether it only computes or goes somewhere, so that no other value changes.
bool runsNothingElse(Op op) { return op <= Op::StoreBool; }

class ComparisonPass {
public:
    explicit ComparisonPass(Listing& listing)
        : listing_(listing), facts_(listing), isEntered_(listing.operations.size() + 1) {
        for (const std::uint32_t place : listing.labels) isEntered_[place] = true;
    }

    void run() {
        for (std::size_t i = 0; i < listing_.operations.size(); ++i) {
            if (isEntered_[i]) facts_.clear();
            Operation& operation = listing_.operations[i];
            if (isCompareJump(operation.op)) {
                meetJump(operation, i);
            } else if (isComparison(operation.op)) {
                compute(operation);
            } else if (!runsNothingElse(operation.op)) {
                facts_.clear();
            }
            if (!operation.target) continue;
            facts_.forget(operation.target);
            if (operation.op == Op::Move && operation.a.is(Ref::Kind::Constant)) {
                facts_.learn(Relation::Equal, operation.target, operation.a);
            }
        }
    }

private:
    void meetJump(Operation& jump, std::size_t at) {
        const Relation relation = relationOf(jump.op, Op::JumpLess);
        const std::optional<bool> holds = facts_.holds(relation, jump.a, jump.b);
        if (holds == true) {
            jump.op = Op::Jump;
            jump.a = jump.b = {};
        } else if (holds == false || isCovered(jump, at)) {
            jump.op = Op::Nothing;
            jump.a = jump.b = jump.c = {};
        } else {
            facts_.learn(opposite(relation), jump.a, jump.b);
        }
    }

    // Whether the next operation jumps there as well whenever this one does.
    bool isCovered(const Operation& jump, std::size_t at) const {
        std::size_t next = at + 1;
        while (next < listing_.operations.size() && listing_.operations[next].op == Op::Nothing) {
            ++next;
        }
        if (next == listing_.operations.size()) return false;
        const Operation& other = listing_.operations[next];
        if (!isCompareJump(other.op) ||
            listing_.labels[other.label] != listing_.labels[jump.label]) {
            return false;
        }
        Facts facts = facts_;
        facts.learn(relationOf(jump.op, Op::JumpLess), jump.a, jump.b);
        return facts.holds(relationOf(other.op, Op::JumpLess), other.a, other.b) == true;
    }

    void compute(Operation& comparison) {
        const Relation relation = relationOf(comparison.op, Op::Less);
        const std::optional<bool> holds = facts_.holds(relation, comparison.a, comparison.b);
        if (!holds) return;
        const long value = *holds ? 1 : 0;
        const auto found = std::find(listing_.constants.begin(), listing_.constants.end(), value);
        if (found == listing_.constants.end()) return;
        comparison.op = Op::Move;
        comparison.a = {Ref::Kind::Constant,
                        static_cast<std::size_t>(found - listing_.constants.begin())};
        comparison.b = {};
    }

    Listing& listing_;
    Facts facts_;
    std::vector<bool> isEntered_;  // by operation: whether a label stands before it
};

}  // namespace

void dropKnownComparisons(Listing& listing) { ComparisonPass(listing).run(); }

}  // namespace SCR::Code

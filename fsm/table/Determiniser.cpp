#include "fsm/table/Determiniser.h"

#include <algorithm>
#include <array>
#include <bit>
#include <utility>

#include "fsm/store/Lists.h"
#include "fsm/table/ByteClasses.h"
#include "fsm/table/FlatNfa.h"

namespace FSM {

namespace {

using StateIndex = std::uint32_t;

class Determiniser {
public:
    Determiniser(const Pattern* first, std::size_t count, const BuildLimits& limits,
                 RawAutomaton& raw, Tails tails)
        : patterns_(first),
          stateLimit_(limits.states),
          byteLimit_(limits.bytes),
          nfa_(reducedNfa(first, count)),
          classes_(nfa_.sets()),
          setsOf_(classes_.count()),
          raw_(raw),
          memberLimit_(std::max<std::size_t>(limits.states, 4096) * membersPerStateS),
          stepLimit_(std::max<std::size_t>(limits.states, 4096) * stepsPerStateS),
          workLimit_(limits.work + nfa_.stateCount() * workPerPlaceS),
          stateBytes_(classes_.count() * sizeof(std::uint32_t) + bytesPerStateS),
          memberStamps_(nfa_.stateCount()),
          visitStamps_(nfa_.stateCount()),
          closureOf_(nfa_.isReduced() ? 0 : nfa_.stateCount(), unknownS),
          stateOfTarget_(nfa_.targetCount(), unknownS),
          ownTargets_(classes_.count()) {
        for (const ByteSet& set : nfa_.sets()) classesOfSet_.push_back(classes_.classesOf(set));
        giveBits();
        if (tails == Tails::Inside) return;
        findTails(count);
        isHopeless_ = tails == Tails::MustBeApart && !hasTailsApart();
    }

    Limit run() {
        if (isHopeless_) return Limit::States;
        build();
        const Limit passed = passedLimit();
        if (passed != Limit::None) raw_ = RawAutomaton();
        return passed;
    }

    std::size_t work() const { return steps_ + otherSteps_; }

private:
    void build() {
        raw_ = RawAutomaton();
        raw_.classOf = classes_.map();
        raw_.classCount = classes_.count();
        raw_.mayHaveDeadEnds = nfa_.mayHaveDeadEnds();
        raw_.next = RowBlocks(classes_.count());
        listIndex(paths_);  // The first list is the empty one.
        stateOf(nfa_.starts());
        for (std::uint32_t state = 0; state < raw_.stateCount(); ++state) {
            if (isPastLimit()) return;
            expand(state);
        }
        if (!isPastLimit()) giveLists();
    }

    static constexpr std::uint32_t unknownS = ~std::uint32_t{0};
    static constexpr std::uint32_t largeS = unknownS - 1;
    // Last members of the sets that a newline leads to; higher than any state.
    static constexpr StateIndex newlineMarkS = ~StateIndex{0};
    static constexpr StateIndex leftMarkS = newlineMarkS - 1;
    static constexpr StateIndex firstMarkS = leftMarkS;
    static constexpr std::size_t membersPerStateS = 128;
    static constexpr std::size_t stepsPerStateS = 2048;
    static constexpr std::size_t workPerPlaceS = 512;
    // What a state takes besides its rows, the one being built and the one in the table.
    static constexpr std::size_t bytesPerStateS = 96;
    // Epsilon closures of up to this many states are kept.
    static constexpr std::size_t smallClosureS = 24;
    static constexpr std::uint8_t bitsS = 64;
    static constexpr std::uint8_t noBitS = 255;
    static constexpr std::size_t partitionsS = 32;
    static constexpr unsigned noClassS = 256;

    Limit passedLimit() const {
        const std::size_t members = sets_.lists().totalSize();
        if (raw_.stateCount() > stateLimit_ || members > memberLimit_ || steps_ > stepLimit_) {
            return Limit::States;
        }
        if (raw_.stateCount() * stateBytes_ + members * sizeof(StateIndex) > byteLimit_) {
            return Limit::Bytes;
        }
        return work() > workLimit_ ? Limit::Work : Limit::None;
    }
    bool isPastLimit() const { return passedLimit() != Limit::None; }

    static FlatNfa reducedNfa(const Pattern* first, std::size_t count) {
        FlatNfa nfa(first, count);
        nfa.reduce();
        return nfa;
    }

    void giveBits() {
        std::uint8_t bits = 0;
        for (const Vector<std::uint8_t>& classes : classesOfSet_) {
            const bool hasBit = classes.size() > 1 && bits < bitsS;
            bitOfSet_.push_back(hasBit ? bits : noBitS);
            if (!hasBit) continue;
            for (const std::uint8_t c : classes) setsOf_[c] |= std::uint64_t{1} << bits;
            ++bits;
        }
    }

    // Finds the tails: states that all bytes except newline lead back to, and perhaps on to ends of
    // patterns without further moves, if the patterns that end there may be kept apart.
    void findTails(std::size_t patternCount) {
        std::vector<std::int32_t> negated = PatternList::negatedPaths(patterns_, patternCount);
        ByteSet line = ~ByteSet().set('\n');
        Vector<std::uint32_t> tailOf(nfa_.stateCount(), unknownS);
        for (StateIndex state = 0; state < nfa_.stateCount(); ++state) {
            ++otherSteps_;
            tellWork();
            const FlatNfa::Edge* edge = nfa_.edgesBegin(state);
            if (nfa_.edgesEnd(state) - edge != 1 || nfa_.sets()[edge->set] != line) continue;
            findUnion({edge->target});
            // For each member: its patterns, and whether the state is in the set.
            otherSteps_ += 8 * set_.size();
            Tail tail;
            bool isTail = std::binary_search(set_.begin(), set_.end(), state);
            for (StateIndex member : set_) {
                isTail =
                    isTail && (member == state || nfa_.edgesBegin(member) == nfa_.edgesEnd(member));
                if (member != state) tail.ends.push_back(member);
                const std::uint32_t* end = nfa_.patterns().end(member);
                for (auto pattern = nfa_.patterns().begin(member); pattern != end; ++pattern) {
                    std::int32_t path = patterns_[*pattern].path;
                    isTail = isTail && !std::binary_search(negated.begin(), negated.end(), path);
                    tail.paths.push_back(static_cast<std::uint32_t>(path));
                }
            }
            if (!isTail || tail.paths.empty()) continue;
            tailOf[state] = static_cast<std::uint32_t>(tails_.size());
            tails_.push_back(std::move(tail));
        }
        if (!tails_.empty()) tailOf_ = std::move(tailOf);
    }

    bool hasTailsApart() const { return !tails_.empty(); }

    // Whether `state` is a tail and `members`, which contains it, also contains its ends.
    bool isSettled(StateIndex state, const StateIndex* begin, const StateIndex* end) {
        if (!hasTailsApart() || tailOf_[state] == unknownS) return false;
        const Vector<StateIndex>& ends = tails_[tailOf_[state]].ends;
        otherSteps_ += ends.size();
        return std::all_of(ends.begin(), ends.end(),
                           [&](StateIndex other) { return std::binary_search(begin, end, other); });
    }

    // Finds the successors of a state for all classes. The classes that the same sets of several
    // classes hold, and no set of one class, are looked up together.
    void expand(std::uint32_t state) {
        const std::uint64_t sets = gatherMoves(state);
        const Partition& partition = partitionBy(sets);
        const unsigned newline = hasTailsApart() ? classes_.classOf('\n') : noClassS;
        std::uint32_t* const row = raw_.next.add(RawAutomaton::noStateCM);
        otherSteps_ += classes_.count() / 4;
        stateOfGroup_.clear();
        for (const Group& group : partition.groups) {
            // Classes with moves of their own, or newline, may be all that it has.
            std::uint32_t to = RawAutomaton::noStateCM;
            const bool isNeeded =
                group.sets != 0 &&
                std::any_of(partition.classes.begin() + group.begin,
                            partition.classes.begin() + group.end,
                            [&](std::uint8_t c) { return ownTargets_[c].empty() && c != newline; });
            if (isNeeded) to = stateOf(targetsOf(group.sets, noTargets_));
            if (isPastLimit()) return;
            stateOfGroup_.push_back(to);
        }
        for (unsigned c = 0; c < classes_.count(); ++c)
            row[c] = stateOfGroup_[partition.groupOf[c]];
        for (const std::uint8_t c : touched_) {
            if (c == newline) continue;
            if (isPastLimit()) return;
            row[c] = stateOf(targetsOf(setsOf_[c] & sets, ownTargets_[c]));
        }
        if (newline == noClassS) return;
        row[newline] = stateAfterNewline(targetsOf(setsOf_[newline] & sets, ownTargets_[newline]));
    }

    // Finds the targets of the moves from a state: by the set if that has a bit, otherwise for each
    // of its classes. Gives the bits of the sets.
    std::uint64_t gatherMoves(std::uint32_t state) {
        for (const std::uint8_t c : touched_) ownTargets_[c].clear();
        touched_.clear();
        std::uint64_t sets = 0;
        const StateIndex* begin = sets_.lists().begin(state);
        const StateIndex* end = sets_.lists().end(state);
        for (const StateIndex* member = begin; member != end; ++member) {
            tellWork();
            if (*member >= firstMarkS || isSettled(*member, begin, end)) continue;
            const FlatNfa::Edge* edgesEnd = nfa_.edgesEnd(*member);
            for (const FlatNfa::Edge* edge = nfa_.edgesBegin(*member); edge != edgesEnd; ++edge) {
                const std::uint8_t bit = bitOfSet_[edge->set];
                ++steps_;
                if (bit != noBitS) {
                    if ((sets >> bit & 1) == 0) targetsOfBit_[bit].clear();
                    sets |= std::uint64_t{1} << bit;
                    targetsOfBit_[bit].push_back(edge->target);
                    continue;
                }
                for (const std::uint8_t c : classesOfSet_[edge->set]) {
                    ++steps_;
                    if (ownTargets_[c].empty()) touched_.push_back(c);
                    ownTargets_[c].push_back(edge->target);
                }
            }
        }
        return sets;
    }

    // The classes that the same ones of some sets hold: from `begin` to before `end`.
    struct Group {
        std::uint64_t sets;
        std::uint16_t begin;
        std::uint16_t end;
    };
    struct Partition {
        std::uint64_t sets;
        Vector<std::uint8_t> groupOf;  // of each class
        Vector<std::uint8_t> classes;  // those of each group together
        Vector<Group> groups;
    };

    const Partition& partitionBy(std::uint64_t sets) {
        const auto known =
            std::find_if(partitions_.begin(), partitions_.end(),
                         [&](const Partition& partition) { return partition.sets == sets; });
        if (known != partitions_.end()) return *known;
        if (partitions_.size() == partitionsS) partitions_.clear();
        Partition& added = partitions_.emplace_back();
        added.sets = sets;
        otherSteps_ += 16 * classes_.count();
        bySets_.clear();
        for (unsigned c = 0; c < classes_.count(); ++c) bySets_.push_back({setsOf_[c] & sets, c});
        std::sort(bySets_.begin(), bySets_.end());
        added.groupOf.resize(classes_.count());
        added.classes.reserve(classes_.count());
        for (const auto& [own, c] : bySets_) {
            const auto place = static_cast<std::uint16_t>(added.classes.size());
            if (added.groups.empty() || added.groups.back().sets != own) {
                added.groups.push_back({own, place, place});
            }
            ++added.groups.back().end;
            added.groupOf[c] = static_cast<std::uint8_t>(added.groups.size() - 1);
            added.classes.push_back(static_cast<std::uint8_t>(c));
        }
        return added;
    }

    // All targets of the sets and of one class alone.
    const Vector<StateIndex>& targetsOf(std::uint64_t sets, const Vector<StateIndex>& own) {
        if (sets == 0) return own;
        if (own.empty() && (sets & (sets - 1)) == 0) {
            return targetsOfBit_[static_cast<unsigned>(std::countr_zero(sets))];
        }
        targets_.assign(own.begin(), own.end());
        for (; sets != 0; sets &= sets - 1) {
            const auto& more = targetsOfBit_[static_cast<unsigned>(std::countr_zero(sets))];
            targets_.insert(targets_.end(), more.begin(), more.end());
        }
        return targets_;
    }

    // The deterministic state reached by going to all of `targets`.
    std::uint32_t stateOf(const Vector<StateIndex>& targets) {
        if (targets.size() == 1) {
            std::uint32_t& known = stateOfTarget_[targets[0]];
            if (known == unknownS) known = stateOfUnion(targets);
            return known;
        }
        return stateOfUnion(targets);
    }

    std::uint32_t stateOfUnion(const Vector<StateIndex>& targets) {
        findUnion(targets);
        return stateOfSet();
    }

    // Leaves in set_, sorted, the states that `targets` stand for. There may be none: a text that
    // ends in a dead end is still inside the automaton, in the state without members.
    void findUnion(const Vector<StateIndex>& targets) {
        set_.clear();
        ++stamp_;
        for (StateIndex target : targets) {
            addClosure(target);
            tellWork();
        }
        // Sorting takes longer than gathering, and so does the work on a new set.
        otherSteps_ += 4 * set_.size();
        std::sort(set_.begin(), set_.end());
    }

    // With tails apart, the states that a newline leads to are separate from those of other bytes.
    std::uint32_t stateAfterNewline(const Vector<StateIndex>& targets) {
        findUnion(targets);
        set_.push_back(targets.empty() ? leftMarkS : newlineMarkS);
        std::uint32_t state = stateOfSet();
        raw_.isAfterNewline[state] = true;
        if (targets.empty()) raw_.leftByNewline = state;
        return state;
    }

    std::uint32_t stateOfSet() {
        std::uint32_t state = sets_.find(set_);
        if (state < raw_.stateCount()) return state;
        paths_.clear();
        settled_.clear();
        for (StateIndex member : set_) {
            if (member >= firstMarkS) continue;
            const std::uint32_t* end = nfa_.patterns().end(member);
            for (auto pattern = nfa_.patterns().begin(member); pattern != end; ++pattern) {
                paths_.push_back(static_cast<std::uint32_t>(patterns_[*pattern].path));
            }
            if (isSettled(member, set_.data(), set_.data() + set_.size())) {
                const auto& tail = tails_[tailOf_[member]].paths;
                settled_.insert(settled_.end(), tail.begin(), tail.end());
            }
        }
        raw_.acceptedLists.push_back(listIndex(paths_));
        if (hasTailsApart()) {
            raw_.settledLists.push_back(listIndex(settled_));
            raw_.isAfterNewline.push_back(false);
        }
        return state;
    }

    // Adds to set_ the states that `target` stands for.
    void addClosure(StateIndex target) {
        if (nfa_.isReduced()) {
            addAll(nfa_.targets(), target);
            return;
        }
        if (nfa_.epsilons().isEmpty(target)) {
            if (!nfa_.isTransit(target)) addMember(target);
            return;
        }
        std::uint32_t& closure = closureOf_[target];
        if (closure == unknownS) closure = findSmallClosure(target);
        if (closure == largeS) {
            addLargeClosure(target);
            return;
        }
        addAll(closures_, closure);
    }

    void addAll(const Lists& lists, std::size_t list) {
        const StateIndex* end = lists.end(list);
        for (const StateIndex* state = lists.begin(list); state != end; ++state) addMember(*state);
    }

    void addMember(StateIndex state) {
        ++steps_;
        if (memberStamps_[state] == stamp_) return;
        memberStamps_[state] = stamp_;
        set_.push_back(state);
    }

    // The list of the closure in closures_, or largeS.
    std::uint32_t findSmallClosure(StateIndex target) {
        open_.assign(1, target);
        for (std::size_t i = 0; i < open_.size(); ++i) {
            const StateIndex* end = nfa_.epsilons().end(open_[i]);
            for (const StateIndex* next = nfa_.epsilons().begin(open_[i]); next != end; ++next) {
                if (std::find(open_.begin(), open_.end(), *next) != open_.end()) continue;
                if (open_.size() == smallClosureS) return largeS;
                open_.push_back(*next);
            }
        }
        for (StateIndex state : open_) {
            if (!nfa_.isTransit(state)) closures_.append(state);
        }
        closures_.endList();
        return static_cast<std::uint32_t>(closures_.count() - 1);
    }

    // Follows the epsilon moves, but not again from where the same union has been.
    void addLargeClosure(StateIndex target) {
        open_.assign(1, target);
        while (!open_.empty()) {
            StateIndex state = open_.back();
            open_.pop_back();
            ++steps_;
            if (visitStamps_[state] == stamp_) continue;
            visitStamps_[state] = stamp_;
            if (!nfa_.isTransit(state)) addMember(state);
            open_.insert(open_.end(), nfa_.epsilons().begin(state), nfa_.epsilons().end(state));
        }
    }

    // Reports the steps since the last report.
    void tellWork() {
        constexpr std::size_t fewSteps = 256;
        const std::size_t untold = steps_ + otherSteps_ - stepsTold_;
        if (untold < fewSteps) return;
        stepsTold_ += untold;
        countWork(untold);
    }

    // The number of the list that holds `paths`; sorts `paths`.
    std::uint32_t listIndex(Vector<std::uint32_t>& paths) {
        std::sort(paths.begin(), paths.end());
        paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
        otherSteps_ += 4 * paths.size();
        return pathLists_.find(paths);
    }

    void giveLists() {
        const Lists& lists = pathLists_.lists();
        raw_.listsCharge.take(blockBytes(lists.count() * sizeof(decltype(raw_.lists)::value_type)));
        raw_.lists.reserve(lists.count());
        for (std::size_t i = 0; i < lists.count(); ++i) {
            const auto size = static_cast<std::size_t>(lists.end(i) - lists.begin(i));
            raw_.listsCharge.take(blockBytes(size * sizeof(std::uint32_t)));
            raw_.lists.emplace_back(lists.begin(i), lists.end(i));
            countWork(4 + size);
        }
    }

    struct Tail {
        Vector<StateIndex> ends;  // besides the state itself
        Vector<std::uint32_t> paths;
    };

    const Pattern* patterns_;
    std::size_t stateLimit_;
    std::size_t byteLimit_;
    FlatNfa nfa_;
    ByteClasses classes_;
    Vector<Vector<std::uint8_t>> classesOfSet_;
    // The first sets of several classes have a bit each: by set, and in each of their classes.
    Vector<std::uint8_t> bitOfSet_;
    Vector<std::uint64_t> setsOf_;
    Vector<Partition> partitions_;  // those used last
    RawAutomaton& raw_;
    ListIndex sets_;  // the deterministic states: sets of states that matter, sorted
    std::size_t memberLimit_;
    std::size_t stepLimit_;
    std::size_t workLimit_;
    std::size_t stateBytes_;
    std::size_t steps_ = 0;
    std::size_t otherSteps_ = 0;  // of work that does not count for the limit of states
    std::size_t stepsTold_ = 0;

    std::uint32_t stamp_ = 0;             // of the current union
    Vector<std::uint32_t> memberStamps_;  // the last union that includes a state
    Vector<std::uint32_t> visitStamps_;   // the last union that passed through a state
    Vector<std::uint32_t> closureOf_;
    Lists closures_;
    bool isHopeless_ = false;
    Vector<Tail> tails_;                   // empty if they should not be apart
    Vector<std::uint32_t> tailOf_;         // the tail of each state, if there are any
    Vector<std::uint32_t> stateOfTarget_;  // of a set that one target leads to
    ListIndex pathLists_;

    // Reused, to save allocations. The moves from the current state:
    Vector<Vector<StateIndex>> ownTargets_;  // of each class, by sets without a bit
    Vector<std::uint8_t> touched_;           // the classes that have any
    std::array<Vector<StateIndex>, bitsS> targetsOfBit_;
    Vector<std::uint32_t> stateOfGroup_;
    Vector<std::pair<std::uint64_t, unsigned>> bySets_;
    Vector<StateIndex> targets_;
    const Vector<StateIndex> noTargets_;
    Vector<StateIndex> set_;
    Vector<StateIndex> open_;
    Vector<std::uint32_t> paths_;
    Vector<std::uint32_t> settled_;
};

}  // namespace

RowBlocks::RowBlocks(std::size_t rowSize) : rowSize_(rowSize) {
    constexpr std::size_t blockSize = 16384;
    rowsInBlock_ = std::max<std::size_t>(blockSize / rowSize, 1);
}

std::uint32_t* RowBlocks::add(std::uint32_t value) {
    if (count_ % rowsInBlock_ == 0) {
        blocks_.emplace_back();
        blocks_.back().reserve(rowsInBlock_ * rowSize_);
    }
    ++count_;
    Vector<std::uint32_t>& block = blocks_.back();
    block.resize(block.size() + rowSize_, value);
    return block.data() + block.size() - rowSize_;
}

Limit determinise(const Pattern* first, std::size_t count, const BuildLimits& limits,
                  RawAutomaton& raw, Tails tails) {
    return Determiniser(first, count, limits, raw, tails).run();
}

Guilty findGuilty(const Pattern* first, std::size_t count, const BuildLimits& limits,
                  Limit passed) {
    // A part of the work must do, or finding out would take too long.
    const std::size_t mostWork = limits.work / 4;
    std::size_t workLeft = limits.work;
    std::size_t fit = 0;
    Guilty guilty{count - 1, passed};
    // Up in steps that double, as most lists grow faster the longer they are; then by halves.
    for (std::size_t step = 1; guilty.place > fit;) {
        std::size_t tried = fit + (guilty.place - fit + 1) / 2;
        if (step > 0) tried = std::min(tried, fit + step);
        const BuildLimits trial{limits.states, limits.bytes, std::min(mostWork, workLeft)};
        RawAutomaton raw;
        Determiniser determiniser(first, tried, trial, raw, Tails::Inside);
        const Limit limit = determiniser.run();
        // What is stopped before its own limit may be innocent.
        if (limit == Limit::Work && trial.work < mostWork) break;
        workLeft -= std::min(workLeft, determiniser.work());
        if (limit == Limit::None) {
            fit = tried;
            step *= 2;
        } else {
            guilty = {tried - 1, limit};
            step = 0;
        }
    }
    return guilty;
}

}  // namespace FSM

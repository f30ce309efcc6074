#include "fsm/Determiniser.h"

#include <algorithm>
#include <unordered_map>

#include "fsm/ByteClasses.h"

namespace FSM {

namespace {

using StateIndex = std::uint32_t;

/// Lists of numbers, stored one behind the other.
class Lists {
public:
    void append(StateIndex value) { values_.push_back(value); }
    void endList() { ends_.push_back(values_.size()); }

    const StateIndex* begin(std::size_t list) const {
        return values_.data() + (list == 0 ? 0 : ends_[list - 1]);
    }
    const StateIndex* end(std::size_t list) const { return values_.data() + ends_[list]; }
    std::size_t count() const { return ends_.size(); }
    std::size_t totalSize() const { return values_.size(); }

private:
    std::vector<StateIndex> values_;
    std::vector<std::size_t> ends_;
};

/// The non-deterministic automaton of some patterns, flat: states are numbers, and the bytes of a
/// transition are one of a list of distinct sets.
class FlatNfa {
public:
    struct Edge {
        std::uint32_t set;
        StateIndex target;
    };
    static constexpr std::uint32_t noPatternCM = ~std::uint32_t{0};

    FlatNfa(const Pattern* first, std::size_t count) {
        singles_.fill(noSetS);
        std::vector<const NonDetState*> states;
        for (std::size_t i = 0; i < count; ++i) {
            const EnginePart& part = *first[i].part;
            add(states, part.start());
            starts_.push_back(part.start()->mark());
            for (const State* state : part.interior().members()) {
                add(states, static_cast<const NonDetState*>(state));
            }
            add(states, part.end());
            patternOf_.resize(states.size(), noPatternCM);
            patternOf_.back() = static_cast<std::uint32_t>(i);
        }
        edgeEnds_.reserve(states.size());
        for (const NonDetState* state : states) flatten(*state);
    }

    std::size_t stateCount() const { return edgeEnds_.size(); }
    const std::vector<StateIndex>& starts() const { return starts_; }
    const std::vector<ByteSet>& sets() const { return sets_; }
    const Edge* edgesBegin(StateIndex state) const {
        return edges_.data() + (state == 0 ? 0 : edgeEnds_[state - 1]);
    }
    const Edge* edgesEnd(StateIndex state) const { return edges_.data() + edgeEnds_[state]; }
    const Lists& epsilons() const { return epsilons_; }
    bool hasEpsilons(StateIndex state) const {
        return epsilons_.begin(state) != epsilons_.end(state);
    }
    /// The pattern that `state` is the end of, or noPatternCM.
    std::uint32_t patternOf(StateIndex state) const { return patternOf_[state]; }
    /// Neither an end nor left on any byte: it does not matter for matching.
    bool isTransit(StateIndex state) const {
        return edgesBegin(state) == edgesEnd(state) && patternOf_[state] == noPatternCM;
    }

private:
    static constexpr std::uint32_t noSetS = ~std::uint32_t{0};

    static void add(std::vector<const NonDetState*>& states, const NonDetState* state) {
        state->mark(static_cast<StateIndex>(states.size()));
        states.push_back(state);
    }

    static StateIndex indexOf(const State* state) {
        return static_cast<const NonDetState*>(state)->mark();
    }

    void flatten(const NonDetState& state) {
        const auto& transitions = state.transitions();
        if (transitions.size() == 1 && transitions[0].first == transitions[0].last &&
            state.wildCardState() == nullptr) {
            std::uint32_t& single = singles_[transitions[0].first];
            if (single == noSetS) single = setIndex(ByteSet().set(transitions[0].first));
            edges_.push_back({single, indexOf(transitions[0].target)});
        } else if (!transitions.empty() || state.wildCardState() != nullptr) {
            flattenSets(state);
        }
        edgeEnds_.push_back(edges_.size());
        for (const State* target : state.epsilonSuccStates()) epsilons_.append(indexOf(target));
        epsilons_.endList();
    }

    void flattenSets(const NonDetState& state) {
        std::vector<std::pair<const State*, ByteSet>> byTarget;
        ByteSet explicitBytes;
        for (const NonDetState::Transition& transition : state.transitions()) {
            auto found = std::find_if(byTarget.begin(), byTarget.end(), [&](const auto& entry) {
                return entry.first == transition.target;
            });
            if (found == byTarget.end()) {
                found = byTarget.insert(found, {transition.target, ByteSet()});
            }
            for (unsigned byte = transition.first; byte <= transition.last; ++byte) {
                found->second.set(byte);
                explicitBytes.set(byte);
            }
        }
        if (state.wildCardState() != nullptr) {
            byTarget.emplace_back(state.wildCardState(), ~explicitBytes.set('\n'));
        }
        for (const auto& [target, bytes] : byTarget) {
            if (bytes.any()) edges_.push_back({setIndex(bytes), indexOf(target)});
        }
    }

    std::uint32_t setIndex(const ByteSet& bytes) {
        auto [found, isNew] =
            setIndex_.try_emplace(bytes, static_cast<std::uint32_t>(sets_.size()));
        if (isNew) sets_.push_back(bytes);
        return found->second;
    }

    std::vector<StateIndex> starts_;
    std::vector<Edge> edges_;
    std::vector<std::size_t> edgeEnds_;
    Lists epsilons_;
    std::vector<std::uint32_t> patternOf_;
    std::vector<ByteSet> sets_;
    std::unordered_map<ByteSet, std::uint32_t> setIndex_;
    std::array<std::uint32_t, 256> singles_;
};

std::uint64_t hashOf(const StateIndex* begin, const StateIndex* end) {
    std::uint64_t hash = 0x9e3779b97f4a7c15u;
    for (; begin != end; ++begin) {
        hash = (hash ^ *begin) * 0xff51afd7ed558ccdu;
        hash ^= hash >> 32;
    }
    return hash;
}

/// Numbers distinct lists in the order of their coming.
class ListIndex {
public:
    ListIndex() : slots_(1024, noneS) {}

    const Lists& lists() const { return lists_; }

    /// The number of the list that holds `values`; a new one if none does.
    std::uint32_t find(const std::vector<StateIndex>& values) {
        const StateIndex* begin = values.data();
        const StateIndex* end = begin + values.size();
        std::uint64_t hash = hashOf(begin, end);
        std::size_t slot = hash & (slots_.size() - 1);
        for (; slots_[slot] != noneS; slot = (slot + 1) & (slots_.size() - 1)) {
            std::uint32_t list = slots_[slot];
            if (hashes_[list] == hash &&
                std::equal(begin, end, lists_.begin(list), lists_.end(list))) {
                return list;
            }
        }
        auto added = static_cast<std::uint32_t>(lists_.count());
        for (const StateIndex* value = begin; value != end; ++value) lists_.append(*value);
        lists_.endList();
        hashes_.push_back(hash);
        slots_[slot] = added;
        if (hashes_.size() * 2 > slots_.size()) grow();
        return added;
    }

private:
    static constexpr std::uint32_t noneS = ~std::uint32_t{0};

    void grow() {
        slots_.assign(slots_.size() * 2, noneS);
        for (std::uint32_t list = 0; list < hashes_.size(); ++list) {
            std::size_t slot = hashes_[list] & (slots_.size() - 1);
            while (slots_[slot] != noneS) slot = (slot + 1) & (slots_.size() - 1);
            slots_[slot] = list;
        }
    }

    Lists lists_;
    std::vector<std::uint64_t> hashes_;
    std::vector<std::uint32_t> slots_;  // a power of two
};

class Determiniser {
public:
    Determiniser(const Pattern* first, std::size_t count, std::size_t stateLimit, RawAutomaton& raw,
                 Tails tails)
        : patterns_(first),
          stateLimit_(stateLimit),
          nfa_(first, count),
          classes_(nfa_.sets()),
          raw_(raw),
          memberLimit_(std::max<std::size_t>(stateLimit, 4096) * membersPerStateS),
          stepLimit_(std::max<std::size_t>(stateLimit, 4096) * stepsPerStateS),
          memberStamps_(nfa_.stateCount()),
          visitStamps_(nfa_.stateCount()),
          closureOf_(nfa_.stateCount(), unknownS),
          stateOfTarget_(nfa_.stateCount(), unknownS),
          targets_(classes_.count()) {
        for (const ByteSet& set : nfa_.sets()) classesOfSet_.push_back(classes_.classesOf(set));
        if (tails == Tails::Apart) findTails(count);
    }

    bool run() {
        raw_ = RawAutomaton();
        raw_.classOf = classes_.map();
        raw_.classCount = classes_.count();
        raw_.lists.emplace_back();
        stateOf(nfa_.starts());
        for (std::uint32_t state = 0; state < raw_.stateCount(); ++state) {
            if (isPastLimit()) {
                raw_ = RawAutomaton();
                return false;
            }
            expand(state);
        }
        return !isPastLimit();
    }

private:
    static constexpr std::uint32_t unknownS = ~std::uint32_t{0};
    static constexpr std::uint32_t largeS = unknownS - 1;
    // Last members of the sets that a newline leads to, higher than any state.
    static constexpr StateIndex newlineMarkS = ~StateIndex{0};
    static constexpr StateIndex leftMarkS = newlineMarkS - 1;
    static constexpr StateIndex firstMarkS = leftMarkS;
    static constexpr std::size_t membersPerStateS = 128;
    static constexpr std::size_t stepsPerStateS = 2048;
    // Epsilon closures of up to this many states are kept.
    static constexpr std::size_t smallClosureS = 24;

    bool isPastLimit() const {
        return raw_.stateCount() > stateLimit_ || sets_.lists().totalSize() > memberLimit_ ||
               steps_ > stepLimit_;
    }

    // Finds the states that loop on all bytes but newline beside the end of their pattern.
    void findTails(std::size_t patternCount) {
        std::vector<std::int32_t> negated = PatternList::negatedPaths(patterns_, patternCount);
        std::vector<StateIndex> tailEnd(nfa_.stateCount(), unknownS);
        bool hasTails = false;
        ByteSet line = ~ByteSet().set('\n');
        StateIndex begin = 0;
        for (StateIndex end = 0; end < nfa_.stateCount(); ++end) {
            if (nfa_.patternOf(end) == FlatNfa::noPatternCM) continue;
            std::int32_t path = patterns_[nfa_.patternOf(end)].path;
            if (!std::binary_search(negated.begin(), negated.end(), path)) {
                for (StateIndex state = begin; state < end; ++state) {
                    const FlatNfa::Edge* edge = nfa_.edgesBegin(state);
                    if (nfa_.edgesEnd(state) - edge != 1 || nfa_.sets()[edge->set] != line)
                        continue;
                    set_.clear();
                    ++stamp_;
                    addClosure(edge->target);
                    std::sort(set_.begin(), set_.end());
                    if (set_.size() != 2 || set_[0] != state || set_[1] != end) continue;
                    tailEnd[state] = end;
                    hasTails = true;
                }
            }
            begin = end + 1;
        }
        if (hasTails) tailEnd_ = std::move(tailEnd);
    }

    bool hasTailsApart() const { return !tailEnd_.empty(); }

    // Whether `state` is a tail and `members`, which it is in, holds the end of its pattern too.
    bool isSettled(StateIndex state, const StateIndex* begin, const StateIndex* end) const {
        return hasTailsApart() && tailEnd_[state] != unknownS &&
               std::binary_search(begin, end, tailEnd_[state]);
    }

    // Finds the successors of a state for all classes. Classes with the same targets, most of them
    // where a wild card is met, are looked up once.
    void expand(std::uint32_t state) {
        for (auto& targets : targets_) targets.clear();
        const StateIndex* begin = sets_.lists().begin(state);
        const StateIndex* end = sets_.lists().end(state);
        for (const StateIndex* member = begin; member != end; ++member) {
            if (*member >= firstMarkS || isSettled(*member, begin, end)) continue;
            const FlatNfa::Edge* edgesEnd = nfa_.edgesEnd(*member);
            for (const FlatNfa::Edge* edge = nfa_.edgesBegin(*member); edge != edgesEnd; ++edge) {
                const auto& classes = classesOfSet_[edge->set];
                steps_ += classes.size();
                for (std::uint8_t c : classes) targets_[c].push_back(edge->target);
            }
        }
        distinct_.clear();
        std::size_t row = raw_.next.size();
        raw_.next.resize(row + classes_.count(), RawAutomaton::noStateCM);
        for (unsigned c = 0; c < classes_.count(); ++c) {
            if (hasTailsApart() && c == classes_.classOf('\n')) {
                raw_.next[row + c] = stateAfterNewline(targets_[c]);
                continue;
            }
            if (targets_[c].empty()) continue;
            auto same = std::find_if(distinct_.begin(), distinct_.end(),
                                     [&](unsigned d) { return targets_[c] == targets_[d]; });
            if (same != distinct_.end()) {
                raw_.next[row + c] = raw_.next[row + *same];
                continue;
            }
            distinct_.push_back(c);
            raw_.next[row + c] = stateOf(targets_[c]);
            if (isPastLimit()) return;
        }
    }

    // The deterministic state of what is reached by going to all of `targets`.
    std::uint32_t stateOf(const std::vector<StateIndex>& targets) {
        if (targets.size() == 1) {
            std::uint32_t& known = stateOfTarget_[targets[0]];
            if (known == unknownS) known = stateOfUnion(targets);
            return known;
        }
        return stateOfUnion(targets);
    }

    std::uint32_t stateOfUnion(const std::vector<StateIndex>& targets) {
        set_.clear();
        ++stamp_;
        for (StateIndex target : targets) addClosure(target);
        std::sort(set_.begin(), set_.end());
        return stateOfSet();
    }

    // With tails apart, what a newline leads to is kept apart from what other bytes lead to.
    std::uint32_t stateAfterNewline(const std::vector<StateIndex>& targets) {
        set_.clear();
        ++stamp_;
        for (StateIndex target : targets) addClosure(target);
        std::sort(set_.begin(), set_.end());
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
            std::uint32_t pattern = nfa_.patternOf(member);
            if (pattern != FlatNfa::noPatternCM) paths_.push_back(patterns_[pattern].path);
            if (isSettled(member, set_.data(), set_.data() + set_.size())) {
                settled_.push_back(patterns_[nfa_.patternOf(tailEnd_[member])].path);
            }
        }
        raw_.acceptedLists.push_back(listIndex(paths_));
        if (hasTailsApart()) {
            raw_.settledLists.push_back(listIndex(settled_));
            raw_.isAfterNewline.push_back(false);
        }
        return state;
    }

    // Adds to set_ the states of the epsilon closure of `target` that matter. None may: a text that
    // ends in such a dead end is still inside the automaton, in the state of no members.
    void addClosure(StateIndex target) {
        if (!nfa_.hasEpsilons(target)) {
            if (!nfa_.isTransit(target)) addMember(target);
            return;
        }
        std::uint32_t& closure = closureOf_[target];
        if (closure == unknownS) closure = findSmallClosure(target);
        if (closure == largeS) {
            addLargeClosure(target);
            return;
        }
        const StateIndex* end = closures_.end(closure);
        for (const StateIndex* state = closures_.begin(closure); state != end; ++state) {
            addMember(*state);
        }
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

    // Walks the epsilon moves, but not again from where the same union has been.
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

    // The number of the list that holds `paths`, which get sorted.
    std::uint32_t listIndex(std::vector<std::int32_t>& paths) {
        if (paths.empty()) return 0;
        std::sort(paths.begin(), paths.end());
        paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
        auto [found, isNew] =
            listOf_.try_emplace(paths, static_cast<std::uint32_t>(raw_.lists.size()));
        if (isNew) raw_.lists.push_back(paths);
        return found->second;
    }

    struct PathsHash {
        std::size_t operator()(const std::vector<std::int32_t>& paths) const {
            auto begin = reinterpret_cast<const StateIndex*>(paths.data());
            return hashOf(begin, begin + paths.size());
        }
    };

    const Pattern* patterns_;
    std::size_t stateLimit_;
    FlatNfa nfa_;
    ByteClasses classes_;
    std::vector<std::vector<std::uint8_t>> classesOfSet_;
    RawAutomaton& raw_;
    ListIndex sets_;  // the deterministic states: sets of states that matter, sorted
    std::size_t memberLimit_;
    std::size_t stepLimit_;
    std::size_t steps_ = 0;

    std::uint32_t stamp_ = 0;                  // of the union being made
    std::vector<std::uint32_t> memberStamps_;  // the last union that a state came into
    std::vector<std::uint32_t> visitStamps_;   // the last union that passed through a state
    std::vector<std::uint32_t> closureOf_;
    Lists closures_;
    std::vector<StateIndex> tailEnd_;  // of each tail, the end of its pattern; empty if not apart
    std::vector<std::uint32_t> stateOfTarget_;  // of a set that one target leads to
    std::unordered_map<std::vector<std::int32_t>, std::uint32_t, PathsHash> listOf_;

    // Used again and again, to spare allocations.
    std::vector<std::vector<StateIndex>> targets_;
    std::vector<unsigned> distinct_;
    std::vector<StateIndex> set_;
    std::vector<StateIndex> open_;
    std::vector<std::int32_t> paths_;
    std::vector<std::int32_t> settled_;
};

}  // namespace

bool determinise(const Pattern* first, std::size_t count, std::size_t stateLimit, RawAutomaton& raw,
                 Tails tails) {
    return Determiniser(first, count, stateLimit, raw, tails).run();
}

std::size_t patternsThatFit(const Pattern* first, std::size_t count, std::size_t stateLimit,
                            std::size_t guess) {
    RawAutomaton raw;
    std::size_t fit = 0;
    std::size_t tooMany = count + 1;
    auto tryOut = [&](std::size_t tried) {
        bool fits = determinise(first, tried, stateLimit, raw);
        (fits ? fit : tooMany) = tried;
        return fits;
    };
    // From the guess up or down in steps that double, then by halves.
    std::size_t tried = std::min(std::max<std::size_t>(guess, 1), count);
    if (count == 0) return 0;
    if (tryOut(tried)) {
        for (std::size_t step = 1; fit < count; step *= 2) {
            if (!tryOut(std::min(count, fit + step))) break;
        }
    } else {
        for (std::size_t step = 1; tooMany > step + fit; step *= 2) {
            if (tryOut(tooMany - step)) break;
        }
    }
    while (tooMany - fit > 1) tryOut(fit + (tooMany - fit) / 2);
    return fit;
}

}  // namespace FSM

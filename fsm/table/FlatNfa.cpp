#include "fsm/table/FlatNfa.h"

#include <algorithm>
#include <numeric>
#include <span>
#include <utility>

namespace FSM {

namespace {

constexpr std::uint32_t noneS = ~std::uint32_t{0};

std::uint32_t indexOf(const State* state) { return static_cast<const NonDetState*>(state)->mark(); }

}  // namespace

FlatNfa::FlatNfa(const Pattern* first, std::size_t count) {
    singles_.fill(noneS);
    Vector<const NonDetState*> states;
    auto add = [&](const NonDetState* state) {
        state->mark(static_cast<std::uint32_t>(states.size()));
        states.push_back(state);
        countWork(1);
    };
    for (std::size_t i = 0; i < count; ++i) {
        const EnginePart& part = *first[i].part;
        add(part.start());
        starts_.push_back(part.start()->mark());
        for (const State* state : part.interior().members()) {
            add(static_cast<const NonDetState*>(state));
        }
        add(part.end());
        while (patterns_.count() + 1 < states.size()) patterns_.endList();
        patterns_.append(static_cast<std::uint32_t>(i));
        patterns_.endList();
    }
    edgeEnds_.reserve(states.size());
    for (const NonDetState* state : states) flatten(*state);
}

void FlatNfa::flatten(const NonDetState& state) {
    countWork(4);
    const std::span<const NonDetState::Transition> transitions = state.transitions();
    if (transitions.size() == 1 && transitions[0].first == transitions[0].last &&
        state.wildCardState() == nullptr) {
        std::uint32_t& single = singles_[transitions[0].first];
        if (single == noneS) single = setIndex(ByteSet().set(transitions[0].first));
        edges_.push_back({single, indexOf(transitions[0].target)});
    } else if (!transitions.empty() || state.wildCardState() != nullptr) {
        flattenSets(state);
    }
    edgeEnds_.push_back(edges_.size());
    for (const State* target : state.epsilonSuccStates()) epsilons_.append(indexOf(target));
    epsilons_.endList();
}

void FlatNfa::flattenSets(const NonDetState& state) {
    countWork(state.transitions().size() * 8);
    Vector<std::pair<const State*, ByteSet>> byTarget;
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

std::uint32_t FlatNfa::setIndex(const ByteSet& bytes) {
    auto [found, isNew] = setIndex_.try_emplace(bytes, static_cast<std::uint32_t>(sets_.size()));
    if (isNew) sets_.push_back(bytes);
    return found->second;
}

/// Two states are reached by the same texts if both or neither are reached at the start, and the
/// same transitions lead to both; transitions from a state to itself count as the same. One pass
/// from the start on finds most such states, since it merges a state before those that follow it.
/// It misses some after loops of several bytes.
class NfaReducer {
public:
    explicit NfaReducer(FlatNfa& nfa) : nfa_(nfa), listOf_(nfa.stateCount(), noneS) {}

    void run() {
        if (!listTargets()) return;
        orderFromStart();
        findSources();
        merge();
        replace();
    }

private:
    // More states than this for one target are out of proportion.
    static constexpr std::size_t maxClosureCM = 64;

    struct Source {
        std::uint32_t state;
        std::uint32_t set;
    };

    bool listTargets() {
        std::size_t maxListed = 1024 + 8 * nfa_.stateCount();
        auto list = [&](std::uint32_t target) {
            return listOf_[target] != noneS ||
                   (listTarget(target) && lists_.lists().totalSize() <= maxListed);
        };
        if (!std::all_of(nfa_.starts_.begin(), nfa_.starts_.end(), list)) return false;
        return std::all_of(nfa_.edges_.begin(), nfa_.edges_.end(),
                           [&](const FlatNfa::Edge& edge) { return list(edge.target); });
    }

    bool listTarget(std::uint32_t target) {
        open_.assign(1, target);
        for (std::size_t i = 0; i < open_.size(); ++i) {
            const std::uint32_t* end = nfa_.epsilons_.end(open_[i]);
            for (auto next = nfa_.epsilons_.begin(open_[i]); next != end; ++next) {
                if (std::find(open_.begin(), open_.end(), *next) != open_.end()) continue;
                if (open_.size() == maxClosureCM) return false;
                open_.push_back(*next);
            }
        }
        countWork(open_.size() * 4);
        open_.erase(std::remove_if(open_.begin(), open_.end(),
                                   [&](std::uint32_t state) { return nfa_.isTransit(state); }),
                    open_.end());
        std::sort(open_.begin(), open_.end());
        listOf_[target] = lists_.find(open_);
        return true;
    }

    void orderFromStart() {
        isStart_.resize(nfa_.stateCount());
        Vector<bool> isSeen(nfa_.stateCount());
        auto see = [&](std::uint32_t target, bool isStart) {
            const std::uint32_t* end = lists_.lists().end(listOf_[target]);
            const std::uint32_t* const begin = lists_.lists().begin(listOf_[target]);
            countWork(1 + static_cast<std::size_t>(end - begin));
            for (const std::uint32_t* state = begin; state != end; ++state) {
                if (isStart) isStart_[*state] = true;
                if (isSeen[*state]) continue;
                isSeen[*state] = true;
                order_.push_back(*state);
            }
        };
        for (std::uint32_t start : nfa_.starts_) see(start, true);
        for (std::size_t i = 0; i < order_.size(); ++i) {
            forEdges(order_[i], [&](const FlatNfa::Edge& edge) { see(edge.target, false); });
        }
    }

    void findSources() {
        sourceEnds_.resize(nfa_.stateCount() + 1);
        auto forTransitions = [&](auto visit) {
            for (std::uint32_t state : order_) {
                forEdges(state, [&](const FlatNfa::Edge& edge) {
                    const std::uint32_t* end = lists_.lists().end(listOf_[edge.target]);
                    const std::uint32_t* const begin = lists_.lists().begin(listOf_[edge.target]);
                    countWork(1 + static_cast<std::size_t>(end - begin));
                    for (const std::uint32_t* to = begin; to != end; ++to) {
                        visit(Source{state, edge.set}, *to);
                    }
                });
            }
        };
        forTransitions([&](Source, std::uint32_t to) { ++sourceEnds_[to + 1]; });
        for (std::size_t i = 1; i < sourceEnds_.size(); ++i) sourceEnds_[i] += sourceEnds_[i - 1];
        sources_.resize(sourceEnds_.back());
        Vector<std::size_t> filled(sourceEnds_.begin(), sourceEnds_.end() - 1);
        forTransitions([&](Source source, std::uint32_t to) { sources_[filled[to]++] = source; });
    }

    void merge() {
        mergedInto_.resize(nfa_.stateCount());
        for (std::uint32_t state : order_) mergedInto_[state] = state;
        ListIndex known;
        Vector<std::uint32_t> firstWith;  // the first state with each list of ways
        Vector<std::uint32_t> ways;
        for (std::uint32_t state : order_) {
            findWays(state, ways);
            const std::uint32_t number = known.find(ways);
            if (number == firstWith.size()) {
                firstWith.push_back(state);
            } else {
                mergedInto_[state] = firstWith[number];
            }
        }
    }

    // All ways into a state, in an order that does not depend on the state.
    void findWays(std::uint32_t state, Vector<std::uint32_t>& ways) {
        pairs_.clear();
        countWork(8 * (1 + sourceEnds_[state + 1] - sourceEnds_[state]));
        for (std::size_t i = sourceEnds_[state]; i < sourceEnds_[state + 1]; ++i) {
            std::uint32_t from = mergedInto_[sources_[i].state];
            pairs_.emplace_back(from == state ? noneS : from, sources_[i].set);
        }
        std::sort(pairs_.begin(), pairs_.end());
        pairs_.erase(std::unique(pairs_.begin(), pairs_.end()), pairs_.end());
        ways.assign(1, isStart_[state]);
        for (auto [from, set] : pairs_) {
            ways.push_back(from);
            ways.push_back(set);
        }
    }

    void replace() {
        Vector<std::uint32_t> newIndex(nfa_.stateCount());
        std::uint32_t count = 0;
        for (std::uint32_t state : order_) {
            newIndex[state] = mergedInto_[state] == state ? count++ : newIndex[mergedInto_[state]];
        }
        // The states that become the same one, together.
        Vector<std::size_t> memberEnds(count + 1);
        for (std::uint32_t state : order_) ++memberEnds[newIndex[state] + 1];
        std::partial_sum(memberEnds.begin(), memberEnds.end(), memberEnds.begin());
        Vector<std::uint32_t> members(order_.size());
        Vector<std::size_t> filled(memberEnds.begin(), memberEnds.end() - 1);
        for (std::uint32_t state : order_) members[filled[newIndex[state]]++] = state;

        ListIndex targets;
        Vector<std::uint32_t> newList(lists_.lists().count());
        Vector<std::uint32_t> values;
        for (std::size_t list = 0; list < newList.size(); ++list) {
            values.clear();
            const std::uint32_t* end = lists_.lists().end(list);
            const std::uint32_t* const begin = lists_.lists().begin(list);
            countWork(4 * (1 + static_cast<std::size_t>(end - begin)));
            for (const std::uint32_t* state = begin; state != end; ++state) {
                values.push_back(newIndex[*state]);
            }
            newList[list] = targets.find(sortOnce(values));
        }

        Vector<FlatNfa::Edge> edges;
        Vector<std::size_t> edgeEnds;
        Lists patterns;
        for (std::uint32_t index = 0; index < count; ++index) {
            const std::span group(members.data() + memberEnds[index],
                                  members.data() + memberEnds[index + 1]);
            std::size_t begin = edges.size();
            values.clear();
            for (std::uint32_t state : group) {
                forEdges(state, [&](const FlatNfa::Edge& edge) {
                    edges.push_back({edge.set, newList[listOf_[edge.target]]});
                });
                values.insert(values.end(), nfa_.patterns_.begin(state), nfa_.patterns_.end(state));
            }
            if (group.size() > 1) {
                const auto first = edges.begin() + static_cast<std::ptrdiff_t>(begin);
                std::sort(first, edges.end());
                edges.erase(std::unique(first, edges.end()), edges.end());
            }
            countWork(8 * (1 + edges.size() - begin));
            edgeEnds.push_back(edges.size());
            sortOnce(values);
            patterns.append(values.data(), values.data() + values.size());
            patterns.endList();
        }
        for (std::uint32_t& start : nfa_.starts_) start = newList[listOf_[start]];
        sortOnce(nfa_.starts_);
        nfa_.edges_ = std::move(edges);
        nfa_.edgeEnds_ = std::move(edgeEnds);
        nfa_.patterns_ = std::move(patterns);
        nfa_.targets_ = targets.take();
        nfa_.epsilons_ = Lists();
        nfa_.isReduced_ = true;
    }

    static Vector<std::uint32_t>& sortOnce(Vector<std::uint32_t>& values) {
        if (values.size() > 1) {
            std::sort(values.begin(), values.end());
            values.erase(std::unique(values.begin(), values.end()), values.end());
        }
        return values;
    }

    template <class Visitor>
    void forEdges(std::uint32_t state, Visitor visit) const {
        const FlatNfa::Edge* end = nfa_.edgesEnd(state);
        for (const FlatNfa::Edge* edge = nfa_.edgesBegin(state); edge != end; ++edge) visit(*edge);
    }

    FlatNfa& nfa_;
    Vector<std::uint32_t> listOf_;  // of each target, its list
    ListIndex lists_;
    Vector<std::uint32_t> open_;
    Vector<std::uint32_t> order_;  // the states that matter, by their distance from the start
    Vector<bool> isStart_;
    Vector<Source> sources_;  // of all transitions, by the state that they lead to
    Vector<std::size_t> sourceEnds_;
    Vector<std::uint32_t> mergedInto_;
    Vector<std::pair<std::uint32_t, std::uint32_t>> pairs_;
};

void FlatNfa::reduce() { NfaReducer(*this).run(); }

bool FlatNfa::mayHaveDeadEnds() const {
    if (!isReduced_) return true;
    // Most moves lead to states with higher numbers, so these are looked at first.
    constexpr int mostPasses = 4;
    Vector<bool> isLive(stateCount());
    std::size_t left = stateCount();
    for (int pass = 0; left > 0 && pass < mostPasses; ++pass) {
        countWork(2 * stateCount());
        for (auto state = static_cast<std::uint32_t>(stateCount()); state-- > 0;) {
            if (isLive[state]) continue;
            isLive[state] =
                !patterns_.isEmpty(state) ||
                std::any_of(edgesBegin(state), edgesEnd(state), [&](const Edge& edge) {
                    return std::any_of(targets_.begin(edge.target), targets_.end(edge.target),
                                       [&](std::uint32_t to) { return isLive[to]; });
                });
            if (isLive[state]) --left;
        }
    }
    return left > 0 || std::any_of(edges_.begin(), edges_.end(),
                                   [&](const Edge& edge) { return targets_.isEmpty(edge.target); });
}

}  // namespace FSM

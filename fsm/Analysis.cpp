#include "fsm/Analysis.h"

#include <algorithm>
#include <array>
#include <map>
#include <new>
#include <set>
#include <string>
#include <utility>

#include "fsm/Engine.h"
#include "fsm/EngineGroup.h"
#include "fsm/store/Account.h"
#include "fsm/table/Table.h"

namespace FSM {

namespace {

using Paths = std::vector<std::int32_t>;

// How readable a byte is in a text, the best first.
int rank(unsigned char byte) {
    if (byte >= 'a' && byte <= 'z') return 0;
    if (byte >= '0' && byte <= '9') return 1;
    if (byte > ' ' && byte < 127) return 2;
    return byte == ' ' ? 3 : byte == '\n' ? 4 : 5;
}

/// The states of an automaton in the order of their shortest texts.
class ShortestTexts {
public:
    explicit ShortestTexts(const Table& table) : table_(table), previous_(table.stateCount() + 1) {
        std::vector<unsigned char> bytes = readableBytes(table);
        auto start = static_cast<std::uint32_t>(table.start() - table.states());
        previous_[start].isReached = true;
        order_.push_back(start);
        for (std::size_t i = 0; i < order_.size(); ++i) {
            countWork(4 * bytes.size());
            for (unsigned char byte : bytes) {
                const State* target = table.successor(table.states()[order_[i]], byte);
                if (target == nullptr) continue;
                auto index = static_cast<std::uint32_t>(static_cast<const DetState*>(target) -
                                                        table.states());
                if (previous_[index].isReached) continue;
                previous_[index] = {order_[i], byte, true};
                order_.push_back(index);
            }
        }
    }

    /// The numbers reported for "" and for texts that leave, but for negated patterns.
    Paths leaving() const {
        Paths paths;
        const Paths& left = table_.state(0)->pathNumbers();
        std::set_difference(left.begin(), left.end(), table_.negatedPaths().begin(),
                            table_.negatedPaths().end(), std::back_inserter(paths));
        return paths;
    }

    /// The numbers of all states that texts without NUL reach.
    const Vector<std::uint32_t>& order() const { return order_; }

    FND::String text(std::uint32_t state) const {
        FND::String result;
        for (; state != order_[0]; state = previous_[state].state) {
            result += static_cast<char>(previous_[state].byte);
        }
        std::reverse(result.begin(), result.end());
        return result;
    }

private:
    struct Step {
        std::uint32_t state = 0;
        unsigned char byte = 0;
        bool isReached = false;
    };

    // One byte of each class, the readable ones first. A NUL that ends texts is none of them.
    static std::vector<unsigned char> readableBytes(const Table& table) {
        std::array<int, 256> best;
        best.fill(-1);
        for (int byte = 255; byte >= (table.takesNul() ? 0 : 1); --byte) {
            int& kept = best[table.classOf()[static_cast<std::size_t>(byte)]];
            const auto rankOf = [](int each) { return rank(static_cast<unsigned char>(each)); };
            if (kept < 0 || rankOf(byte) <= rankOf(kept)) kept = byte;
        }
        std::vector<unsigned char> bytes;
        for (const int byte : best) {
            if (byte >= 0) bytes.push_back(static_cast<unsigned char>(byte));
        }
        std::sort(bytes.begin(), bytes.end(), [](unsigned char a, unsigned char b) {
            return std::pair(rank(a), a) < std::pair(rank(b), b);
        });
        return bytes;
    }

    const Table& table_;
    Vector<std::uint32_t> order_;
    Vector<Step> previous_;
};

/// Visits each distinct list of path numbers once, with the shortest text for which it is reported.
class Analyser {
public:
    Analyser(const Table& table, Paths paths, std::size_t maxOverlaps)
        : texts_(table),
          paths_(std::move(paths)),
          maxOverlaps_(maxOverlaps),
          listsOf_(paths_.size()) {
        Vector<const Paths*> seen;
        for (std::uint32_t state : texts_.order()) {
            const Paths& list = table.states()[state].pathNumbers();
            if (!list.empty()) seen.push_back(&list);
        }
        std::sort(seen.begin(), seen.end());
        seen.erase(std::unique(seen.begin(), seen.end()), seen.end());
        Vector<bool> isTaken(seen.size());
        for (std::uint32_t state : texts_.order()) {
            const Paths& list = table.states()[state].pathNumbers();
            if (list.empty()) continue;
            const auto known = static_cast<std::size_t>(
                std::lower_bound(seen.begin(), seen.end(), &list) - seen.begin());
            if (isTaken[known]) continue;
            isTaken[known] = true;
            countWork(8 * (1 + list.size()));
            for (std::int32_t path : list) {
                listsOf_[indexOf(path)].push_back(static_cast<std::uint32_t>(lists_.size()));
            }
            lists_.push_back({&list, state});
        }
    }

    Analysis run() {
        Analysis result;
        result.leaving = texts_.leaving();
        for (std::size_t i = 0; i < paths_.size(); ++i) {
            if (listsOf_[i].empty()) {
                result.empty.push_back(paths_[i]);
            } else if (!isEverFirst(i)) {
                const List& shortest = lists_[listsOf_[i].front()];
                result.shadowed.push_back({paths_[i], shadowsOf(i), texts_.text(shortest.state)});
            }
        }
        findOverlaps(result);
        return result;
    }

private:
    struct List {
        const Paths* paths;
        std::uint32_t state;
    };

    std::size_t indexOf(std::int32_t path) const {
        return static_cast<std::size_t>(std::lower_bound(paths_.begin(), paths_.end(), path) -
                                        paths_.begin());
    }

    bool isEverFirst(std::size_t index) const {
        return std::any_of(listsOf_[index].begin(), listsOf_[index].end(), [&](std::uint32_t list) {
            return lists_[list].paths->front() == paths_[index];
        });
    }

    Paths shadowsOf(std::size_t index) {
        Paths always;
        Paths firsts;
        for (std::uint32_t list : listsOf_[index]) {
            const Paths& paths = *lists_[list].paths;
            countWork(paths.size());
            auto own = std::lower_bound(paths.begin(), paths.end(), paths_[index]);
            if (firsts.empty()) {
                always.assign(paths.begin(), own);
            } else if (stepsLeft_ < paths.size()) {
                always.clear();
            } else if (!always.empty()) {
                stepsLeft_ -= paths.size();
                Paths both;
                std::set_intersection(always.begin(), always.end(), paths.begin(), own,
                                      std::back_inserter(both));
                always = std::move(both);
            }
            firsts.push_back(paths.front());
        }
        if (!always.empty()) return {always.front()};
        std::sort(firsts.begin(), firsts.end());
        firsts.erase(std::unique(firsts.begin(), firsts.end()), firsts.end());
        return firsts;
    }

    void findOverlaps(Analysis& result) {
        // One bit for each pair found; patterns with no overlap, which are most of them, have no
        // bits.
        Vector<Vector<bool>> isFound(paths_.size());
        for (const List& list : lists_) {
            for (std::size_t i = 0; i + 1 < list.paths->size(); ++i) {
                Vector<bool>& found = isFound[indexOf((*list.paths)[i])];
                found.resize(paths_.size());
                countWork(list.paths->size());
                for (std::size_t j = i + 1; j < list.paths->size(); ++j) {
                    auto isKnown = found[indexOf((*list.paths)[j])];
                    if (isKnown) continue;
                    if (result.overlaps.size() == maxOverlaps_) {
                        result.hasAllOverlaps = false;
                        break;
                    }
                    isKnown = true;
                    result.overlaps.push_back(
                        {(*list.paths)[i], (*list.paths)[j], texts_.text(list.state)});
                }
                if (!result.hasAllOverlaps) break;
            }
            if (!result.hasAllOverlaps) break;
        }
        std::sort(result.overlaps.begin(), result.overlaps.end(),
                  [](const Analysis::Overlap& a, const Analysis::Overlap& b) {
                      return std::pair(a.first, a.second) < std::pair(b.first, b.second);
                  });
    }

    ShortestTexts texts_;
    const Paths paths_;  // of all patterns, ascending
    std::size_t maxOverlaps_;
    std::size_t stepsLeft_ = std::size_t{1} << 28;  // of the search for single shadows
    Vector<List> lists_;                            // by length of text
    Vector<Vector<std::uint32_t>> listsOf_;         // of each pattern
};

std::optional<Analysis> analyseTable(const Table* table, Paths paths, std::size_t maxOverlaps) {
    if (table == nullptr) return std::nullopt;
    try {
        return Analyser(*table, std::move(paths), maxOverlaps).run();
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    }
}

}  // namespace

std::optional<Analysis> analyse(const Engine& engine, std::size_t maxOverlaps) {
    return analyseTable(engine.table_.get(), engine.paths(), maxOverlaps);
}

std::optional<Analysis> analyse(const EngineGroup& group, std::size_t maxOverlaps) {
    return analyseTable(group.wholeTable(), group.paths(), maxOverlaps);
}

std::vector<FND::String> unreachedCases(const Analysis& analysis,
                                        std::span<const std::int32_t> lines) {
    const auto hasLine = [&](std::int32_t path) {
        return path >= 0 && static_cast<std::size_t>(path) < lines.size();
    };
    const auto lineOf = [&](std::int32_t path) {
        return std::to_string(lines[static_cast<std::size_t>(path)]);
    };
    std::map<std::int32_t, FND::String> reasons;
    for (std::int32_t path : analysis.empty) reasons[path] = "its pattern matches no text";
    for (const Analysis::Shadowed& shadowed : analysis.shadowed) {
        std::set<std::int32_t> by;
        for (std::int32_t path : shadowed.by) {
            if (hasLine(path)) by.insert(lines[static_cast<std::size_t>(path)]);
        }
        FND::String names;
        for (std::int32_t line : by) {
            names.append(names.empty() ? "" : ", ").append(std::to_string(line));
        }
        reasons[shadowed.path] = by.size() == 1
                                     ? "line " + names + " matches all its texts"
                                     : "lines " + names + " together match all its texts";
    }
    std::vector<FND::String> sentences;
    for (const auto& [path, reason] : reasons) {
        if (!hasLine(path)) continue;
        sentences.push_back("the case in line " + lineOf(path) + " is never reached: " + reason);
    }
    return sentences;
}

}  // namespace FSM

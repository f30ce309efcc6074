#include "fsm/EngineGroup.h"

#include <algorithm>
#include <functional>
#include <map>
#include <new>
#include <utility>

#include "fsm/Engine.h"
#include "fsm/PatternList.h"
#include "fsm/Table.h"

namespace FSM {

namespace {

// A joint automaton with more states than this times those of the patterns grows with the product
// of its patterns, unless it is small.
constexpr std::size_t proportionS = 2;
constexpr std::size_t smallS = 512;

// Walks `count` tables, each from its start, over the text at the same time, so that the loads of
// one do not wait for those of another. Leaves in `rows` the rows in which the text ends.
template <std::size_t count>
void walkTogether(const std::unique_ptr<Table>* tables, const char* text, std::size_t length,
                  Table::Row* rows) {
    const Table::Row* tableRows[count];
    const std::uint8_t* classOf[count];
    Table::Row row[count];
    for (std::size_t i = 0; i < count; ++i) {
        tableRows[i] = tables[i]->rows();
        classOf[i] = tables[i]->classOf().data();
        row[i] = tables[i]->startRow();
    }
    auto next = reinterpret_cast<const unsigned char*>(text);
    const unsigned char* end = next + length;
    while (next != end && *next != 0) {
        // A few bytes at a time, as most checks find something to do.
        const unsigned char* stop = end - next > 8 ? next + 8 : end;
        for (; next != stop && *next != 0; ++next) {
            for (std::size_t i = 0; i < count; ++i) {
                row[i] = (tableRows[i] + classOf[i][*next])[row[i]];
            }
        }
        bool isBusy = false;
        bool isTrapped = true;
        for (std::size_t i = 0; i < count; ++i) {
            isBusy = isBusy || row[i] > tables[i]->lastLineLoop();
            isTrapped = isTrapped && row[i] <= tables[i]->lastTrap();
        }
        if (isBusy) continue;
        if (isTrapped) break;
        next = lineEnd(next, end);
    }
    std::copy(row, row + count, rows);
}

// The numbers of the patterns that have settled, appended to a vector in ascending order.
class SettledPaths {
public:
    static constexpr bool isUsed = true;

    explicit SettledPaths(std::vector<std::int32_t>& paths)
        : paths_(paths), begin_(std::ssize(paths)) {}

    bool isAnySettled() const { return std::ssize(paths_) > begin_; }
    void settle(const std::vector<std::int32_t>& settled) {
        for (std::int32_t path : settled) {
            auto place = std::lower_bound(paths_.begin() + begin_, paths_.end(), path);
            if (place == paths_.end() || *place != path) paths_.insert(place, path);
        }
    }
    void forget() { paths_.erase(paths_.begin() + begin_, paths_.end()); }

private:
    std::vector<std::int32_t>& paths_;
    std::ptrdiff_t begin_;
};

// The lowest number of the patterns that have settled, or -1.
class SettledFirst {
public:
    static constexpr bool isUsed = true;

    bool isAnySettled() const { return first_ >= 0; }
    void settle(const std::vector<std::int32_t>& settled) {
        if (first_ < 0 || settled.front() < first_) first_ = settled.front();
    }
    void forget() { first_ = -1; }
    std::int32_t first() const { return first_; }

private:
    std::int32_t first_ = -1;
};

template <class Value>
using MapOfPaths = std::map<std::int32_t, Value, std::less<>,
                            CountedAllocator<std::pair<const std::int32_t, Value>>>;

// Joins patterns that a split must not separate: those that share a number, if one of them is
// negated. They become neighbours. Gives, for each pattern, whether it may be the first of a part.
Vector<bool> joinNegated(Vector<Pattern>& patterns) {
    const auto hasNegation = [](const Pattern& pattern) { return pattern.part->isNegated(); };
    if (std::none_of(patterns.begin(), patterns.end(), hasNegation)) {
        return Vector<bool>(patterns.size(), true);
    }
    MapOfPaths<std::size_t> firstOfPath;
    MapOfPaths<bool> isNegated;
    Vector<std::size_t> keys;
    for (std::size_t i = 0; i < patterns.size(); ++i) {
        countWork(16);
        isNegated[patterns[i].path] |= patterns[i].part->isNegated();
        keys.push_back(firstOfPath.try_emplace(patterns[i].path, i).first->second);
    }
    Vector<std::size_t> order(patterns.size());
    for (std::size_t i = 0; i < order.size(); ++i) {
        order[i] = i;
        if (!isNegated[patterns[i].path]) keys[i] = i;
    }
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return keys[a] < keys[b]; });
    Vector<Pattern> sorted;
    Vector<bool> mayStart;
    for (std::size_t i = 0; i < order.size(); ++i) {
        sorted.push_back(std::move(patterns[order[i]]));
        mayStart.push_back(i == 0 || keys[order[i]] != keys[order[i - 1]]);
    }
    patterns = std::move(sorted);
    return mayStart;
}

}  // namespace

MultiEngineIf::~MultiEngineIf() = default;

struct EngineGroup::Setup {
    std::size_t stateLimit = Engine::defaultStateLimitCM;
    std::size_t partLimit = 0;
    std::int32_t patternCount = 0;
    std::int32_t guiltyPath = -1;
    bool isDone = false;
    FND::String error;
    std::vector<std::int32_t> paths;  // of all patterns, ascending; from finalSetup on
    std::unique_ptr<PatternList> patterns;
};

struct EngineGroup::Parts {
    void clear();
    bool hasTailsApart() const { return tables.size() == 1 && tables[0]->hasTailsApart(); }
    // Calls visit(table, row) for each part; false if the text has left all of them.
    template <class Visitor>
    bool walk(const char* text, std::size_t length, Visitor visit) const;

    std::vector<std::unique_ptr<Table>> tables;
    std::vector<std::int32_t> pathsOutside;  // of a text that has left all parts
};

EngineGroup::EngineGroup() : EngineGroup(std::make_unique<PatternList>()) {}

EngineGroup::EngineGroup(std::unique_ptr<PatternList> patterns)
    : setup_(std::make_unique<Setup>()), parts_(std::make_unique<Parts>()) {
    setup_->patterns = std::move(patterns);
    setup_->patternCount = static_cast<std::int32_t>(setup_->patterns->patterns().size());
}

EngineGroup::~EngineGroup() = default;

void EngineGroup::Parts::clear() {
    tables.clear();
    pathsOutside.clear();
}

void EngineGroup::stateLimit(std::size_t states) {
    setup_->stateLimit = std::clamp<std::size_t>(states, 1, Engine::mostStatesCM);
}

bool EngineGroup::insertPattern(const FND::String& pattern, unsigned long pathNumber) {
    if (setup_->isDone) {
        setup_->error = "no pattern may be inserted after finalSetup";
        return false;
    }
    if (!setup_->patterns->insert(pattern, pathNumber,
                                  setup_->stateLimit * PatternList::statesPerGroupLimitCM)) {
        setup_->error = setup_->patterns->error();
        return false;
    }
    ++setup_->patternCount;
    return true;
}

bool EngineGroup::insertPatterns(const std::vector<FND::String>& patterns,
                                 unsigned long pathNumber) {
    if (patterns.size() == 1) return insertPattern(patterns[0], pathNumber);
    setup_->error =
        "a row of an engine group has one pattern, not " + std::to_string(patterns.size());
    return false;
}

bool EngineGroup::finalSetup() {
    if (setup_->isDone) return !parts_->tables.empty();
    if (setup_->patterns->patterns().empty()) return true;
    setup_->isDone = true;
    bool isBuilt = false;
    try {
        setup_->paths = setup_->patterns->paths();
        isBuilt = build();
    } catch (const std::bad_alloc&) {
        setup_->error = "no memory available for the automata";
    } catch (...) {
        parts_->clear();
        setup_->patterns->clear();
        throw;
    }
    if (!isBuilt) parts_->clear();
    setup_->patterns->clear();
    return isBuilt;
}

bool EngineGroup::build() {
    // Without a limit for parts: one automaton if it has few more states than the patterns, one
    // with tails apart if that is not too large, or one if it is not larger than a part.
    struct Trial {
        std::size_t stateLimit;
        Tails tails;
    };
    std::size_t proportionate = setup_->patterns->stateCount() * proportionS;
    std::size_t partLimit = std::min(
        setup_->stateLimit, setup_->partLimit != 0 ? setup_->partLimit : defaultPartLimitCM);
    std::vector<Trial> trials{{partLimit, Tails::Inside}};
    if (setup_->partLimit == 0) {
        trials.insert(trials.begin(), {{std::max(smallS, proportionate), Tails::Inside},
                                       {std::max(partLimit, proportionate), Tails::Apart}});
    }
    Vector<Pattern> patterns = setup_->patterns->take();
    const Vector<bool> mayStart = joinNegated(patterns);

    std::vector<RawAutomaton> raws(1);
    std::vector<std::size_t> starts{0};
    bool isWhole = std::any_of(trials.begin(), trials.end(), [&](const Trial& trial) {
        return determinise(patterns.data(), patterns.size(),
                           std::min(setup_->stateLimit, trial.stateLimit), raws[0], trial.tails);
    });
    if (!isWhole) {
        raws.clear();
        starts.clear();
        std::size_t stateCount = 0;
        std::size_t lastFit = 1;
        for (std::size_t first = 0; first < patterns.size();) {
            const Pattern* rest = &patterns[first];
            std::size_t left = patterns.size() - first;
            std::size_t atLeast = 1;
            while (atLeast < left && !mayStart[first + atLeast]) ++atLeast;
            std::size_t fit = patternsThatFit(rest, left, partLimit, lastFit);
            lastFit = fit;
            while (fit > atLeast && fit < left && !mayStart[first + fit]) --fit;
            std::size_t limit = fit < atLeast ? setup_->stateLimit : partLimit;
            fit = std::max(fit, atLeast);
            RawAutomaton raw;
            bool isBuilt = determinise(rest, fit, limit, raw);
            stateCount += raw.stateCount();
            if (!isBuilt || stateCount > setup_->stateLimit * PatternList::groupFactorCM) {
                const Pattern& guilty =
                    isBuilt ? rest[0] : rest[patternsThatFit(rest, fit - 1, limit)];
                setup_->guiltyPath = guilty.path;
                setup_->error = PatternList::limitError(
                    guilty,
                    isBuilt ? setup_->stateLimit * PatternList::groupFactorCM : setup_->stateLimit);
                return false;
            }
            raws.push_back(std::move(raw));
            starts.push_back(first);
            first += fit;
        }
    }

    bool keepsDeadEnds = std::any_of(raws.begin(), raws.end(),
                                     [](const RawAutomaton& raw) { return raw.acceptsEmpty(); });
    starts.push_back(patterns.size());
    for (std::size_t i = 0; i < raws.size(); ++i) {
        parts_->tables.push_back(std::make_unique<Table>());
        std::vector<std::int32_t> negated =
            PatternList::negatedPaths(&patterns[starts[i]], starts[i + 1] - starts[i]);
        if (!parts_->tables.back()->build(std::move(raws[i]), negated, keepsDeadEnds,
                                          setup_->stateLimit * Table::listedPerStateCM)) {
            setup_->error = "limit of " + std::to_string(setup_->stateLimit) +
                            " states passed: too many path numbers to list";
            return false;
        }
        const auto& paths = parts_->tables.back()->start()->pathNumbers();
        parts_->pathsOutside.insert(parts_->pathsOutside.end(), paths.begin(), paths.end());
    }
    parts_->pathsOutside = sortedOnce(std::move(parts_->pathsOutside));
    return true;
}

template <class Visitor>
bool EngineGroup::Parts::walk(const char* text, std::size_t length, Visitor visit) const {
    constexpr std::size_t atOnce = 4;
    Table::Row rows[atOnce];
    bool isInside = false;
    for (std::size_t first = 0; first < tables.size(); first += atOnce) {
        const std::unique_ptr<Table>* together = &tables[first];
        std::size_t count = std::min(atOnce, tables.size() - first);
        switch (count) {
            case 1:
                rows[0] = together[0]->walk(text, length);
                break;
            case 2:
                walkTogether<2>(together, text, length, rows);
                break;
            case 3:
                walkTogether<3>(together, text, length, rows);
                break;
            default:
                walkTogether<4>(together, text, length, rows);
                break;
        }
        for (std::size_t i = 0; i < count; ++i) {
            isInside = isInside || rows[i] != 0;
            visit(*together[i], rows[i]);
        }
    }
    return isInside;
}

// Appends the path numbers that all parts report, ascending and each once, ignoring that the text
// may have left all of them; false if it has.
bool EngineGroup::appendPaths(std::string_view text, std::vector<std::int32_t>& paths) const {
    const std::ptrdiff_t before = std::ssize(paths);
    std::size_t lists = 0;
    auto append = [&](const Table& table, Table::Row row) {
        const auto& list = row == 0 ? table.negatedPaths() : table.state(row)->pathNumbers();
        if (list.empty()) return;
        ++lists;
        paths.insert(paths.end(), list.begin(), list.end());
    };
    bool isInside;
    if (parts_->hasTailsApart()) {
        const Table& table = *parts_->tables[0];
        SettledPaths settled(paths);
        Table::Row row = table.walk(text.data(), text.size(), settled);
        isInside = table.isInside(row) || settled.isAnySettled();
        lists = settled.isAnySettled() ? 1 : 0;
        append(table, row);
    } else {
        isInside = parts_->walk(text.data(), text.size(), append);
    }
    if (lists > 1) {
        std::sort(paths.begin() + before, paths.end());
        paths.erase(std::unique(paths.begin() + before, paths.end()), paths.end());
    }
    return isInside;
}

void EngineGroup::process(std::string_view text, std::vector<std::int32_t>& paths) const {
    paths.clear();
    if (!appendPaths(text, paths))
        paths.assign(parts_->pathsOutside.begin(), parts_->pathsOutside.end());
}

void EngineGroup::process(std::span<const std::string_view> words,
                          std::vector<std::int32_t>& paths) const {
    paths.clear();
    if (words.size() == 1) process(words[0], paths);
}

std::int32_t EngineGroup::firstPath(const char* text, std::size_t length) const {
    std::int32_t first = -1;
    bool isInside;
    auto take = [&](const Table& table, Table::Row row) {
        std::int32_t path = row != 0                       ? table.firstPath(row)
                            : table.negatedPaths().empty() ? -1
                                                           : table.negatedPaths().front();
        if (path >= 0 && (first < 0 || path < first)) first = path;
    };
    if (parts_->hasTailsApart()) {
        const Table& table = *parts_->tables[0];
        SettledFirst settled;
        Table::Row row = table.walk(text, length, settled);
        isInside = table.isInside(row) || settled.isAnySettled();
        first = settled.first();
        take(table, row);
    } else if (parts_->tables.size() == 1) {
        return parts_->tables[0]->firstPath(parts_->tables[0]->walk(text, length));
    } else {
        isInside = parts_->walk(text, length, take);
    }
    if (isInside) return first;
    return parts_->pathsOutside.empty() ? -1 : parts_->pathsOutside.front();
}

std::int32_t EngineGroup::firstPath(std::span<const std::string_view> words) const {
    return words.size() == 1 ? firstPath(words[0]) : -1;
}

const Table* EngineGroup::wholeTable() const {
    return parts_->tables.size() == 1 && !parts_->hasTailsApart() ? parts_->tables[0].get()
                                                                  : nullptr;
}

std::unique_ptr<Table> EngineGroup::takeWholeTable() {
    return wholeTable() != nullptr ? std::move(parts_->tables[0]) : nullptr;
}

const std::vector<std::int32_t>& EngineGroup::paths() const { return setup_->paths; }

const FND::String& EngineGroup::error() const { return setup_->error; }

std::int32_t EngineGroup::guiltyPath() const { return setup_->guiltyPath; }

std::size_t EngineGroup::stateLimit() const { return setup_->stateLimit; }

std::size_t EngineGroup::partLimit() const { return setup_->partLimit; }

void EngineGroup::partLimit(std::size_t states) { setup_->partLimit = states; }

std::int32_t EngineGroup::patternCount() const { return setup_->patternCount; }

std::size_t EngineGroup::partCount() const { return parts_->tables.size(); }

std::size_t EngineGroup::stateCount() const {
    std::size_t count = 0;
    for (const auto& part : parts_->tables) count += part->stateCount();
    return count;
}

std::size_t EngineGroup::memory() const {
    std::size_t bytes = 0;
    for (const auto& part : parts_->tables) bytes += part->memory();
    return bytes;
}

void EngineGroup::clear() {
    setup_->patterns->clear();
    parts_->clear();
    setup_->error.clear();
    setup_->paths.clear();
    setup_->patternCount = 0;
    setup_->guiltyPath = -1;
    setup_->isDone = false;
}

}  // namespace FSM

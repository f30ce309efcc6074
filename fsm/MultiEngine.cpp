#include "fsm/MultiEngine.h"

#include <algorithm>
#include <array>
#include <functional>
#include <limits>
#include <new>
#include <unordered_map>
#include <utility>

#include "fnd/SeededHash.h"
#include "fsm/Engine.h"
#include "fsm/EngineGroup.h"
#include "fsm/pattern/PatternList.h"
#include "fsm/store/Account.h"
#include "fsm/table/RowTable.h"

namespace FSM {

/// The patterns at one place of the rows.
struct MultiEngine::Place {
    struct Use {
        std::int32_t number;    // of the pattern in this place
        std::int32_t firstRow;  // path number of the first row that has it
    };

    // Used until the automata are built.
    std::unordered_map<FND::String, Use, FND::SeededHash, std::equal_to<>,
                       CountedAllocator<std::pair<const FND::String, Use>>>
        numbers;
    Charge textCharge;  // of the patterns as keys of these
    std::unique_ptr<PatternList> patterns = std::make_unique<PatternList>();
    std::unique_ptr<EngineGroup> group;  // used after that
};

struct MultiEngine::Rows {
    void clear();
    // Calls visit(path) for each row that matches, as often as it does.
    template <class Visitor>
    void match(std::span<const std::string_view> words, Visitor visit) const;

    PatternOptions options;
    std::size_t stateLimit = Engine::mostStatesCM;
    std::size_t byteLimit = BuildLimits::defaultBytesCM;
    std::int32_t count = 0;
    std::int32_t guiltyPath = -1;
    bool isSetUp = false;
    bool isBuilt = false;
    FND::String error;
    FND::String failure;  // of the set-up
    std::vector<Place> places;
    RowTable table;
};

MultiEngine::MultiEngine() : rows_(std::make_unique<Rows>()) {}

MultiEngine::~MultiEngine() = default;

void MultiEngine::Rows::clear() {
    places.clear();
    table.clear();
}

void MultiEngine::stateLimit(std::size_t states) {
    rows_->stateLimit = std::clamp<std::size_t>(states, 1, Engine::mostStatesCM);
}

bool MultiEngine::insertPatterns(const std::vector<FND::String>& patterns,
                                 unsigned long pathNumber) {
    const unsigned long path =
        pathNumber == nextPathCM ? static_cast<unsigned long>(rows_->count) : pathNumber;
    if (rows_->isSetUp) {
        rows_->error = "no row may be inserted after finalSetup";
    } else if (patterns.empty() || patterns.size() > maxWordsCM) {
        rows_->error = "a row has 1 to " + std::to_string(maxWordsCM) + " patterns, not " +
                       std::to_string(patterns.size());
    } else if (path > static_cast<unsigned long>(std::numeric_limits<std::int32_t>::max())) {
        rows_->error = "path number " + std::to_string(path) + " is above 2147483647";
    } else {
        try {
            if (!insertRow(patterns, static_cast<std::int32_t>(path))) return false;
            ++rows_->count;
            return true;
        } catch (const std::bad_alloc&) {
            rows_->error = "no memory available for the row";
        }
    }
    return false;
}

bool MultiEngine::insertRow(const std::vector<FND::String>& patterns, std::int32_t path) {
    while (rows_->places.size() < patterns.size()) {
        rows_->places.emplace_back().patterns->options(rows_->options);
    }
    std::array<std::int32_t, maxWordsCM> row;
    std::size_t count = 0;
    for (; count < patterns.size(); ++count) {
        Place& place = rows_->places[count];
        auto known = place.numbers.find(patterns[count]);
        if (known != place.numbers.end()) {
            row[count] = known->second.number;
            continue;
        }
        auto number = static_cast<std::int32_t>(place.patterns->patterns().size());
        // A pattern of a row that is refused later stays in the list, but in no row.
        if (!place.patterns->insert(patterns[count], PatternList::nextPathCM, rows_->byteLimit,
                                    true)) {
            rows_->error = "row " + std::to_string(path) + ", pattern " +
                           std::to_string(count + 1) + ": " + place.patterns->error();
            return false;
        }
        place.textCharge.take(blockBytes(patterns[count].size()));
        place.numbers.emplace(patterns[count], Place::Use{number, path});
        row[count] = number;
    }
    rows_->table.insert({row.data(), count}, path);
    return true;
}

bool MultiEngine::finalSetup() {
    if (rows_->isSetUp) {
        if (!rows_->isBuilt) rows_->error = rows_->failure;
        return rows_->isBuilt;
    }
    if (rows_->count == 0) return true;
    rows_->isSetUp = true;
    try {
        rows_->isBuilt = build();
    } catch (const std::bad_alloc&) {
        rows_->error = "no memory available for the automata";
    } catch (...) {
        rows_->clear();
        throw;
    }
    if (!rows_->isBuilt) {
        rows_->clear();
        rows_->failure = rows_->error;
    }
    return rows_->isBuilt;
}

bool MultiEngine::build() {
    std::vector<std::size_t> counts;
    for (std::size_t i = 0; i < rows_->places.size(); ++i) {
        Place& place = rows_->places[i];
        auto group = std::unique_ptr<EngineGroup>(new EngineGroup(std::move(place.patterns)));
        group->stateLimit(rows_->stateLimit);
        group->byteLimit(rows_->byteLimit);
        counts.push_back(static_cast<std::size_t>(group->patternCount()));
        if (!group->finalSetup()) {
            rows_->error = "word " + std::to_string(i + 1) + ": " + group->error();
            for (const auto& [text, use] : place.numbers) {
                if (use.number == group->guiltyPath()) rows_->guiltyPath = use.firstRow;
            }
            return false;
        }
        decltype(place.numbers)().swap(place.numbers);
        place.textCharge = Charge();
        place.group = std::move(group);
    }
    rows_->table.build(counts);
    return true;
}

namespace {

// What a thread needs to match a sequence of words.
struct MatchRoom {
    std::array<std::vector<std::int32_t>, MultiEngine::maxWordsCM> matching;  // of each place
    std::vector<RowTable::Row> candidates;
};

}  // namespace

template <class Visitor>
void MultiEngine::Rows::match(std::span<const std::string_view> words, Visitor visit) const {
    if (!isBuilt || words.empty() || words.size() > places.size()) return;
    // Rows that are looked at one by one rather than walking another word.
    constexpr std::size_t fewRows = 64;
    // A pointer, as a library that a running program loads has little room for variables of
    // threads.
    thread_local const auto owner = std::make_unique<MatchRoom>();
    MatchRoom& room = *owner;
    std::array<bool, maxWordsCM> isWalked{};
    // Walks the places that tell most rows apart, until one leaves few.
    std::size_t fewest = ~std::size_t{0};
    std::size_t best = 0;
    const auto walk = [&](std::size_t place) {
        room.matching[place].clear();
        places[place].group->appendPaths(words[place], room.matching[place]);
        isWalked[place] = true;
        return !room.matching[place].empty();
    };
    for (const std::uint32_t place : table.order()) {
        if (place >= words.size()) continue;
        if (!walk(place)) return;
        std::size_t rowsLeft = 0;
        for (const std::int32_t number : room.matching[place]) {
            rowsLeft += table.rowsAt(place, number).size();
        }
        if (rowsLeft < fewest) {
            fewest = rowsLeft;
            best = place;
        }
        if (fewest <= fewRows) break;
    }
    const auto isMatching = [&](RowTable::Row row, std::size_t place) {
        const std::vector<std::int32_t>& list = room.matching[place];
        return std::binary_search(list.begin(), list.end(), table.number(row, place));
    };
    room.candidates.clear();
    const auto consider = [&](std::span<const RowTable::Row> rows) {
        for (const RowTable::Row row : rows) {
            bool matches = table.hasLength(row, words.size());
            for (std::size_t place = 0; matches && place < words.size(); ++place) {
                matches = !isWalked[place] || place == best || isMatching(row, place);
            }
            if (matches) room.candidates.push_back(row);
        }
    };
    // The rows with a number at the first place are ordered by their numbers at the second one.
    constexpr std::size_t stepsOfSearch = 12;
    const std::size_t first = table.order()[0];
    const std::size_t second = table.order().size() > 1 ? table.order()[1] : first;
    const bool areBothWalked = isWalked[first] && isWalked[second] && first != second;
    if (areBothWalked &&
        room.matching[first].size() * room.matching[second].size() * stepsOfSearch < fewest) {
        best = first;
        for (const std::int32_t number : room.matching[first]) {
            for (const std::int32_t next : room.matching[second]) {
                consider(table.rowsWith(number, next));
            }
        }
    } else {
        for (const std::int32_t number : room.matching[best]) {
            consider(table.rowsAt(best, number));
        }
    }
    for (std::size_t place = 0; place < words.size() && !room.candidates.empty(); ++place) {
        if (isWalked[place]) continue;
        if (!walk(place)) return;
        std::erase_if(room.candidates, [&](RowTable::Row row) { return !isMatching(row, place); });
    }
    for (const RowTable::Row row : room.candidates) visit(table.path(row));
}

void MultiEngine::process(std::span<const std::string_view> words,
                          std::vector<std::int32_t>& paths) const {
    paths.clear();
    rows_->match(words, [&](std::int32_t path) { paths.push_back(path); });
    std::sort(paths.begin(), paths.end());
    paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
}

std::int32_t MultiEngine::firstPath(std::span<const std::string_view> words) const {
    std::int32_t first = -1;
    rows_->match(words, [&](std::int32_t path) {
        if (first < 0 || path < first) first = path;
    });
    return first;
}

std::size_t MultiEngine::stateCount() const {
    std::size_t count = 0;
    for (const Place& place : rows_->places) {
        if (place.group != nullptr) count += place.group->stateCount();
    }
    return count;
}

std::size_t MultiEngine::memory() const {
    std::size_t bytes = rows_->isBuilt ? rows_->table.memory() : 0;
    for (const Place& place : rows_->places) {
        if (place.group != nullptr) bytes += place.group->memory();
    }
    return bytes;
}

const FND::String& MultiEngine::error() const { return rows_->error; }

std::int32_t MultiEngine::guiltyPath() const { return rows_->guiltyPath; }

const PatternOptions& MultiEngine::options() const { return rows_->options; }

void MultiEngine::options(const PatternOptions& options) { rows_->options = options; }

std::size_t MultiEngine::stateLimit() const { return rows_->stateLimit; }

std::size_t MultiEngine::byteLimit() const { return rows_->byteLimit; }

void MultiEngine::byteLimit(std::size_t bytes) { rows_->byteLimit = bytes; }

std::int32_t MultiEngine::rowCount() const { return rows_->count; }

void MultiEngine::clear() {
    rows_->clear();
    rows_->error.clear();
    rows_->count = 0;
    rows_->guiltyPath = -1;
    rows_->isSetUp = false;
    rows_->isBuilt = false;
}

}  // namespace FSM

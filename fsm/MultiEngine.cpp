#include "fsm/MultiEngine.h"

#include <algorithm>
#include <array>
#include <functional>
#include <limits>
#include <new>
#include <unordered_map>
#include <utility>

#include "fnd/SeededHash.h"
#include "fsm/Account.h"
#include "fsm/Engine.h"
#include "fsm/EngineGroup.h"
#include "fsm/PatternList.h"
#include "fsm/RowTree.h"

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

    std::size_t stateLimit = Engine::mostStatesCM;
    std::size_t byteLimit = BuildLimits::defaultBytesCM;
    std::int32_t count = 0;
    std::int32_t guiltyPath = -1;
    bool isSetUp = false;
    bool isBuilt = false;
    FND::String error;
    std::vector<Place> places;
    RowTree tree;
};

MultiEngine::MultiEngine() : rows_(std::make_unique<Rows>()) {}

MultiEngine::~MultiEngine() = default;

void MultiEngine::Rows::clear() {
    places.clear();
    tree.clear();
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
    if (rows_->places.size() < patterns.size()) rows_->places.resize(patterns.size());
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
            rows_->error = place.patterns->error();
            return false;
        }
        place.textCharge.take(blockBytes(patterns[count].size()));
        place.numbers.emplace(patterns[count], Place::Use{number, path});
        row[count] = number;
    }
    rows_->tree.insert({row.data(), count}, path);
    return true;
}

bool MultiEngine::finalSetup() {
    if (rows_->isSetUp) return rows_->isBuilt;
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
    if (!rows_->isBuilt) rows_->clear();
    return rows_->isBuilt;
}

bool MultiEngine::build() {
    for (std::size_t i = 0; i < rows_->places.size(); ++i) {
        Place& place = rows_->places[i];
        auto group = std::unique_ptr<EngineGroup>(new EngineGroup(std::move(place.patterns)));
        group->stateLimit(rows_->stateLimit);
        group->byteLimit(rows_->byteLimit);
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
    rows_->tree.build();
    return true;
}

template <class Visitor>
void MultiEngine::Rows::match(std::span<const std::string_view> words, Visitor visit) const {
    if (!isBuilt || words.empty() || words.size() > places.size()) return;
    // For split places, collects the matching patterns, place after place.
    thread_local std::vector<std::int32_t> joined;
    std::array<RowTree::Numbers, maxWordsCM> matching;
    std::array<std::size_t, maxWordsCM> joinedEnd;
    joined.clear();
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::size_t before = joined.size();
        places[i].group->appendPaths(words[i], joined);
        if (joined.size() == before) return;
        joinedEnd[i] = joined.size();
    }
    std::size_t begin = 0;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (joinedEnd[i] > begin) {
            matching[i] = {joined.data() + begin, joinedEnd[i] - begin};
            begin = joinedEnd[i];
        }
    }
    tree.find({matching.data(), words.size()}, visit);
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
    std::size_t bytes = rows_->isBuilt ? rows_->tree.memory() : 0;
    for (const Place& place : rows_->places) {
        if (place.group != nullptr) bytes += place.group->memory();
    }
    return bytes;
}

const FND::String& MultiEngine::error() const { return rows_->error; }

std::int32_t MultiEngine::guiltyPath() const { return rows_->guiltyPath; }

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

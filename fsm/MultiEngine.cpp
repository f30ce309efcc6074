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
#include "fsm/Table.h"

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
    // Used after that: one of the two.
    std::unique_ptr<Engine> engine;
    std::unique_ptr<EngineGroup> group;
};

MultiEngine::MultiEngine()
    : stateLimit_(Engine::defaultStateLimitCM), rows_(std::make_unique<RowTree>()) {}

MultiEngine::~MultiEngine() = default;

void MultiEngine::stateLimit(std::size_t states) {
    stateLimit_ = std::clamp<std::size_t>(states, 1, Engine::mostStatesCM);
}

bool MultiEngine::insertPatterns(const std::vector<FND::String>& patterns,
                                 unsigned long pathNumber) {
    unsigned long path = pathNumber == nextPathCM ? rowCount_ : pathNumber;
    if (isSetUp_) {
        error_ = "no row may be inserted after finalSetup";
    } else if (patterns.empty() || patterns.size() > maxWordsCM) {
        error_ = "a row has 1 to " + std::to_string(maxWordsCM) + " patterns, not " +
                 std::to_string(patterns.size());
    } else if (path > static_cast<unsigned long>(std::numeric_limits<std::int32_t>::max())) {
        error_ = "path number " + std::to_string(path) + " is above 2147483647";
    } else {
        try {
            if (!insertRow(patterns, static_cast<std::int32_t>(path))) return false;
            ++rowCount_;
            return true;
        } catch (const std::bad_alloc&) {
            error_ = "no memory available for the row";
        }
    }
    return false;
}

bool MultiEngine::insertRow(const std::vector<FND::String>& patterns, std::int32_t path) {
    if (places_.size() < patterns.size()) places_.resize(patterns.size());
    std::array<std::int32_t, maxWordsCM> row;
    std::size_t count = 0;
    for (; count < patterns.size(); ++count) {
        Place& place = places_[count];
        auto known = place.numbers.find(patterns[count]);
        if (known != place.numbers.end()) {
            row[count] = known->second.number;
            continue;
        }
        auto number = static_cast<std::int32_t>(place.patterns->patterns().size());
        // A pattern of a row that is refused later stays in the list, but in no row.
        if (!place.patterns->insert(patterns[count], PatternList::nextPathCM,
                                    stateLimit_ * EngineGroup::statesPerLimitCM)) {
            error_ = place.patterns->error();
            return false;
        }
        place.textCharge.take(blockBytes(patterns[count].size()));
        place.numbers.emplace(patterns[count], Place::Use{number, path});
        row[count] = number;
    }
    rows_->insert({row.data(), count}, path);
    return true;
}

bool MultiEngine::finalSetup() {
    if (isSetUp_) return isBuilt_;
    if (rowCount_ == 0) return true;
    isSetUp_ = true;
    try {
        isBuilt_ = build();
    } catch (const std::bad_alloc&) {
        error_ = "no memory available for the automata";
    } catch (...) {
        places_.clear();
        rows_->clear();
        throw;
    }
    if (!isBuilt_) {
        places_.clear();
        rows_->clear();
    }
    return isBuilt_;
}

bool MultiEngine::build() {
    for (std::size_t i = 0; i < places_.size(); ++i) {
        Place& place = places_[i];
        auto group = std::unique_ptr<EngineGroup>(new EngineGroup(std::move(place.patterns)));
        group->stateLimit(stateLimit_);
        if (!group->finalSetup()) {
            error_ = "word " + std::to_string(i + 1) + ": " + group->error();
            for (const auto& [text, use] : place.numbers) {
                if (use.number == group->guiltyPath()) guiltyPath_ = use.firstRow;
            }
            return false;
        }
        decltype(place.numbers)().swap(place.numbers);
        place.textCharge = Charge();
        if (group->partCount() == 1 && !group->hasTailsApart()) {
            place.engine.reset(new Engine(group->takeTable()));
        } else {
            place.group = std::move(group);
        }
    }
    for (std::size_t i = 0; i + 1 < places_.size(); ++i) {
        Engine* next = places_[i + 1].engine.get();
        if (next != nullptr && places_[i].engine != nullptr) places_[i].engine->chain(next);
    }
    rows_->build();
    return true;
}

template <class Visitor>
void MultiEngine::match(std::span<const std::string_view> words, Visitor visit) const {
    if (!isBuilt_ || words.empty() || words.size() > places_.size()) return;
    // For split places, collects the matching patterns, place after place.
    thread_local std::vector<std::int32_t> joined;
    std::array<RowTree::Numbers, maxWordsCM> matching;
    std::array<std::size_t, maxWordsCM> joinedEnd;
    joined.clear();
    const Engine* engine = places_[0].engine.get();
    for (std::size_t i = 0; i < words.size(); ++i) {
        const Engine* next = i + 1 < words.size() ? places_[i + 1].engine.get() : nullptr;
        if (engine != nullptr) {
            const State* state = engine->stateInside(words[i]);
            matching[i] = state == nullptr ? engine->pathsOutside() : state->pathNumbers();
            if (matching[i].empty()) return;
            // A chained state names the engine itself.
            if (next != nullptr && state != nullptr && state->getNextWordFSM() != nullptr) {
                next = state->getNextWordFSM();
            }
        } else {
            std::size_t before = joined.size();
            places_[i].group->appendPaths(words[i], joined);
            if (joined.size() == before) return;
        }
        joinedEnd[i] = joined.size();
        engine = next;
    }
    std::size_t begin = 0;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (joinedEnd[i] > begin) {
            matching[i] = {joined.data() + begin, joinedEnd[i] - begin};
            begin = joinedEnd[i];
        }
    }
    rows_->find({matching.data(), words.size()}, visit);
}

void MultiEngine::process(std::span<const std::string_view> words,
                          std::vector<std::int32_t>& paths) const {
    paths.clear();
    match(words, [&](std::int32_t path) { paths.push_back(path); });
    std::sort(paths.begin(), paths.end());
    paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
}

std::int32_t MultiEngine::firstPath(std::span<const std::string_view> words) const {
    std::int32_t first = -1;
    match(words, [&](std::int32_t path) {
        if (first < 0 || path < first) first = path;
    });
    return first;
}

std::size_t MultiEngine::stateCount() const {
    std::size_t count = 0;
    for (const Place& place : places_) {
        if (place.engine != nullptr) count += place.engine->stateCount();
        if (place.group != nullptr) count += place.group->stateCount();
    }
    return count;
}

std::size_t MultiEngine::memory() const {
    std::size_t bytes = isBuilt_ ? rows_->memory() : 0;
    for (const Place& place : places_) {
        if (place.engine != nullptr) bytes += place.engine->memory();
        if (place.group != nullptr) bytes += place.group->memory();
    }
    return bytes;
}

void MultiEngine::clear() {
    places_.clear();
    rows_->clear();
    error_.clear();
    rowCount_ = 0;
    guiltyPath_ = -1;
    isSetUp_ = false;
    isBuilt_ = false;
}

}  // namespace FSM

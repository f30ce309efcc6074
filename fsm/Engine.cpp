#include "fsm/Engine.h"

#include <algorithm>
#include <iostream>
#include <map>
#include <new>
#include <utility>

#include "fsm/part/Searcher.h"
#include "fsm/pattern/PatternList.h"
#include "fsm/store/Archive.h"
#include "fsm/store/SavedFile.h"
#include "fsm/table/Table.h"

namespace FSM {

struct Engine::Setup {
    std::size_t stateLimit = mostStatesCM;
    std::size_t byteLimit = BuildLimits::defaultBytesCM;
    std::size_t workLimit = defaultWorkCM;
    std::int32_t patternCount = 0;
    std::int32_t guiltyPath = -1;
    bool isDone = false;
    bool isSearching = false;
    FND::String error;
    FND::String failure;              // of the set-up
    std::vector<std::int32_t> paths;  // of all patterns, ascending; from finalSetup on
    PatternList patterns;
};

static_assert(Engine::defaultWorkCM == BuildLimits::defaultWorkCM);

Engine::Engine(unsigned int) : setup_(std::make_unique<Setup>()) {}

Engine::~Engine() = default;

bool Engine::insertPattern(const FND::String& pattern, unsigned long pathNumber) {
    if (addPattern(pattern, pathNumber)) return true;
    if (!setup_->isDone && setup_->patterns.isUnparsed()) {
        std::cout << "FSM:Engine:insertPattern error=" << setup_->error
                  << "\nFSM:Engine:insertPattern pattern=" << pattern
                  << ", pathNumber=" << pathNumber << std::endl;
    }
    return false;
}

bool Engine::addPattern(const FND::String& pattern, unsigned long pathNumber) {
    if (setup_->isDone) {
        setup_->error = "no pattern may be inserted after finalSetup";
        return false;
    }
    if (!setup_->patterns.insert(pattern, pathNumber, setup_->byteLimit, false)) {
        setup_->error = setup_->patterns.error();
        return false;
    }
    if (setup_->isSearching && setup_->patterns.patterns().back().isNegated()) {
        setup_->patterns.dropLast();
        setup_->error = "a negated pattern cannot be searched for";
        return false;
    }
    ++setup_->patternCount;
    return true;
}

bool Engine::finalSetup() {
    if (setup_->isDone) {
        const bool isBuilt = table_ != nullptr || setup_->patternCount == 0;
        if (!isBuilt) setup_->error = setup_->failure;
        return isBuilt;
    }
    if (setup_->patterns.patterns().empty()) return true;
    setup_->isDone = true;
    bool isBuilt = false;
    try {
        setup_->paths = setup_->patterns.paths();
        isBuilt = build();
    } catch (const std::bad_alloc&) {
        setup_->error = "no memory available for the automaton";
    } catch (...) {
        table_.reset();
        searcher_.reset();
        cleanup();
        throw;
    }
    if (!isBuilt) {
        table_.reset();
        searcher_.reset();
        setup_->failure = setup_->error;
    }
    cleanup();
    return isBuilt;
}

bool Engine::build() {
    const Vector<Pattern>& patterns = setup_->patterns.patterns();
    RawAutomaton raw;
    const BuildLimits limits{setup_->stateLimit, setup_->byteLimit, setup_->workLimit};
    const auto fail = [&](const Pattern& guilty, Limit passed) {
        setup_->guiltyPath = guilty.path;
        setup_->error = PatternList::limitError(guilty, limits, passed);
        return false;
    };
    Limit passed = determinise(patterns.data(), patterns.size(), limits, raw);
    if (passed != Limit::None) {
        const Guilty guilty = findGuilty(patterns.data(), patterns.size(), limits, passed);
        return fail(patterns[guilty.place], guilty.passed);
    }
    if (setup_->isSearching) {
        // Takes the parsed patterns, which are not needed any more.
        searcher_ = std::make_unique<Searcher>();
        passed = searcher_->build(setup_->patterns.patterns(), options(), limits);
        if (passed != Limit::None) {
            fail(patterns.back(), passed);
            setup_->error = "automata for searching: " + setup_->error;
            return false;
        }
    }
    table_ = std::make_unique<Table>();
    bool keepsDeadEnds = raw.acceptsEmpty();
    const Table::MostListed mostListed(limits);
    return table_->build(std::move(raw),
                         PatternList::negatedPaths(patterns.data(), patterns.size()), options(),
                         keepsDeadEnds, mostListed.numbers) ||
           // Negated patterns are listed for nearly all states.
           fail(patterns[lastNegated(patterns.data(), patterns.size())], mostListed.limit());
}

const State* Engine::process(const char* text) const {
    if (table_ == nullptr) return nullptr;
    return table_->state(table_->walk(text));
}

const State* Engine::process(std::string_view text) const {
    if (table_ == nullptr) return nullptr;
    return table_->state(table_->walk(text.data(), text.size()));
}

std::int32_t Engine::firstPath(const char* text, std::size_t length) const {
    if (table_ == nullptr) return -1;
    return table_->firstPath(table_->walk(text, length));
}

std::int32_t Engine::firstPath(std::string_view text, void (*pause)(std::size_t bytes)) const {
    if (table_ == nullptr) return -1;
    return table_->firstPath(table_->walk(text, pause));
}

bool Engine::save(const FND::String& file, FND::String& error) const {
    if (table_ == nullptr || searcher_ != nullptr) {
        error =
            table_ == nullptr ? "the engine is not set up" : "an engine that searches is not saved";
        return false;
    }
    error = SavedFile::save(file, 'e', [&](Archive& archive) {
        PatternOptions reading = options();
        archive.options(reading);
        archive.all(setup_->patternCount, setup_->paths);
        table_->archive(archive);
    });
    return error.empty();
}

bool Engine::load(const FND::String& file) {
    if (setup_->isDone || setup_->patternCount > 0) {
        setup_->error = "only an empty engine can be loaded";
        return false;
    }
    PatternOptions reading;
    std::int32_t count = 0;
    std::vector<std::int32_t> numbers;
    std::unique_ptr<Table> table;
    std::unique_ptr<SavedFile> saved;
    setup_->error = SavedFile::load(file, 'e', saved, [&](Archive& archive) {
        table = std::make_unique<Table>();
        archive.options(reading);
        archive.all(count, numbers);
        return table->archive(archive);
    });
    if (!setup_->error.empty()) return false;
    file_ = std::move(saved);
    table_ = std::move(table);
    options(reading);
    setup_->patternCount = count;
    setup_->paths = std::move(numbers);
    setup_->isDone = true;
    return true;
}

const PatternOptions& Engine::options() const { return setup_->patterns.options(); }

void Engine::options(const PatternOptions& options) { setup_->patterns.options(options); }

bool Engine::isSearching() const { return setup_->isSearching; }

void Engine::isSearching(bool searches) { setup_->isSearching = searches; }

bool Engine::find(std::string_view text, Find what, std::vector<Match>& matches) const {
    matches.clear();
    if (searcher_ == nullptr) return false;
    searcher_->find(text, what, matches);
    return true;
}

struct Walk::Search : Searcher::Progress {};

Walk::Walk(const Engine& engine) : engine_(engine), progress_(std::make_unique<Search>()) {
    begin();
}

Walk::~Walk() = default;

void Walk::begin() {
    row_ = engine_.table_ == nullptr ? 0 : engine_.table_->startRow();
    isEnded_ = false;
    *progress_ = Search();
}

void Walk::feed(std::string_view piece) {
    if (isEnded_ || engine_.table_ == nullptr) return;
    isEnded_ = engine_.table_->endsIn(piece);
    row_ = engine_.table_->walkOn(row_, piece.data(), piece.size());
    // A text that has left the automaton does not come back.
    isEnded_ = isEnded_ || row_ == 0;
}

void Walk::feed(std::string_view piece, std::vector<Match>& matches) {
    feed(piece);
    if (engine_.searcher_ != nullptr) engine_.searcher_->findOn(*progress_, piece, matches);
}

const State* Walk::end() const {
    return engine_.table_ == nullptr ? nullptr : engine_.table_->state(row_);
}

const FND::String& Engine::error() const { return setup_->error; }

std::int32_t Engine::guiltyPath() const { return setup_->guiltyPath; }

std::size_t Engine::stateLimit() const { return setup_->stateLimit; }

void Engine::stateLimit(std::size_t states) {
    setup_->stateLimit = std::clamp<std::size_t>(states, 1, mostStatesCM);
}

std::size_t Engine::byteLimit() const { return setup_->byteLimit; }

void Engine::byteLimit(std::size_t bytes) { setup_->byteLimit = bytes; }

std::size_t Engine::workLimit() const { return setup_->workLimit; }

void Engine::workLimit(std::size_t steps) { setup_->workLimit = steps; }

std::int32_t Engine::patternCount() const { return setup_->patternCount; }

std::size_t Engine::stateCount() const { return table_ == nullptr ? 0 : table_->stateCount(); }

std::size_t Engine::memory() const { return table_ == nullptr ? 0 : table_->memory(); }

const State* Engine::startState() const { return table_ == nullptr ? nullptr : table_->start(); }

const std::vector<std::int32_t>& Engine::paths() const { return setup_->paths; }

FND::String Engine::pathString() const {
    FND::String text;
    for (std::int32_t path : setup_->isDone ? setup_->paths : setup_->patterns.paths()) {
        if (!text.empty()) text += ' ';
        text += std::to_string(path);
    }
    return text;
}

void Engine::cleanup() { setup_->patterns.clear(); }

void Engine::clear() {
    cleanup();
    table_.reset();
    file_.reset();
    searcher_.reset();
    setup_->error.clear();
    setup_->paths.clear();
    setup_->patternCount = 0;
    setup_->guiltyPath = -1;
    setup_->isDone = false;
}

std::ostream& operator<<(std::ostream& out, const Engine& engine) {
    std::map<const State*, int> numbers;
    out << "engine with " << engine.patternCount() << " patterns, " << engine.stateCount()
        << " states";
    if (engine.table_ == nullptr) return out << '\n';
    const DetState* states = engine.table_->states();
    for (std::size_t i = 1; i <= engine.stateCount(); ++i) {
        numbers[&states[i]] = static_cast<int>(i);
    }
    out << ", start " << numbers[engine.startState()] << '\n';
    for (std::size_t i = 1; i <= engine.stateCount(); ++i) states[i].print(numbers, out, 0);
    return out;
}

}  // namespace FSM

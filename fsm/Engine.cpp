#include "fsm/Engine.h"

#include <map>
#include <new>
#include <ostream>
#include <utility>

#include "fsm/PatternList.h"
#include "fsm/Table.h"

namespace FSM {

Engine::Engine(unsigned int expectedCount)
    : expectedCount_(expectedCount), patterns_(std::make_unique<PatternList>()) {}

Engine::Engine(std::unique_ptr<Table> table) : Engine() {
    table_ = std::move(table);
    isSetUp_ = true;
}

Engine::~Engine() = default;

void Engine::chain(Engine* next) {
    for (std::size_t i = 1; i <= table_->stateCount(); ++i) {
        DetState& state = table_->states()[i];
        if (!state.pathNumbers().empty()) state.setNextWordFSM(next);
    }
}

const State* Engine::stateInside(std::string_view text) const {
    Table::Row row = table_->walk(text.data(), text.size());
    return row == 0 ? nullptr : table_->state(row);
}

const std::vector<std::int32_t>& Engine::pathsOutside() const { return table_->negatedPaths(); }

bool Engine::insertPattern(const FND::String& pattern, unsigned long pathNumber) {
    if (isSetUp_) {
        error_ = "no pattern may be inserted after finalSetup";
        return false;
    }
    if (!patterns_->insert(pattern, pathNumber, stateLimit_ * PatternList::statesPerLimitCM)) {
        error_ = patterns_->error();
        return false;
    }
    ++patternCount_;
    return true;
}

bool Engine::finalSetup() {
    if (isSetUp_) return table_ != nullptr || patternCount_ == 0;
    if (patterns_->patterns().empty()) return true;
    isSetUp_ = true;
    bool isBuilt = false;
    try {
        paths_ = patterns_->paths();
        isBuilt = build();
    } catch (const std::bad_alloc&) {
        error_ = "no memory available for the automaton";
    } catch (...) {
        table_.reset();
        cleanup();
        throw;
    }
    if (!isBuilt) table_.reset();
    cleanup();
    return isBuilt;
}

bool Engine::build() {
    const Vector<Pattern>& patterns = patterns_->patterns();
    RawAutomaton raw;
    if (!determinise(patterns.data(), patterns.size(), stateLimit_, raw)) {
        const Pattern& guilty =
            patterns[patternsThatFit(patterns.data(), patterns.size() - 1, stateLimit_)];
        guiltyPath_ = guilty.path;
        error_ = PatternList::limitError(guilty, stateLimit_);
        return false;
    }
    table_ = std::make_unique<Table>();
    bool keepsDeadEnds = raw.acceptsEmpty();
    if (!table_->build(std::move(raw), PatternList::negatedPaths(patterns.data(), patterns.size()),
                       keepsDeadEnds, stateLimit_ * Table::listedPerStateCM)) {
        error_ = "limit of " + std::to_string(stateLimit_) +
                 " states passed: too many path numbers to list";
        return false;
    }
    return true;
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
    constexpr std::size_t pieceSize = 64 * 1024;
    Table::Row row = table_->startRow();
    for (;;) {
        const std::string_view piece = text.substr(0, pieceSize);
        row = table_->walkOn(row, piece.data(), piece.size());
        text.remove_prefix(piece.size());
        // A text ends at its first NUL.
        if (row == 0 || text.empty() || piece.find('\0') != std::string_view::npos) break;
        pause(piece.size());
    }
    return table_->firstPath(row);
}

const FND::String& Engine::error() const { return error_; }

std::size_t Engine::stateCount() const { return table_ == nullptr ? 0 : table_->stateCount(); }

std::size_t Engine::memory() const { return table_ == nullptr ? 0 : table_->memory(); }

const State* Engine::startState() const { return table_ == nullptr ? nullptr : table_->start(); }

FND::String Engine::pathString() const {
    FND::String text;
    for (std::int32_t path : isSetUp_ ? paths_ : patterns_->paths()) {
        if (!text.empty()) text += ' ';
        text += std::to_string(path);
    }
    return text;
}

void Engine::cleanup() { patterns_->clear(); }

void Engine::clear() {
    cleanup();
    table_.reset();
    error_.clear();
    paths_.clear();
    patternCount_ = 0;
    guiltyPath_ = -1;
    isSetUp_ = false;
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

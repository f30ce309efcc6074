#include "fsm/EngineGroup.h"

#include <algorithm>
#include <array>
#include <new>
#include <utility>

#include "fsm/Engine.h"
#include "fsm/part/GroupBuilder.h"
#include "fsm/part/LiteralPart.h"
#include "fsm/part/TablePart.h"
#include "fsm/pattern/PatternList.h"
#include "fsm/store/Archive.h"
#include "fsm/store/SavedFile.h"
#include "fsm/table/Table.h"

namespace FSM {

MultiEngineIf::~MultiEngineIf() = default;

struct EngineGroup::Setup {
    std::size_t stateLimit = Engine::mostStatesCM;
    std::size_t byteLimit = BuildLimits::defaultBytesCM;
    std::size_t workLimit = BuildLimits::defaultWorkCM;
    std::size_t partLimit = 0;
    std::int32_t patternCount = 0;
    std::int32_t guiltyPath = -1;
    bool isDone = false;
    FND::String error;
    FND::String failure;              // of the set-up
    std::vector<std::int32_t> paths;  // of all patterns in the main parts, ascending
    std::unique_ptr<PatternList> patterns;
    // Of a changeable group, all patterns; the list is only filled while it is set up.
    struct Kept {
        FND::String text;
        std::int32_t path;
        Charge charge{sizeof(FND::String) + blockBytes(text.size())};
    };
    bool isChangeable = false;
    std::int64_t nextPath = 0;
    std::vector<Kept> kept;
    std::size_t mainCount = 0;          // of those kept, the first ones, that are in the main parts
    std::vector<std::int32_t> removed;  // numbers that the main parts hold besides
};

struct EngineGroup::Parts {
    GroupParts main;
    GroupParts added;                   // for patterns inserted since `main` was made
    std::vector<std::int32_t> removed;  // what `main` must not report any more, ascending
    // Of a text that has left all parts, if a pattern matches "": there are no changes then.
    std::vector<std::int32_t> pathsOutside;
    std::unique_ptr<SavedFile> file;        // that holds the parts, if they were loaded
    const LiteralPart* literals = nullptr;  // the only part, if it takes texts as they are
    // The only table of the only part, with tails apart, if it does not matter what texts leave it.
    const Table* tailed = nullptr;

    bool hasChanges() const { return !added.parts.empty() || !removed.empty(); }
    const Table* whole() const { return hasChanges() ? nullptr : main.onlyTable(); }
    // To be called after a change of the parts.
    void findOnly() {
        literals = hasChanges() ? nullptr : main.onlyLiterals();
        tailed = hasChanges() || main.acceptsEmpty ? nullptr : main.onlyTailed();
    }
    bool archive(Archive& archive) {
        archive.all(pathsOutside, removed);
        return main.archive(archive) && added.archive(archive);
    }
};

EngineGroup::EngineGroup() : EngineGroup(std::make_unique<PatternList>()) {}

EngineGroup::EngineGroup(std::unique_ptr<PatternList> patterns)
    : setup_(std::make_unique<Setup>()), parts_(std::make_unique<Parts>()) {
    setup_->patterns = std::move(patterns);
    setup_->patternCount = static_cast<std::int32_t>(setup_->patterns->patterns().size());
}

EngineGroup::~EngineGroup() = default;

void EngineGroup::stateLimit(std::size_t states) {
    setup_->stateLimit = std::clamp<std::size_t>(states, 1, Engine::mostStatesCM);
}

bool EngineGroup::insertPattern(const FND::String& pattern, unsigned long pathNumber) {
    if (setup_->isDone && !setup_->isChangeable) {
        setup_->error = "no pattern may be inserted after finalSetup";
        return false;
    }
    const unsigned long next = setup_->isChangeable
                                   ? static_cast<unsigned long>(setup_->nextPath)
                                   : static_cast<unsigned long>(setup_->patternCount);
    const unsigned long number = pathNumber == nextPathCM ? next : pathNumber;
    if (!setup_->patterns->insert(pattern, number, setup_->byteLimit, true)) {
        setup_->error = setup_->patterns->isUnparsed()
                            ? "pattern " + std::to_string(number) + ": " + setup_->patterns->error()
                            : setup_->patterns->error();
        return false;
    }
    if (setup_->isChangeable) {
        setup_->patterns->clear();
        setup_->kept.push_back({pattern, static_cast<std::int32_t>(number)});
        setup_->nextPath = std::max(setup_->nextPath, static_cast<std::int64_t>(number) + 1);
        setup_->isDone = false;
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
    if (setup_->isDone) {
        if (parts_->main.parts.empty()) setup_->error = setup_->failure;
        return !parts_->main.parts.empty();
    }
    if (setup_->patternCount == 0) {
        use(std::make_unique<Parts>());
        setup_->mainCount = 0;
        return true;
    }
    setup_->isDone = true;
    bool isBuilt = false;
    try {
        isBuilt = changeParts() || (fillList(0) && build());
    } catch (const std::bad_alloc&) {
        setup_->error = "no memory available for the automata";
    } catch (...) {
        if (!setup_->isChangeable) use(std::make_unique<Parts>());
        setup_->patterns->clear();
        throw;
    }
    if (!isBuilt) setup_->failure = setup_->error;
    // A group that cannot be changed as asked goes on as before.
    if (!isBuilt && setup_->isChangeable) setup_->isDone = false;
    setup_->patterns->clear();
    return isBuilt;
}

// Puts the kept patterns from number `first` on into the list. False if they pass the byte limit.
bool EngineGroup::fillList(std::size_t first) {
    for (std::size_t i = first; i < setup_->kept.size(); ++i) {
        const Setup::Kept& kept = setup_->kept[i];
        if (setup_->patterns->insert(kept.text, static_cast<unsigned long>(kept.path),
                                     setup_->byteLimit, true)) {
            continue;
        }
        setup_->error = setup_->patterns->error();
        setup_->guiltyPath = kept.path;
        return false;
    }
    return true;
}

// Makes `parts` of the patterns in the list.
bool EngineGroup::makeParts(std::size_t byteLimit, GroupParts& parts) {
    GroupBuilder builder(setup_->patterns->take(), options(),
                         {setup_->stateLimit, byteLimit, setup_->workLimit},
                         std::min(setup_->partLimit, setup_->stateLimit));
    if (builder.build(parts)) return true;
    setup_->error = builder.error();
    setup_->guiltyPath = builder.guiltyPath();
    return false;
}

void EngineGroup::use(std::unique_ptr<Parts> parts) {
    parts_ = std::move(parts);
    whole_ = parts_->whole();
    parts_->findOnly();
}

bool EngineGroup::build() {
    std::vector<std::int32_t> paths = setup_->patterns->paths();
    auto parts = std::make_unique<Parts>();
    if (!makeParts(setup_->byteLimit, parts->main)) return false;
    Found outside(parts->pathsOutside);
    parts->main.match("", outside);
    outside.sortOnce();
    use(std::move(parts));
    setup_->paths = std::move(paths);
    setup_->mainCount = setup_->kept.size();
    setup_->removed.clear();
    return true;
}

// Changes the parts of a group with a few small ones for what was inserted, and leaves out what was
// removed. False if all have to be made anew.
bool EngineGroup::changeParts() {
    constexpr std::size_t mostInserted = 1024;
    const std::size_t inserted =
        setup_->kept.size() - std::min(setup_->kept.size(), setup_->mainCount);
    if (parts_->main.parts.empty() || setup_->mainCount == 0 || parts_->main.acceptsEmpty ||
        inserted > mostInserted || setup_->removed.size() > setup_->mainCount) {
        return false;
    }
    std::vector<std::int32_t> removed = sortedOnce(setup_->removed);
    for (std::size_t i = setup_->mainCount; i < setup_->kept.size(); ++i) {
        // Patterns that share a number may depend on each other.
        const std::int32_t path = setup_->kept[i].path;
        if (std::binary_search(setup_->paths.begin(), setup_->paths.end(), path) &&
            !std::binary_search(removed.begin(), removed.end(), path)) {
            return false;
        }
    }
    GroupParts added;
    const std::size_t taken = parts_->main.memory();
    if (inserted > 0 &&
        (!fillList(setup_->mainCount) ||
         !makeParts(setup_->byteLimit - std::min(setup_->byteLimit, taken), added) ||
         added.acceptsEmpty)) {
        setup_->patterns->clear();
        return false;
    }
    added.options = options();
    parts_->added = std::move(added);
    parts_->removed = std::move(removed);
    whole_ = parts_->whole();
    parts_->findOnly();
    return true;
}

bool EngineGroup::save(const FND::String& file, FND::String& error) const {
    if (parts_->main.parts.empty()) {
        error = "the group is not set up";
        return false;
    }
    error = SavedFile::save(file, 'g', [&](Archive& archive) {
        std::vector<std::int32_t> numbers = paths();
        archive.all(setup_->patternCount, numbers);
        parts_->archive(archive);
    });
    return error.empty();
}

bool EngineGroup::load(const FND::String& file) {
    if (setup_->isDone || setup_->patternCount > 0) {
        setup_->error = "only an empty group can be loaded";
        return false;
    }
    std::int32_t count = 0;
    std::vector<std::int32_t> numbers;
    std::unique_ptr<Parts> parts;
    std::unique_ptr<SavedFile> saved;
    setup_->error = SavedFile::load(file, 'g', saved, [&](Archive& archive) {
        parts = std::make_unique<Parts>();
        archive.all(count, numbers);
        return parts->archive(archive) && !parts->main.parts.empty();
    });
    if (!setup_->error.empty()) return false;
    parts->file = std::move(saved);
    options(parts->main.options);
    setup_->patternCount = count;
    setup_->paths = std::move(numbers);
    setup_->isDone = true;
    use(std::move(parts));
    return true;
}

// Appends the path numbers that all parts report, ascending and each once, ignoring that the text
// may have left all of them; false if it has.
bool EngineGroup::appendPaths(std::string_view text, std::vector<std::int32_t>& paths) const {
    Found found(paths);
    bool isInside = false;
    if (parts_->literals != nullptr) {
        isInside = parts_->literals->match(text, found);
    } else {
        isInside = parts_->main.match(text, found);
    }
    if (parts_->hasChanges()) {
        found.remove(parts_->removed);
        isInside = parts_->added.match(text, found) || isInside;
    }
    found.sortOnce();
    return isInside;
}

namespace {

// On its own, so that a text that needs no walk does not pay for the registers of one.
[[gnu::noinline, gnu::flatten]] void reportWhole(const Table& table, std::string_view text,
                                                 std::vector<std::int32_t>& paths) {
    table.report(table.walk(text.data(), text.size()), paths);
}

// The same for a table with tails apart.
[[gnu::noinline, gnu::flatten]] void reportTailed(const Table& table, std::string_view text,
                                                  std::vector<std::int32_t>& paths) {
    paths.clear();
    Found found(paths);
    TablePart::matchTailed(table, text, found);
    found.sortOnce();
}

}  // namespace

void EngineGroup::process(std::string_view text, std::vector<std::int32_t>& paths) const {
    if (whole_ != nullptr) return reportWhole(*whole_, text, paths);
    if (parts_->tailed != nullptr) return reportTailed(*parts_->tailed, text, paths);
    paths.clear();
    const LiteralPart* const literals = parts_->literals;
    const bool isTooLong = literals != nullptr && literals->isTooLong(text);
    if ((isTooLong || !appendPaths(text, paths)) && parts_->main.acceptsEmpty)
        paths.assign(parts_->pathsOutside.begin(), parts_->pathsOutside.end());
}

void EngineGroup::process(std::string_view text, const std::vector<bool>& mask,
                          std::vector<std::int32_t>& paths) const {
    process(text, paths);
    std::erase_if(paths, [&](std::int32_t path) {
        const auto bit = static_cast<std::size_t>(path);
        return bit >= mask.size() || !mask[bit];
    });
}

void EngineGroup::matchAll(std::span<const std::string_view> texts, std::vector<std::size_t>& ends,
                           std::vector<std::int32_t>& paths) const {
    ends.clear();
    paths.clear();
    const auto endText = [&](bool isInside) {
        if (!isInside && parts_->main.acceptsEmpty) {
            paths.resize(ends.empty() ? 0 : ends.back());
            paths.insert(paths.end(), parts_->pathsOutside.begin(), parts_->pathsOutside.end());
        }
        ends.push_back(paths.size());
    };
    const LiteralPart* const literals = parts_->literals;
    if (literals == nullptr || !literals->paysTogether()) {
        for (const std::string_view text : texts) endText(appendPaths(text, paths));
        return;
    }
    std::array<LiteralPart::Walk, LiteralPart::togetherCM> walks;
    while (!texts.empty()) {
        const auto together = texts.first(std::min(texts.size(), walks.size()));
        literals->walkTogether(together, walks);
        for (LiteralPart::Walk& walk : std::span(walks).first(together.size())) {
            Found found(paths);
            const bool isInside = literals->finish(walk, found);
            found.sortOnce();
            endText(isInside);
        }
        texts = texts.subspan(together.size());
    }
}

bool EngineGroup::isChangeable() const { return setup_->isChangeable; }

void EngineGroup::isChangeable(bool changes) { setup_->isChangeable = changes; }

std::size_t EngineGroup::removePatterns(std::int32_t pathNumber) {
    if (!setup_->isChangeable) return 0;
    std::vector<Setup::Kept>& kept = setup_->kept;
    const auto isRemoved = [&](const Setup::Kept& each) { return each.path == pathNumber; };
    const std::size_t before = kept.size();
    const auto main = kept.begin() + static_cast<std::ptrdiff_t>(setup_->mainCount);
    const auto inMain = static_cast<std::size_t>(std::count_if(kept.begin(), main, isRemoved));
    if (inMain > 0) setup_->removed.push_back(pathNumber);
    setup_->mainCount -= inMain;
    std::erase_if(kept, isRemoved);
    const std::size_t count = before - kept.size();
    setup_->patternCount -= static_cast<std::int32_t>(count);
    if (count > 0) setup_->isDone = false;
    return count;
}

void EngineGroup::process(std::span<const std::string_view> words,
                          std::vector<std::int32_t>& paths) const {
    paths.clear();
    if (words.size() == 1) process(words[0], paths);
}

std::int32_t EngineGroup::firstPath(const char* text, std::size_t length) const {
    if (whole_ != nullptr) return whole_->firstPath(whole_->walk(text, length));
    if (parts_->hasChanges()) {
        thread_local std::vector<std::int32_t> pathsS;
        pathsS.clear();
        appendPaths({text, length}, pathsS);
        return pathsS.empty() ? -1 : pathsS.front();
    }
    Found found;
    const bool isInside = parts_->main.match({text, length}, found);
    if (isInside || !parts_->main.acceptsEmpty) return found.first();
    return parts_->pathsOutside.empty() ? -1 : parts_->pathsOutside.front();
}

std::int32_t EngineGroup::firstPath(std::string_view text, void (*pause)(std::size_t bytes)) const {
    if (whole_ != nullptr) return whole_->firstPath(whole_->walk(text, pause));
    return firstPath(text);
}

std::int32_t EngineGroup::firstPath(std::span<const std::string_view> words) const {
    return words.size() == 1 ? firstPath(words[0]) : -1;
}

const Table* EngineGroup::wholeTable() const { return whole_; }

// The numbers of all patterns, ascending.
std::vector<std::int32_t> EngineGroup::paths() const {
    if (!setup_->isChangeable) return setup_->paths;
    std::vector<std::int32_t> paths;
    for (const Setup::Kept& kept : setup_->kept) paths.push_back(kept.path);
    return sortedOnce(std::move(paths));
}

const PatternOptions& EngineGroup::options() const { return setup_->patterns->options(); }

void EngineGroup::options(const PatternOptions& options) { setup_->patterns->options(options); }

std::string EngineGroup::content() const {
    std::string content;
    Archive archive(content);
    PatternOptions reading = options();
    archive.options(reading);
    for (std::size_t limit :
         {setup_->stateLimit, setup_->byteLimit, setup_->workLimit, setup_->partLimit}) {
        archive.value(limit);
    }
    for (const Pattern& pattern : setup_->patterns->patterns()) {
        content += std::to_string(pattern.path) + ' ' + std::to_string(pattern.text.size()) + ' ';
        content += pattern.text;
    }
    return content;
}

const FND::String& EngineGroup::error() const { return setup_->error; }

std::int32_t EngineGroup::guiltyPath() const { return setup_->guiltyPath; }

std::size_t EngineGroup::stateLimit() const { return setup_->stateLimit; }

std::size_t EngineGroup::byteLimit() const { return setup_->byteLimit; }

void EngineGroup::byteLimit(std::size_t bytes) { setup_->byteLimit = bytes; }

std::size_t EngineGroup::workLimit() const { return setup_->workLimit; }

void EngineGroup::workLimit(std::size_t steps) { setup_->workLimit = steps; }

std::size_t EngineGroup::partLimit() const { return setup_->partLimit; }

void EngineGroup::partLimit(std::size_t states) { setup_->partLimit = states; }

std::int32_t EngineGroup::patternCount() const { return setup_->patternCount; }

std::size_t EngineGroup::partCount() const {
    return parts_->main.automatonCount() + parts_->added.automatonCount();
}

std::size_t EngineGroup::stateCount() const {
    return parts_->main.stateCount() + parts_->added.stateCount();
}

std::size_t EngineGroup::memory() const { return parts_->main.memory() + parts_->added.memory(); }

void EngineGroup::clear() {
    setup_->patterns->clear();
    use(std::make_unique<Parts>());
    setup_->error.clear();
    setup_->paths.clear();
    setup_->patternCount = 0;
    setup_->guiltyPath = -1;
    setup_->isDone = false;
    setup_->kept.clear();
    setup_->mainCount = 0;
    setup_->removed.clear();
    setup_->nextPath = 0;
}

}  // namespace FSM

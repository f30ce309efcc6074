#include "fsm/EngineGroup.h"

#include <algorithm>
#include <new>
#include <utility>

#include "fsm/Engine.h"
#include "fsm/PatternList.h"
#include "fsm/part/Archive.h"
#include "fsm/part/BitPart.h"
#include "fsm/part/GroupBuilder.h"
#include "fsm/part/LiteralPart.h"
#include "fsm/part/SavedFile.h"
#include "fsm/part/TablePart.h"
#include "fsm/part/WordPart.h"

namespace FSM {

MultiEngineIf::~MultiEngineIf() = default;

struct EngineGroup::Setup {
    std::size_t stateLimit = Engine::mostStatesCM;
    std::size_t byteLimit = BuildLimits::defaultBytesCM;
    std::size_t partLimit = 0;
    std::int32_t patternCount = 0;
    std::int32_t guiltyPath = -1;
    bool isDone = false;
    FND::String error;
    std::vector<std::int32_t> paths;  // of all patterns, ascending; from finalSetup on
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
};

struct EngineGroup::Parts : GroupParts {
    void clear() { *this = Parts(); }
    void findWhole();

    std::shared_ptr<SavedFile> file;         // that holds the parts, if they were loaded
    std::vector<std::int32_t> pathsOutside;  // of a text that has left all parts
    const Table* whole = nullptr;            // the only part, if one table tells all
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
    if (setup_->isChangeable && pathNumber == nextPathCM) {
        pathNumber = static_cast<unsigned long>(setup_->nextPath);
    }
    if (!setup_->patterns->insert(pattern, pathNumber, setup_->byteLimit, true)) {
        setup_->error = setup_->patterns->error();
        return false;
    }
    if (setup_->isChangeable) {
        setup_->patterns->clear();
        setup_->kept.push_back({pattern, static_cast<std::int32_t>(pathNumber)});
        setup_->nextPath = std::max(setup_->nextPath, static_cast<std::int64_t>(pathNumber) + 1);
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
    if (setup_->isDone) return !parts_->parts.empty();
    bool isBuilt = false;
    try {
        for (const Setup::Kept& kept : setup_->kept) {
            if (setup_->patterns->insert(kept.text, static_cast<unsigned long>(kept.path),
                                         setup_->byteLimit, true)) {
                continue;
            }
            setup_->error = setup_->patterns->error();
            setup_->guiltyPath = kept.path;
            setup_->patterns->clear();
            return false;
        }
        parts_->clear();
        if (setup_->patterns->patterns().empty()) return true;
        setup_->isDone = true;
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
    GroupBuilder builder(setup_->patterns->take(), {setup_->stateLimit, setup_->byteLimit},
                         std::min(setup_->partLimit, setup_->stateLimit));
    if (!builder.build(*parts_)) {
        setup_->error = builder.error();
        setup_->guiltyPath = builder.guiltyPath();
        return false;
    }
    Found outside(parts_->pathsOutside);
    for (const auto& part : parts_->parts) part->match("", outside);
    outside.sortOnce();
    parts_->findWhole();
    return true;
}

void EngineGroup::Parts::findWhole() {
    if (parts.size() != 1 || parts[0]->kind() != Part::Kind::Tables) return;
    whole = static_cast<const TablePart*>(parts[0].get())->only();
}

bool EngineGroup::save(const FND::String& file, FND::String& error) const {
    if (parts_->parts.empty()) {
        error = "the group is not set up";
        return false;
    }
    try {
        std::string content;
        Archive archive(content);
        std::uint64_t count = parts_->parts.size();
        archive.value(count);
        archive.value(setup_->patternCount);
        std::uint32_t acceptsEmpty = parts_->acceptsEmpty ? 1 : 0;
        archive.value(acceptsEmpty);
        archive.array(parts_->pathsOutside);
        archive.array(setup_->paths);
        for (const auto& part : parts_->parts) {
            Part::Kind kind = part->kind();
            archive.value(kind);
            part->archive(archive);
        }
        error = SavedFile::write(file, content, 'g');
    } catch (const std::bad_alloc&) {
        error = "no memory available for saving";
    }
    return error.empty();
}

bool EngineGroup::load(const FND::String& file) {
    if (setup_->isDone || setup_->patternCount > 0) {
        setup_->error = "only an empty group can be loaded";
        return false;
    }
    try {
        auto saved = std::make_shared<SavedFile>();
        setup_->error = saved->map(file, 'g');
        if (!setup_->error.empty()) return false;
        parts_->file = std::move(saved);
        if (loadParts(parts_->file->content())) {
            setup_->isDone = true;
            return true;
        }
        setup_->error = file + ": damaged";
    } catch (const std::bad_alloc&) {
        setup_->error = "no memory available for loading";
    }
    const FND::String error = setup_->error;
    clear();
    setup_->error = error;
    return false;
}

bool EngineGroup::loadParts(std::string_view content) {
    Archive archive(content);
    std::uint64_t count = 0;
    std::uint32_t acceptsEmpty = 0;
    archive.value(count);
    archive.value(setup_->patternCount);
    archive.value(acceptsEmpty);
    parts_->acceptsEmpty = acceptsEmpty != 0;
    archive.array(parts_->pathsOutside);
    archive.array(setup_->paths);
    while (archive.isGood() && count-- > 0) {
        Part::Kind kind{};
        archive.value(kind);
        std::unique_ptr<Part> part;
        switch (kind) {
            case Part::Kind::Tables:
                part = std::make_unique<TablePart>();
                break;
            case Part::Kind::Literals:
                part = std::make_unique<LiteralPart>();
                break;
            case Part::Kind::Words:
                part = std::make_unique<WordPart>();
                break;
            case Part::Kind::Bits:
                part = std::make_unique<BitPart>();
                break;
            default:
                return false;
        }
        if (!part->archive(archive)) return false;
        parts_->parts.push_back(std::move(part));
    }
    parts_->findWhole();
    return archive.isGood() && archive.isAtEnd() && !parts_->parts.empty();
}

// Appends the path numbers that all parts report, ascending and each once, ignoring that the text
// may have left all of them; false if it has.
bool EngineGroup::appendPaths(std::string_view text, std::vector<std::int32_t>& paths) const {
    Found found(paths);
    bool isInside = false;
    for (const auto& part : parts_->parts) isInside = part->match(text, found) || isInside;
    found.sortOnce();
    return isInside;
}

void EngineGroup::process(std::string_view text, std::vector<std::int32_t>& paths) const {
    paths.clear();
    if (const Table* const table = parts_->whole) {
        const auto& list = table->state(table->walk(text.data(), text.size()))->pathNumbers();
        if (!list.empty()) paths.assign(list.begin(), list.end());
        return;
    }
    if (!appendPaths(text, paths) && parts_->acceptsEmpty)
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
    for (const std::string_view text : texts) {
        const auto before = static_cast<std::ptrdiff_t>(paths.size());
        if (!appendPaths(text, paths) && parts_->acceptsEmpty) {
            paths.erase(paths.begin() + before, paths.end());
            paths.insert(paths.end(), parts_->pathsOutside.begin(), parts_->pathsOutside.end());
        }
        ends.push_back(paths.size());
    }
}

bool EngineGroup::isChangeable() const { return setup_->isChangeable; }

void EngineGroup::isChangeable(bool changes) { setup_->isChangeable = changes; }

std::size_t EngineGroup::removePatterns(std::int32_t pathNumber) {
    if (!setup_->isChangeable) return 0;
    const std::size_t count = std::erase_if(
        setup_->kept, [&](const Setup::Kept& kept) { return kept.path == pathNumber; });
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
    if (parts_->whole != nullptr)
        return parts_->whole->firstPath(parts_->whole->walk(text, length));
    Found found;
    bool isInside = false;
    for (const auto& part : parts_->parts) {
        isInside = part->match({text, length}, found) || isInside;
    }
    if (isInside || !parts_->acceptsEmpty) return found.first();
    return parts_->pathsOutside.empty() ? -1 : parts_->pathsOutside.front();
}

std::int32_t EngineGroup::firstPath(std::string_view text, void (*pause)(std::size_t bytes)) const {
    if (parts_->whole != nullptr) return parts_->whole->firstPath(parts_->whole->walk(text, pause));
    return firstPath(text);
}

std::int32_t EngineGroup::firstPath(std::span<const std::string_view> words) const {
    return words.size() == 1 ? firstPath(words[0]) : -1;
}

const Table* EngineGroup::wholeTable() const { return parts_->whole; }

const std::vector<std::int32_t>& EngineGroup::paths() const { return setup_->paths; }

const FND::String& EngineGroup::error() const { return setup_->error; }

std::int32_t EngineGroup::guiltyPath() const { return setup_->guiltyPath; }

std::size_t EngineGroup::stateLimit() const { return setup_->stateLimit; }

std::size_t EngineGroup::byteLimit() const { return setup_->byteLimit; }

void EngineGroup::byteLimit(std::size_t bytes) { setup_->byteLimit = bytes; }

std::size_t EngineGroup::partLimit() const { return setup_->partLimit; }

void EngineGroup::partLimit(std::size_t states) { setup_->partLimit = states; }

std::int32_t EngineGroup::patternCount() const { return setup_->patternCount; }

std::size_t EngineGroup::partCount() const {
    std::size_t count = 0;
    for (const auto& part : parts_->parts) count += part->automatonCount();
    return count;
}

std::size_t EngineGroup::stateCount() const {
    std::size_t count = 0;
    for (const auto& part : parts_->parts) count += part->stateCount();
    return count;
}

std::size_t EngineGroup::memory() const {
    std::size_t bytes = 0;
    for (const auto& part : parts_->parts) bytes += part->memory();
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
    setup_->kept.clear();
    setup_->nextPath = 0;
}

}  // namespace FSM

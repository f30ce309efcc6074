#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "fsm/Analysis.h"
#include "fsm/Engine.h"
#include "fsm/EngineGroup.h"
#include "fsm/PatternOptions.h"
#include "fuzz/patterns.h"

namespace {

constexpr std::size_t maxInputS = 256;
constexpr std::size_t stateLimitS = 500;

void checkText(const FSM::Engine& engine, const FSM::EngineGroup& group,
               const FSM::EngineGroup& split, const std::vector<reference::Pattern>& meanings,
               std::string_view text) {
    const std::vector<std::int32_t> paths = engine.process(text)->pathNumbers();
    Fuzz::check(engine.firstPath(text) == (paths.empty() ? -1 : paths[0]));
    std::vector<std::int32_t> found;
    for (const FSM::EngineGroup* each : {&group, &split}) {
        each->process(text, found);
        Fuzz::check(found == paths && each->firstPath(text) == engine.firstPath(text));
    }
    if (!meanings.empty()) Fuzz::check(reference::report(meanings, text) == paths);
}

// Inserts a pattern that parses; refused ones would be reported on standard output. Gives the
// reason for a refusal.
std::string insertQuietly(FSM::Engine& engine, const std::string& pattern) {
    FND::String error;
    if (FSM::checkPattern(pattern, error)) {
        if (engine.insertPattern(pattern)) return "";
        error = engine.error();
    }
    Fuzz::check(!error.empty());
    return error;
}

}  // namespace

/// Makes the same automaton of up to four patterns in three ways, and compares their reports for a
/// text, its beginnings and the texts of the analysis with each other and, if that is quick enough,
/// with the naive matcher.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > maxInputS) return 0;
    if (Fuzz::hasLargeCount({reinterpret_cast<const char*>(data), size})) return 0;
    std::vector<std::string> pieces =
        Fuzz::piecesOf(std::string_view(reinterpret_cast<const char*>(data), size));
    std::string text = std::move(pieces.back());
    pieces.pop_back();
    text = text.substr(0, std::min(Fuzz::maxText, text.find('\0')));

    FSM::Engine engine;
    FSM::EngineGroup group;
    FSM::EngineGroup split;
    engine.stateLimit(stateLimitS);
    group.stateLimit(stateLimitS);
    split.stateLimit(stateLimitS);
    split.partLimit(1);
    std::vector<reference::Pattern> meanings;
    bool isQuick = true;
    for (const std::string& pattern : pieces) {
        auto meaning = reference::Parser::parse(pattern);
        const std::string refusal = insertQuietly(engine, pattern);
        if (!refusal.empty()) {
            // Where the meaning is sound, the pattern can only be too large.
            double steps = 1;
            Fuzz::check(!meaning || refusal.find(" states") != std::string::npos ||
                        refusal.find(" bytes") != std::string::npos ||
                        !Fuzz::isSmall(meaning->root.get(), steps));
            continue;
        }
        Fuzz::check(meaning.has_value());
        Fuzz::check(group.insertPattern(pattern) && split.insertPattern(pattern));
        double steps = 1;
        isQuick = isQuick && Fuzz::isSmall(meaning->root.get(), steps);
        meanings.push_back(std::move(*meaning));
    }
    if (meanings.empty()) return 0;
    if (!isQuick) meanings.clear();
    if (!engine.finalSetup()) {
        Fuzz::check(!engine.error().empty() && engine.process(text) == nullptr);
        return 0;
    }
    Fuzz::check(engine.stateCount() <= stateLimitS);
    Fuzz::check(group.finalSetup());
    // Small parts are built in another order, so the limit may hold one of them.
    if (!split.finalSetup()) {
        Fuzz::check(split.error().find(" states") != std::string::npos);
        return 0;
    }
    for (std::size_t length = 0; length <= text.size(); ++length) {
        checkText(engine, group, split, meanings, std::string_view(text).substr(0, length));
    }
    const auto analysis = FSM::analyse(engine, 16);
    Fuzz::check(analysis.has_value());
    const auto reports = [&](const FND::String& witness, std::int32_t path) {
        const std::vector<std::int32_t> paths = engine.process(witness.c_str())->pathNumbers();
        if (witness.size() <= Fuzz::maxText) checkText(engine, group, split, meanings, witness);
        return std::binary_search(paths.begin(), paths.end(), path);
    };
    for (const FSM::Analysis::Shadowed& shadowed : analysis->shadowed) {
        Fuzz::check(reports(shadowed.text, shadowed.path) && !shadowed.by.empty());
        Fuzz::check(engine.firstPath(shadowed.text) < shadowed.path);
    }
    for (const FSM::Analysis::Overlap& overlap : analysis->overlaps) {
        Fuzz::check(reports(overlap.text, overlap.first) && reports(overlap.text, overlap.second));
    }
    for (const std::int32_t path : analysis->empty) Fuzz::check(!reports(text, path));
    return 0;
}

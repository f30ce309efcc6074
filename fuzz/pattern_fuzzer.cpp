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
#include "fsm/PatternCheck.h"
#include "tests/fsm_reference.h"

namespace {

constexpr std::size_t maxInputS = 256;
constexpr std::size_t maxPatternsS = 4;
constexpr std::size_t stateLimitS = 500;
constexpr std::size_t maxTextS = 24;  // the naive matcher takes up to 63 bytes

/// Cuts `input` at each byte 255; the part after the fourth cut, or after the last one if there are
/// fewer, is the text.
std::vector<std::string> piecesOf(std::string_view input) {
    std::vector<std::string> pieces;
    while (pieces.size() < maxPatternsS) {
        const std::size_t length = input.find('\xFF');
        if (length == std::string_view::npos) break;
        pieces.emplace_back(input.substr(0, length));
        input.remove_prefix(length + 1);
    }
    pieces.emplace_back(input);
    return pieces;
}

/// Whether the naive matcher is quick enough: it takes one step for each repetition.
bool isSmall(const reference::Node* node, double& steps) {
    if (node == nullptr) return true;
    double left = 1;
    double right = 1;
    if (!isSmall(node->left.get(), left) || !isSmall(node->right.get(), right)) return false;
    steps = left + right;
    if (node->kind == reference::Node::Repeat) {
        steps *= node->isEndless ? 2.0 * maxTextS : 1.0 + node->maximum;
    }
    return steps < 1e5;
}

/// Whether a count may be so large that it is slow but not refused at once.
bool hasLargeCount(std::string_view pattern) {
    std::size_t digits = 0;
    for (const char c : pattern) {
        if (c >= '0' && c <= '9') {
            ++digits;
            continue;
        }
        if (digits >= 4 && digits <= 6) return true;
        digits = 0;
    }
    return false;
}

void check(bool holds) {
    if (!holds) std::abort();
}

void checkText(const FSM::Engine& engine, const FSM::EngineGroup& group,
               const FSM::EngineGroup& split, const std::vector<reference::Pattern>& meanings,
               std::string_view text) {
    const std::vector<std::int32_t> paths = engine.process(text)->pathNumbers();
    check(engine.firstPath(text) == (paths.empty() ? -1 : paths[0]));
    std::vector<std::int32_t> found;
    for (const FSM::EngineGroup* each : {&group, &split}) {
        each->process(text, found);
        check(found == paths && each->firstPath(text) == engine.firstPath(text));
    }
    if (!meanings.empty()) check(reference::report(meanings, text) == paths);
}

// Inserts a pattern that parses; refused ones would be reported on standard output. Gives the
// reason for a refusal.
std::string insertQuietly(FSM::Engine& engine, const std::string& pattern) {
    FND::String error;
    if (FSM::checkPattern(pattern, error)) {
        if (engine.insertPattern(pattern)) return "";
        error = engine.error();
    }
    check(!error.empty());
    return error;
}

}  // namespace

/// Makes the same automaton of up to four patterns in three ways, and compares their reports for a
/// text, its beginnings and the texts of the analysis with each other and, if that is quick enough,
/// with the naive matcher.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > maxInputS) return 0;
    if (hasLargeCount({reinterpret_cast<const char*>(data), size})) return 0;
    std::vector<std::string> pieces =
        piecesOf(std::string_view(reinterpret_cast<const char*>(data), size));
    std::string text = std::move(pieces.back());
    pieces.pop_back();
    text = text.substr(0, std::min(maxTextS, text.find('\0')));

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
            check(!meaning || refusal.find(" states") != std::string::npos ||
                  refusal.find(" bytes") != std::string::npos ||
                  !isSmall(meaning->root.get(), steps));
            continue;
        }
        check(meaning.has_value());
        check(group.insertPattern(pattern) && split.insertPattern(pattern));
        double steps = 1;
        isQuick = isQuick && isSmall(meaning->root.get(), steps);
        meanings.push_back(std::move(*meaning));
    }
    if (meanings.empty()) return 0;
    if (!isQuick) meanings.clear();
    if (!engine.finalSetup()) {
        check(!engine.error().empty() && engine.process(text) == nullptr);
        return 0;
    }
    check(engine.stateCount() <= stateLimitS);
    check(group.finalSetup());
    // Small parts are built in another order, so the limit may hold one of them.
    if (!split.finalSetup()) {
        check(split.error().find(" states") != std::string::npos);
        return 0;
    }
    for (std::size_t length = 0; length <= text.size(); ++length) {
        checkText(engine, group, split, meanings, std::string_view(text).substr(0, length));
    }
    const auto analysis = FSM::analyse(engine, 16);
    check(analysis.has_value());
    const auto reports = [&](const FND::String& witness, std::int32_t path) {
        const std::vector<std::int32_t> paths = engine.process(witness.c_str())->pathNumbers();
        if (witness.size() <= maxTextS) checkText(engine, group, split, meanings, witness);
        return std::binary_search(paths.begin(), paths.end(), path);
    };
    for (const FSM::Analysis::Shadowed& shadowed : analysis->shadowed) {
        check(reports(shadowed.text, shadowed.path) && !shadowed.by.empty());
        check(engine.firstPath(shadowed.text) < shadowed.path);
    }
    for (const FSM::Analysis::Overlap& overlap : analysis->overlaps) {
        check(reports(overlap.text, overlap.first) && reports(overlap.text, overlap.second));
    }
    for (const std::int32_t path : analysis->empty) check(!reports(text, path));
    return 0;
}

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "author/PatternCases.h"
#include "author/PatternExamples.h"
#include "fsm/Analysis.h"
#include "fsm/EngineGroup.h"
#include "fsm/PatternOptions.h"
#include "playground/Session.h"
#include "scr/message/Quote.h"

namespace Playground {

namespace {

constexpr std::size_t mostStatesS = std::size_t{1} << 18;
constexpr std::size_t mostBytesS = std::size_t{64} << 20;
constexpr std::size_t mostOverlapsS = 200;

// The character of `text` at byte `place`, from 0.
std::size_t columnOf(std::string_view text, std::size_t place) {
    std::size_t column = 0;
    for (std::size_t at = 0; at < std::min(place, text.size()); ++column) {
        at += std::max<std::size_t>(SCR::characterSize(text.substr(at)), 1);
    }
    return column;
}

Json analysisOf(const FSM::Analysis& analysis) {
    Json shadowed = Json::array();
    for (const FSM::Analysis::Shadowed& one : analysis.shadowed) {
        shadowed.push_back({{"path", one.path}, {"by", one.by}, {"text", std::string(one.text)}});
    }
    Json overlaps = Json::array();
    for (const FSM::Analysis::Overlap& one : analysis.overlaps) {
        overlaps.push_back(
            {{"first", one.first}, {"second", one.second}, {"text", std::string(one.text)}});
    }
    return {{"empty", analysis.empty},
            {"leaving", analysis.leaving},
            {"shadowed", std::move(shadowed)},
            {"overlaps", std::move(overlaps)},
            {"isComplete", analysis.hasAllOverlaps && analysis.notExamined == 0}};
}

}  // namespace

Json inspectPatterns(const Json& question) {
    const std::vector<std::string> patterns = question.at("patterns");
    const std::vector<std::string> texts = question.at("texts");
    FSM::PatternOptions reading;
    reading.ignoresCase = question.value("ignoresCase", false);
    reading.isUtf8 = question.value("isUtf8", false);

    Json faults = Json::array();
    for (std::size_t i = 0; i < patterns.size(); ++i) {
        FND::String error;
        std::size_t place = 0;
        if (FSM::checkPattern(patterns[i], error, place, reading)) continue;
        faults.push_back({{"path", i}, {"column", columnOf(patterns[i], place)}, {"text", error}});
    }
    if (!faults.empty()) return {{"faults", std::move(faults)}};

    FSM::EngineGroup group;
    group.options(reading);
    group.stateLimit(mostStatesS);
    group.byteLimit(mostBytesS);
    bool isSet = std::all_of(patterns.begin(), patterns.end(), [&](const std::string& pattern) {
        return group.insertPattern(pattern);
    });
    isSet = isSet && group.finalSetup();
    if (!isSet) {
        // One that is too large by itself is shown in its line.
        if (group.guiltyPath() < 0) return {{"error", group.error()}};
        faults.push_back({{"path", group.guiltyPath()}, {"column", 0}, {"text", group.error()}});
        return {{"faults", std::move(faults)}};
    }
    Json matches = Json::array();
    std::vector<std::int32_t> paths;
    for (const std::string& text : texts) {
        group.process(text, paths);
        matches.push_back(paths);
    }
    std::optional<FSM::Analysis> analysis = FSM::analyse(group, mostOverlapsS);
    if (!analysis) analysis = FSM::analyse(patterns, mostOverlapsS, reading);
    Json examples = Json::array();
    for (const auto& example : Author::patternExamples(patterns)) {
        examples.push_back(example ? Json(*example) : Json());
    }
    return {{"matches", std::move(matches)},
            {"analysis", analysisOf(analysis.value_or(FSM::Analysis()))},
            {"examples", std::move(examples)},
            {"states", group.stateCount()}};
}

Json casesOf(const Json& question) {
    const Author::SourceText text("", question.at("script").get<std::string>());
    Json switches = Json::array();
    for (const Author::PatternCases& one : Author::patternCases(text)) {
        Json patterns = Json::array();
        for (const auto& label : one.cases) patterns.push_back(label.pattern);
        switches.push_back({{"line", one.line + 1}, {"patterns", std::move(patterns)}});
    }
    return {{"switches", std::move(switches)}};
}

}  // namespace Playground

#include "author/PatternExamples.h"

#include <array>
#include <deque>
#include <unordered_map>

#include "fsm/Engine.h"
#include "fsm/State.h"

namespace Author {

namespace {

constexpr std::size_t mostStatesS = 3000;

// All bytes but NUL and the line feed, the readable ones first.
constexpr std::array<unsigned char, 254> bytesS = [] {
    std::array<unsigned char, 254> bytes{};
    std::size_t count = 0;
    const auto add = [&](int first, int last) {
        for (int byte = first; byte <= last; ++byte) {
            if (byte != '\n') bytes[count++] = static_cast<unsigned char>(byte);
        }
    };
    add('a', 'z');
    add('0', '9');
    add('A', 'Z');
    add(' ', '/');
    add(':', '@');
    add('[', '`');
    add('{', '~');
    add(0x80, 0xFF);
    add(1, 0x1F);
    add(0x7F, 0x7F);
    return bytes;
}();

using Examples = std::vector<std::optional<std::string>>;

// Walks through the automaton of all the patterns, the shortest texts first. False when it has too
// many states.
bool walk(const std::vector<std::string>& patterns, Examples& examples) {
    FSM::Engine engine;
    engine.stateLimit(mostStatesS);
    bool isAny = false;
    for (std::size_t i = 0; i < patterns.size(); ++i) {
        isAny = engine.addPattern(patterns[i], i) || isAny;
    }
    if (!isAny) return true;
    if (!engine.finalSetup() || engine.startState() == nullptr) return false;

    struct Step {
        const FSM::State* before;
        unsigned char byte;
    };
    std::unordered_map<const FSM::State*, Step> steps;
    const FSM::State* const start = engine.startState();
    std::deque<const FSM::State*> next{start};
    steps.emplace(start, Step{nullptr, 0});
    const auto textOf = [&](const FSM::State* state) {
        std::string text;
        for (const Step* step = &steps.at(state); step->before != nullptr;
             step = &steps.at(step->before)) {
            text.insert(text.begin(), static_cast<char>(step->byte));
        }
        return text;
    };
    for (; !next.empty(); next.pop_front()) {
        const FSM::State* const state = next.front();
        if (!state->pathNumbers().empty()) {
            auto& example = examples[static_cast<std::size_t>(state->pathNumbers().front())];
            if (!example) example = textOf(state);
        }
        for (const unsigned char byte : bytesS) {
            const FSM::State* const reached = state->succState(byte);
            if (reached != nullptr && steps.emplace(reached, Step{state, byte}).second) {
                next.push_back(reached);
            }
        }
    }
    return true;
}

}  // namespace

std::vector<std::optional<std::string>> patternExamples(const std::vector<std::string>& patterns) {
    constexpr std::size_t mostPatterns = 200;
    constexpr std::size_t mostBytes = 2000;
    Examples examples(patterns.size());
    std::size_t bytes = 0;
    for (const std::string& pattern : patterns) bytes += pattern.size();
    if (patterns.size() > mostPatterns || bytes > mostBytes * 10) return examples;
    if (walk(patterns, examples)) return examples;
    // Each alone says less, but something.
    for (std::size_t i = 0; i < patterns.size() && patterns.size() <= 20; ++i) {
        Examples one(1);
        if (patterns[i].size() <= mostBytes && walk({patterns[i]}, one)) examples[i] = one[0];
    }
    return examples;
}

}  // namespace Author

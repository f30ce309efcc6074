#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fsm/Engine.h"
#include "fuzz/patterns.h"

/// Searches for up to four patterns in a text, whole and in pieces, and compares the matches with
/// those of the naive matcher. Each byte of the text that is 254 cuts it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t maxInput = 128;
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    if (size > maxInput || Fuzz::hasLargeCount(input)) return 0;
    std::vector<std::string> patterns = Fuzz::piecesOf(input);
    std::vector<std::string> pieces(1);
    std::string text;
    for (const char c : patterns.back()) {
        if (c == '\xFE') {
            pieces.emplace_back();
        } else if (text.size() < Fuzz::maxText) {
            text += c;
            pieces.back() += c;
        }
    }
    patterns.pop_back();

    FSM::Engine engine;
    engine.isSearching(true);
    engine.stateLimit(500);
    std::vector<reference::Pattern> meanings;
    for (const std::string& pattern : patterns) {
        if (!engine.addPattern(pattern)) continue;
        auto meaning = reference::Parser::parse(pattern);
        Fuzz::check(meaning.has_value());
        double steps = 1;
        if (!Fuzz::isSmall(meaning->root.get(), steps) || steps > 1e3) return 0;
        meanings.push_back(std::move(*meaning));
    }
    if (meanings.empty() || !engine.finalSetup()) return 0;
    const auto [ends, leftmost] = reference::matches<FSM::Match>(meanings, text);
    std::vector<FSM::Match> found;
    Fuzz::check(engine.find(text, FSM::Find::LeftmostLongest, found) && found == leftmost);
    Fuzz::check(engine.find(text, FSM::Find::AllEnds, found));
    FSM::Walk walk(engine);
    std::vector<FSM::Match> inPieces;
    for (const std::string& piece : pieces) walk.feed(piece, inPieces);
    Fuzz::check(inPieces == found && walk.end() == engine.process(text));
    for (FSM::Match& match : found) match.begin = 0;
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    Fuzz::check(found == ends);
    return 0;
}

#include "author/PatternCases.h"

#include "scr/advice/SourceTokens.h"

namespace Author {

using SCR::SourceKind;
using SCR::Word;

std::vector<PatternCases> patternCases(const SourceText& text) {
    std::vector<PatternCases> found;
    constexpr std::size_t none = static_cast<std::size_t>(-1);
    std::vector<std::size_t> open;  // for each brace the switch that it belongs to, or none
    std::size_t next = none;        // the switch whose brace comes next
    bool isLabel = false;
    bool goesOn = false;  // a text right after this one belongs to it
    for (const SCR::SourceToken& token : text.tokens()) {
        if (!token.isSeen()) continue;
        const std::string_view sign =
            token.kind == SourceKind::Sign ? text.textOf(token) : std::string_view();
        if (token.word == Word::RegExprSwitch) {
            next = found.size();
            found.push_back({text.position(token.begin).line, {}});
        } else if (token.word == Word::Switch) {
            next = none;
        } else if (sign == "{") {
            open.push_back(next);
            next = none;
        } else if (sign == "}") {
            if (!open.empty()) open.pop_back();
            isLabel = false;
        } else if (token.word == Word::Case) {
            isLabel = !open.empty() && open.back() != none;
        } else if (sign == ":") {
            isLabel = false;
        }
        const bool isText = isLabel && token.kind == SourceKind::String;
        if (isText) {
            auto& cases = found[open.back()].cases;
            if (!goesOn) cases.push_back({"", text.position(token.begin).line});
            cases.back().pattern += SCR::literalText(text.textOf(token));
        }
        goesOn = isText;
    }
    return found;
}

}  // namespace Author

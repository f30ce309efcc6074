#include <algorithm>

#include "Grammar.h"
#include "fsm/PatternOptions.h"
#include "scr/advice/Advice.h"
#include "scr/advice/Wording.h"

// Where and why a pattern or a regular expression cannot be read.

namespace SCR {

namespace {

// Where byte `index` of `pattern` stands: in the literals among `tokens` that join to it. Null when
// it is made otherwise.
const char* placeInLiterals(const std::vector<Scout::Token>& tokens, const FND::String& pattern,
                            std::size_t index) {
    constexpr std::size_t most = 65536;  // bytes that are worth it
    FND::String joined;
    std::vector<const char*> places;  // of its bytes, and of its end
    for (std::size_t i = 0; i < tokens.size(); ++i) {
        if (tokens[i].code != SCR_STRING) continue;
        if (i == 0 || tokens[i - 1].code != SCR_STRING) {
            joined.clear();
            places.clear();
        }
        const std::string_view text = tokens[i].text();
        if (joined.size() + text.size() > most) return nullptr;
        for (std::size_t at = 1; at + 1 < text.size(); ++at) {
            const std::size_t size = text[at] == '\\' ? 2 : 1;
            convertEscapeChars(text.substr(at, size), joined);
            places.push_back(text.data() + at);
            at += size - 1;
        }
        places.resize(joined.size());
        if (joined != pattern) continue;
        places.push_back(text.data() + text.size() - 1);
        return places[std::min(index, joined.size())];
    }
    return nullptr;
}

// What is open in a regular expression, and where; `why` stays when nothing is.
std::size_t openPlace(const FND::String& pattern, FND::String& why) {
    std::vector<std::size_t> open;
    std::size_t set = FND::String::npos;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        const char c = pattern[i];
        if (c == '\\') {
            if (++i == pattern.size()) {
                why = "a `\\` ends it";
                return i - 1;
            }
        } else if (set != FND::String::npos) {
            const bool isFirst = i == set + 1 || (i == set + 2 && pattern[set + 1] == '^');
            if (c == ']' && !isFirst) set = FND::String::npos;
        } else if (c == '[') {
            set = i;
        } else if (c == '(') {
            open.push_back(i);
        } else if (c == ')' && open.empty()) {
            why = "`)` closes nothing";
            return i;
        } else if (c == ')') {
            open.pop_back();
        }
    }
    if (set != FND::String::npos) {
        why = "`[` is not closed";
        return set;
    }
    if (!open.empty()) {
        why = "`(` is not closed";
        return open.back();
    }
    for (std::size_t i = 0; why.empty() && i + 1 < pattern.size(); ++i) {
        const std::string_view rest = std::string_view(pattern).substr(i);
        if (rest.starts_with("(?=") || rest.starts_with("(?!") || rest.starts_with("(?<")) {
            why = "there is no looking ahead or back, as by " + quoted(rest.substr(0, 3));
            return i;
        }
        if (pattern[i] != '\\') continue;
        if (pattern[++i] >= '1' && pattern[i] <= '9') {
            why = "there are no references to groups, as by " + quoted(pattern.substr(i - 1, 2));
            return i - 1;
        }
    }
    const auto repeats = [&](std::size_t at) {
        return std::string_view("*+?").find(pattern[at]) != std::string_view::npos;
    };
    for (std::size_t i = 1; i < pattern.size(); ++i) {
        if (pattern[i - 1] == '\\') {
            ++i;
        } else if (repeats(i - 1) && repeats(i) && why.starts_with("parse error")) {
            why = quoted(pattern.substr(i - 1, 2)) + " repeats twice: a unit takes one operator";
            return i;
        }
    }
    if (!pattern.empty() && std::string_view("*+?").find(pattern[0]) != std::string_view::npos) {
        why = quoted(pattern.substr(0, 1)) + " has nothing before it to repeat";
        return 0;
    }
    return FND::String::npos;
}

}  // namespace

void Advice::pattern() {
    const FND::String& pattern = fault_.message.name;
    const Span span = fault_.spans.empty() ? Span() : fault_.spans[0];
    FND::String why = fault_.message.reason;
    std::size_t place = openPlace(pattern, why);
    FND::String error;
    std::size_t stop = 0;
    // The parser of patterns knows where it stopped; for other expressions there is no reason.
    if (place == FND::String::npos && !why.empty() && !FSM::checkPattern(pattern, error, stop)) {
        place = stop;
    }
    diagnostic_.explanation =
        "the pattern " + quoted(Scout::shown({pattern.data(), pattern.data() + pattern.size()})) +
        (why.empty() ? " is refused" : ": " + why);
    if (place == FND::String::npos) return;
    const char* const at = placeInLiterals(scout_.tokensIn(span), pattern, place);
    if (at != nullptr) {
        scout_.locate({at, at + 1}, diagnostic_);
    } else {
        diagnostic_.notes.push_back(
            {"at byte " + std::to_string(place + 1) + " of the pattern", {}});
    }
}

}  // namespace SCR

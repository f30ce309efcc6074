#include "scr/advice/Lint.h"

#include <algorithm>
#include <utility>

#include "Grammar.h"
#include "fnd/DateTime.h"
#include "fnd/Decimal.h"
#include "fsm/Engine.h"
#include "scr/Interpreter.h"
#include "scr/Variable.h"
#include "scr/advice/Wording.h"
#include "scr/check/Usage.h"
#include "scr/message/Messages.h"

namespace SCR {

namespace {

using Tokens = std::vector<Scout::Token>;

// More of them are not read.
constexpr std::size_t mostWarningsS = 100;

Tokens tokensOf(Span span) {
    Tokens tokens;
    CustomLexer lexer({}, span.text());
    for (;;) {
        Scout::Token token;
        token.code = lexer.next();
        if (token.code == 0) return tokens;
        const std::string_view text = lexer.token();
        token.span = {text.data(), text.data() + text.size()};
        tokens.push_back(token);
    }
}

bool isLiteral(int code) {
    return code == SCR_LONG_NUMBER || code == SCR_DECIMAL_NUMBER || code == SCR_STRING ||
           code == SCR_BOOL_CONSTANT;
}

bool isArithmetic(int code) {
    return code == '+' || code == '-' || code == '*' || code == '/' || code == '%';
}

Span withoutBlanks(Span span) {
    while (span.end > span.begin &&
           std::string_view(" \t\r\n").find(span.end[-1]) != std::string_view::npos)
        --span.end;
    return span;
}

// The first token with such a code that is in no brackets, or null.
template <class Predicate>
const Scout::Token* findOuter(const Tokens& tokens, Predicate isWanted) {
    int depth = 0;
    for (const Scout::Token& token : tokens) {
        if (depth == 0 && isWanted(token.code)) return &token;
        depth += isOpening(token.code) ? 1 : isClosing(token.code) ? -1 : 0;
    }
    return nullptr;
}

bool hasCall(const Tokens& tokens) {
    for (std::size_t i = 1; i < tokens.size(); ++i) {
        if (tokens[i].code == SCR_OPEN_PARENTHESIS &&
            (tokens[i - 1].code == SCR_IDENTIFIER || tokens[i - 1].code == SCR_MODULE_IDENTIFIER)) {
            return true;
        }
    }
    return false;
}

Span spanOf(std::string_view text) { return {text.data(), text.data() + text.size()}; }

// As the log of a compile shows what it speaks of.
FND::String loggedName(std::string_view text) { return FND::String("`").append(text).append("'"); }

}  // namespace

void Lint::add(MessageCode code, Span at, const FND::String& text, const FND::String& cure) {
    if (warnings_.size() < mostWarningsS) warnings_.push_back({code, trimmed(at), text, cure, {}});
}

void Lint::addShadowed(std::string_view name, std::string_view outer) {
    add(MessageCode::Shadowed, spanOf(name),
        loggedName(name) + " hides another one of the same name", "choose another name");
    warnings_.back().note = spanOf(outer);
}

void Lint::listed(Span statement) {
    if (lists_.empty()) return;
    State& state = lists_.back();
    if (state == State::Left) {
        add(MessageCode::NotReached, statement, "this statement is never reached",
            "the `return` before it always leaves the function");
        state = State::Told;
    }
    const std::string_view text = statement.text();
    constexpr std::string_view leave = "return";
    const bool isReturn =
        text.starts_with(leave) &&
        (text.size() == leave.size() ||
         std::string_view(" \t\r\n(;/-\"").find(text[leave.size()]) != std::string_view::npos);
    if (isReturn && state == State::Open) state = State::Left;
}

void Lint::statement(Span span) {
    const Tokens tokens = tokensOf(span);
    if (tokens.empty() || findOuter(tokens, [](int code) { return code == '='; })) return;
    const auto* const comparison =
        findOuter(tokens, [](int code) { return code == SCR_COMPARE_OPERATOR; });
    if (comparison != nullptr) {
        add(MessageCode::NoEffect, comparison->span,
            "the result of " + loggedName(comparison->text()) + " is not used",
            comparison->is("==") ? "to assign, write `=`" : "");
        return;
    }
    if (tokens.size() == 1 &&
        (tokens[0].code == SCR_IDENTIFIER || tokens[0].code == SCR_MODULE_IDENTIFIER)) {
        const FND::String name(tokens[0].text());
        add(MessageCode::NoEffect, span, loggedName(name) + " alone does nothing",
            "to call a function, write `" + name + "()`");
        return;
    }
    if (hasCall(tokens)) return;
    const bool isValue = isLiteral(tokens[0].code) || findOuter(tokens, [](int code) {
                             return isArithmetic(code) || code == SCR_BOOL_OPERATOR;
                         });
    if (isValue) add(MessageCode::NoEffect, span, "the value of this statement is not used");
}

void Lint::condition(Span span) {
    const Tokens tokens = tokensOf(span);
    const auto* const sign = findOuter(tokens, [](int code) { return code == '='; });
    if (sign == nullptr) return;
    add(MessageCode::AssignmentAsCondition, sign->span, "an assignment is the condition",
        "to compare, write `==`; to assign, put it into parentheses of its own");
}

void Lint::comparison(Span left, Span sign, Span right) {
    left = withoutBlanks(left);
    right = withoutBlanks(right);
    if (left.text() == right.text()) {
        if (!hasCall(tokensOf(left))) {
            add(MessageCode::SameResult, sign,
                "both sides of " + loggedName(sign.text()) + " are the same");
        }
        return;
    }
    const auto isConstant = [](Span side) {
        CustomLexer lexer({}, side.text());
        int code = lexer.next();
        while (isLiteral(code) || code == '-') code = lexer.next();
        return code == 0;
    };
    for (const Span side : {left, right}) {
        const std::string_view text = side.text();
        // Texts of at least a year, a month and a day.
        const bool isDate = text.size() >= 12 && text.starts_with('"') &&
                            text.find('"', 1) + 1 == text.size() &&
                            FND::DateTime::parse(text.substr(1, text.size() - 2)).isValid();
        if (!isDate || sign.text() == "==" || sign.text() == "!=") continue;
        add(MessageCode::DateInString, side, "this date is a String, and is compared byte by byte",
            "compare Dates: write `strToDate(" + FND::String(text) +
                ")` and make a Date of the other side");
        return;
    }
    if (isConstant(left) && isConstant(right)) {
        add(MessageCode::SameResult, sign,
            "both sides of " + loggedName(sign.text()) + " are constant");
    }
}

void Lint::quotient(Span sign, Span right) {
    const std::string_view text = withoutBlanks(right).text();
    const bool isZero = !text.empty() && text.find('0') != std::string_view::npos &&
                        text.find_first_not_of("0.") == std::string_view::npos;
    if (isZero) add(MessageCode::DivisionByZero, {sign.begin, right.end}, "a division by 0");
}

void Lint::decimal(Span number) {
    std::string_view fraction = number.text().substr(number.text().find('.') + 1);
    while (fraction.ends_with('0')) fraction.remove_suffix(1);
    const FND::Decimal value = FND::Decimal::fromString(number.text());
    if (!value.isValid() || fraction.size() <= static_cast<std::size_t>(value.scale())) return;
    add(MessageCode::Rounded, number, "the number has too many digits and is rounded");
}

void Lint::call(Span span) {
    if (!span.text().starts_with("strToDate")) return;
    const Tokens tokens = tokensOf(span);
    if (tokens.size() != 4 || tokens[2].code != SCR_STRING) return;
    const std::string_view text = tokens[2].text().substr(1, tokens[2].text().size() - 2);
    if (text.find('\\') != std::string_view::npos || FND::DateTime::parse(text).isValid()) return;
    add(MessageCode::InvalidDate, tokens[2].span,
        "this text is no date; the date is the invalid one",
        "a date is written as \"2024-02-29\" or \"2024-02-29 23:59:59\"");
}

void Lint::pattern(Span span, const FND::String& pattern) {
    const auto doubt = [&](const FND::String& text, const FND::String& cure) {
        add(MessageCode::SuspiciousPattern, span, text, cure);
    };
    // A backslash of the script's text takes the letter after it, before the pattern is read.
    const std::string_view source = span.text();
    for (std::size_t i = 0; i + 1 < source.size(); ++i) {
        if (source[i] != '\\') continue;
        const char letter = source[++i];
        const bool isDouble = letter == '\\' && i + 1 < source.size();
        const char meant = isDouble ? source[++i] : letter;
        if (std::string_view("dswDSWbBx").find(meant) != std::string_view::npos) {
            const FND::String text = FND::String("`\\") + meant + "'";
            doubt(text + " is just `" + meant + "' in a pattern",
                  meant == 'd' ? "write `[0-9]`" : "write the bytes as a set in `[` and `]`");
            return;
        }
    }
    if (pattern.starts_with('^') || (pattern.ends_with('$') && !pattern.ends_with("\\$"))) {
        const char sign = pattern.starts_with('^') ? '^' : '$';
        doubt(FND::String("`") + sign + "' stands for itself in a pattern",
              "leave it out: a pattern always describes the whole text");
        return;
    }
    bool isInSet = false;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == '\\') {
            ++i;
        } else if (pattern[i] == '[') {
            isInSet = true;
        } else if (pattern[i] == ']') {
            isInSet = false;
        } else if (isInSet && static_cast<unsigned char>(pattern[i]) >= 0x80) {
            doubt("a set holds bytes, and a character of several bytes is several of them",
                  "write the characters as alternatives, such as `(\xC3\xA4|\xC3\xB6)`");
            return;
        }
    }
    constexpr std::size_t mostBytes = 2000;
    constexpr std::size_t mostStates = 2000;
    if (pattern.size() > mostBytes || pattern.empty() || pattern.starts_with('!')) return;
    FSM::Engine engine;
    engine.stateLimit(mostStates);
    if (!engine.addPattern(pattern) || !engine.finalSetup()) return;
    const FSM::State* const state = engine.process(std::string_view());
    if (state != nullptr && !state->pathNumbers().empty() && pattern != ".*") {
        add(MessageCode::MatchesEmpty, span,
            "the pattern " + loggedName(pattern) + " matches the empty text");
    }
}

void Lint::function(std::string_view name, bool hasParameters) {
    const FND::String lower = lowered(name);
    if (lower != "begin" && lower != "end") return;
    const FND::String right = lower == "begin" ? "BEGIN" : "END";
    if (name != right) {
        add(MessageCode::EventFunction, spanOf(name),
            "the function " + loggedName(name) + " does not run by itself",
            "did you mean `" + right + "`?");
    } else if (hasParameters) {
        add(MessageCode::EventFunction, spanOf(name),
            loggedName(name) + " gets no arguments when it runs by itself");
    }
}

void Lint::report(Interpreter& interpreter, std::array<std::string_view, 3> parts,
                  const Usage* usage, bool hasErrors) {
    Scout scout(parts[0], parts[1], parts[2]);
    if (usage != nullptr) {
        for (const Usage::Finding& finding : usage->findings()) {
            add(finding.code, spanOf(finding.place), finding.text);
        }
    }
    std::stable_sort(warnings_.begin(), warnings_.end(), [](const auto& a, const auto& b) {
        return std::less<const char*>()(a.at.begin, b.at.begin);
    });
    const auto log = [&](const Warning& warning) {
        Diagnostic diagnostic;
        diagnostic.severity = diagnostic.logSeverity = FND::Status::Warning;
        diagnostic.code = codeName(warning.code);
        scout.locate(warning.at, diagnostic);
        if (scout.isIgnored(warning.at, diagnostic.code)) return;
        diagnostic.text = Messages::warning(
            diagnostic.place.file,
            "line " + std::to_string(diagnostic.place.line) + ": " + warning.text);
        diagnostic.explanation = warning.text;
        std::replace(diagnostic.explanation.begin(), diagnostic.explanation.end(), '\'', '`');
        diagnostic.cure = warning.cure;
        if (warning.note.begin != nullptr) {
            diagnostic.notes.push_back(
                {"the other one is declared here", scout.place(warning.note)});
        }
        interpreter.diagnose(std::move(diagnostic));
    };
    for (const Warning& warning : warnings_) {
        // Where braces are wrong, the order of statements is another one.
        if (hasErrors && warning.code == MessageCode::NotReached) continue;
        scout.readTo(warning.at.begin);
        log(warning);
    }
    scout.readToEnd();
    if (const char* const comment = scout.lexer().openComment()) {
        log({MessageCode::OpenComment,
             {comment, comment + 2},
             "the comment that begins here is not closed",
             "close it by `*/`",
             {}});
    }
    if (const char* const line = scout.lexer().badDirective()) {
        log({MessageCode::LineDirective,
             {line, line + 5},
             "this line says no line and file, and the text ends here",
             "",
             {}});
    }
}

}  // namespace SCR

#include <algorithm>
#include <cstdio>
#include <utility>

#include "Grammar.h"
#include "scr/Interpreter.h"
#include "scr/Variable.h"
#include "scr/advice/Advice.h"
#include "scr/advice/TokenKind.h"
#include "scr/advice/Wording.h"

// What is wrong where the grammar has no rule that goes on.

namespace SCR {

void Advice::syntax() {
    const Scout::Token found = scout_.token();
    const Scout::Token last = scout_.token(1);
    const std::string_view begin = scout_.textBegin();
    if (begin.starts_with("0A42") && begin.size() > 12 &&
        begin.substr(0, 12).find_first_not_of("0123456789ABCDEFabcdef\r\n") ==
            std::string_view::npos) {
        const bool hasReturns = begin.find('\r') != std::string_view::npos;
        say(MessageCode::Scrambled, {begin.data(), begin.data() + 4},
            hasReturns ? "this scrambled script was changed: its line ends were converted"
                       : FND::String("this scrambled script was changed or cut"));
        return;
    }
    if (openText(found) || strangeSign(found) || otherOperator(found, last) ||
        declaration(found, last) || header(found, last) || brackets(found, last) ||
        statement(found, last)) {
        return;
    }
    if (found.code == 0) {
        say(MessageCode::ParseError, last.span, "the text ends in the middle of a statement");
        return;
    }
    const FND::String what = quoted(Scout::shown(found.span));
    const bool isFirst = last.code == 0 || !scout_.isInText(last.span) ||
                         last.code == SCR_RESULTS || last.code == SCR_CONDITIONS ||
                         last.code == SCR_QUERY;
    say(MessageCode::ParseError, found.span,
        isFirst ? what + " can not begin a script"
                : what + " does not fit after " + quoted(Scout::shown(last.span)));
}

bool Advice::brackets(const Scout::Token& found, const Scout::Token& last) {
    const std::vector<Scout::Bracket>& open = scout_.open();
    const bool isClosing = found.code == SCR_CLOSE_BRACE || found.code == SCR_CLOSE_PARENTHESIS ||
                           found.code == SCR_CLOSE_BRACKET;
    if (open.empty()) {
        if (!isClosing) return false;
        FND::String cure = "remove it, or look for the opening one that is missing above";
        // What stands right above it and not further in.
        for (std::size_t back = 1; found.code == SCR_CLOSE_BRACE && found.isFirst; ++back) {
            const Scout::Token token = scout_.token(back);
            if (token.code == 0) break;
            if (!token.isFirst || token.indent > found.indent) continue;
            const bool opens = token.code == SCR_IF || token.code == SCR_WHILE ||
                               token.code == SCR_FOR || token.code == SCR_ELSE ||
                               token.code == SCR_DO || token.code == SCR_FCT_DECLARATION;
            if (!opens || back < 2) break;
            return say(MessageCode::MissingBrace, token.span,
                       "the `}` in line " + std::to_string(scout_.place(found.span).line) +
                           " closes nothing: this " + quoted(token.text()) + " has no `{`",
                       "write `{` where the block begins");
        }
        if (found.code == SCR_CLOSE_BRACE && scout_.suspect().token.span.begin != nullptr) {
            note("the indentation differs from here on", scout_.suspect().token.span);
        }
        return say(MessageCode::UnexpectedClosing, found.span,
                   "this " + quoted(found.text()) + " closes nothing", cure);
    }
    const Scout::Bracket& inner = open.back();
    const int code = inner.token.code;
    const bool isBrace = code == SCR_OPEN_BRACE;
    const bool isIndex = isBrace && inner.statement == scout_.statement() &&
                         endsValue(inner.before.code) && inner.before.code != SCR_CLOSE_PARENTHESIS;
    const char* const closing = code == SCR_OPEN_PARENTHESIS ? ")"
                                : code == SCR_OPEN_BRACKET   ? "]"
                                                             : "}";
    // Several keys or indices in one element.
    const Variable* const container = inner.before.code == SCR_IDENTIFIER
                                          ? const_cast<Interpreter&>(interpreter_)
                                                .getVariable({}, FND::String(inner.before.text()))
                                          : nullptr;
    const int type = container != nullptr ? Node::baseType(container->dataType()) : 0;
    if (found.code == ',' && endsValue(last.code) &&
        ((isBrace && type == TypeCode::Hash) ||
         (code == SCR_OPEN_BRACKET && type == TypeCode::Array))) {
        return say(
            MessageCode::ElementType, found.span,
            isBrace ? "an element of a hash has one key" : "an element of an array has one index",
            "elements that are containers themselves are written one after the other, as "
            "in `h{a}{b}`");
    }
    if (isBrace && !isIndex) {
        if (found.code != 0) return false;
        const bool hasSuspect = scout_.suspect().token.span.begin != nullptr;
        const Span brace = hasSuspect ? scout_.suspect().token.span : inner.token.span;
        const int line = scout_.place(last.span).line;
        say(MessageCode::MissingBrace, brace,
            "the text ends in line " + std::to_string(line) + ", but this `{` is not closed",
            "write `}` where the block ends");
        return true;
    }
    // An opening bracket within the statement.
    const bool endsStatement = found.code == SCR_SEMICOLON || found.code == SCR_OPEN_BRACE ||
                               found.code == 0 || beginsStatement(found.code) ||
                               found.code == SCR_ELSE || found.code == SCR_CLOSE_BRACE;
    const bool isOther = isClosing && found.text() != closing;
    const bool isFor = inner.before.code == SCR_FOR;
    const bool isNextLine =
        beginsValue(found.code) && !scout_.isSameLine(last.span.end, found.span.begin);
    if (endsValue(last.code) && !(isFor && found.code == SCR_SEMICOLON) &&
        (endsStatement || isOther || isNextLine)) {
        if (found.code == SCR_SEMICOLON && inner.before.code == SCR_IDENTIFIER &&
            closesInLine(found)) {
            say(MessageCode::OtherOperator, found.span, "arguments are separated by `,`");
            cureBy(found.span, ",");
            return true;
        }
        const Diagnostic::Place place = scout_.place(inner.token.span);
        FND::String where = " in line " + std::to_string(place.line) + " column ";
        if (scout_.isSameLine(inner.token.span.begin, last.span.end)) where = " in column ";
        where += std::to_string(place.column);
        say(MessageCode::MissingParenthesis, after(last.span),
            FND::String("missing `") + closing + "` for the " + quoted(inner.token.text()) + where);
        note("opened here", inner.token.span);
        diagnostic_.cure =
            FND::String("write `") + closing + "` after " + quoted(Scout::shown(last.span));
        return true;
    }
    if (beginsValue(found.code) && endsValue(last.code)) {
        if (found.is("not") || found.is("then")) return false;
        if (innerQuotes(found, last) || operatorWord(found) || openCall(found, last)) return true;
        const bool isText = last.code == SCR_STRING || found.code == SCR_STRING;
        return say(MessageCode::ParseError, after(last.span),
                   "missing `,` or an operator between " + quoted(Scout::shown(last.span)) +
                       " and " + quoted(Scout::shown(found.span)),
                   isText ? "texts are joined by `+`" : "");
    }
    return false;
}

// Whether after the semicolon found, in its line, the parenthesis is closed and the statement ends.
bool Advice::closesInLine(const Scout::Token& found) const {
    const std::string_view text(found.span.end,
                                std::min<std::size_t>(scout_.rest(found.span.end), 300));
    const std::string_view line = text.substr(0, text.find('\n'));
    int depth = 0;
    for (const Scout::Token& token : scout_.tokensIn({line.data(), line.data() + line.size()})) {
        if (token.code == SCR_OPEN_PARENTHESIS) ++depth;
        if (token.code == '=' || token.code == SCR_VAR_DECLARATION) return false;
        if (token.code == SCR_CLOSE_PARENTHESIS && --depth < 0) return true;
    }
    return false;
}

// A function before its argument.
bool Advice::openCall(const Scout::Token& found, const Scout::Token& last) {
    if (last.code != SCR_IDENTIFIER || !beginsValue(found.code) ||
        !scout_.isSameLine(last.span.end, found.span.begin)) {
        return false;
    }
    const Variable* const variable =
        const_cast<Interpreter&>(interpreter_).getVariable({}, FND::String(last.text()));
    return variable != nullptr && Node::baseType(variable->dataType()) == TypeCode::Function &&
           say(MessageCode::MissingParenthesis, after(last.span),
               "missing `(` after " + quoted(last.text()),
               "the arguments of a function stand between `(` and `)`");
}

}  // namespace SCR

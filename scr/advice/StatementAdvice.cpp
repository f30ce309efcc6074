#include <algorithm>
#include <utility>

#include "Grammar.h"
#include "scr/Interpreter.h"
#include "scr/Variable.h"
#include "scr/advice/Advice.h"
#include "scr/advice/TokenKind.h"
#include "scr/advice/Wording.h"

// What is wrong with declarations, the headers of loops and branches, and other statements.

namespace SCR {

// What stands before the parentheses that the token before the one found closes.
Scout::Token Advice::beforeParentheses(bool& endsDo) const {
    int depth = 0;
    for (std::size_t back = 1; back < 60; ++back) {
        const Scout::Token token = scout_.token(back);
        if (token.code == SCR_CLOSE_PARENTHESIS) ++depth;
        if (token.code != SCR_OPEN_PARENTHESIS || --depth > 0) continue;
        const Scout::Token word = scout_.token(back + 1);
        // Of `} while (...)`, in one line.
        endsDo = word.code == SCR_WHILE && !word.isFirst &&
                 scout_.token(back + 2).code == SCR_CLOSE_BRACE;
        return word;
    }
    return {};
}

bool Advice::declaration(const Scout::Token& found, const Scout::Token& last) {
    const Scout::Token first = scout_.token(2);
    const Scout::Token before = scout_.token(3);
    const bool isName = last.code == SCR_IDENTIFIER;
    if (last.code == SCR_OPEN_BRACKET && first.code == SCR_IDENTIFIER &&
        before.code == SCR_VAR_DECLARATION) {
        return say(
            MessageCode::ArraySize, found.span,
            "an array has no size when it is declared: it grows when elements are set",
            "write `" + FND::String(before.text()) + " " + FND::String(first.text()) + "[]`");
    }
    if (last.code == SCR_VAR_DECLARATION) {
        if (found.code == SCR_OPEN_BRACKET || found.code == SCR_OPEN_BRACE) {
            return say(MessageCode::ArraySize, found.span,
                       "the brackets stand after the name, as in `" + FND::String(last.text()) +
                           " list[]`");
        }
        if (found.code == SCR_FCT_DECLARATION) {
            return say(MessageCode::FunctionHeader, {last.span.begin, found.span.end},
                       "the type stands after `function`",
                       "write `function " + FND::String(last.text()) + " name(...)`");
        }
        if (isWord(found.code) || found.code == SCR_VAR_DECLARATION) {
            return say(MessageCode::WordAsName, found.span,
                       quoted(found.text()) + " is a word of the language and can not be a name");
        }
        if (found.code == SCR_OPEN_PARENTHESIS || isOperator(found.code)) {
            return say(MessageCode::ParseError, last.span,
                       quoted(last.text()) + " is a type; a value can not begin with it");
        }
    }
    if (last.code == SCR_CONST_CONSTANT) {
        return say(MessageCode::ParseError, found.span,
                   "a constant needs a type, as in `const Long max = 5`");
    }
    if (isName && first.code == SCR_VAR_DECLARATION && before.code == SCR_CONST_CONSTANT) {
        return say(MessageCode::MissingValue, after(last.span),
                   "the constant " + quoted(last.text()) + " needs a value");
    }
    const Scout::Token next = scout_.next();
    if (isName && first.code == SCR_VAR_DECLARATION && found.code == '-' &&
        last.span.end == found.span.begin && next.code == SCR_IDENTIFIER) {
        const Span whole{last.span.begin, next.span.end};
        say(MessageCode::UnknownSign, whole,
            "`-` is no part of a name: names are made of the letters A to Z, digits, `_` and `.`");
        cureBy(whole, FND::String(last.text()) + "_" + FND::String(next.text()));
        return true;
    }
    if (isName && first.code == SCR_VAR_DECLARATION && before.code != SCR_FCT_DECLARATION &&
        found.code == SCR_OPEN_PARENTHESIS) {
        return say(MessageCode::FunctionHeader, first.span, "a function is declared by `function`",
                   "write `function " + FND::String(first.text()) + " " + FND::String(last.text()) +
                       "(...)`");
    }
    const bool isNumber = last.code == SCR_LONG_NUMBER || last.code == SCR_DECIMAL_NUMBER;
    if (found.code == ',' && isNumber && next.code == SCR_LONG_NUMBER &&
        last.span.end == found.span.begin && next.span.begin == found.span.end &&
        first.code == '=') {
        FND::String whole(last.text());
        std::erase(whole, '.');
        say(MessageCode::NumberForm, {last.span.begin, next.span.end},
            last.code == SCR_LONG_NUMBER
                ? "a number has a point, not a comma"
                : "a number has a point, not a comma, and nothing between its thousands");
        cureBy({last.span.begin, next.span.end}, whole + "." + FND::String(next.text()));
        return true;
    }
    // A declaration in which a second name follows.
    if (found.code == ',' &&
        (scout_.open().empty() || scout_.open().back().token.code == SCR_OPEN_BRACE)) {
        for (std::size_t back = 1; back < 40; ++back) {
            const Scout::Token token = scout_.token(back);
            if (token.code == 0 || token.code == SCR_SEMICOLON) break;
            if (token.code != SCR_VAR_DECLARATION) continue;
            if (scout_.token(back + 1).code == SCR_FCT_DECLARATION) break;
            const FND::String type(token.text());
            return say(
                MessageCode::SeveralVariables, found.span, "a declaration declares one variable",
                FND::String("write `").append(type).append(" a; ").append(type).append(" b;`"));
        }
    }
    // The brace of the body was taken for that of a hash.
    const std::vector<Scout::Bracket>& open = scout_.open();
    if (last.code == SCR_OPEN_BRACE && first.code == SCR_IDENTIFIER &&
        before.code == SCR_VAR_DECLARATION && open.size() > 1) {
        const Scout::Bracket& list = open[open.size() - 2];
        if (list.token.code == SCR_OPEN_PARENTHESIS && list.before.code == SCR_IDENTIFIER) {
            say(MessageCode::MissingParenthesis, after(first.span),
                "missing `)` after the parameters of " + quoted(list.before.text()));
            note("opened here", list.token.span);
            cureBy(after(first.span), ")");
            diagnostic_.cure = "write `)` here";
            return true;
        }
    }
    const auto& declared = scout_.declarations();
    const Scout::Token name = scout_.closed().before;
    const bool isAfterHeader = last.code == SCR_CLOSE_PARENTHESIS &&
                               std::any_of(declared.begin(), declared.end(), [&](const auto& one) {
                                   return one.isFunction && one.span.begin == name.span.begin;
                               });
    if (found.code == SCR_VAR_DECLARATION && isAfterHeader) {
        return say(MessageCode::FunctionHeader, found.span,
                   "the type of the result stands before the name",
                   "write `function " + FND::String(found.text()) + " " + FND::String(name.text()) +
                       "(...)`");
    }
    if (found.code == SCR_VAR_DECLARATION) {
        bool endsDo = false;
        const bool isAfterCall = last.code == SCR_CLOSE_PARENTHESIS &&
                                 (endsValue(beforeParentheses(endsDo).code) || endsDo);
        if (isAfterCall) {
            say(MessageCode::MissingSemicolon, after(last.span), "missing `;` after `)`");
            cureBy(after(last.span), ";");
            diagnostic_.cure = "write `;` here";
            return true;
        }
        if (last.code == SCR_OPEN_PARENTHESIS && first.code == SCR_FOR) {
            return say(MessageCode::DeclarationPlace, found.span,
                       "a variable can not be declared in `for (`: declare it above the loop");
        }
        const bool isBody = last.code == SCR_CLOSE_PARENTHESIS || last.code == SCR_ELSE ||
                            last.code == SCR_COLON || last.code == SCR_DO;
        if (isBody) {
            return say(MessageCode::DeclarationPlace, found.span,
                       "a declaration can not be the only statement here",
                       "declare it above, or put the statements into `{` and `}`");
        }
    }
    const bool isHeader = first.code == SCR_FCT_DECLARATION ||
                          (first.code == SCR_VAR_DECLARATION && before.code == SCR_FCT_DECLARATION);
    if (isName && isHeader && (found.code == '=' || found.code == SCR_SEMICOLON)) {
        return say(MessageCode::FunctionHeader, found.span,
                   "the body of a function stands between `{` and `}`, after its parameters");
    }
    const bool isFunction = first.code == SCR_FCT_DECLARATION;
    if (isName && isFunction && found.code == SCR_IDENTIFIER) {
        const bool isVoid = last.is("Void") || last.is("void");
        return say(MessageCode::FunctionHeader, last.span,
                   isVoid ? FND::String("a function without a result has no type")
                          : quoted(last.text()) + " is no type of the language",
                   isVoid ? "write `function " + FND::String(found.text()) + "(...)`" : "");
    }
    if (last.code == SCR_FCT_DECLARATION && isWord(found.code)) {
        return say(MessageCode::WordAsName, found.span,
                   quoted(found.text()) + " is a word of the language and can not be a name");
    }
    return false;
}

bool Advice::header(const Scout::Token& found, const Scout::Token& last) {
    bool endsDo = false;
    if (last.code == SCR_CLOSE_PARENTHESIS && found.code != SCR_OPEN_BRACE) {
        const Scout::Token name = beforeParentheses(endsDo);
        const auto& declared = scout_.declarations();
        const bool isHeader = std::any_of(declared.begin(), declared.end(), [&](const auto& one) {
            return one.isFunction && one.span.begin == name.span.begin;
        });
        if (isHeader && found.code == '-' && scout_.next().is(">")) {
            return say(MessageCode::FunctionHeader, {found.span.begin, scout_.next().span.end},
                       "there is no `->`: the type of the result stands before the name",
                       "write `function Long " + FND::String(name.text()) + "(...)`");
        }
        if (isHeader && name.code != 0) {
            return say(MessageCode::FunctionHeader, found.span,
                       "the body of a function stands between `{` and `}`");
        }
    }
    if (last.code == SCR_CLOSE_PARENTHESIS) {
        const Scout::Token word = scout_.closed().before;
        const bool isLoop = word.code == SCR_WHILE || word.code == SCR_FOR;
        if (word.code == SCR_ELSE && found.code == SCR_OPEN_BRACE) {
            say(MessageCode::OtherLanguage, word.span,
                "a condition after `else` needs an `if` of its own");
            cureBy(word.span, "else if");
            return true;
        }
        if (found.code == SCR_SEMICOLON && (isLoop || word.code == SCR_IF)) {
            return say(MessageCode::ParseError, found.span,
                       "this `;` ends nothing: the statement of the " + quoted(word.text()) +
                           " follows its `)`",
                       "remove it; an empty statement is `{}`");
        }
        if ((isLoop || word.code == SCR_IF) &&
            (isOperator(found.code) || found.code == SCR_BOOL_OPERATOR)) {
            return say(MessageCode::MissingParenthesis, found.span,
                       "the condition of the " + quoted(word.text()) + " ended at the `)` before",
                       "put parentheses around the whole condition");
        }
    }
    if (last.code == SCR_SEMICOLON && found.code != SCR_WHILE) {
        for (std::size_t back = 2; back < 60; ++back) {
            const Scout::Token token = scout_.token(back);
            if (token.code == 0 || token.code == SCR_SEMICOLON || token.code == SCR_OPEN_BRACE ||
                token.code == SCR_CLOSE_BRACE) {
                break;
            }
            if (token.code != SCR_DO) continue;
            say(MessageCode::ParseError, found.span,
                "a `do` takes one statement; put several into `{` and `}`");
            note("it begins here", token.span);
            return true;
        }
    }
    const bool isBlock = last.code == SCR_CLOSE_BRACE && scout_.closed().before.code == SCR_DO;
    if (isBlock) {
        const Span begin = scout_.closed().before.span;
        if (scout_.afterParenthesis(begin.begin)) {
            say(MessageCode::OtherLanguage, begin,
                "`do` begins a loop of its own; the body of a `while` follows its `)`");
            diagnostic_.cure = "remove `do`";
            change(begin, "");
            return true;
        }
        say(MessageCode::ParseError, after(last.span),
            "a `do` ends with its condition: missing `while (...);` after `}`");
        note("it begins here", begin);
        return true;
    }
    const bool needsParenthesis = last.code == SCR_IF || last.code == SCR_WHILE ||
                                  last.code == SCR_FOR || isSwitchWord(last.code);
    if (needsParenthesis && found.code != SCR_OPEN_PARENTHESIS) {
        return say(MessageCode::MissingParenthesis, after(last.span),
                   "missing `(` after " + quoted(last.text()),
                   "the condition of " + quoted(last.text()) + " stands between `(` and `)`");
    }
    if (!scout_.open().empty()) {
        const Scout::Bracket& open = scout_.open().back();
        const bool isParenthesis = open.token.code == SCR_OPEN_PARENTHESIS;
        if (isParenthesis && open.before.code == SCR_FOR && found.code != SCR_OPEN_BRACE &&
            (found.code == SCR_SEMICOLON || found.code == SCR_CLOSE_PARENTHESIS ||
             found.code == SCR_COLON || found.code == SCR_IDENTIFIER || found.code == ',')) {
            const bool isEach = found.code == SCR_COLON || found.code == SCR_IDENTIFIER;
            return say(MessageCode::ParseError, found.span,
                       "a `for` has three parts: `for (begin; condition; step)`",
                       isEach              ? "count through an array: `for (i = 0; i < "
                                             "arraySize(list); i = i + 1)`"
                       : found.code == ',' ? "between them stands `;`"
                                           : "for an endless loop write `while (true)`");
        }
        // A parameter without a type.
        if (isParenthesis && open.before.code == SCR_IDENTIFIER && found.code != SCR_OPEN_BRACE) {
            const std::vector<Scout::Declaration>& declared = scout_.declarations();
            const bool isHeader =
                std::any_of(declared.rbegin(), declared.rend(), [&](const auto& declaration) {
                    return declaration.isFunction &&
                           declaration.span.begin == open.before.span.begin;
                });
            if (isHeader && (last.code == SCR_OPEN_PARENTHESIS || last.code == ',')) {
                if (found.code == SCR_CLOSE_PARENTHESIS) {
                    return say(MessageCode::FunctionHeader, {open.token.span.begin, found.span.end},
                               "a function without parameters is declared without parentheses",
                               "write `function " + FND::String(open.before.text()) + " {`");
                }
                return say(
                    MessageCode::FunctionHeader, found.span,
                    "a parameter needs a type, as in `Long " + FND::String(found.text()) + "`");
            }
            if (isHeader && found.code == '=') {
                return say(MessageCode::FunctionHeader, found.span,
                           "a parameter has no default value");
            }
        }
    }
    return false;
}

bool Advice::statement(const Scout::Token& found, const Scout::Token& last) {
    const bool isInSwitch = !scout_.open().empty() &&
                            scout_.open().back().token.code == SCR_OPEN_BRACE &&
                            scout_.open().back().isSwitch;
    if (isOperator(last.code) || last.code == ',' || last.code == SCR_OPEN_PARENTHESIS ||
        last.code == SCR_OPEN_BRACKET) {
        if (last.code == '=' && (found.code == SCR_OPEN_BRACE || found.code == SCR_OPEN_BRACKET)) {
            return say(
                MessageCode::MissingValue, found.span,
                "there is no way to write a whole array or hash: set the elements one by one");
        }
        if (last.code == '=' && found.code == SCR_VAR_DECLARATION) return false;
        if (found.code == SCR_VAR_DECLARATION) {
            return say(MessageCode::MissingValue, found.span,
                       quoted(found.text()) + " is a type, and a value is needed here");
        }
        return say(MessageCode::MissingValue, after(last.span),
                   "a value is missing after " + quoted(last.text()));
    }
    if (last.is("include") && found.code == SCR_STRING) {
        return say(MessageCode::MissingSemicolon, after(found.span),
                   "an include line stands alone and ends in `;`");
    }
    const bool missesEnd =
        (found.code == SCR_ELSE && endsValue(last.code) && last.code != SCR_CLOSE_BRACE) ||
        (found.code == SCR_CLOSE_BRACE && last.code == SCR_BREAK);
    if (missesEnd) {
        say(MessageCode::MissingSemicolon, after(last.span),
            "missing `;` after " + quoted(Scout::shown(last.span)));
        cureBy(after(last.span), ";");
        diagnostic_.cure = "write `;` here";
        return true;
    }
    if (found.code == SCR_SEMICOLON && (last.code == SCR_SEMICOLON || last.code == SCR_OPEN_BRACE ||
                                        last.code == SCR_CLOSE_BRACE)) {
        return say(MessageCode::ParseError, found.span, "this `;` ends nothing",
                   "remove it; an empty statement is `{}`");
    }
    if (found.code == SCR_ELSE && isInSwitch && scout_.next().code == SCR_COLON) {
        say(MessageCode::OtherLanguage, found.span, "the other cases of a switch are `default:`");
        cureBy(found.span, "default");
        return true;
    }
    if (found.code == SCR_ELSE) {
        return say(MessageCode::ParseError, found.span, "this `else` has no `if`",
                   "only one statement may stand between: put several into `{` and `}`");
    }
    if (last.code == SCR_CASE && found.code == SCR_DEFAULT) {
        say(MessageCode::CaseBody, {last.span.begin, found.span.end},
            "`default` stands without `case`");
        cureBy({last.span.begin, found.span.end}, "default");
        return true;
    }
    if (last.code == SCR_CASE && found.code == SCR_COMPARE_OPERATOR) {
        return say(MessageCode::CaseBody, found.span,
                   "a case is for single values, as in `case 1, 2:`", "compare by `if`");
    }
    const bool isLabel = [&] {
        for (std::size_t back = 1; back < 40; ++back) {
            const int code = scout_.token(back).code;
            if (code == SCR_CASE || (code == SCR_DEFAULT && back == 1)) return true;
            if (code == 0 || code == SCR_COLON || code == SCR_SEMICOLON || code == SCR_OPEN_BRACE ||
                code == SCR_CLOSE_BRACE) {
                return false;
            }
        }
        return false;
    }();
    const int following = scout_.next().code;
    if (isLabel && beginsValue(found.code) && (following == SCR_COLON || following == ',')) {
        say(MessageCode::ParseError, after(last.span), "missing `,` between two labels");
        cureBy(after(last.span), ",");
        return true;
    }
    if (isLabel && (endsValue(last.code) || last.code == SCR_DEFAULT)) {
        return say(MessageCode::ParseError, after(last.span),
                   "missing `:` after the label of the case");
    }
    if (isInSwitch && found.code != 0 && !isLabel) {
        if (last.code == SCR_OPEN_BRACE) {
            return say(MessageCode::CaseBody, found.span,
                       "a switch holds cases: `case value:` or `default:`");
        }
        const bool isEnd = last.code == SCR_SEMICOLON || last.code == SCR_CLOSE_BRACE;
        const Scout::Bracket& cases = scout_.open().back();
        if (isEnd && found.isFirst && found.indent <= cases.token.indent &&
            found.code != SCR_CASE && found.code != SCR_DEFAULT) {
            return say(MessageCode::MissingBrace, cases.token.span,
                       "the cases go on in line " + std::to_string(scout_.place(found.span).line) +
                           ", as this `{` is not closed",
                       "write `}` where the switch ends");
        }
        if (isEnd && found.code != SCR_CASE && found.code != SCR_DEFAULT) {
            return say(MessageCode::CaseBody, found.span,
                       "a case takes one statement; put several into `{` and `}`");
        }
    }
    if (found.code == SCR_BREAK) {
        return say(MessageCode::ParseError, found.span, "`break` ends only a case of a switch",
                   "leave a loop by its condition, or a function by `return`");
    }
    if (found.code == SCR_CASE || found.code == SCR_DEFAULT) {
        return say(MessageCode::ParseError, found.span,
                   quoted(found.text()) + " stands only in a switch");
    }
    if (last.code == SCR_RETURN || endsValue(last.code)) {
        if (innerQuotes(found, last) || operatorWord(found) || openCall(found, last)) return true;
        const bool isNext = found.code == 0 || found.code == SCR_CLOSE_BRACE ||
                            beginsStatement(found.code) ||
                            !scout_.isSameLine(last.span.end, found.span.begin);
        if (found.is("then")) {
            return say(MessageCode::OtherLanguage, found.span,
                       "there is no `then`: the statement follows at once");
        }
        if (found.code == SCR_STRING && !isNext) {
            return say(MessageCode::ParseError, after(last.span),
                       "missing an operator: texts are joined by `+`");
        }
        if (isNext && last.code != SCR_CLOSE_BRACE) {
            say(MessageCode::MissingSemicolon, after(last.span),
                "missing `;` after " + quoted(Scout::shown(last.span)));
            cureBy(after(last.span), ";");
            diagnostic_.cure = "write `;` here";
            return true;
        }
        if (beginsValue(found.code) && endsValue(last.code)) {
            return say(MessageCode::ParseError, after(last.span),
                       "missing `;` or an operator between " + quoted(Scout::shown(last.span)) +
                           " and " + quoted(Scout::shown(found.span)));
        }
    }
    if (last.code == SCR_USE) {
        return say(MessageCode::ParseError, found.span,
                   "the name of a library follows `use`, as in `use luhn;`");
    }
    return false;
}

}  // namespace SCR

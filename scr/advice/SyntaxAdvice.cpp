#include <algorithm>
#include <cstdio>
#include <utility>

#include "Grammar.h"
#include "scr/Interpreter.h"
#include "scr/Variable.h"
#include "scr/advice/Advice.h"
#include "scr/advice/Wording.h"

// What is wrong where the grammar has no rule that goes on.

namespace SCR {

namespace {

// The character at the start of `text`, and its bytes; -1 for a byte that is no UTF-8.
long characterAt(std::string_view text, std::size_t& size) {
    const auto byte = static_cast<unsigned char>(text[0]);
    size = byte < 0x80                   ? 1
           : byte >= 0xF0 && byte < 0xF5 ? 4
           : byte >= 0xE0                ? 3
           : byte >= 0xC2                ? 2
                                         : 0;
    if (size == 0 || size > text.size()) return size = 1, -1;
    long value = size == 1 ? byte : byte & (0x7F >> size);
    for (std::size_t i = 1; i < size; ++i) {
        const auto next = static_cast<unsigned char>(text[i]);
        if ((next & 0xC0) != 0x80) return size = 1, -1;
        value = value << 6 | (next & 0x3F);
    }
    return value;
}

// Whether a value can end with this token.
bool endsValue(int code) {
    return code == SCR_IDENTIFIER || code == SCR_MODULE_IDENTIFIER || code == SCR_STRING ||
           code == SCR_LONG_NUMBER || code == SCR_DECIMAL_NUMBER || code == SCR_BOOL_CONSTANT ||
           code == SCR_CLOSE_PARENTHESIS || code == SCR_CLOSE_BRACKET || code == SCR_CLOSE_BRACE;
}

bool beginsValue(int code) {
    return code == SCR_IDENTIFIER || code == SCR_MODULE_IDENTIFIER || code == SCR_STRING ||
           code == SCR_LONG_NUMBER || code == SCR_DECIMAL_NUMBER || code == SCR_BOOL_CONSTANT;
}

bool isOperator(int code) {
    return code == '=' || code == SCR_COMPARE_OPERATOR || code == SCR_BOOL_OPERATOR ||
           code == '+' || code == '-' || code == '*' || code == '/' || code == '%';
}

bool beginsStatement(int code) {
    return code == SCR_IF || code == SCR_WHILE || code == SCR_FOR || code == SCR_DO ||
           code == SCR_SWITCH || code == SCR_REGEXPR_SWITCH || code == SCR_RETURN ||
           code == SCR_VAR_DECLARATION || code == SCR_FCT_DECLARATION ||
           code == SCR_CONST_CONSTANT || code == SCR_USE || code == SCR_BREAK;
}

bool isWord(int code) {
    return beginsStatement(code) || code == SCR_ELSE || code == SCR_CASE || code == SCR_DEFAULT ||
           code == SCR_BOOL_OPERATOR || code == SCR_BOOL_CONSTANT;
}

bool isSwitchWord(int code) { return code == SCR_SWITCH || code == SCR_REGEXPR_SWITCH; }

Span after(Span span) { return {span.end, span.end}; }

}  // namespace

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

bool Advice::openText(const Scout::Token& found) {
    const bool isOpen = found.code == '"';
    const Scout::Token text = scout_.longText().code != 0 ? scout_.longText() : found;
    if (!isOpen && scout_.longText().code == 0) return false;
    // A text over several lines is allowed: it is to blame when the mistake follows it closely.
    const std::size_t line = text.text().find('\n');
    const Span first{text.span.begin,
                     line == std::string_view::npos ? text.span.end : text.span.begin + line};
    if (!isOpen) {
        bool isClose = false;
        for (std::size_t back = 0; back < 8; ++back) {
            isClose = isClose || scout_.token(back).span.begin == text.span.begin;
        }
        if (!isClose) return false;
    }
    const std::string_view rest =
        isOpen && text.span.begin == found.span.begin ? std::string_view() : first.text();
    FND::String cure = "close it by `\"`";
    if (rest.find("\\\";") != std::string_view::npos || rest.ends_with("\\\"") ||
        rest.find("\\\")") != std::string_view::npos) {
        cure = "`\\` takes the character after it; a `\\` of the text itself is written `\\\\`";
    }
    if (first.text().find("\xE2\x80\x9C") != std::string_view::npos ||
        first.text().find("\xE2\x80\x9D") != std::string_view::npos) {
        cure = "a typographic quote does not close it; write `\"`";
    }
    return say(MessageCode::OpenText, first,
               "the text that begins here is not closed before the end of the line", cure);
}

bool Advice::strangeSign(const Scout::Token& found) {
    if (found.code == 0 || found.code > 255 || found.span.begin == nullptr) return false;
    std::size_t size = 1;
    const std::string_view part(found.span.begin,
                                std::min<std::size_t>(8, scout_.rest(found.span.begin)));
    const long character = part.empty() ? 0 : characterAt(part, size);
    const Span span{found.span.begin, found.span.begin + size};
    const bool isDoubled = part.size() > 1 && part[0] == part[1];
    const Span both{span.begin, span.begin + (isDoubled ? 2 : 1)};
    const auto otherWord = [&](const char* word) {
        say(MessageCode::OtherOperator, both,
            quoted(both.text()) + " is no sign of the language; write `" + word + "`");
        cureBy(both, word);
        return true;
    };
    switch (character) {
        case '&':
            return otherWord("and");
        case '|':
            return otherWord("or");
        case '!':
            return say(MessageCode::OtherOperator, span,
                       "there is no `!`: compare with false, as in `done == false`");
        case '\'':
            return say(MessageCode::UnknownSign, span,
                       "texts stand between double quotes; `'` begins nothing",
                       "write `\"` instead of `'`");
        case '.':
            if (endsValue(scout_.token(1).code) && scout_.token(1).code != SCR_LONG_NUMBER) {
                return say(MessageCode::OtherOperator, span,
                           "there is no `.` between values; texts are joined by `+`", "write `+`");
            }
            return say(MessageCode::NumberForm, span, "a number needs a digit after its point",
                       "write `1.0` instead of `1.`");
        case '?':
            return say(MessageCode::UnknownSign, span,
                       "`?` is no sign of the language; choose between values by `if`");
        case '#':
            return say(MessageCode::UnknownSign, span, "`#` begins no comment; write `//`");
        case 0x201C:
        case 0x201D:
        case 0x201E:
        case 0x201F:
        case 0x2018:
        case 0x2019:
        case 0x201A:
        case 0xAB:
        case 0xBB:
        case 0xA0:
        case 0x202F:
        case 0x2007:
        case 0x3000:
        case 0xFEFF:
        case 0x200B:
        case 0x2013:
        case 0x2014:
        case 0x2212:
        case 0x2026:
            break;
        default:
            if (character >= 0 && character < 0x80) {
                if (character > ' ' &&
                    std::string_view("@$^~`\\").find(part[0]) != std::string_view::npos) {
                    return say(MessageCode::UnknownSign, span,
                               quoted(span.text()) + " is no sign of the language",
                               part.starts_with("\\n") || part.starts_with("\\t")
                                   ? "such a sign stands within a text: `\"\\n\"`"
                                   : "");
                }
                if (character < ' ' && character != '\n') {
                    return say(MessageCode::UnknownSign, span, "a control character stands here");
                }
                return false;
            }
    }
    char name[24];
    if (character < 0) {
        std::snprintf(name, sizeof name, "\\x%02X", static_cast<unsigned char>(part[0]));
        return say(MessageCode::UnknownSign, span,
                   FND::String("the byte ") + name +
                       " is no UTF-8, and stands outside of texts and comments");
    }
    std::snprintf(name, sizeof name, "U+%04lX", character);
    const FND::String unknown = FND::String("unknown sign ") + name;
    const bool isSpace =
        character == 0xA0 || character == 0x202F || character == 0x2007 || character == 0x3000;
    if (isSpace) {
        say(MessageCode::UnknownSign, span, unknown + ", a no-break space", "write a blank");
        change(span, " ");
        return true;
    }
    if (character == 0xFEFF || character == 0x200B) {
        say(MessageCode::UnknownSign, span,
            unknown + (character == 0xFEFF ? ", a byte order mark" : ", a blank without width"),
            "remove it");
        change(span, "");
        return true;
    }
    if (character == 0x2013 || character == 0x2014 || character == 0x2212) {
        say(MessageCode::UnknownSign, span, unknown + ", a dash", "write `-`");
        change(span, "-");
        return true;
    }
    if ((character >= 0x2018 && character <= 0x201F) || character == 0xAB || character == 0xBB) {
        say(MessageCode::UnknownSign, span, unknown + ", a typographic quote; did you mean `\"`?",
            "write `\"`");
        change(span, "\"");
        return true;
    }
    return say(MessageCode::UnknownSign, span,
               unknown + (character == 0x2026 ? "" : " (" + FND::String(span.text()) + ")") +
                   ": names are made of the letters A to Z, digits, `_` and `.`");
}

bool Advice::otherOperator(const Scout::Token& found, const Scout::Token& last) {
    if (found.code == SCR_PATTERN_COMPARE) {
        return scout_.isConditionList()
                   ? say(MessageCode::OtherOperator, found.span,
                         "`=~` compares a whole condition: it stands neither in parentheses nor "
                         "next to other comparisons",
                         "write two conditions, or `strMatch`")
                   : say(MessageCode::OtherOperator, found.span,
                         "`=~` stands only in lists of conditions",
                         "use `regExprSwitch`, or `strMatch(text, pattern) != \"\"`");
    }
    const bool isJoined = last.span.end == found.span.begin;
    const Scout::Token first = scout_.token(2);
    const auto step = [&](const Scout::Token& one, const Scout::Token& two,
                          const Scout::Token& name) {
        const FND::String sign = FND::String(one.text()) + FND::String(two.text());
        const FND::String variable =
            name.code == SCR_IDENTIFIER ? FND::String(name.text()) : FND::String("n");
        return say(MessageCode::OtherOperator, {one.span.begin, two.span.end},
                   "there is no " + quoted(sign) + "; write `" + variable + " = " + variable + " " +
                       FND::String(one.text()) + " 1`");
    };
    if (isJoined && last.code == '+' && found.code == '+') {
        return step(last, found, endsValue(first.code) ? first : scout_.next());
    }
    if (found.code == '+' && !endsValue(last.code) && scout_.next().code == '+') {
        const Scout::Token next = scout_.next();
        Scout::Token name;
        const Span rest{next.span.end,
                        next.span.end + std::min<std::size_t>(scout_.rest(next.span.end), 100)};
        const std::vector<Scout::Token> tokens = scout_.tokensIn(rest);
        if (!tokens.empty()) name = tokens.front();
        return step(found, next, name);
    }
    if (last.code == first.code && (last.code == '+' || last.code == '-') &&
        first.span.end == last.span.begin && !beginsValue(found.code)) {
        return step(first, last, scout_.token(3));
    }
    if (isJoined && found.code == '=' &&
        (last.code == '+' || last.code == '-' || last.code == '*' || last.code == '/' ||
         last.code == '%')) {
        const FND::String name = first.code == SCR_IDENTIFIER ? FND::String(first.text()) : "n";
        return say(MessageCode::OtherOperator, {last.span.begin, found.span.end},
                   "there is no `" + FND::String(last.text()) + "=`; write `" + name + " = " +
                       name + " " + FND::String(last.text()) + " ...`");
    }
    const Span both{last.span.begin, found.span.end};
    if (isJoined && last.code == '=' && found.code == SCR_COMPARE_OPERATOR) {
        const char* const right = found.is("<") ? "<=" : found.is(">") ? ">=" : "==";
        say(MessageCode::OtherOperator, both, "there is no " + quoted(both.text()));
        cureBy(both, right);
        return true;
    }
    if (isJoined && last.code == SCR_COMPARE_OPERATOR &&
        (found.code == '=' || found.code == SCR_COMPARE_OPERATOR)) {
        const char* const right = last.is("<") && found.is(">")   ? "!="
                                  : last.is("==") || last.is("=") ? "=="
                                                                  : "!=";
        say(MessageCode::OtherOperator, both, "there is no " + quoted(both.text()));
        cureBy(both, right);
        return true;
    }
    const Scout::Token next = scout_.next();
    if (found.code == SCR_COLON && next.code == '=' && next.span.begin == found.span.end) {
        const Span sign{found.span.begin, next.span.end};
        say(MessageCode::OtherOperator, sign, "there is no `:=`; to assign, write `=`");
        cureBy(sign, "=");
        return true;
    }
    if (isJoined && last.code == '*' && found.code == '*') {
        return say(MessageCode::OtherOperator, both, "there is no `**`; multiply, as in `n * n`");
    }
    if (isJoined && last.code == '-' && found.is(">")) {
        return say(MessageCode::OtherOperator, both, "there is no `->`");
    }
    if (isJoined && (last.code == SCR_LONG_NUMBER || last.code == SCR_DECIMAL_NUMBER) &&
        found.code == SCR_IDENTIFIER) {
        const std::string_view digits = both.text();
        FND::String plain(digits);
        std::erase(plain, '_');
        say(MessageCode::NumberForm, both,
            quoted(digits) + " is no number: a number has digits and at most a point");
        if (digits.starts_with("0x") || digits.starts_with("0X")) {
            diagnostic_.cure = "a hexadecimal number is read by `strHexToLong(\"" +
                               FND::String(digits.substr(2)) + "\")`";
        } else if (plain.find_first_not_of("0123456789") == FND::String::npos) {
            cureBy(both, plain);
        } else {
            diagnostic_.cure = "to begin a name, use a letter or `_`";
        }
        return true;
    }
    return false;
}

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

// An operator as other languages write it, in letters.
bool Advice::operatorWord(const Scout::Token& found) {
    constexpr std::pair<std::string_view, std::string_view> words[] = {
        {"mod", "%"}, {"div", "/"}, {"is", "=="}, {"eq", "=="}, {"equals", "=="}, {"ne", "!="},
        {"lt", "<"},  {"gt", ">"},  {"le", "<="}, {"ge", ">="}, {"xor", "!="},    {"plus", "+"},
    };
    for (const auto& [word, sign] : words) {
        if (found.code != SCR_IDENTIFIER || !found.is(word)) continue;
        say(MessageCode::OtherOperator, found.span, "there is no operator " + quoted(word));
        cureBy(found.span, FND::String(sign));
        return true;
    }
    return false;
}

// A text that holds quotes as they are.
bool Advice::innerQuotes(const Scout::Token& found, const Scout::Token& last) {
    const bool isText = last.code == SCR_STRING || found.code == SCR_STRING;
    const bool isWord = last.code == SCR_IDENTIFIER || found.code == SCR_IDENTIFIER ||
                        last.code == SCR_LONG_NUMBER || found.code == SCR_LONG_NUMBER;
    if (!isText || !isWord || last.span.end != found.span.begin) return false;
    const Span quote = last.code == SCR_STRING ? Span{last.span.end - 1, last.span.end}
                                               : Span{found.span.begin, found.span.begin + 1};
    const std::string_view line = scout_.lineAt(quote.begin);
    std::size_t quotes = 0;
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line[i] == '\\') {
            ++i;
        } else if (line[i] == '"') {
            ++quotes;
        }
    }
    if (quotes % 2 != 0) {
        return say(MessageCode::OpenText, quote, "a `\"` is missing in this line",
                   "each text begins and ends with one; a `\"` within it is written `\\\"`");
    }
    return say(MessageCode::OpenText, quote, "this `\"` ends the text",
               "a `\"` within a text is written `\\\"`");
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

#include <algorithm>
#include <cstdio>
#include <utility>

#include "Grammar.h"
#include "scr/Interpreter.h"
#include "scr/Variable.h"
#include "scr/advice/Advice.h"
#include "scr/advice/TokenKind.h"
#include "scr/advice/Wording.h"

// Signs, quotes and operators that the language does not have, or not there.

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

}  // namespace

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

}  // namespace SCR

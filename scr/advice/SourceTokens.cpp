#include "scr/advice/SourceTokens.h"

#include <algorithm>

#include "Grammar.h"
#include "scr/parser/CustomLexer.h"
#include "scr/parser/Preprocessor.h"

namespace SCR {

namespace {

// Where the include lines begin, in ascending order, without the blanks before them.
std::vector<std::size_t> includeLines(std::string_view text) {
    std::vector<std::size_t> places;
    const Preprocessor preprocessor(nullptr);
    FND::String name;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        const std::size_t first = std::min(text.find_first_not_of(" \t", begin), text.size());
        if (first < end && text[first] == 'i' &&
            preprocessor.isIncludeLine(text.substr(first, end - first), name)) {
            places.push_back(first);
        }
        begin = end + 1;
    }
    return places;
}

std::size_t lineEnd(std::string_view text, std::size_t from) {
    return std::min(text.find('\n', from), text.size());
}

SourceKind kindOf(int code, std::string_view text) {
    switch (code) {
        case SCR_STRING:
            return SourceKind::String;
        case SCR_IDENTIFIER:
            return SourceKind::Name;
        case SCR_MODULE_IDENTIFIER:
            return SourceKind::ModuleName;
        case SCR_LONG_NUMBER:
            return SourceKind::Long;
        case SCR_DECIMAL_NUMBER:
            return SourceKind::Decimal;
        case SCR_COMPARE_OPERATOR:
        case SCR_PATTERN_COMPARE:
            return SourceKind::Comparison;
        default:
            break;
    }
    if (beginsName(text.front())) {
        return wordOf(text, hostTypesG) != Word::None ? SourceKind::Keyword : SourceKind::Strange;
    }
    constexpr std::string_view signs = ",;:{}()[]+-*/%=";
    return signs.find(text.front()) != std::string_view::npos ? SourceKind::Sign
                                                              : SourceKind::Strange;
}

// Adds what lies between two tokens.
void addUnseen(std::string_view text, std::size_t at, std::size_t end,
               const std::vector<std::size_t>& includes, std::vector<SourceToken>& tokens) {
    while (at < end) {
        const std::string_view rest = text.substr(at, end - at);
        SourceToken token;
        token.begin = at;
        if (std::binary_search(includes.begin(), includes.end(), at)) {
            token.kind = SourceKind::IncludeLine;
            token.end = lineEnd(text, at);
        } else if (rest.starts_with("//")) {
            token.kind = SourceKind::LineComment;
            token.end = lineEnd(text, at);
        } else if (rest.starts_with("/*")) {
            token.kind = SourceKind::BlockComment;
            const std::size_t close = text.find("*/", at + 2);
            token.end = close == std::string_view::npos ? text.size() : close + 2;
        } else if (rest.front() == '#') {
            token.kind = SourceKind::LineMark;
            token.end = lineEnd(text, at);
        } else {
            ++at;
            continue;
        }
        at = token.end;
        if (token.kind != SourceKind::BlockComment) {
            while (token.end > token.begin &&
                   std::string_view(" \t\r").find(text[token.end - 1]) != std::string_view::npos) {
                --token.end;
            }
        }
        tokens.push_back(token);
    }
}

// Whether a declaration may begin after `token`, of the text `text`.
bool opensDeclaration(const SourceToken& token, std::string_view text) {
    if (token.kind == SourceKind::Keyword) return token.word == Word::Function;
    constexpr std::string_view signs = ";{}(,";
    return token.kind == SourceKind::Sign && signs.find(text[token.begin]) != signs.npos;
}

void markTypes(std::string_view text, std::vector<SourceToken>& tokens) {
    SourceToken* before = nullptr;  // the name where a declaration may begin
    const SourceToken* last = nullptr;
    for (SourceToken& token : tokens) {
        if (!token.isSeen()) continue;
        if (token.kind != SourceKind::Name) {
            before = nullptr;
        } else if (before != nullptr) {
            const std::size_t end = before->end;
            if (text.substr(end, token.begin - end).find('\n') == std::string_view::npos) {
                before->kind = SourceKind::Keyword;
                before->word = Word::TypeName;
            }
            before = nullptr;
        } else if (last == nullptr || opensDeclaration(*last, text)) {
            before = &token;
        }
        last = &token;
    }
}

}  // namespace

SourceTokens sourceTokens(std::string_view text) {
    SourceTokens result;
    const std::vector<std::size_t> includes = includeLines(text);
    // To the lexer an include line is a comment.
    FND::String copy;
    std::string_view read = text;
    if (!includes.empty()) {
        copy = text;
        for (const std::size_t place : includes) copy.replace(place, 2, "//");
        read = copy;
    }
    CustomLexer lexer({}, read);
    std::size_t last = 0;
    for (;;) {
        const int code = lexer.next();
        const std::string_view found = lexer.token();
        const std::size_t begin =
            code == 0 ? text.size() : static_cast<std::size_t>(found.data() - read.data());
        addUnseen(text, last, begin, includes, result.tokens);
        if (code == 0) break;
        SourceToken token;
        token.begin = begin;
        token.end = last = begin + found.size();
        token.kind = kindOf(code, found);
        if (token.kind == SourceKind::Keyword) token.word = wordOf(found, hostTypesG);
        result.tokens.push_back(token);
    }
    markTypes(text, result.tokens);
    const auto offset = [&](const char* at) {
        return at == nullptr ? SourceTokens::none : static_cast<std::size_t>(at - read.data());
    };
    result.openComment = offset(lexer.openComment());
    result.badLineMark = offset(lexer.badDirective());
    return result;
}

FND::String literalText(std::string_view literal) {
    FND::String text;
    if (literal.size() >= 2) convertEscapeChars(literal.substr(1, literal.size() - 2), text);
    return text;
}

std::string_view includeName(std::string_view line) {
    const std::size_t open = line.find('"');
    const std::size_t close = line.rfind('"');
    if (open == std::string_view::npos || open == close) return {};
    return line.substr(open + 1, close - open - 1);
}

}  // namespace SCR

#include "scr/advice/Scout.h"

#include <algorithm>

#include "Grammar.h"
#include "scr/advice/Wording.h"
#include "scr/message/Quote.h"

namespace SCR {

namespace {

constexpr std::size_t keptTokensS = 64;
constexpr std::size_t tokensPerMarkS = 512;
// Brackets within each other that are known; a script has fewer.
constexpr std::size_t mostOpenS = 5000;
// Bytes of a line that a message shows.
constexpr std::size_t shownS = 160;

bool isContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

int openingOf(int code) {
    switch (code) {
        case SCR_CLOSE_BRACE:
            return SCR_OPEN_BRACE;
        case SCR_CLOSE_PARENTHESIS:
            return SCR_OPEN_PARENTHESIS;
        case SCR_CLOSE_BRACKET:
            return SCR_OPEN_BRACKET;
        default:
            return 0;
    }
}

// The number of characters; a byte that is no UTF-8 counts as one.
std::size_t characters(std::string_view text) {
    std::size_t count = 0;
    for (; !text.empty(); ++count)
        text.remove_prefix(std::max<std::size_t>(characterSize(text), 1));
    return count;
}

bool tellsToIgnore(std::string_view line, std::string_view code) {
    const std::size_t found = line.find("kestrel: ignore");
    return found != std::string_view::npos && line.find(code, found) != std::string_view::npos;
}

}  // namespace

bool isIgnoredInLine(std::string_view text, int number, std::string_view code) {
    for (int line = 1; line <= number; ++line) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        if (line + 1 >= number && tellsToIgnore(text.substr(0, end), code)) return true;
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return false;
}

Scout::Scout(std::string_view head, std::string_view body, std::string_view tail,
             const std::vector<const char*>& openTexts)
    : parts_{head, body, tail}, lexer_(head, body, tail) {
    for (const char* const text : openTexts) lexer_.endTextWithLine(text);
    mark();
}

std::string_view Scout::partOf(const char* at) const {
    for (const std::string_view part : parts_) {
        if (at >= part.data() && at <= part.data() + part.size() && !part.empty() &&
            (at != part.data() + part.size() || part.data() == parts_[1].data())) {
            return part;
        }
    }
    return at == parts_[2].data() + parts_[2].size() ? parts_[2] : std::string_view();
}

bool Scout::isInText(Span span) const {
    return span.begin != nullptr && !partOf(span.begin).empty() && span.begin <= span.end;
}

void Scout::mark() {
    const auto found = std::find(files_.begin(), files_.end(), lexer_.fileName());
    const auto file = static_cast<std::size_t>(found - files_.begin());
    if (found == files_.end()) files_.push_back(lexer_.fileName());
    const std::string_view token = lexer_.token();
    const auto lines = static_cast<int>(std::count(token.begin(), token.end(), '\n'));
    marks_.push_back({token.data(), lexer_.line() - lines, file});
}

bool Scout::read() {
    if (isAtEnd_) return false;
    const int lineBefore = lexer_.line();
    const char* const endBefore = lexer_.token().data() + lexer_.token().size();
    Token token;
    token.code = lexer_.next();
    const std::string_view text = lexer_.token();
    token.span = {text.data(), text.data() + text.size()};
    isAtEnd_ = token.code == 0;
    const std::string_view part = partOf(endBefore);
    const bool isSamePart = text.data() >= endBefore && text.data() <= part.data() + part.size();
    const auto isCounted = [&] {
        return lexer_.line() - lineBefore == std::count(endBefore, token.span.end, '\n');
    };
    if (count_ % tokensPerMarkS == 0 || !isSamePart ||
        lexer_.fileName() != files_[marks_.back().file] || !isCounted()) {
        mark();
    }
    measure(token);
    note(token);
    tokens_.push_back(token);
    if (tokens_.size() > keptTokensS) tokens_.pop_front();
    ++count_;
    return true;
}

// Looks at the bytes since the token before, so that all tokens together take one pass.
void Scout::measure(Token& token) {
    const char* from = this->token().span.begin;
    const std::string_view part = partOf(token.span.begin);
    if (part.empty()) return;
    const bool isNew = from == nullptr || partOf(from).data() != part.data();
    if (isNew) from = lineBegin_ = part.data();
    const std::string_view passed(from, static_cast<std::size_t>(token.span.begin - from));
    const std::size_t end = passed.rfind('\n');
    if (end != std::string_view::npos) lineBegin_ = from + end + 1;
    token.isFirst = end != std::string_view::npos || isNew;
    if (token.isFirst) lineIndent_ = static_cast<std::size_t>(token.span.begin - lineBegin_);
    token.indent = lineIndent_;
}

void Scout::dropOpen() {
    while (!open_.empty() && open_.back().token.code != SCR_OPEN_BRACE) open_.pop_back();
}

void Scout::dropParentheses() {
    std::erase_if(open_, [](const auto& bracket) { return bracket.token.code != SCR_OPEN_BRACE; });
}

void Scout::note(const Token& token) {
    const Token before = this->token();
    // What the token read before changes for the one read now.
    if (isOpening(before.code)) {
        const Token word = this->token(1);
        const bool isSwitch =
            before.code == SCR_OPEN_BRACE && word.code == SCR_CLOSE_PARENTHESIS && isAfterSwitch_;
        if (open_.size() < mostOpenS) {
            open_.push_back({before, word, statement_, isSwitch});
        } else {
            ++deeper_;
        }
    } else if (deeper_ > 0 && openingOf(before.code) != 0) {
        --deeper_;
    } else if (const int opening = openingOf(before.code)) {
        const auto found = std::find_if(open_.rbegin(), open_.rend(), [&](const Bracket& bracket) {
            return bracket.token.code == opening;
        });
        if (found != open_.rend()) {
            const bool isBrace = opening == SCR_OPEN_BRACE && before.isFirst;
            if (isBrace && suspect_.token.span.begin == nullptr &&
                before.indent < found->token.indent) {
                suspect_ = *found;
            }
            isAfterSwitch_ =
                found->before.code == SCR_SWITCH || found->before.code == SCR_REGEXPR_SWITCH;
            closed_ = *found;
            open_.erase(std::next(found).base(), open_.end());
        }
    }
    const bool ends = before.code == SCR_SEMICOLON || before.code == SCR_OPEN_BRACE ||
                      before.code == SCR_CLOSE_BRACE;
    if (ends) ++statement_;
    if (token.code == SCR_STRING && token.text().find('\n') != std::string_view::npos &&
        (longText_.code == 0 || longTextStatement_ + 1 < statement_)) {
        longText_ = token;
        longTextStatement_ = statement_;
    }
    if (token.code == SCR_IDENTIFIER) {
        const bool isFunction =
            before.code == SCR_FCT_DECLARATION ||
            (before.code == SCR_VAR_DECLARATION && this->token(1).code == SCR_FCT_DECLARATION);
        if (isFunction || before.code == SCR_VAR_DECLARATION) {
            declarations_.push_back({token.text(), token.span, isFunction});
        }
    }
}

void Scout::readTo(const char* begin) {
    const std::string_view part = partOf(begin);
    const auto isReached = [&] {
        const Span last = token().span;
        return last.begin != nullptr && !part.empty() && partOf(last.begin).data() == part.data() &&
               (last.begin >= begin || last.end > begin);
    };
    while (!isReached() && read()) {
    }
}

void Scout::readToEnd() {
    while (read()) {
    }
}

bool Scout::isIgnored(Span span, std::string_view code) const {
    if (!isInText(span)) return false;
    const std::string_view line = lineOf(span.begin);
    if (tellsToIgnore(line, code)) return true;
    const bool isFirst = line.data() == nullptr || line.data() == partOf(span.begin).data();
    return !isFirst && tellsToIgnore(lineOf(line.data() - 1), code);
}

Scout::Token Scout::token(std::size_t back) const {
    return back < tokens_.size() ? tokens_[tokens_.size() - 1 - back] : Token();
}

Scout::Token Scout::next() const {
    CustomLexer ahead = lexer_;
    Token token;
    token.code = ahead.next();
    const std::string_view text = ahead.token();
    token.span = {text.data(), text.data() + text.size()};
    return token;
}

std::vector<Scout::Token> Scout::tokensIn(Span span) const {
    constexpr std::size_t most = 400;
    std::vector<Token> tokens;
    if (!isInText(span)) return tokens;
    CustomLexer lexer({}, {span.begin, static_cast<std::size_t>(span.end - span.begin)});
    while (tokens.size() < most) {
        Token token;
        token.code = lexer.next();
        if (token.code == 0) break;
        const std::string_view text = lexer.token();
        token.span = {text.data(), text.data() + text.size()};
        tokens.push_back(token);
    }
    return tokens;
}

std::vector<Scout::Declaration> Scout::laterDeclarations() const {
    constexpr std::size_t most = 20000;
    Scout ahead = *this;
    ahead.declarations_.clear();
    for (std::size_t i = 0; i < most && ahead.read(); ++i) {
    }
    return ahead.declarations_;
}

std::string_view Scout::lineOf(const char* at) const {
    const std::string_view part = partOf(at);
    if (part.empty()) return {};
    const auto offset = static_cast<std::size_t>(at - part.data());
    const std::size_t before = offset == 0 ? std::string_view::npos : part.rfind('\n', offset - 1);
    const std::size_t begin = before == std::string_view::npos ? 0 : before + 1;
    std::string_view line =
        part.substr(begin, std::min(part.find('\n', offset), part.size()) - begin);
    // The text begins after the mode word, in the same piece.
    if (begin == 0 && part.data() == parts_[0].data()) line = {};
    return line;
}

std::size_t Scout::rest(const char* at) const {
    const std::string_view part = partOf(at);
    return part.empty() ? 0 : static_cast<std::size_t>(part.data() + part.size() - at);
}

bool Scout::isSameLine(const char* first, const char* second) const {
    const std::string_view part = partOf(first);
    if (part.data() != partOf(second).data() || second < first) return false;
    return std::find(first, second, '\n') == second;
}

bool Scout::afterParenthesis(const char* at) const {
    const std::string_view part = partOf(at);
    if (part.empty()) return false;
    const std::string_view before(part.data(), static_cast<std::size_t>(at - part.data()));
    const std::size_t last = before.find_last_not_of(" \t\r\n");
    return last != std::string_view::npos && before[last] == ')';
}

Diagnostic::Place Scout::place(Span span) const {
    if (!isInText(span)) return {};
    const std::string_view part = partOf(span.begin);
    const Mark* nearest = nullptr;
    for (auto mark = marks_.rbegin(); mark != marks_.rend() && nearest == nullptr; ++mark) {
        if (partOf(mark->at).data() == part.data() && mark->at <= span.begin) nearest = &*mark;
    }
    Diagnostic::Place place;
    if (nearest == nullptr) {
        place.line = 1 + static_cast<int>(std::count(part.data(), span.begin, '\n'));
        place.file = lexer_.fileName();
    } else {
        place.line = nearest->line + static_cast<int>(std::count(nearest->at, span.begin, '\n'));
        place.file = files_[nearest->file];
    }
    const std::string_view line = lineOf(span.begin);
    const auto before = static_cast<std::size_t>(span.begin - line.data());
    place.column = columnOf(line, before);
    const auto length = static_cast<std::size_t>(span.end - span.begin);
    const std::string_view rest = line.substr(std::min(before, line.size()), length);
    place.length = std::max(1, static_cast<int>(characters(rest)));
    return place;
}

int Scout::columnOf(std::string_view line, std::size_t before) const {
    // Places usually follow one another, and a line may be long.
    const bool isAfter = lastLine_ == line.data() && lastBefore_ <= before;
    const std::size_t from = isAfter ? lastBefore_ : 0;
    const int column = isAfter ? lastColumn_ : 1;
    lastLine_ = line.data();
    lastBefore_ = before;
    lastColumn_ = column + static_cast<int>(characters(line.substr(from, before - from)));
    return lastColumn_;
}

void Scout::addIncludes(Diagnostic& diagnostic) const {
    constexpr const char* included = "included here";
    std::erase_if(diagnostic.notes, [&](const auto& note) { return note.text == included; });
    const auto& includes = lexer_.includes();
    FND::String file = diagnostic.place.file;
    for (auto include = includes.rbegin(); include != includes.rend(); ++include) {
        if (file.empty() || include->file != file) continue;
        diagnostic.notes.push_back({included, {include->from, include->line, 0, 0}});
        file = include->from;
    }
}

void Scout::locate(Span span, Diagnostic& diagnostic) const {
    if (!isInText(span)) return;
    diagnostic.place = place(span);
    addIncludes(diagnostic);
    std::string_view line = lineOf(span.begin);
    if (line.ends_with('\r')) line.remove_suffix(1);
    const auto at = std::min(static_cast<std::size_t>(span.begin - line.data()), line.size());
    std::size_t begin = at > shownS / 2 && line.size() > shownS ? at - shownS / 2 : 0;
    while (begin > 0 && begin < line.size() && isContinuation(line[begin])) --begin;
    std::size_t end = std::min(begin + shownS, line.size());
    while (end < line.size() && isContinuation(line[end])) ++end;
    diagnostic.source = line.substr(begin, end - begin);
    diagnostic.sourceColumn =
        diagnostic.place.column - static_cast<int>(characters(line.substr(begin, at - begin)));
}

Span trimmed(Span span) {
    if (span.begin == nullptr) return span;
    // Without comments and lines about lines there are only blanks after the last token.
    const std::string_view text = span.text();
    if (text.find('/') == std::string_view::npos && text.find('#') == std::string_view::npos) {
        return {span.begin, span.begin + text.find_last_not_of(" \t\r\n") + 1};
    }
    CustomLexer lexer({}, span.text());
    const char* end = span.begin;
    while (lexer.next() != 0) end = lexer.token().data() + lexer.token().size();
    return {span.begin, end};
}

FND::String Scout::shown(Span span) {
    constexpr std::size_t most = 40;
    std::string_view text = span.text();
    FND::String shown;
    const bool isCut = text.size() > most || text.find('\n') != std::string_view::npos;
    text = text.substr(0, std::min(most, text.find('\n')));
    while (isCut && !text.empty() && isContinuation(text.back())) text.remove_suffix(1);
    appendPrintable(shown, text);
    return isCut ? shown + "..." : shown;
}

}  // namespace SCR

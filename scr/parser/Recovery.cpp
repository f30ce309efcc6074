#include "scr/parser/Recovery.h"

#include <algorithm>
#include <functional>
#include <limits>

#include "Grammar.h"
#include "scr/Constant.h"
#include "scr/Interpreter.h"
#include "scr/SwitchCase.h"
#include "scr/action/Actions.h"
#include "scr/check/Analyses.h"
#include "scr/parser/CustomLexer.h"
#include "scr/parser/ParseErrors.h"
#include "scr/parser/ParseState.h"
#include "scr/run/PendingBuilds.h"

namespace SCR {

namespace {

Scout& scout() {
    Recovery& recovery = parseContextG->recovery;
    if (!recovery.scout) {
        const auto& parts = parseContextG->lexer->parts();
        recovery.scout = std::make_unique<Scout>(parts[0], parts[1], parts[2],
                                                 parseContextG->lexer->openTexts());
    }
    return *recovery.scout;
}

Span lastToken() {
    const std::string_view token = parseContextG->lexer->token();
    return {token.data(), token.data() + token.size()};
}

bool beginsStatement(int code) {
    return code == SCR_IF || code == SCR_WHILE || code == SCR_FOR || code == SCR_DO ||
           code == SCR_SWITCH || code == SCR_REGEXPR_SWITCH || code == SCR_RETURN ||
           code == SCR_VAR_DECLARATION || code == SCR_FCT_DECLARATION ||
           code == SCR_CONST_CONSTANT || code == SCR_USE || code == SCR_IDENTIFIER ||
           code == SCR_MODULE_IDENTIFIER;
}

bool beginsHeader(int code) {
    return code == SCR_IF || code == SCR_WHILE || code == SCR_FOR || code == SCR_SWITCH ||
           code == SCR_REGEXPR_SWITCH || code == SCR_FCT_DECLARATION;
}

// The message reported last, and whether its code is `code`.
const Diagnostic* lastMessage() {
    const std::vector<Diagnostic>& messages = actInterpreterG->pendingBuilds()->messages();
    return messages.empty() ? nullptr : &messages.back();
}

bool isLast(MessageCode code) {
    const Diagnostic* const last = lastMessage();
    return last != nullptr && last->code == codeName(code);
}

void forget(const Scout::Token& token) {
    if (token.code == SCR_IDENTIFIER) {
        parseContextG->recovery.lostNames.insert(FND::String(token.text()));
    }
}

}  // namespace

}  // namespace SCR

using namespace SCR;

namespace {

void complete(std::initializer_list<Span> spans) {
    Recovery& recovery = parseContextG->recovery;
    std::vector<Diagnostic>& messages = actInterpreterG->pendingBuilds()->messages();
    if (recovery.completed >= messages.size()) return;
    Scout& guide = scout();
    const Span last = lastToken();
    guide.readTo(last.begin);
    for (std::size_t i = recovery.completed; i + 1 < messages.size(); ++i) {
        messages[i].isDetail = messages[i].severity >= FND::Status::Error;
    }
    Fault& fault = recovery.fault;
    fault.spans.assign(spans);
    if (fault.spans.empty()) fault.spans.push_back(last);
    Advice(*actInterpreterG, guide, fault, messages.back()).give();
    if (recovery.wasScrambled && messages.back().code != codeName(MessageCode::Scrambled) &&
        (guide.token().code == 0 || guide.next().code == 0)) {
        messages.back().notes.push_back(
            {"the script was scrambled, and its text ends here: it may have been cut", {}});
    }
    if (messages.back().severity < FND::Status::Error &&
        guide.isIgnored(fault.spans[0], messages.back().code)) {
        messages.back().isDetail = true;
    }
    recovery.completed = messages.size();
}

}  // namespace

void SCR_complete(Span span) {
    if (parseContextG->recovery.completed == actInterpreterG->pendingBuilds()->messages().size()) {
        return;
    }
    complete({span});
}

Span SCR_reach(std::string_view first, const char* end) {
    const char* const begin = first.data();
    for (const std::string_view part : parseContextG->lexer->parts()) {
        const char* const partEnd = part.data() + part.size();
        const std::less_equal<const char*> isBefore;
        if (!isBefore(part.data(), begin) || !isBefore(begin, partEnd)) continue;
        const bool isSamePart = isBefore(begin, end) && isBefore(end, partEnd);
        return {begin, isSamePart ? end : partEnd};
    }
    return {begin, begin + first.size()};
}

void SCR_about(std::string_view first, const char* end) {
    parseContextG->about = {first.data(), end};
}

Span SCR_stretch(std::string_view first, const char* end) { return trimmed(SCR_reach(first, end)); }

bool SCR_recover(std::initializer_list<Span> spans) {
    Recovery& recovery = parseContextG->recovery;
    complete(spans);
    if (!recovery.isTolerant) return false;
    Scout& guide = scout();
    recovery.hasLostLibrary =
        recovery.hasLostLibrary || recovery.fault.message.code == MessageCode::Library;
    for (const Span span : spans) {
        for (const Scout::Token& token : guide.tokensIn(span)) {
            if (token.code == SCR_IDENTIFIER &&
                actInterpreterG->getVariable({}, FND::String(token.text())) == nullptr) {
                forget(token);
            }
        }
    }
    // Which texts begin where is not known then.
    if (isLast(MessageCode::OpenText) && recovery.fault.message.code == MessageCode::UnknownName) {
        recovery.isTolerant = false;
        ++recovery.errors;
        return false;
    }
    if (lastMessage() != nullptr && lastMessage()->change == "else if") {
        ++recovery.lostHeaders;  // an `else` may follow
    }
    if (isLast(MessageCode::MissingBrace) && guide.token().code != SCR_CLOSE_BRACE) {
        recovery.hasLostBrace = true;
    }
    if (isLast(MessageCode::OtherLanguage)) {
        // What belongs to it in that language.
        for (const char* const word : {"catch", "except", "finally", "then", "done", "end", "endif",
                                       "fi", "next", "in", "until"}) {
            recovery.lostNames.insert(word);
        }
    }
    analysesG = nullptr;  // they follow good scripts only
    parseContextG->isWatched = false;
    parseContextG->isLost = true;
    recovery.isForgiven = false;
    return ++recovery.errors < Recovery::mostCM;
}

void SCR_settle() {
    parseContextG->recovery.braces = parseContextG->lexer->braceDepth();
    parseContextG->isLost = false;
    stackG->clearTo(static_cast<std::size_t>(parseContextG->declaredFunctions));
}

void SCR_settleCondition() {
    SCR_settle();
    stackG->pushData(new BoolConstant(true), TypeCode::Bool);
}

bool SCR_settleFor() {
    if (!parseContextG->isLost) return true;
    SCR_settle();
    stackG->pushData(new LongConstant(0), TypeCode::Long);
    stackG->pushData(new BoolConstant(true), TypeCode::Bool);
    stackG->pushData(new LongConstant(0), TypeCode::Long);
    return SCR_forLoop();
}

bool SCR_settleSwitch() {
    if (!parseContextG->isLost) return true;
    SCR_settle();
    stackG->pushData(new StringConstant(FND::String()), TypeCode::String);
    if (!SCR_switchStatement()) return false;
    parseContextG->recovery.lostSwitches.insert(actInterpreterG->topStatement());
    return true;
}

bool SCR_settleCase() {
    Recovery& recovery = parseContextG->recovery;
    if (!parseContextG->isLost) return true;
    SCR_settle();
    // A label that no other one equals.
    const long number = --recovery.lostLabels;
    Node* const open = actInterpreterG->topStatement();
    if (dynamic_cast<LongSwitchCase*>(open) != nullptr) {
        stackG->pushData(new LongConstant(std::numeric_limits<long>::max() + number),
                         TypeCode::Long | TypeCode::ConstFlag);
    } else {
        stackG->pushData(new StringConstant("lost" + std::to_string(-number)),
                         TypeCode::String | TypeCode::ConstFlag);
    }
    return SCR_caseStatement();
}

bool SCR_settleFunction(std::string_view name) {
    Recovery& recovery = parseContextG->recovery;
    if (!parseContextG->isLost) return true;
    SCR_settle();
    recovery.lostNames.insert(FND::String(name));
    ++recovery.lostFunctions;
    parseContextG->isLostFunction = true;
    return SCR_startBlock();
}

void SCR_loseParameters() {
    if (parseContextG->functionDescriptor == nullptr) return;
    parseContextG->recovery.looseFunctions.insert(parseContextG->functionDescriptor);
}

bool SCR_isForgiven(const FND::String& module, const FND::String& name) {
    const auto& lost = parseContextG->recovery.lostNames;
    return parseContextG->recovery.hasLostLibrary ||
           (!lost.empty() && lost.contains(module.empty() ? name : module));
}

namespace {

// Whether a statement that only names what was lost misses its semicolon all the same.
bool misses(const Scout& guide) {
    const Scout::Token found = guide.token();
    const Scout::Token last = guide.token(1);
    const bool isEnd = last.code == SCR_CLOSE_PARENTHESIS || last.code == SCR_CLOSE_BRACKET ||
                       last.code == SCR_STRING || last.code == SCR_LONG_NUMBER;
    return parseContextG->recovery.isForgiven && isEnd && found.isFirst &&
           beginsStatement(found.code) &&
           (guide.open().empty() || guide.open().back().token.code == SCR_OPEN_BRACE);
}

// The word around the token found, when it is no name because of that token: a word of the language
// after a type or in a value, or one with a sign that names do not have. Empty for none.
FND::String brokenName(const Scout& guide) {
    const Scout::Token found = guide.token();
    const auto isPart = [](char byte) {
        return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
               (byte >= '0' && byte <= '9') || byte == '_' || byte == '$' || byte == '@' ||
               static_cast<unsigned char>(byte) >= 0x80;
    };
    const bool isWord = found.code == SCR_CASE || found.code == SCR_DEFAULT ||
                        found.code == SCR_BREAK || found.code == SCR_DO || found.code == SCR_USE;
    const int last = guide.token(1).code;
    if (isWord && (last == SCR_VAR_DECLARATION || last == SCR_OPEN_PARENTHESIS || last == ',' ||
                   last == '=' || last == '+')) {
        return FND::String(found.text());
    }
    const bool isSign = found.code > 0 && found.code < 256 && found.span.begin != nullptr &&
                        (*found.span.begin == '$' || *found.span.begin == '@' ||
                         static_cast<unsigned char>(*found.span.begin) >= 0x80);
    if (!isSign) return {};
    const Scout::Token before = guide.token(1);
    const bool isJoined = before.code == SCR_IDENTIFIER && before.span.end == found.span.begin;
    const char* const begin = isJoined ? before.span.begin : found.span.begin;
    const std::string_view rest(begin, std::min<std::size_t>(guide.rest(begin), 100));
    const auto end =
        static_cast<std::size_t>(std::find_if_not(rest.begin(), rest.end(), isPart) - rest.begin());
    const std::string_view name = rest.substr(0, end);
    // Quotes are mistakes of their own.
    if (name.find("\xE2\x80") != std::string_view::npos) return {};
    const bool hasLetter = std::ranges::any_of(
        name, [](char byte) { return static_cast<unsigned char>(byte) < 0x80 && byte != '$'; });
    return hasLetter ? FND::String(name) : FND::String();
}

}  // namespace

void SCR_parserError(CustomLexer& lexer, std::string_view message) {
    Recovery& recovery = parseContextG->recovery;
    if (recovery.isAtEnd) return;
    if (message != "syntax error") {
        SCR_YaccError(Messages::nestedTooDeep);
        SCR_recover({});
        recovery.isTolerant = false;
        return;
    }
    if (recovery.isTolerant) {
        Scout& guide = scout();
        guide.readTo(lexer.token().data());
        const Scout::Token found = guide.token();
        const Scout::Token last = guide.token(1);
        const bool isFollower = recovery.lastFound != nullptr &&
                                (recovery.lastFound == found.span.begin ||
                                 (found.code == SCR_ELSE && recovery.lastFound == last.span.begin));
        const bool isOfSwitch = found.code == SCR_CASE || found.code == SCR_DEFAULT ||
                                found.code == SCR_BREAK || found.code == SCR_COLON;
        const bool endsDo = found.code == SCR_SEMICOLON && recovery.hasLostDo &&
                            guide.closed().before.code == SCR_WHILE;
        const bool isRest = endsDo || (recovery.lostHeaders > 0 && found.code == SCR_ELSE) ||
                            isFollower || (recovery.hasLostSwitch && isOfSwitch) ||
                            (recovery.hasLostBrace && found.code == 0);
        recovery.lastFound = found.span.begin;
        recovery.hasLostDo = recovery.hasLostDo || last.code == SCR_SEMICOLON;
        // What follows a part that was lost is no second mistake, nor is a name in use that could
        // not be declared.
        const FND::String name = brokenName(guide);
        if (isRest || (parseContextG->isLost && !misses(guide)) ||
            (!name.empty() && !recovery.brokenNames.insert(name).second)) {
            return;
        }
    }
    SCR_YaccError(Messages::parseError);
    SCR_recover({});
    if (isLast(MessageCode::FunctionHeader) && scout().token().code == SCR_OPEN_PARENTHESIS) {
        recovery.hasLostFunction = true;
    }
    // Without its body, a function does not end.
    if (isLast(MessageCode::FunctionHeader) &&
        (scout().token(1).code == SCR_CLOSE_PARENTHESIS || scout().token().code == '=' ||
         scout().token().code == SCR_SEMICOLON)) {
        recovery.isAtEnd = true;
        recovery.isTolerant = false;
    }
}

bool SCR_startSkipping() {
    parseContextG->isWatched = false;
    Recovery& recovery = parseContextG->recovery;
    constexpr int mostSkips = 1000;
    if (!recovery.isTolerant || recovery.errors >= Recovery::mostCM) return false;
    if (++recovery.skips > mostSkips) return false;
    parseContextG->needsCare = true;
    recovery.isSkipping = true;
    return true;
}

namespace {

Recovery::Token readToken(CustomLexer& lexer) {
    Recovery::Token token;
    token.code = lexer.next();
    const std::string_view text = lexer.token();
    token.span = {text.data(), text.data() + text.size()};
    return token;
}

// After a text that was not closed: goes back to the end of its line, or to the brace there that
// opens a body. Gives the beginning of the text; null when it was something else.
const char* goBackToText(CustomLexer& lexer, Recovery& recovery) {
    constexpr int most = 3;  // each reads the text again
    if (!isLast(MessageCode::OpenText) || recovery.openTexts >= most) {
        return nullptr;
    }
    const Scout::Token found = scout().token();
    const Scout::Token open = scout().longText();
    const char* const text = open.code != 0 ? open.span.begin : found.span.begin;
    std::string_view line(text, scout().rest(text));
    line = line.substr(0, line.find('\n'));
    while (!line.empty() && std::string_view(" \t\r").find(line.back()) != std::string_view::npos) {
        line.remove_suffix(1);
    }
    const char* const place = line.data() + line.size() - (line.ends_with('{') ? 1 : 0);
    if (!lexer.goBack(text, place)) return nullptr;
    ++recovery.openTexts;
    lexer.endTextWithLine(text);
    recovery.scout.reset();
    scout().readTo(text);
    return text;
}

// After a list of parameters without its parenthesis: goes back to the brace that opens the body.
bool goBackToBody(CustomLexer& lexer, Scout& guide) {
    const Scout::Token brace = guide.token(1);
    const Scout::Token name = guide.token(2);
    const bool isBody = brace.code == SCR_OPEN_BRACE && name.code == SCR_IDENTIFIER &&
                        guide.token().code != SCR_CLOSE_BRACE && guide.open().size() > 1 &&
                        guide.open()[guide.open().size() - 2].token.code == SCR_OPEN_PARENTHESIS;
    if (!isBody || guide.token(3).code != SCR_VAR_DECLARATION ||
        !lexer.goBack(brace.span.begin, brace.span.begin)) {
        return false;
    }
    for (std::size_t back = 2; back < 60; ++back) {
        if (guide.token(back).code == SCR_OPEN_PARENTHESIS) break;
        forget(guide.token(back));
    }
    guide.dropParentheses();
    return true;
}

// Moves over the tokens that belong to a broken statement; the token that follows it is kept in
// `again`.
void skip(CustomLexer& lexer, Recovery& recovery) {
    const char* const textEnd = goBackToText(lexer, recovery);
    Scout& guide = scout();
    const bool isBody = textEnd == nullptr && goBackToBody(lexer, guide);
    guide.readTo(lexer.token().data());
    Recovery::Token token;
    token.code = guide.token().code;
    token.span = guide.token().span;
    const std::string_view given = lexer.token();
    if (given.data() != token.span.begin || textEnd != nullptr) token = readToken(lexer);

    // The words of the statement so far.
    bool isHeader = false;
    int parentheses = 0;
    const std::size_t statement = guide.statement();
    for (std::size_t back = 1; back < 60; ++back) {
        const Scout::Token before = guide.token(back);
        if (before.code == 0 || before.code == SCR_SEMICOLON || before.code == SCR_OPEN_BRACE ||
            before.code == SCR_CLOSE_BRACE) {
            break;
        }
        if (actInterpreterG->getVariable({}, FND::String(before.text())) == nullptr) forget(before);
        if (beginsHeader(before.code)) {
            isHeader = true;
            if (before.code == SCR_FCT_DECLARATION) ++recovery.lostFunctions;
            if (before.code == SCR_SWITCH || before.code == SCR_REGEXPR_SWITCH) {
                recovery.hasLostSwitch = true;
            }
            break;
        }
    }
    for (const Scout::Bracket& open : guide.open()) {
        if (open.token.code != SCR_OPEN_PARENTHESIS || open.statement != statement) continue;
        if (beginsHeader(open.before.code)) isHeader = true;
        ++parentheses;
    }
    if (!guide.open().empty() && guide.open().back().token.code == SCR_OPEN_PARENTHESIS) {
        for (const Scout::Bracket& open : guide.open()) {
            isHeader = isHeader || open.before.code == SCR_FOR;
        }
        isHeader = isHeader || beginsHeader(guide.open().back().before.code);
    }
    if (isBody) {
        isHeader = true;
        ++recovery.lostFunctions;
    } else if (textEnd != nullptr) {
        isHeader = isHeader && token.code == SCR_OPEN_BRACE;
        parentheses = 0;
    }
    if (isHeader) ++recovery.lostHeaders;
    const bool isValueList = (token.code == SCR_OPEN_BRACE && guide.token(1).code == '=') ||
                             (token.code == ',' && isLast(MessageCode::ElementType));
    // The rest of a case is no second mistake.
    const bool isInSwitch = !guide.open().empty() && guide.open().back().isSwitch;
    const bool hasSwitch =
        std::ranges::any_of(guide.open(), [](const Scout::Bracket& open) { return open.isSwitch; });
    int depth = lexer.braceDepth() - recovery.braces;
    // The token that does not fit is counted when it is looked at.
    if (token.code == SCR_OPEN_BRACE) --depth;
    if (token.code == SCR_CLOSE_BRACE) ++depth;
    // Semicolons between arguments.
    const bool isList = !isHeader && parentheses > 0 && token.code == SCR_SEMICOLON &&
                        isLast(MessageCode::OtherOperator);
    const bool isForHeader = isHeader && parentheses > 0;
    const char* lastEnd = textEnd != nullptr ? textEnd : guide.token(1).span.end;
    const auto giveAgain = [&] {
        if (recovery.given == token.span.begin) return false;
        recovery.again = token;
        recovery.given = token.span.begin;
        return true;
    };
    if (token.code == SCR_ELSE && recovery.lostHeaders > 0) return;
    for (bool isFirst = true;; isFirst = false) {
        if (token.code == 0) {
            recovery.again = token;
            recovery.isTolerant = false;
            recovery.isAtEnd = true;
            return;
        }
        const bool isNewLine = lastEnd != nullptr && !guide.isSameLine(lastEnd, token.span.begin);
        if (token.code == SCR_OPEN_BRACE) {
            if (isHeader && depth <= 0 && giveAgain()) return;
            ++depth;
        } else if (token.code == SCR_CLOSE_BRACE) {
            if (depth <= 0) {
                if (actInterpreterG->statementDepth() > 1 && giveAgain()) return;
                if (isFirst) return;
            } else if (--depth == 0 && !isHeader && !isInSwitch && !isValueList) {
                return;
            }
        } else if (depth <= 0 &&
                   ((token.code == SCR_SEMICOLON && !isInSwitch &&
                     !((isForHeader || isList) && parentheses > 0)) ||
                    (((isNewLine && !isInSwitch && beginsStatement(token.code) &&
                       !(isHeader && parentheses > 0 && token.code == SCR_IDENTIFIER)) ||
                      ((token.code == SCR_CASE || token.code == SCR_DEFAULT) && hasSwitch)) &&
                     giveAgain()))) {
            return;
        } else if (token.code == SCR_OPEN_PARENTHESIS) {
            ++parentheses;
        } else if (token.code == SCR_CLOSE_PARENTHESIS) {
            if (--parentheses == 0 && isForHeader && depth <= 0) return;
        } else if (token.code == SCR_IDENTIFIER &&
                   actInterpreterG->getVariable({}, FND::String(token.span.text())) == nullptr) {
            recovery.lostNames.insert(FND::String(token.span.text()));
        }
        lastEnd = token.span.end;
        token = readToken(lexer);
    }
}

}  // namespace

int SCR_carefulToken(std::string_view& text, CustomLexer& lexer) {
    Recovery& recovery = parseContextG->recovery;
    if (recovery.isSkipping) {
        recovery.isSkipping = false;
        skip(lexer, recovery);
        scout().dropOpen();
        text = {};
        return SCR_RECOVERED;
    }
    Recovery::Token token = recovery.again;
    parseContextG->needsCare = false;
    if (token.span.begin == nullptr) token = readToken(lexer);
    recovery.again = {};
    text = token.span.text();
    return token.code;
}

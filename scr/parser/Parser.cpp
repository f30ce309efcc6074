#include "scr/parser/Parser.h"

#include <array>
#include <chrono>
#include <optional>
#include <string_view>
#include <utility>

#include "Grammar.h"
#include "fnd/ForkGuard.h"
#include "scr/Interpreter.h"
#include "scr/Node.h"
#include "scr/check/Analyses.h"
#include "scr/message/Messages.h"
#include "scr/parser/CustomLexer.h"
#include "scr/parser/Observing.h"
#include "scr/parser/ParseErrors.h"
#include "scr/parser/ParseState.h"
#include "scr/parser/Preprocessor.h"
#include "scr/run/PendingBuilds.h"
#include "scr/run/RunControl.h"
#include "scr/value/ObjectTable.h"

namespace SCR {

std::recursive_timed_mutex parserLockG;
CompareInterface* actCompareInterfaceG = nullptr;
ParserStack* stackG = nullptr;
ParseContext* parseContextG = nullptr;
Analyses* analysesG = nullptr;

ParseContext::ParseContext() = default;
ParseContext::~ParseContext() = default;

}  // namespace SCR

using namespace SCR;

namespace {

FND::ForkGuard parserGuardS(FND::ForkGuard::Rank::Parse, parserLockG);

// Waits until no other interpreter parses, or until the waiting one has to stop.
std::unique_lock<std::recursive_timed_mutex> lockParser(SCR::Interpreter& interpreter) {
    constexpr std::chrono::milliseconds interval(5);
    std::unique_lock lock(parserLockG, std::try_to_lock);
    while (!lock.owns_lock()) {
#ifdef __SANITIZE_THREAD__
        // It knows the wait by this clock alone.
        const bool isLocked = lock.try_lock_until(std::chrono::system_clock::now() + interval);
#else
        const bool isLocked = lock.try_lock_for(interval);
#endif
        if (!isLocked) interpreter.runControl().ask(nullptr);
    }
    return lock;
}

// Sets the process-wide parse state for one parse and restores it.
class ParseScope {
public:
    ParseScope(SCR::Interpreter& interpreter, SCR::CompareInterface* target, PendingBuilds& pending)
        : lock_(lockParser(interpreter)),
          pending_(pending),
          interpreter_(actInterpreterG),
          target_(actCompareInterfaceG),
          stack_(stackG),
          context_(parseContextG),
          analyses_(analysesG),
          types_(SCR::hostTypesG) {
        actInterpreterG = &interpreter;
        actCompareInterfaceG = target;
        stackG = &ownStack_;
        parseContextG = &ownContext_;
        analysesG = interpreter.analyses();
        const SCR::TypeNames& types = interpreter.objects().typeNames();
        SCR::hostTypesG = types.empty() ? nullptr : &types;
    }
    ParseScope(const ParseScope&) = delete;
    ParseScope& operator=(const ParseScope&) = delete;
    ~ParseScope() {
        ownStack_.clear();
        actInterpreterG = interpreter_;
        actCompareInterfaceG = target_;
        stackG = stack_;
        parseContextG = context_;
        analysesG = analyses_;
        SCR::hostTypesG = types_;
    }

    // Parses `text`, followed by `tail`, in the mode given by the word at the start of `head`.
    // `isTolerant`: goes on after errors.
    bool parse(std::string_view head, std::string_view text, std::string_view tail = {},
               bool isTolerant = false) {
        ownContext_.recovery.isTolerant = ownContext_.isWatched = isTolerant;
        SCR::CustomLexer lexer(head, text, tail);
        ownContext_.lexer = &lexer;
        Observation* const observation = actInterpreterG->observation();
        if (observation != nullptr && !isTolerant) {
            ownContext_.observing =
                std::make_unique<Observing>(*actInterpreterG, ownStack_, *observation);
            if (head.starts_with("RESULTS")) ownContext_.observing->startBody();
        }
        try {
            const bool isParsed =
                SCR_parse(lexer, ownContext_) == 0 && ownContext_.recovery.errors == 0;
            actInterpreterG->compiledLines(isParsed ? lexer.line() : 0);
            ownContext_.lexer = nullptr;
            if (isTolerant) {
                ownContext_.recovery.lint.report(
                    *actInterpreterG, {head, text, tail},
                    isParsed && analysesG != nullptr ? &analysesG->usage : nullptr,
                    ownContext_.recovery.errors > 0);
            }
            return isParsed;
        } catch (const SCR::ScriptStopped&) {
            pending_.stoppedAt(lexer.fileName(), lexer.line());
            throw;
        }
    }

private:
    const std::unique_lock<std::recursive_timed_mutex> lock_;
    PendingBuilds& pending_;
    SCR::Interpreter* const interpreter_;
    SCR::CompareInterface* const target_;
    SCR::ParserStack* const stack_;
    SCR::ParseContext* const context_;
    SCR::Analyses* const analyses_;
    const SCR::TypeNames* const types_;
    SCR::ParserStack ownStack_;
    SCR::ParseContext ownContext_;
};

// Calls parse(pending), which takes the parse lock, and after releasing it builds what is pending.
template <class Parse>
bool parseAndBuild(SCR::Interpreter& interpreter, std::array<std::string_view, 3> parts,
                   Parse parse) {
    PendingBuilds pending(interpreter);
    // What is built lies in the order of the text, so one reads it for all messages.
    std::optional<Scout> reader;
    pending.completer(
        [&](const Messages::Message& message, std::string_view at, Diagnostic& diagnostic) {
            if (!reader) reader.emplace(parts[0], parts[1], parts[2]);
            Scout& scout = *reader;
            if (at.data() != nullptr) scout.readTo(at.data());
            Fault fault;
            fault.message = message;
            fault.spans.push_back(trimmed({at.data(), at.data() + at.size()}));
            Advice(interpreter, scout, fault, diagnostic).give();
            diagnostic.isDetail = diagnostic.severity < FND::Status::Error &&
                                  scout.isIgnored(fault.spans[0], diagnostic.code);
        });
    bool isParsed = false;
    try {
        isParsed = parse(pending);
    } catch (...) {
        pending.abandon();
        throw;
    }
    return pending.finish() && isParsed;
}

void reportError(const Messages::Message& message, const CustomLexer* lexer) {
    Diagnostic diagnostic;
    diagnostic.code = codeName(message.code);
    if (const MessagePage* const page = messagePage(message.code)) {
        diagnostic.severity = page->severity;
    }
    diagnostic.logSeverity = FND::Status::Error;
    diagnostic.text = "ERROR: " + message.text;
    if (lexer != nullptr) {
        diagnostic.text = Messages::error(lexer->fileName(), lexer->line(), message.text);
        diagnostic.place = {lexer->fileName(), lexer->line(), 0, 0};
    }
    if (parseContextG != nullptr) {
        Fault& fault = parseContextG->recovery.fault;
        fault = {};
        fault.message = message;
    }
    actInterpreterG->diagnose(std::move(diagnostic));
}

}  // namespace

bool SCR_parseScript(SCR::Interpreter& interpreter, const SCR::ExpandedText& text) {
    const FND::String head = "RESULTS: " + text.head;
    return parseAndBuild(interpreter, {head, text.body, text.tail}, [&](PendingBuilds& pending) {
        ParseScope scope(interpreter, nullptr, pending);
        parseContextG->recovery.wasScrambled = text.wasScrambled;
        return scope.parse(head, text.body, text.tail, interpreter.isChecking());
    });
}

bool SCR_parseCondition(SCR::Interpreter& interpreter, SCR::CompareInterface& target,
                        const SCR::ExpandedText& text) {
    const FND::String head = "CONDITIONS: " + text.head;
    return parseAndBuild(interpreter, {head, text.body, text.tail}, [&](PendingBuilds& pending) {
        ParseScope scope(interpreter, &target, pending);
        return scope.parse(head, text.body, text.tail, interpreter.isChecking());
    });
}

bool SCR_parseQuery(SCR::Interpreter& interpreter, const FND::String& text,
                    std::unique_ptr<SCR::BoolNode>& query) {
    std::unique_ptr<SCR::BoolNode> parsed;
    constexpr std::string_view head = "QUERY: ";
    const bool isGood = parseAndBuild(interpreter, {head, text, {}}, [&](PendingBuilds& pending) {
        ParseScope scope(interpreter, nullptr, pending);
        if (!scope.parse(head, text)) return false;
        const int type = stackG->popType();
        if (SCR::Node::baseType(type) != SCR::TypeCode::Bool) {
            const Messages::Message message = Messages::whereClause(type);
            Diagnostic diagnostic;
            diagnostic.code = codeName(message.code);
            diagnostic.text = message.text;
            pending.complete(message, text, diagnostic);
            interpreter.diagnose(std::move(diagnostic));
            return false;
        }
        parsed = stackG->pop<SCR::BoolNode>();
        return true;
    });
    if (isGood) query = std::move(parsed);
    return isGood;
}

bool SCR_parseExpression(SCR::Interpreter& interpreter, const FND::String& text,
                         std::unique_ptr<SCR::Node>& node, int& typeWord) {
    std::unique_ptr<SCR::Node> parsed;
    constexpr std::string_view head = "QUERY: ";
    const bool isGood = parseAndBuild(interpreter, {head, text, {}}, [&](PendingBuilds& pending) {
        ParseScope scope(interpreter, nullptr, pending);
        if (!scope.parse(head, text)) return false;
        typeWord = stackG->popType();
        parsed = stackG->pop<SCR::Node>();
        return parsed != nullptr;
    });
    if (isGood) node = std::move(parsed);
    return isGood;
}

bool SCR_parseMapping(SCR::Interpreter& /*interpreter*/, const FND::String& /*text*/) {
    return false;
}

void SCR::YaccError(const FND::String& message, CustomLexer* lexer) {
    if (actInterpreterG == nullptr) return;
    reportError({.code = MessageCode::HostContract, .text = message}, lexer);
}

std::string_view SCR::parsedText() {
    if (parseContextG == nullptr || parseContextG->lexer == nullptr) return {};
    const Span about = parseContextG->about;
    return about.begin != nullptr
               ? SCR_reach(Span(about.begin, about.begin).text(), about.end).text()
               : parseContextG->lexer->token();
}

int SCR::parsedLine() {
    return parseContextG != nullptr && parseContextG->lexer != nullptr
               ? parseContextG->lexer->line()
               : 0;
}

FND::String SCR::parsedFile() {
    return parseContextG != nullptr && parseContextG->lexer != nullptr
               ? parseContextG->lexer->fileName()
               : FND::String();
}

bool SCR_YaccError(const FND::String& message) {
    SCR::YaccError(message, parseContextG != nullptr ? parseContextG->lexer : nullptr);
    return false;
}

bool SCR_YaccError(const Messages::Message& message) {
    if (actInterpreterG != nullptr) {
        reportError(message, parseContextG != nullptr ? parseContextG->lexer : nullptr);
    }
    return false;
}

#include "fsm/PatternParser.h"

#include <string>
#include <utility>

#include "PatternGrammar.h"
#include "fsm/PatternActions.h"

namespace FSM {

void pushByte(int value) {
    unsigned char byte = static_cast<unsigned char>(value);
    pushPart(byte, byte);
}

void addBytes(int first, int last) {
    topPart().addCharacters(static_cast<unsigned char>(first), static_cast<unsigned char>(last));
}

namespace {

std::unique_ptr<EnginePart> popPart() {
    std::unique_ptr<EnginePart> part = std::move(EnginePart::stackCM.back());
    EnginePart::stackCM.pop_back();
    return part;
}

}  // namespace

void concatenateParts() {
    std::unique_ptr<EnginePart> right = popPart();
    topPart().concatenate(*right);
}

void alternateParts() {
    std::unique_ptr<EnginePart> right = popPart();
    topPart().alternative(*right);
}

bool repeatPart(int minimum, int maximum) {
    return topPart().multiply(static_cast<unsigned>(minimum), static_cast<unsigned>(maximum));
}

}  // namespace FSM

int FSM_debug = 0;

int fsm_lex(int* value, FSM_FlexLexer& scanner) { return scanner.yylex(*value); }

void fsm_error(FSM_FlexLexer& scanner, const char* message) {
    FSM_printerror(message, scanner.lastValue());
}

int FSM_parse(FSM_FlexLexer& scanner) {
    FSM::EnginePart::stackCM.clear();
    FSM::EnginePart::errorTextCM.clear();
    // Hardly ever written, so threads may parse at the same time.
    if (fsm_debug != FSM_debug) fsm_debug = FSM_debug;
    try {
        const int result = fsm_parse(scanner);
        if (result != 0) FSM::EnginePart::stackCM.clear();
        return result;
    } catch (...) {
        FSM::EnginePart::stackCM.clear();
        throw;
    }
}

std::unique_ptr<FSM::EnginePart> FSM::parsePattern(const FND::String& pattern, FND::String& error,
                                                   std::size_t* place) {
    FSM_FlexLexer scanner(pattern);
    if (FSM_parse(scanner) != 0) {
        if (place != nullptr) *place = scanner.tokenBegin();
        error = EnginePart::errorTextCM;
        return nullptr;
    }
    std::unique_ptr<EnginePart> part = EnginePart::enginePart();
    if (part == nullptr) error = "FSM::EnginePart::enginePart() returned NULL";
    return part;
}

void FSM_printerror(const char* message, int value) {
    FND::String& text = FSM::EnginePart::errorTextCM;
    if (value == 0) {
        text = "unexpected end of pattern";
        return;
    }
    std::string_view said = message;
    if (said == "syntax error") said = "parse error";
    if (said == "memory exhausted") said = "parser stack overflow";
    text = said;
    if (value >= 1 && value <= 127) {
        text += " near ";
        text += static_cast<char>(value);
    } else {
        text += " near ASCII char \\" + std::to_string(value);
    }
}

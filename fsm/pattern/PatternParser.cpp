#include "fsm/pattern/PatternParser.h"

#include <string>
#include <utility>

#include "PatternGrammar.h"
#include "fsm/pattern/CharacterSet.h"
#include "fsm/pattern/Characters.h"
#include "fsm/pattern/PatternActions.h"

namespace FSM {

namespace {

// The set that the calling thread's parse is reading.
thread_local CharacterSet openSetS;
// The part on top, if it is that of this set alone.
thread_local const EnginePart* lastSetS = nullptr;

// The code that the value of a token stands for: a character, or a byte in its low 8 bits.
char32_t codeOf(const FSM_FlexLexer& scanner, int value) {
    return scanner.options().isUtf8 ? static_cast<char32_t>(value)
                                    : static_cast<unsigned char>(value);
}

std::unique_ptr<EnginePart> popPart() {
    std::unique_ptr<EnginePart> part = std::move(EnginePart::stackCM.back());
    EnginePart::stackCM.pop_back();
    return part;
}

}  // namespace

void pushCharacter(const FSM_FlexLexer& scanner, int value) {
    const char32_t code = codeOf(scanner, value);
    const PatternOptions& options = scanner.options();
    if (!options.ignoresCase && (!options.isUtf8 || code < 0x80)) {
        const auto byte = static_cast<unsigned char>(code);
        pushPart(byte, byte);
        return;
    }
    openSet(scanner, false);
    openSetS.add(code, code);
    closeSet();
}

void pushWildCard(const FSM_FlexLexer& scanner) {
    if (!scanner.options().isUtf8) {
        pushPart(256);
        return;
    }
    openSet(scanner, true);
    openSetS.add('\n', '\n');
    closeSet();
}

void openSet(const FSM_FlexLexer& scanner, bool isNegated) {
    openSetS = CharacterSet(scanner.options(), isNegated);
}

void addCharacters(const FSM_FlexLexer& scanner, int first, int last) {
    openSetS.add(codeOf(scanner, first), codeOf(scanner, last));
}

void closeSet() {
    EnginePart::stackCM.push_back(openSetS.part());
    lastSetS = EnginePart::stackCM.back().get();
}

void forgetSet() { lastSetS = nullptr; }

void loosenSet(const FSM_FlexLexer& scanner) {
    if (scanner.meetsUtf8Only() && lastSetS == &topPart() && openSetS.holdsAllOfSeveralBytes()) {
        EnginePart::stackCM.back() = openSetS.loosePart();
    }
    forgetSet();
}

void concatenateParts() {
    forgetSet();
    std::unique_ptr<EnginePart> right = popPart();
    topPart().concatenate(*right);
}

void alternateParts() {
    forgetSet();
    std::unique_ptr<EnginePart> right = popPart();
    topPart().alternative(*right);
}

bool repeatPart(int minimum, int maximum) {
    forgetSet();
    return topPart().multiply(static_cast<unsigned>(minimum), static_cast<unsigned>(maximum));
}

}  // namespace FSM

int FSM_debug = 0;

int fsm_lex(int* value, FSM_FlexLexer& scanner) {
    const int token = scanner.yylex(*value);
    return token == FSM_CHAR && scanner.takeText() ? FSM_TEXT : token;
}

void fsm_error(FSM_FlexLexer& scanner, const char* message) {
    if (scanner.isMisencoded()) {
        FSM::EnginePart::errorTextCM = "not UTF-8";
        return;
    }
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

std::unique_ptr<FSM::EnginePart> FSM::parsePattern(const FND::String& pattern,
                                                   const PatternOptions& options,
                                                   FND::String& error, std::size_t* place,
                                                   bool meetsUtf8Only) {
    FSM_FlexLexer scanner(pattern, options);
    scanner.meetsUtf8Only(meetsUtf8Only);
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

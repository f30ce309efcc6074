#include "fsm/PatternCheck.h"

#include "fsm/EnginePart.h"
#include "fsm/PatternParser.h"

namespace FSM {

bool checkPattern(const FND::String& pattern, FND::String& error) {
    const std::lock_guard<std::mutex> guard(parserLockG);
    FSM_FlexLexer scanner(pattern);
    if (FSM_parse(scanner) != 0) {
        error = EnginePart::errorTextCM;
        return false;
    }
    // Takes the part that the parser left, only to drop it.
    EnginePart::enginePart();
    return true;
}

}  // namespace FSM

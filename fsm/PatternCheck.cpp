#include "fsm/PatternCheck.h"

#include <new>

#include "fsm/PatternParser.h"

namespace FSM {

bool checkPattern(const FND::String& pattern, FND::String& error) {
    try {
        return parsePattern(pattern, error) != nullptr;
    } catch (const std::bad_alloc&) {
        error = "FSM::EnginePart::operator new():no memory available";
        return false;
    }
}

}  // namespace FSM

#include "fsm/PatternOptions.h"

#include <new>

#include "fsm/pattern/PatternParser.h"

namespace FSM {

bool checkPattern(const FND::String& pattern, FND::String& error) {
    std::size_t place = 0;
    return checkPattern(pattern, error, place);
}

bool checkPattern(const FND::String& pattern, FND::String& error, std::size_t& place,
                  const PatternOptions& options) {
    place = 0;
    try {
        return parsePattern(pattern, options, error, &place) != nullptr;
    } catch (const std::bad_alloc&) {
        error = "FSM::EnginePart::operator new():no memory available";
        return false;
    }
}

}  // namespace FSM

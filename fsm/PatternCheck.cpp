#include "fsm/PatternOptions.h"

#include <new>

#include "fsm/pattern/PatternList.h"
#include "fsm/pattern/PatternParser.h"
#include "fsm/pattern/Shape.h"

namespace FSM {

bool checkPattern(const FND::String& pattern, FND::String& error) {
    std::size_t place = 0;
    return checkPattern(pattern, error, place);
}

bool checkPattern(const FND::String& pattern, FND::String& error, std::size_t& place,
                  const PatternOptions& options) {
    place = 0;
    // Words need no automaton to be known as right.
    if (Shape().read(pattern, options)) return true;
    try {
        const StateRoom room(BuildLimits::defaultBytesCM);
        return parsePattern(pattern, options, error, &place) != nullptr;
    } catch (const NoStateRoom&) {
        error = "limit of " + std::to_string(BuildLimits::defaultBytesCM) +
                " bytes passed by the states of the pattern";
        return false;
    } catch (const std::bad_alloc&) {
        error = "FSM::EnginePart::operator new():no memory available";
        return false;
    }
}

}  // namespace FSM

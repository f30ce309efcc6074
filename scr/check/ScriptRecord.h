#pragma once

#include <cstdint>
#include <unordered_set>
#include <vector>

#include "fnd/String.h"

namespace SCR {

class Variable;

/// What the functions of a script do to their variables and which functions they call, in the order
/// of execution.
struct ScriptRecord {
    /// The index that means none.
    static constexpr std::uint32_t none = ~std::uint32_t{0};

    struct Place {
        std::uint32_t file = 0;   ///< in `files`
        std::int32_t line = 0;    ///< 1-based
        std::uint32_t order = 0;  ///< position in the text
    };

    struct Event {
        enum Kind : std::uint8_t {
            Read,       ///< the local variable `index`
            Write,      ///< the same variable is set as a whole
            WritePart,  ///< the same variable is set in part, or possibly
            Touch,      ///< uses any variable that is not a local one
            Begin,      ///< the call `index` begins: its arguments follow
            Bind,       ///< the argument `argument` of that call, just evaluated, is stored
            Run,        ///< the function of that call runs
            OpenMaybe,  ///< what follows may be skipped
            CloseMaybe,
            OpenLoop,  ///< what follows is repeated
            CloseLoop,
            OpenWays,  ///< what follows is one of several ways
            NextWay,   ///< the next way begins; the one before falls into it unless it has ended
            EndWay,
            Exhaustive,  ///< one of the ways is certain to be taken
            CloseWays,
            Return
        };
        Kind kind;
        std::uint32_t index;
        std::uint32_t argument;
        Place place;
        std::uint32_t next = none;  ///< the event after it
    };

    /// A chain of events.
    struct Sequence {
        std::uint32_t first = none;
        std::uint32_t last = none;
    };

    /// The form of an argument that is just a variable or a constant.
    struct Leaf {
        const Variable* variable = nullptr;
        FND::String constant;  ///< a text that no other constant has

        bool isSame(const Leaf& other) const {
            return (variable != nullptr || !constant.empty()) && variable == other.variable &&
                   constant == other.constant;
        }
    };

    /// A call of one of the script's functions.
    struct Call {
        std::uint32_t function;  ///< in `functions`
        Place place;
        std::vector<Leaf> arguments;
    };

    struct Local {
        FND::String name;
        const Variable* variable;
    };

    struct Function {
        FND::String name;
        std::vector<Local> locals;  ///< the parameters first
        std::uint32_t parameters = 0;
        std::unordered_set<std::uint32_t> callees;
        Sequence body;
    };

    std::vector<Event> events;
    std::vector<Call> calls;
    /// The statements outside of all functions, then the functions. Each calls only itself and
    /// those before it.
    std::vector<Function> functions;
    std::vector<FND::String> files;  ///< the names of the include files; empty for the script
};

}  // namespace SCR

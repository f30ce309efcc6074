#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "fnd/Export.h"
#include "fnd/String.h"

namespace SCR {

/// What a host grants to the scripts of one interpreter. A script that passes `steps`, `depth`,
/// `time` or `memory` is stopped: one error names the limit and the line, `execute` gives false,
/// and the interpreter stays usable. The defaults are generous; every limit can be lifted. Whatever
/// the limits are, no recursion reaches the end of the thread's stack.
struct Limits {
    /// The value that means no limit.
    static constexpr std::int64_t none = INT64_MAX;

    /// Turns of loops and calls of user functions in one execution.
    std::int64_t steps = none;
    /// Nested calls of user functions.
    std::int64_t depth = 10'000;
    /// Milliseconds of wall time that one execution may take, or one compile. A search by a regular
    /// expression that could take far longer is refused with an error; a script is stopped before
    /// it compiles a regular expression that could take longer.
    std::int64_t time = none;
    /// Bytes of one string that a script makes. A concatenation, a line that is read and a
    /// command's output that would pass it stop the script; any other built-in function logs an
    /// error and gives an empty string. Texts in the script itself and those of the host are not
    /// limited.
    std::int64_t string = std::int64_t{1} << 30;
    /// Elements of one array or hash. An element beyond the limit is refused like one under a
    /// negative index, with one error per execution.
    std::int64_t elements = std::int64_t{1} << 28;
    /// Bytes that the values of the script hold. These are the texts of its strings, the elements
    /// and keys of its containers, and intermediate results; its automata (see below); the buffers
    /// of its open files; the mutexes of the interpreter; and the text and the tree of the script.
    /// A script that comes within 1/64 of the limit may be stopped. The host's own values do not
    /// count.
    std::int64_t memory = std::int64_t{1} << 32;
    /// Levels of blocks, and levels of an expression, that may be nested in a script's text; a
    /// chain of operators, as in `a + b - c`, is one. A text that nests deeper does not compile.
    /// More than `deepest` levels are never allowed: a level takes up to 200 bytes of the stack,
    /// part of which is reserved for them.
    std::int64_t nesting = 500;
    static constexpr std::int64_t deepest = 1'000;
    /// The largest number of levels.
    std::int64_t levels() const { return std::min(nesting, deepest); }

    /// Bytes of a script with all its includes. A larger one does not compile.
    std::int64_t source = std::int64_t{256} << 20;
    /// The number of bytes allowed, at least 1.
    std::size_t sourceBytes() const {
        return static_cast<std::size_t>(std::max<std::int64_t>(source, 1));
    }

    /// States that an automaton of one regular-expression switch or pattern may have; one that
    /// needs more does not compile.
    std::int64_t states = std::int64_t{1} << 24;
    /// Bytes that the patterns of one regular-expression switch, or one pattern, may take while
    /// they are built and afterwards. Those that need more do not compile.
    std::int64_t patterns = std::int64_t{256} << 20;
    /// The number of bytes allowed, at least 1.
    std::size_t patternBytes() const {
        return static_cast<std::size_t>(std::max<std::int64_t>(patterns, 1));
    }

    /// Bytes that all automata and regular expressions of a script take together, while they are
    /// built and as long as the script keeps them. A script that would pass the limit is stopped,
    /// mostly while it compiles. They count against `memory` too.
    std::int64_t automata = std::int64_t{1} << 29;
};

/// The limit called `name` ("steps", "depth", ...), or null: for hosts that read limits from a
/// text.
KESTREL_API std::int64_t Limits::*limitOfName(const FND::String& name);

/// How scripts run. All tiers do the same; what runs often enough is made faster in the later ones.
enum class CodeTier {
    Tree,      ///< by the nodes of the tree alone
    Portable,  ///< what runs often as operations that are interpreted, on any processor
    Native,    ///< what runs often as code of the processor
};

}  // namespace SCR

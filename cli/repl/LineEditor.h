#pragma once

#include <optional>
#include <string>

#include "cli/repl/LineInput.h"

namespace Cli {

/// Edits the lines of a terminal. One at a time.
class LineEditor {
public:
    LineEditor() = default;
    LineEditor(const LineEditor&) = delete;
    LineEditor& operator=(const LineEditor&) = delete;
    virtual ~LineEditor() = default;

    /// The next line, without its end; "" after an interruption, none at the end of the input.
    virtual std::optional<std::string> next(const std::string& prompt) = 0;
};

/// What cli/edit/ exports under this name; arguments as those of a `LineInput`.
using OpenLineEditor = LineEditor* (*)(const LineInput::Complete& complete,
                                       const std::string& history);
inline constexpr const char* openLineEditorS = "kestrelOpenLineEditor";

}  // namespace Cli

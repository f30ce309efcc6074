#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Cli {

class LineEditor;

/// Lines that a user types. On a terminal they can be edited, are kept in a history and completed,
/// if the part of the command for that is installed; otherwise lines are read as they are.
class LineInput {
public:
    /// Gives the words that may end the line, of which the part after `begin` is being written.
    using Complete =
        std::function<std::vector<std::string>(const std::string& line, std::size_t begin)>;

    /// The history is read from the file `history` now and written to it at the end; "" for none.
    /// One object at a time.
    LineInput(const Complete& complete, const std::string& history);
    LineInput(const LineInput&) = delete;
    LineInput& operator=(const LineInput&) = delete;
    ~LineInput();

    /// The next line, without its end; none at the end of the input.
    std::optional<std::string> next(const std::string& prompt);

private:
    const bool isTerminal_;
    std::unique_ptr<LineEditor> editor_;  // if there is one
};

}  // namespace Cli

#include "cli/repl/LineInput.h"

#include <unistd.h>

#include <iostream>

#include "cli/Command.h"
#include "cli/Loading.h"
#include "cli/repl/LineEditor.h"

namespace Cli {

LineInput::LineInput(const Complete& complete, const std::string& history)
    : isTerminal_(isatty(STDIN_FILENO) != 0) {
#ifdef KESTREL_HAS_EDIT
    if (!isTerminal_) return;
    std::string error;
    void* const open = loadPart("libkestrel-edit.so", openLineEditorS, error);
    if (open != nullptr) {
        editor_.reset(reinterpret_cast<OpenLineEditor>(open)(complete, history));
    }
#else
    static_cast<void>(complete);
    static_cast<void>(history);
#endif
}

LineInput::~LineInput() = default;

std::optional<std::string> LineInput::next(const std::string& prompt) {
    flushOutput(true);
    if (editor_ != nullptr) return editor_->next(prompt);
    if (isTerminal_) std::cout << prompt << std::flush;
    std::string line;
    if (!std::getline(std::cin, line)) return std::nullopt;
    if (line.ends_with('\r')) line.pop_back();
    return line;
}

}  // namespace Cli

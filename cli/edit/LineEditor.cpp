#include "cli/repl/LineEditor.h"

#include <editline/readline.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "fnd/Export.h"

namespace Cli {

namespace {

// The library calls functions without an argument of ours.
LineInput::Complete offerS;
std::vector<std::string> offeredS;

char* nextWord(const char* /*text*/, int state) {
    if (static_cast<std::size_t>(state) >= offeredS.size()) return nullptr;
    return strdup(offeredS[static_cast<std::size_t>(state)].c_str());
}

char** completeLine(const char* text, int start, int end) {
    rl_attempted_completion_over = 1;
    rl_completion_append_character = '\0';
    offeredS = offerS(std::string(rl_line_buffer, static_cast<std::size_t>(end)),
                      static_cast<std::size_t>(start));
    return offeredS.empty() ? nullptr : rl_completion_matches(text, nextWord);
}

class EditLine final : public LineEditor {
public:
    EditLine(const LineInput::Complete& complete, std::string history)
        : history_(std::move(history)) {
        offerS = complete;
        rl_initialize();
        static char name[] = "kestrel";
        static char breaks[] = " \t\n\"+-*/%=<>!,;(){}[]";
        rl_readline_name = name;
        rl_basic_word_break_characters = breaks;
        rl_completer_word_break_characters = breaks;
        rl_attempted_completion_function = completeLine;
        using_history();
        stifle_history(1000);
        if (!history_.empty()) read_history(history_.c_str());
    }
    ~EditLine() override {
        if (!history_.empty()) write_history(history_.c_str());
        offerS = nullptr;
    }

    std::optional<std::string> next(const std::string& prompt) override {
        errno = 0;
        char* const read = readline(prompt.c_str());
        if (read == nullptr) {
            const bool isInterrupted = errno == EINTR;
            std::cout << std::endl;  // after the sign for the end
            return isInterrupted ? std::optional<std::string>("") : std::nullopt;
        }
        std::string line = read;
        std::free(read);
        if (line.find_first_not_of(" \t") != std::string::npos) add_history(line.c_str());
        return line;
    }

private:
    const std::string history_;
};

}  // namespace

extern "C" KESTREL_API LineEditor* kestrelOpenLineEditor(const LineInput::Complete& complete,
                                                         const std::string& history) {
    return new EditLine(complete, history);
}

}  // namespace Cli

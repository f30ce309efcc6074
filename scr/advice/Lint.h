#pragma once

#include <array>
#include <string_view>
#include <vector>

#include "fnd/String.h"
#include "scr/advice/Scout.h"
#include "scr/message/Codes.h"

namespace SCR {

class Interpreter;
class Usage;

/// Warnings about a script that compiles but does not do what it seems to, found while it is
/// checked. The grammar's rules report to it with their stretches of text, which may end with
/// blanks and comments.
///
/// A comment with `kestrel: ignore K0807`, in the same line or in the one before, switches a
/// warning off; several codes may be named.
class Lint {
public:
    void add(MessageCode code, Span at, const FND::String& text, const FND::String& cure = {});
    void addShadowed(std::string_view name, std::string_view outer);

    /// A list of statements begins or ends, or has one more statement.
    void openList() { lists_.push_back(State::Open); }
    void closeList() {
        if (!lists_.empty()) lists_.pop_back();
    }
    void listed(Span statement);
    /// An expression stands alone.
    void statement(Span span);
    void condition(Span span);
    void comparison(Span left, Span sign, Span right);
    void quotient(Span sign, Span right);
    void decimal(Span number);
    void call(Span span);
    void pattern(Span span, const FND::String& pattern);
    void function(std::string_view name, bool hasParameters);

    /// Logs the warnings in the order of the text, with those of `usage`, which may be null, and
    /// with what the end of the text tells.
    void report(Interpreter& interpreter, std::array<std::string_view, 3> parts, const Usage* usage,
                bool hasErrors);

private:
    enum class State : unsigned char { Open, Left, Told };
    struct Warning {
        MessageCode code;
        Span at;
        FND::String text;
        FND::String cure;
        Span note;
    };

    std::vector<State> lists_;
    std::vector<Warning> warnings_;
};

}  // namespace SCR

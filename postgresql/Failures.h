#pragma once

#include <exception>
#include <string>
#include <string_view>

#include "postgresql/Engine.h"
#include "scr/Log.h"

namespace PgApi {

/// The last failure, with its texts.
struct Told {
    Failure failure;
    std::string message;
    std::string place;
    std::string detail;
    std::string cure;
};

Told& told();

/// A place as messages tell it: "line 2, column 5".
std::string spell(const SCR::Diagnostic::Place& place);

/// Keeps a failure; always false. `text` is the script that the diagnostic is about.
bool tell(Failure::Kind kind, std::string message, std::string detail = {});
bool tell(Failure::Kind kind, const SCR::Diagnostic& diagnostic, std::string_view text);

/// Calls `action`, and gives `otherwise` after an exception, which is told.
template <class Action>
auto guarded(Action&& action, decltype(action()) otherwise) noexcept {
    try {
        return action();
    } catch (const std::exception& error) {
        told().failure = {Failure::Kind::Limit, "out of memory", "", "", "", 0};
    } catch (...) {
        told().failure = {Failure::Kind::Limit, "unknown exception", "", "", "", 0};
    }
    return otherwise;
}

}  // namespace PgApi

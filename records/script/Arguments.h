#pragma once

#include <memory>
#include <vector>

#include "scr/Node.h"
#include "scr/parser/ParserStack.h"

namespace Records {

/// An argument of a call that a factory has taken from the parser's stack.
struct Argument {
    std::unique_ptr<SCR::Node> node;
    int type;
    SCR::OperandTraits traits;
};

/// Takes the arguments of a call from the stack: all that `topNumParams()` counts, in the order of
/// the call.
std::vector<Argument> popArguments(SCR::ParserStack& stack);

}  // namespace Records

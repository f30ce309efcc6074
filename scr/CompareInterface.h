#pragma once

#include "fnd/Export.h"

namespace SCR {

class BoolNode;
class Interpreter;
class ParserStack;

/// Receives the conditions that `Interpreter::compileConditions` compiles, in the order of the
/// text. Called under the parse lock, on the compiling thread.
class KESTREL_API CompareInterface {
public:
    CompareInterface() = default;
    CompareInterface(const CompareInterface&) = delete;
    CompareInterface& operator=(const CompareInterface&) = delete;

    /// Takes ownership of one condition, which it must destroy before the interpreter is destroyed
    /// or compiles a script. False, after a report by `SCR_YaccError`, ends the compile.
    virtual bool condition(BoolNode* condition) = 0;

    /// Called for `expression =~ expression` before the condition itself is handed over: takes the
    /// right operand and its type from `stack`, and must leave an operand of type Bool in place of
    /// the left one. False, after a report, ends the compile.
    virtual bool comparePattern(Interpreter& interpreter, ParserStack& stack) = 0;

    virtual ~CompareInterface();
};

}  // namespace SCR

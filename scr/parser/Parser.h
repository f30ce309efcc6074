#pragma once

#include <memory>

#include "fnd/String.h"

namespace SCR {

class BoolNode;
class CompareInterface;
class Interpreter;
class Node;
struct ExpandedText;

}  // namespace SCR

// The entry points of the parser. Each holds the process-wide parse lock during the whole parse,
// and then, without the lock, builds the automata of the script and logs the pending messages.
// Errors are reported through the interpreter; the result is false then. Exceptions of the library
// or of an extension pass through; the parse state is restored then too.

/// Compiles a script into the interpreter's open main function.
bool SCR_parseScript(SCR::Interpreter& interpreter, const SCR::ExpandedText& text);

/// Compiles conditions and hands them to `target`.
bool SCR_parseCondition(SCR::Interpreter& interpreter, SCR::CompareInterface& target,
                        const SCR::ExpandedText& text);

/// Compiles one expression of type Bool into `query`.
bool SCR_parseQuery(SCR::Interpreter& interpreter, const FND::String& text,
                    std::unique_ptr<SCR::BoolNode>& query);

/// Compiles one expression of any type into `node`, of the type `typeWord`.
bool SCR_parseExpression(SCR::Interpreter& interpreter, const FND::String& text,
                         std::unique_ptr<SCR::Node>& node, int& typeWord);

/// Reserved: always false, without parsing.
bool SCR_parseMapping(SCR::Interpreter& interpreter, const FND::String& text);

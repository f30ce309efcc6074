#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

#include "fnd/String.h"
#include "scr/parser/ParserStack.h"
#include "scr/parser/Recovery.h"
#include "scr/run/PendingBuilds.h"

namespace SCR {

class BoolNode;
class CompareInterface;
class CustomLexer;
class FctDescr;
class Function;
class Interpreter;
class Observing;

/// State that the parser actions of one parse share besides the parser stack.
struct ParseContext {
    ParseContext();
    ~ParseContext();

    CustomLexer* lexer = nullptr;
    /// The function being declared, or null, and its descriptor.
    Function* function = nullptr;
    FctDescr* functionDescriptor = nullptr;
    /// The number of entries of the function stack that belong to declarations, not to calls.
    int declaredFunctions = 0;
    /// The modifiers of the variable being declared: "A" for "[]" and "H" for "{}".
    FND::String modifiers;
    /// The string constant being read, joined from its adjacent literals.
    FND::String literal;
    /// A buffer for the names being looked up, so that none is allocated for each.
    FND::String module;
    FND::String name;
    /// A script is checked, and has had no error so far.
    bool isWatched = false;
    /// The operands are lost, as an error was found among them: actions on them do nothing.
    bool isLost = false;
    /// What the automata that are made now are about.
    Span about;
    /// The next token is not just that of the lexer.
    bool needsCare = false;
    /// The function being declared is only a block, as its declaration was lost.
    bool isLostFunction = false;
    /// Makes the nodes of an observed script; null for any other.
    std::unique_ptr<Observing> observing;
    Recovery recovery;
    /// The memory of the parser's own stack when it is deep.
    std::vector<std::unique_ptr<std::byte[]>> memory;
};

// The process-wide parse state, guarded by parserLockG and valid during a parse. The lock is
// recursive and the entry points restore the former state, so that an extension's generator
// function, which runs within a parse, may let another interpreter compile scripts.
extern std::recursive_timed_mutex parserLockG;
extern CompareInterface* actCompareInterfaceG;
extern ParserStack* stackG;
extern ParseContext* parseContextG;

}  // namespace SCR

#pragma once

#include <cstdint>
#include <memory>

#include "fnd/String.h"
#include "scr/Node.h"
#include "scr/message/Messages.h"
#include "scr/parser/ParserStack.h"

namespace SCR {

class Interpreter;

// Shared by the makers of nodes from operands on the parser stack: descriptors, the parser's
// actions and receivers of conditions.

/// Pushes a node with a type word. Its traits describe a node one level above its operands. Refuses
/// trees nested too deep.
bool pushNested(const Interpreter& interpreter, ParserStack& stack, std::unique_ptr<Node> node,
                int typeWord, OperandTraits traits);

/// Whether `node` is of the class that operands of the type word `typeWord` have; nodes of hosts
/// may not be.
bool hasClassOfType(const Node& node, int typeWord);

/// Whether a handle of the type `actual` of a host may be used as one of the type `expected`; ""
/// stands for any.
bool mayBecome(const FND::String& actual, const FND::String& expected);

/// A node of the type Adt as a handle: calls of a script's functions, and of some extensions, give
/// it as a plain Long. `type` is the name of its type then.
std::unique_ptr<AdtNode> asHandle(std::unique_ptr<Node> node, const FND::String& type = {});

/// Notices whether a host's code gave false without a report.
class ErrorWatch {
public:
    explicit ErrorWatch(const Interpreter& interpreter);
    /// Reports `message`, unless an error was logged since this object was made. Always false.
    bool fail(const Messages::Message& message) const;

private:
    const Interpreter& interpreter_;
    const std::uint64_t errors_;
};

}  // namespace SCR

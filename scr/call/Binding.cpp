#include "scr/call/Binding.h"

#include "scr/Interpreter.h"
#include "scr/message/Messages.h"
#include "scr/os/FileData.h"
#include "scr/parser/ParseErrors.h"
#include "scr/tree/FunctionCall.h"

namespace SCR {

bool pushNested(const Interpreter& interpreter, ParserStack& stack, std::unique_ptr<Node> node,
                int typeWord, OperandTraits traits) {
    if (++traits.depth > interpreter.limits().levels()) {
        return SCR_YaccError(Messages::nestedTooDeep);
    }
    traits.operators = 0;
    stack.pushData(node.release(), typeWord, traits);
    return true;
}

bool hasClassOfType(const Node& node, int typeWord) {
    const bool isLeft = Node::isLeft(typeWord);
    const auto is = [&]<class Plain, class Data = Plain>() {
        return isLeft ? dynamic_cast<const Data*>(&node) != nullptr
                      : dynamic_cast<const Plain*>(&node) != nullptr;
    };
    switch (Node::baseType(typeWord)) {
        case TypeCode::EdrAlias:
        case TypeCode::String:
            return is.operator()<StringNode, StringDataNode>();
        case TypeCode::Bool:
            return is.operator()<BoolNode, BoolDataNode>();
        case TypeCode::Decimal:
            return is.operator()<DecimalNode, DecimalDataNode>();
        case TypeCode::Long:
            return is.operator()<LongNode, LongDataNode>();
        case TypeCode::Date:
            return is.operator()<DateNode, DateDataNode>();
        case TypeCode::Nexid:
            return is.operator()<NexidNode, NexidDataNode>();
        case TypeCode::Adt:
            // A call of a script's function gives a handle as a plain Long.
            return is.operator()<AdtNode, AdtDataNode>() || (!isLeft && is.operator()<LongNode>());
        case TypeCode::Array:
            return is.operator()<ArrayNode>();
        case TypeCode::Hash:
            return is.operator()<HashNode>();
        case TypeCode::File:
            return is.operator()<FileData>();
        case TypeCode::Function:
            return is.operator()<FctCallNode>();
        default:
            return true;  // its type is never used
    }
}

ErrorWatch::ErrorWatch(const Interpreter& interpreter)
    : interpreter_(interpreter), errors_(interpreter.errorCount()) {}

bool ErrorWatch::fail(const FND::String& message) const {
    return interpreter_.errorCount() == errors_ && SCR_YaccError(message);
}

}  // namespace SCR

#include "scr/call/Binding.h"

#include "scr/Interpreter.h"
#include "scr/message/Messages.h"
#include "scr/os/FileData.h"
#include "scr/parser/ParseErrors.h"
#include "scr/tree/FunctionCall.h"
#include "scr/value/TypeVisitor.h"

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
    int code = Node::baseType(typeWord);
    // The name of a field is a text.
    if (code == TypeCode::EdrAlias) code = TypeCode::String;
    if (code == TypeCode::Function) return dynamic_cast<const FctCallNode*>(&node) != nullptr;
    // A call of a script's function gives a handle as a plain Long.
    const bool isHandle = code == TypeCode::Adt && !isLeft;
    if (isHandle && dynamic_cast<const LongNode*>(&node) != nullptr) return true;
    const bool isWrong = withType(StorageTypes(), code, [&]<class Type>(Type) {
        return isLeft ? dynamic_cast<const typename Type::DataNode*>(&node) == nullptr
                      : dynamic_cast<const typename Type::Node*>(&node) == nullptr;
    });
    return !isWrong;  // any other type is never used
}

ErrorWatch::ErrorWatch(const Interpreter& interpreter)
    : interpreter_(interpreter), errors_(interpreter.errorCount()) {}

bool ErrorWatch::fail(const Messages::Message& message) const {
    return interpreter_.errorCount() == errors_ && SCR_YaccError(message);
}

}  // namespace SCR

#include "scr/call/Binding.h"

#include "scr/Interpreter.h"
#include "scr/message/Messages.h"
#include "scr/os/FileData.h"
#include "scr/parser/ParseErrors.h"
#include "scr/tree/FunctionCall.h"
#include "scr/value/TypeVisitor.h"

namespace SCR {

namespace {

class LongHandle final : public AdtNode {
public:
    LongHandle(std::unique_ptr<LongNode> node, FND::String type)
        : node_(std::move(node)), type_(std::move(type)) {}

    long result() override { return node_->result(); }
    const FND::String& subType() const override { return type_; }

private:
    const std::unique_ptr<LongNode> node_;
    const FND::String type_;
};

}  // namespace

bool pushNested(const Interpreter& interpreter, ParserStack& stack, std::unique_ptr<Node> node,
                int typeWord, OperandTraits traits) {
    if (traits.depth() + 1 > interpreter.limits().levels()) {
        return SCR_YaccError(Messages::nestedTooDeep);
    }
    stack.pushData(node.release(), typeWord, {traits.mayRunScript(), traits.depth() + 1});
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

std::unique_ptr<AdtNode> asHandle(std::unique_ptr<Node> node, const FND::String& type) {
    if (auto* const number = dynamic_cast<LongNode*>(node.get())) {
        node.release();
        return std::make_unique<LongHandle>(std::unique_ptr<LongNode>(number), type);
    }
    return std::unique_ptr<AdtNode>(static_cast<AdtNode*>(node.release()));
}

bool mayBecome(const FND::String& actual, const FND::String& expected) {
    return actual.empty() || expected.empty() || actual == expected;
}

ErrorWatch::ErrorWatch(const Interpreter& interpreter)
    : interpreter_(interpreter), errors_(interpreter.errorCount()) {}

bool ErrorWatch::fail(const Messages::Message& message) const {
    return interpreter_.errorCount() == errors_ && SCR_YaccError(message);
}

}  // namespace SCR

#include "scr/Node.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "scr/message/Messages.h"
#include "scr/parser/ParseErrors.h"

namespace SCR {

namespace {

struct TypeName {
    int code;
    std::string_view name;
    bool declarable;  // `typeIdForName` accepts it
};

constexpr std::array<TypeName, 12> typeNamesS{{
    {TypeCode::EdrAlias, "EdrAlias", true},
    {TypeCode::Void, "Void", true},
    {TypeCode::String, "String", true},
    {TypeCode::Bool, "Bool", true},
    {TypeCode::Decimal, "Decimal", true},
    {TypeCode::Long, "Long", true},
    {TypeCode::Date, "Date", true},
    {TypeCode::File, "File", true},
    {TypeCode::Array, "Array", false},
    {TypeCode::Hash, "Hash", false},
    {TypeCode::Adt, "Adt", true},
    {TypeCode::Nexid, "Nexid", true},
}};

}  // namespace

Node::~Node() = default;

std::int32_t Node::execute() {
    std::fputs("Should never be executed\n", stderr);
    std::fflush(stderr);
    std::exit(1);
}

bool Node::addStatement(Node* /*statement*/) { return false; }

bool Node::addIdentifier(const FND::String& /*name*/, Variable* /*variable*/) { return false; }

Variable* Node::getIdentifier(const FND::String& /*name*/) { return nullptr; }

Node* Node::promote(int typeWord) const {
    SCR_YaccError(Messages::promotionNotSupported(datatypeAsString(typeWord)));
    return nullptr;
}

bool Node::returnsResult() const { return false; }

int Node::typeIdForName(const FND::String& name) {
    for (const TypeName& type : typeNamesS) {
        if (type.declarable && name == type.name) return type.code;
    }
    return 0;
}

FND::String Node::datatypeAsString(int typeWord) {
    const int code = baseType(typeWord);
    for (const TypeName& type : typeNamesS) {
        if (type.code == code) return FND::String(type.name);
    }
    return "Unknown";
}

int Node::SuperType(int a, int b) {
    const auto inMatrix = [](int code) { return code >= TypeCode::Void && code <= TypeCode::Hash; };
    if (!inMatrix(a) || !inMatrix(b)) return 0;
    if (a == b) return a;
    const bool isNumeric = (a == TypeCode::Decimal && b == TypeCode::Long) ||
                           (a == TypeCode::Long && b == TypeCode::Decimal);
    return isNumeric ? TypeCode::Decimal : 0;
}

std::int32_t LongNode::execute() {
    result();
    return goOn;
}

std::int32_t DecimalNode::execute() {
    result();
    return goOn;
}

std::int32_t StringNode::execute() {
    result();
    return goOn;
}

std::int32_t DateNode::execute() {
    result();
    return goOn;
}

std::int32_t BoolNode::execute() {
    result();
    return goOn;
}

std::int32_t NexidNode::execute() {
    result();
    return goOn;
}

std::int32_t AdtNode::execute() {
    result();
    return goOn;
}

std::int32_t ArrayNode::execute() {
    result();
    return goOn;
}

std::int32_t HashNode::execute() {
    result();
    return goOn;
}

std::int32_t VoidNode::execute() {
    result();
    return goOn;
}

}  // namespace SCR

#pragma once

#include "scr/Node.h"
#include "scr/Variable.h"

namespace SCR {

/// What the templates of this system need to know about a value type of the language: its base
/// code, the value, how it is passed (`Argument`), its node bases and its variable, and the null
/// value that a call without a return gives.
template <int code, class ValueT, class ArgumentT, class NodeT, class DataNodeT, class VariableT>
struct ValueType {
    static constexpr int typeCode = code;
    using Value = ValueT;
    using Argument = ArgumentT;
    using Node = NodeT;
    using DataNode = DataNodeT;
    using Variable = VariableT;
    /// Whether `Argument` is a reference into storage that a later evaluation may change.
    static constexpr bool byReference = std::is_reference_v<ArgumentT>;
};

struct LongType : ValueType<TypeCode::Long, long, long, LongNode, LongDataNode, LongVariable> {
    static long null() { return 0; }
};

struct BoolType : ValueType<TypeCode::Bool, bool, bool, BoolNode, BoolDataNode, BoolVariable> {
    static bool null() { return false; }
};

struct DecimalType : ValueType<TypeCode::Decimal, FND::Decimal, const FND::Decimal&, DecimalNode,
                               DecimalDataNode, DecimalVariable> {
    static const FND::Decimal& null() { return FND_DECIMAL_NULL; }
};

struct StringType : ValueType<TypeCode::String, FND::String, const FND::String&, StringNode,
                              StringDataNode, StringVariable> {
    static const FND::String& null() { return FND_NULL_STRING; }
};

struct DateType : ValueType<TypeCode::Date, FND::DateTime, const FND::DateTime&, DateNode,
                            DateDataNode, DateVariable> {
    static const FND::DateTime& null() { return FND_INVALID_DATETIME; }
};

struct NexidType : ValueType<TypeCode::Nexid, FND::Identifier, const FND::Identifier&, NexidNode,
                             NexidDataNode, NexidVariable> {
    static const FND::Identifier& null() { return FND_INVALID_IDENTIFIER; }
};

struct AdtType : ValueType<TypeCode::Adt, long, long, AdtNode, AdtDataNode, AdtVariable> {
    static long null() { return 0; }
};

}  // namespace SCR

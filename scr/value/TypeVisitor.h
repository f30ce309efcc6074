#pragma once

#include "scr/Variable.h"

namespace SCR {

class FileData;

// The types of the language that no `ValueType` stands for.

struct FileType {
    static constexpr int typeCode = TypeCode::File;
    using Node = FileData;
    using DataNode = FileData;
    using Variable = FileVariable;
};

struct ArrayType {
    static constexpr int typeCode = TypeCode::Array;
    using Node = ArrayNode;
    using DataNode = ArrayNode;
    using Variable = Array;
};

struct HashType {
    static constexpr int typeCode = TypeCode::Hash;
    using Node = HashNode;
    using DataNode = HashNode;
    using Variable = Hash;
};

/// The result type of what has an effect only.
struct VoidType {
    static constexpr int typeCode = TypeCode::Void;
    using Node = VoidNode;
};

template <class... Types>
struct TypeList {};

/// The types that hosts know.
using HostTypes = TypeList<LongType, StringType, DecimalType, BoolType, DateType, NexidType>;
/// The types that functions of scripts give.
using ResultTypes =
    TypeList<LongType, StringType, DecimalType, BoolType, DateType, NexidType, AdtType, VoidType>;
/// The types that variables and elements have.
using StorageTypes = TypeList<LongType, StringType, DecimalType, BoolType, DateType, NexidType,
                              AdtType, FileType, ArrayType, HashType>;

/// Calls `use` with the type of the list that has the base code of `typeWord`, and gives what it
/// gives; the empty value of that when no type of the list has.
template <class First, class... Others, class Use>
auto withType(TypeList<First, Others...> /*types*/, int typeWord, const Use& use) {
    const int code = Node::baseType(typeWord);
    if (code == First::typeCode) return use(First());
    if constexpr (sizeof...(Others) > 0) {
        return withType(TypeList<Others...>(), code, use);
    } else {
        return decltype(use(First())){};
    }
}

/// Calls `use` with each type of the list, up to the one for which it gives true; whether one did.
template <class... Types, class Use>
bool anyType(TypeList<Types...> /*types*/, const Use& use) {
    return (use(Types()) || ...);
}

}  // namespace SCR

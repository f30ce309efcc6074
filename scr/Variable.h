#pragma once

#include <cstdio>
#include <memory>

#include "fnd/DateTime.h"
#include "fnd/Decimal.h"
#include "fnd/Export.h"
#include "fnd/Identifier.h"
#include "fnd/String.h"
#include "scr/Node.h"

namespace SCR {

class FileAccess;
class OpenFiles;

/// Named storage of a script: a type word and a value. It is owned by the scope that declared it
/// (block, function, interpreter, extension) or by the container that cloned it. Its value persists
/// from one execution to the next. One thread at a time; any number of threads may read a constant.
class KESTREL_API Variable : public InNodeMemory {
public:
    explicit Variable(int typeWord) : dataType_(typeWord) {}
    Variable& operator=(const Variable&) = delete;
    virtual ~Variable();

    /// A new variable of the same class, owned by the caller, with a copy of everything in this
    /// one. Implemented by the copy constructor, so that no member is forgotten.
    virtual Variable* clone() const = 0;

    int dataType() const { return dataType_; }
    void dataType(int typeWord) { dataType_ = typeWord; }

protected:
    Variable(const Variable&) = default;  // for `clone`

private:
    int dataType_;
};

/// A variable that holds one value of the type `Value` under the base code `code`. The seven scalar
/// variables below are instances.
template <class Derived, class Value, int code>
class ScalarVariable : public Variable {
public:
    /// An assignable variable with the type's empty value.
    ScalarVariable() : Variable(code | TypeCode::LeftFlag) {}
    /// A variable with a value; scripts can read a constant but not assign to it.
    explicit ScalarVariable(const Value& value, bool isConstant = false)
        : Variable(code | (isConstant ? TypeCode::ConstFlag : TypeCode::LeftFlag)), value_(value) {}

    Variable* clone() const override { return new Derived(static_cast<const Derived&>(*this)); }

    const Value& value() const { return value_; }
    Value& value() { return value_; }
    void value(const Value& value) { value_ = value; }

private:
    Value value_{};
};

class KESTREL_API LongVariable final : public ScalarVariable<LongVariable, long, TypeCode::Long> {
public:
    using ScalarVariable::ScalarVariable;
};

class KESTREL_API DecimalVariable final
    : public ScalarVariable<DecimalVariable, FND::Decimal, TypeCode::Decimal> {
public:
    using ScalarVariable::ScalarVariable;
};

class KESTREL_API StringVariable final
    : public ScalarVariable<StringVariable, FND::String, TypeCode::String> {
public:
    using ScalarVariable::ScalarVariable;
};

/// Starts as the invalid date.
class KESTREL_API DateVariable final
    : public ScalarVariable<DateVariable, FND::DateTime, TypeCode::Date> {
public:
    using ScalarVariable::ScalarVariable;
};

class KESTREL_API BoolVariable final : public ScalarVariable<BoolVariable, bool, TypeCode::Bool> {
public:
    using ScalarVariable::ScalarVariable;
};

/// Starts as the null identifier.
class KESTREL_API NexidVariable final
    : public ScalarVariable<NexidVariable, FND::Identifier, TypeCode::Nexid> {
public:
    using ScalarVariable::ScalarVariable;
};

/// A handle that means something to a host's extension, with the name of its abstract data type.
class KESTREL_API AdtVariable final : public ScalarVariable<AdtVariable, long, TypeCode::Adt> {
public:
    using ScalarVariable::ScalarVariable;

    Variable* clone() const override;

    const FND::String& subType() const { return subType_; }
    void subType(const FND::String& name) { subType_ = name; }

private:
    FND::String subType_;
};

/// Holds an open C stream, or none. Destroying it closes the stream; a clone is closed.
class KESTREL_API FileVariable final : public Variable {
public:
    FileVariable() : Variable(TypeCode::File) {}
    ~FileVariable() override;

    Variable* clone() const override;

    /// The stream, or null when closed.
    std::FILE* stream() const { return stream_; }
    /// Replaces the handle without closing the one held before.
    void stream(std::FILE* stream) { stream_ = stream; }

    /// Opens the file `name` with the C stream mode `mode`; closes the stream held before. False,
    /// with errno set, when that fails. Takes the modes that the C library takes. Whatever they ask
    /// for, bytes are not converted, files are not mapped into memory, and programs that the
    /// process starts do not inherit the file.
    /// programs that the process starts do not inherit the file.
    /// `openFiles` are the open files of the interpreter whose script opens this one. Until it is
    /// closed, this file is one of them and its memory is charged; it must be closed or destroyed
    /// before them. When opening or using the file makes the script wait, as a pipe may, the
    /// operation fails once the script has to stop; without `openFiles` the stream waits like any
    /// other. `files` are the files that may be opened, null for any.
    bool open(const FND::String& name, const FND::String& mode, OpenFiles* openFiles = nullptr,
              const FileAccess* files = nullptr);
    /// Writes out what is buffered and closes the stream, if there is one. Bytes that were not
    /// written, now or before, are noted as a failure in `openFiles`.
    void close() noexcept;
    /// Reports that bytes were not written; errno holds the cause.
    void noteFailure(int error) {
        if (error_ == 0) error_ = error;
    }

    /// Bytes that an open file takes.
    std::size_t heapBytes() const;

private:
    friend class OpenFiles;

    std::FILE* stream_ = nullptr;
    std::unique_ptr<char[]> buffer_;  // of the stream, if it is a regular file
    FND::String name_;                // of the open file
    int error_ = 0;                   // of the first write that failed
    OpenFiles* openFiles_ = nullptr;  // those that this file belongs to
    FileVariable* previous_ = nullptr;
    FileVariable* next_ = nullptr;
};

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

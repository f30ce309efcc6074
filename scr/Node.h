#pragma once

#include <cstddef>
#include <cstdint>
#include <new>

#include "fnd/DateTime.h"
#include "fnd/Decimal.h"
#include "fnd/Export.h"
#include "fnd/Identifier.h"
#include "fnd/String.h"

namespace SCR {

class Array;
class Hash;
class Variable;

/// The parts of a type word: base codes and the two flags that may be set in a word besides a code.
namespace TypeCode {
inline constexpr int EdrAlias = 1;   ///< the name of a record field, passed as text
inline constexpr int Void = 10;      ///< no value
inline constexpr int String = 11;    ///< byte string
inline constexpr int Bool = 12;      ///< true or false
inline constexpr int Decimal = 13;   ///< exact decimal
inline constexpr int Long = 14;      ///< signed 64-bit integer
inline constexpr int Date = 15;      ///< instant, in seconds
inline constexpr int File = 16;      ///< open stream
inline constexpr int Function = 17;  ///< function descriptor; has no name in the language
inline constexpr int Array = 18;     ///< container indexed by Long
inline constexpr int Hash = 19;      ///< container keyed by String
inline constexpr int Adt = 20;       ///< handle of a host's abstract data type
inline constexpr int Nexid = 21;     ///< object identifier

inline constexpr int LeftFlag = 0x4000;   ///< the expression denotes storage that may be assigned
inline constexpr int ConstFlag = 0x8000;  ///< the expression is a constant
}  // namespace TypeCode

/// Base of what compiled scripts are made of: nodes, variables and what they hold. The objects that
/// one compile makes lie side by side in blocks of memory that are charged to the script.
class KESTREL_API InNodeMemory {
public:
    static void* operator new(std::size_t bytes);
    static void operator delete(void* object, std::size_t bytes) noexcept;
    static void* operator new(std::size_t bytes, std::align_val_t alignment);
    static void operator delete(void* object, std::size_t bytes,
                                std::align_val_t alignment) noexcept;
    static void* operator new(std::size_t bytes, const std::nothrow_t& nothrow) noexcept;
    static void* operator new(std::size_t /*bytes*/, void* place) noexcept { return place; }
    static void operator delete(void* /*object*/, void* /*place*/) noexcept {}

protected:
    ~InNodeMemory() = default;
};

/// Base of every statement and expression of a compiled script. A statement is executed for its
/// effect and gives a control-flow code; an expression derives from one of the typed bases below
/// and gives its value by `result()`. A node owns its children and never the variables it uses. One
/// thread at a time uses a tree.
class KESTREL_API Node : public InNodeMemory {
public:
    /// Control-flow codes of `execute`: 0 goes on with the next statement. Any other code ends the
    /// enclosing lists and loops and is handed outward; `returned` means that a return ran.
    static constexpr std::int32_t goOn = 0;
    static constexpr std::int32_t returned = -1;

    Node() = default;
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;
    virtual ~Node();

    /// Runs the node and gives a control-flow code. The base implementation must never be reached:
    /// it reports that on standard error and ends the process.
    virtual std::int32_t execute();

    /// Adds a child statement. True: this node owns it now. The base implementation refuses.
    virtual bool addStatement(Node* statement);

    /// Declares `variable` in this block. True: the block owns it now. False: the name is taken (or
    /// this node is no block), nothing changed and the caller still owns it.
    virtual bool addIdentifier(const FND::String& name, Variable* variable);

    /// The variable declared as `name` in this very block, or null. Not owned by the caller.
    virtual Variable* getIdentifier(const FND::String& name);

    /// A new node, owned by the caller, that gives this node's value as a value of the type
    /// `typeWord`; null, after a report through the parser, when there is no such conversion.
    virtual Node* promote(int typeWord) const;

    /// True when executing the node is certain to end with a return statement.
    virtual bool returnsResult() const;

    /// The base code of a type name in scripts and messages, or 0. Exact, case-sensitive.
    static int typeIdForName(const FND::String& name);
    /// The name of a type word's base type; "Unknown" when it has none.
    static FND::String datatypeAsString(int typeWord);
    /// The type word without its two flags.
    static constexpr int baseType(int typeWord) {
        return typeWord & ~(TypeCode::LeftFlag | TypeCode::ConstFlag);
    }
    /// Whether the left-value flag is set.
    static constexpr bool isLeft(int typeWord) { return (typeWord & TypeCode::LeftFlag) != 0; }
    /// Whether the constant flag is set.
    static constexpr bool isConst(int typeWord) { return (typeWord & TypeCode::ConstFlag) != 0; }
    /// The common type of the operands of a binary operator, given as base types; 0 if there is
    /// none.
    static int SuperType(int a, int b);
};

/// Base of the expressions that give a Long.
class KESTREL_API LongNode : public Node {
public:
    std::int32_t execute() override;
    /// The value, computed anew at each call.
    virtual long result() = 0;
};

/// Base of the expressions that give a Decimal.
class KESTREL_API DecimalNode : public Node {
public:
    std::int32_t execute() override;
    /// The value, in storage of the node or its variable; it may change when a node is evaluated
    /// or a variable assigned again.
    virtual const FND::Decimal& result() = 0;
};

/// Base of the expressions that give a String.
class KESTREL_API StringNode : public Node {
public:
    std::int32_t execute() override;
    /// The value, in storage of the node or its variable; it may change when a node is evaluated
    /// or a variable assigned again.
    virtual const FND::String& result() = 0;
};

/// Base of the expressions that give a Date.
class KESTREL_API DateNode : public Node {
public:
    std::int32_t execute() override;
    /// The value, in storage of the node or its variable; it may change when a node is evaluated
    /// or a variable assigned again.
    virtual const FND::DateTime& result() = 0;
};

/// Base of the expressions that give a Bool.
class KESTREL_API BoolNode : public Node {
public:
    std::int32_t execute() override;
    /// The value, computed anew at each call.
    virtual bool result() = 0;
};

/// Base of the expressions that give a Nexid.
class KESTREL_API NexidNode : public Node {
public:
    std::int32_t execute() override;
    /// The value, in storage of the node or its variable; it may change when a node is evaluated
    /// or a variable assigned again.
    virtual const FND::Identifier& result() = 0;
};

/// Base of the expressions that give the handle of a host's abstract data type.
class KESTREL_API AdtNode : public Node {
public:
    std::int32_t execute() override;
    /// The handle.
    virtual long result() = 0;
    /// The name of the abstract data type; owned by the node or its variable.
    virtual const FND::String& subType() const = 0;
};

/// Base of the expressions that give an array.
class KESTREL_API ArrayNode : public Node {
public:
    std::int32_t execute() override;
    /// The container, owned by the scope that declared it; null when there is none, as with an
    /// element of another container under a negative index.
    virtual Array* result() = 0;
    /// The type word of the elements.
    virtual int containerType() const = 0;
    /// The variable from which new elements are cloned; owned by the container.
    virtual Variable* defaultValue() const = 0;
};

/// Base of the expressions that give a hash.
class KESTREL_API HashNode : public Node {
public:
    std::int32_t execute() override;
    /// The container, owned by the scope that declared it; null when there is none, as with an
    /// element of another container under a negative index.
    virtual Hash* result() = 0;
    /// The type word of the elements.
    virtual int containerType() const = 0;
    /// The variable from which new elements are cloned; owned by the container.
    virtual Variable* defaultValue() const = 0;
};

/// Base of the expressions that have an effect and no value.
class KESTREL_API VoidNode : public Node {
public:
    std::int32_t execute() override;
    /// Runs the effect.
    virtual void result() = 0;
};

/// A Long that can be assigned.
class KESTREL_API LongDataNode : public LongNode {
public:
    /// Stores `value`; true when stored.
    virtual bool set(long value) = 0;
};

/// A Decimal that can be assigned.
class KESTREL_API DecimalDataNode : public DecimalNode {
public:
    /// Stores a copy of `value`; true when stored.
    virtual bool set(const FND::Decimal& value) = 0;
};

/// A String that can be assigned.
class KESTREL_API StringDataNode : public StringNode {
public:
    /// Stores a copy of `value`; true when stored.
    virtual bool set(const FND::String& value) = 0;
};

/// A Date that can be assigned.
class KESTREL_API DateDataNode : public DateNode {
public:
    /// Stores a copy of `value`; true when stored.
    virtual bool set(const FND::DateTime& value) = 0;
};

/// A Bool that can be assigned.
class KESTREL_API BoolDataNode : public BoolNode {
public:
    /// Stores `value`; true when stored.
    virtual bool set(bool value) = 0;
};

/// A Nexid that can be assigned.
class KESTREL_API NexidDataNode : public NexidNode {
public:
    /// Stores a copy of `value`; true when stored.
    virtual bool set(const FND::Identifier& value) = 0;
};

/// A handle that can be assigned.
class KESTREL_API AdtDataNode : public AdtNode {
public:
    /// Stores the handle; true when stored.
    virtual bool set(long value) = 0;
};

}  // namespace SCR

#pragma once

#include <memory>
#include <vector>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "scr/Capabilities.h"
#include "scr/Variable.h"

namespace SCR {

struct BuiltIn;
class Interpreter;
class ParserStack;
struct CallFacts;
class OperandTraits;

/// Describes one callable function: name, result type, argument counts and types, and the factory
/// that builds the node of a call. A descriptor is found by name like a variable. It is immutable
/// once it is in use; any number of threads may read it then. A descriptor that carries more for
/// its factory derives from this class and overrides `clone`.
class KESTREL_API FctDescr : public Variable {
public:
    /// Pops its arguments, last first, from the parser stack (already converted to the declared
    /// types, and without their type words) and gives the call's node, which the caller owns; null
    /// after a report on failure. The node is of the class that the descriptor's type requires:
    /// `LongNode` for a Long, `LongDataNode` when it is a left value, and so on.
    using Factory = Node* (*)(Interpreter&, ParserStack&, const FctDescr&);

    /// The maximum count of a function that takes any number of arguments. These are neither
    /// checked nor converted, and their type words are on the stack, unless there is a rest type.
    static constexpr int anyNumber = -1;

    /// Argument types are type codes, with `TypeCode::LeftFlag` where the argument must be an
    /// assignable variable and `TypeCode::ConstFlag` where it must be a constant.
    FctDescr(const FND::String& name, int returnType, int minimum, int maximum, Factory nodeFactory,
             int argType1 = 0, int argType2 = 0, int argType3 = 0, int argType4 = 0,
             int argType5 = 0, int argType6 = 0, int argType7 = 0, int argType8 = 0,
             int argType9 = 0);

    Variable* clone() const override;

    /// Declares one more argument, which every call must give.
    void addArg(int typeWord);

    /// Allows any number of arguments after those declared so far, each of the type word
    /// `typeWord`. Unlike the arguments of a function that just has the maximum `anyNumber`, all of
    /// them are checked and converted.
    void addRest(int typeWord);

    const FND::String& name() const { return name_; }
    int returnType() const { return returnType_; }
    int minimum() const { return minimum_; }
    int maximum() const { return maximum_; }
    Factory factory() const { return factory_; }
    /// The type word of argument `index`, 0-based: after the declared ones that of the rest, or 0.
    int argType(int index) const {
        const auto i = static_cast<std::size_t>(index);
        return index >= 0 && i < argTypes_.size() ? argTypes_[i] : restType_;
    }
    /// The type word given to `addRest`, or 0.
    int restType() const { return restType_; }

    /// What a call does to a container that is its argument.
    enum class Use : unsigned char { Reads, Changes, Replaces };

    /// Declares that argument `index`, 0-based, is an array or a hash whose elements are of the
    /// type code `elementType`, and what a call does to it. Calls with other containers do not
    /// compile. Without this a factory gets containers of any elements, and must look itself.
    void container(int index, int elementType, Use use);
    /// The type code of the elements that argument `index` must have; 0 when it may have any.
    int elementType(int index) const;
    Use use(int index) const;

    /// The name of the type of a host that argument `index`, or its elements, are of, or with -1
    /// the result; "" for any type.
    const FND::String& objectType(int index) const;
    void objectType(int index, const FND::String& name);

    /// Whether a call may run script code or change variables or containers, whatever its arguments
    /// are. True by default, since nothing is known about a host's function.
    bool mayRunScript() const { return mayRunScript_ || writesArguments_; }
    void mayRunScript(bool may) { mayRunScript_ = may; }

    /// Whether a call writes variables or changes containers that are its arguments.
    bool writesArguments() const { return writesArguments_; }

    /// Whether a call whose function fails, by throwing or by `Interpreter::fail`, logs an error
    /// and gives the null value of its type. If not, which is the default, the failure stops the
    /// script.
    bool nullOnFailure() const { return nullOnFailure_; }
    void nullOnFailure(bool givesNull) { nullOnFailure_ = givesNull; }

    /// What a call does to the outside world; capabilities depend on it.
    Effect effects() const { return effects_; }
    void effects(Effect effects) { effects_ = effects; }

    /// What is known besides of a built-in; nothing of any other function.
    const CallFacts& facts() const;

    /// "Type name(Type,Type,[Type])", for messages.
    FND::String signature() const;

    /// Whether an operand of type word `actual` fits `expected` without conversion; otherwise
    /// reports why not.
    bool checkType(int expected, int actual) const;

    /// Binds a call: checks the arguments on `stack`, as many as its top count says, converts them,
    /// and replaces them by the call's node and type. False after a report, with the arguments
    /// destroyed.
    bool create(Interpreter& interpreter, ParserStack& stack) const;

protected:
    FctDescr(const FctDescr&) = default;  // for `clone`

    /// Notes that a call writes its arguments, if it does.
    void writesArguments(bool writes) { writesArguments_ = writesArguments_ || writes; }

    /// The descriptor that a call with the `count` topmost operands of `stack` goes to: another one
    /// for a function that is written once for containers of several element types. It takes as
    /// many arguments as this one. Null after a report.
    virtual const FctDescr* variantFor(const ParserStack& stack, int count) const;

private:
    friend std::unique_ptr<FctDescr> describe(const BuiltIn& builtIn);

    struct Container {
        int elementType = 0;
        Use use = Use::Reads;
    };

    bool convertArguments(ParserStack& stack, int count) const;
    bool checkElements(const ParserStack& stack, int count) const;
    bool checkObjects(const ParserStack& stack, int count) const;
    OperandTraits traitsOfCall(const ParserStack& stack, int count) const;
    bool makeNode(Interpreter& interpreter, ParserStack& stack, int count,
                  OperandTraits traits) const;

    FND::String name_;
    int returnType_;
    int minimum_;
    int maximum_;
    std::vector<int> argTypes_;
    int restType_ = 0;
    std::vector<Container> containers_;     // by argument; may be shorter than the arguments
    std::vector<FND::String> objectTypes_;  // of the result and the arguments; may be shorter
    Factory factory_;
    bool mayRunScript_ = true;
    bool writesArguments_ = false;
    bool nullOnFailure_ = false;
    Effect effects_ = Effect::None;
    const CallFacts* facts_ = nullptr;  // of a built-in, whose factory's nodes need no check
};

}  // namespace SCR

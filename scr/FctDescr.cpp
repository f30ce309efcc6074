#include "scr/FctDescr.h"

#include <algorithm>

#include "scr/Interpreter.h"
#include "scr/call/Binding.h"
#include "scr/call/CallFacts.h"
#include "scr/check/Analyses.h"
#include "scr/message/Messages.h"
#include "scr/parser/ParseErrors.h"
#include "scr/parser/ParserStack.h"
#include "scr/value/ElementClass.h"

namespace SCR {

namespace {

// Whether a type is of the base type asked for, with the flags that are asked for.
bool fits(int actual, int expected) {
    return (actual ^ expected) == (actual & ~expected & (TypeCode::LeftFlag | TypeCode::ConstFlag));
}

// Converts argument `index` of `count` of a call, whose type word `actual` does not fit; false
// after a report.
bool convertArgument(const FctDescr& descriptor, ParserStack& stack, int index, int count,
                     int actual) {
    const int expected = descriptor.argType(index);
    if (Node::baseType(actual) != Node::baseType(expected)) {
        const int common = Node::SuperType(Node::baseType(actual), Node::baseType(expected));
        const FND::String& object = descriptor.objectType(index);
        if (!object.empty() && Node::baseType(expected) == TypeCode::Adt) {
            return SCR_YaccError(Messages::wrongObject(object, Messages::typeName(actual),
                                                       index + 1, descriptor.signature()));
        }
        if (common == 0 || common != Node::baseType(expected)) {
            return SCR_YaccError(
                Messages::wrongArgument(expected, actual, index + 1, descriptor.signature()));
        }
        const auto fromTop = static_cast<std::size_t>(count - 1 - index);
        std::unique_ptr<Node> converted(stack.data(fromTop)->promote(Node::baseType(expected)));
        if (!converted || !hasClassOfType(*converted, Node::baseType(expected))) {
            return SCR_YaccError(
                Messages::conversionFailed(actual, expected, descriptor.signature()));
        }
        stack.replaceData(fromTop, std::move(converted));
    }
    if (Node::isLeft(expected) && !Node::isLeft(actual)) {
        return SCR_YaccError(Messages::argumentNotLeft(index + 1, descriptor.signature()));
    }
    if (Node::isConst(expected) && !Node::isConst(actual)) {
        return SCR_YaccError(Messages::argumentNotConst(index + 1, descriptor.signature()));
    }
    return true;
}

}  // namespace

FctDescr::FctDescr(const FND::String& name, int returnType, int minimum, int maximum,
                   Factory nodeFactory, int argType1, int argType2, int argType3, int argType4,
                   int argType5, int argType6, int argType7, int argType8, int argType9)
    : Variable(TypeCode::Function),
      name_(name),
      returnType_(returnType),
      minimum_(minimum),
      maximum_(maximum),
      argTypes_{argType1, argType2, argType3, argType4, argType5,
                argType6, argType7, argType8, argType9},
      factory_(nodeFactory) {
    // The slots beyond the declared ones are 0 and make room for `addArg` at once.
    while (!argTypes_.empty() && argTypes_.back() == 0) argTypes_.pop_back();
}

Variable* FctDescr::clone() const { return new FctDescr(*this); }

const CallFacts& FctDescr::facts() const {
    static constexpr CallFacts none;
    return facts_ != nullptr ? *facts_ : none;
}

void FctDescr::addArg(int typeWord) {
    argTypes_.push_back(typeWord);
    ++minimum_;
    if (maximum_ != anyNumber) ++maximum_;
}

void FctDescr::addRest(int typeWord) {
    // Arguments declared beyond the maximum do not count.
    if (maximum_ != anyNumber) argTypes_.resize(static_cast<std::size_t>(maximum_));
    maximum_ = anyNumber;
    restType_ = typeWord;
}

void FctDescr::container(int index, int elementType, Use use) {
    const auto at = static_cast<std::size_t>(index);
    if (containers_.size() <= at) containers_.resize(at + 1);
    containers_[at] = {elementType, use};
}

int FctDescr::elementType(int index) const {
    const auto at = static_cast<std::size_t>(index);
    return at < containers_.size() ? containers_[at].elementType : 0;
}

FctDescr::Use FctDescr::use(int index) const {
    const auto at = static_cast<std::size_t>(index);
    return at < containers_.size() ? containers_[at].use : Use::Reads;
}

const FND::String& FctDescr::objectType(int index) const {
    const auto at = static_cast<std::size_t>(index) + 1;
    return at < objectTypes_.size() ? objectTypes_[at] : FND_NULL_STRING;
}

void FctDescr::objectType(int index, const FND::String& name) {
    const auto at = static_cast<std::size_t>(index) + 1;
    if (objectTypes_.size() <= at) objectTypes_.resize(at + 1);
    objectTypes_[at] = name;
}

const FctDescr* FctDescr::variantFor(const ParserStack& /*stack*/, int /*count*/) const {
    return this;
}

FND::String FctDescr::signature() const {
    const auto typeText = [&](int index, int type) {
        const bool isObject = Node::baseType(type) == TypeCode::Adt && !objectType(index).empty();
        return isObject ? objectType(index) : Node::datatypeAsString(type);
    };
    FND::String text = typeText(-1, returnType_) + " " + name_ + "(";
    const auto addTypes = [&](int first, int end) {
        for (int i = first; i < end; ++i) {
            if (i > first) text += ",";
            text += typeText(i, argType(i));
        }
    };
    addTypes(0, minimum_);
    if (maximum_ == anyNumber && restType_ == 0) {
        text += minimum_ > 0 ? ",..." : "...";
    } else if (maximum_ != minimum_) {
        const bool hasRest = maximum_ == anyNumber;
        text += minimum_ > 0 ? ",[" : "[";
        const int declared = static_cast<int>(argTypes_.size());
        addTypes(minimum_, hasRest ? std::max(minimum_, declared) + 1 : maximum_);
        text += hasRest ? "...]" : "]";
    }
    return text + ")";
}

bool FctDescr::checkType(int expected, int actual) const {
    if (Node::baseType(expected) != Node::baseType(actual)) {
        return SCR_YaccError(Messages::expectedType(expected, actual));
    }
    if (Node::isLeft(expected) && !Node::isLeft(actual)) {
        return SCR_YaccError(Messages::expectedLeftValue);
    }
    if (Node::isConst(expected) && !Node::isConst(actual)) {
        return SCR_YaccError(Messages::expectedConstValue);
    }
    return true;
}

inline bool FctDescr::convertArguments(ParserStack& stack, int count) const {
    for (int i = count - 1; i >= 0; --i) {
        const int actual = stack.popType();
        if (!fits(actual, argType(i)) && !convertArgument(*this, stack, i, count, actual)) {
            return false;
        }
    }
    return true;
}

bool FctDescr::checkElements(const ParserStack& stack, int count) const {
    for (int i = 0; i < count && static_cast<std::size_t>(i) < containers_.size(); ++i) {
        const int expected = elementType(i);
        if (expected == 0) continue;
        const Variable& element = prototypeOf(*stack.data(static_cast<std::size_t>(count - 1 - i)));
        if (Node::baseType(element.dataType()) == expected && hasClassOfType(element)) continue;
        return SCR_YaccError(Messages::wrongElements(Node::baseType(argType(i)), {expected},
                                                     element.dataType(), i + 1, signature()));
    }
    return true;
}

bool FctDescr::checkObjects(const ParserStack& stack, int count) const {
    for (int i = 0; i < count; ++i) {
        const FND::String& expected = objectType(i);
        if (expected.empty()) continue;
        const Node& node = *stack.data(static_cast<std::size_t>(count - 1 - i));
        const FND::String* actual = nullptr;
        if (elementType(i) == TypeCode::Adt) {
            actual = &static_cast<const AdtVariable&>(prototypeOf(node)).subType();
        } else if (const auto* const handle = dynamic_cast<const AdtNode*>(&node)) {
            actual = &handle->subType();
        }
        if (actual == nullptr || mayBecome(*actual, expected)) continue;
        return SCR_YaccError(Messages::wrongObject(expected, *actual, i + 1, signature()));
    }
    return true;
}

inline OperandTraits FctDescr::traitsOfCall(const ParserStack& stack, int count) const {
    const bool isChained = facts_ != nullptr && facts_->isChained;
    bool mayRun = mayRunScript();
    int depth = 1;
    for (int i = 0; i < count; ++i) {
        const OperandTraits argument = stack.traits(static_cast<std::size_t>(i));
        const bool isChain = isChained && i == 1 && argument.operators() > 0;
        mayRun |= argument.mayRunScript();
        depth = std::max(depth, argument.depth() + (isChain ? 0 : 1));
    }
    return {mayRun, depth, isChained ? stack.traits(1).operators() + 1 : 0};
}

bool FctDescr::create(Interpreter& interpreter, ParserStack& stack) const {
    if (effects_ != Effect::None) {
        if (const char* const lacking = interpreter.capabilities().lacking(effects_)) {
            return SCR_YaccError(Messages::forbiddenCall(name_, lacking));
        }
    }
    const int count = stack.topNumParams();
    tellAnalyses([&](auto& analysis) { analysis.call(*this, stack, count); });
    if (minimum_ > count) return SCR_YaccError(Messages::missingParameter(signature()));
    const bool isChecked = maximum_ != anyNumber || restType_ != 0;
    if (maximum_ != anyNumber && maximum_ < count) {
        return SCR_YaccError(Messages::toManyArguments(signature()));
    }
    // A built-in has no variants.
    const FctDescr* const bound = facts_ != nullptr ? this : variantFor(stack, count);
    if (bound == nullptr) return false;
    if (isChecked && !bound->convertArguments(stack, count)) return false;
    if (isChecked && !bound->containers_.empty() && !bound->checkElements(stack, count))
        return false;
    if (!bound->objectTypes_.empty() && !bound->checkObjects(stack, count)) return false;
    const OperandTraits traits = traitsOfCall(stack, count);
    if (traits.depth() > interpreter.limits().levels()) {
        return SCR_YaccError(Messages::nestedTooDeep);
    }
    if (facts_ != nullptr) {
        Node* const node = factory_(interpreter, stack, *this);
        if (node == nullptr) return false;
        tellAnalyses([&](auto& analysis) { analysis.made(node); });
        stack.pushData(node, returnType_, traits);
        return true;
    }
    return bound->makeNode(interpreter, stack, count, traits);
}

// Checks that a factory from outside this library keeps its contract.
bool FctDescr::makeNode(Interpreter& interpreter, ParserStack& stack, int count,
                        OperandTraits traits) const {
    const ErrorWatch watch(interpreter);
    std::unique_ptr<Node> node;
    {
        const bool hasTypes = maximum_ == anyNumber && restType_ == 0;
        const auto nodes = static_cast<std::size_t>(count);
        const ParserStack::CallScope scope(stack, nodes, hasTypes ? nodes : 0);
        if (factory_ != nullptr) node.reset(factory_(interpreter, stack, *this));
        if (!node) return watch.fail(Messages::noCallMade(signature()));
        if (!scope.isDone()) return SCR_YaccError(Messages::argumentsLeft(signature()));
    }
    if (!hasClassOfType(*node, returnType_)) {
        return SCR_YaccError(Messages::wrongCallMade(signature()));
    }
    tellAnalyses([&](auto& analysis) { analysis.made(node.get()); });
    stack.pushData(node.release(), returnType_, traits);
    return true;
}

}  // namespace SCR

#include <typeinfo>

#include "scr/builtin/BuiltIn.h"
#include "scr/builtin/StringSum.h"
#include "scr/parser/ParserStack.h"
#include "scr/run/MemoryCharge.h"
#include "scr/tree/ElementAccess.h"
#include "scr/tree/LongArithmetic.h"
#include "scr/tree/LongStep.h"
#include "scr/tree/Operand.h"

namespace SCR {

namespace {

// The store into a named variable. Its value is what the variable holds after the store.
template <class Type, class Operand>
class VariableAssignment final : public Type::Node {
public:
    VariableAssignment(typename Type::Variable* target, Operand value)
        : target_(&target->value()), value_(std::move(value)) {}

    std::int32_t execute() override {
        SCR::store(*target_, value_.value());
        return Node::goOn;
    }

    typename Type::Argument result() override {
        if constexpr (Type::byReference) {
            SCR::store(*target_, value_.value());
            return *target_;
        } else {
            return *target_ = value_.value();
        }
    }

    // The effect as data, for operands that lie in storage and for sums and differences of them.
    LongStep step() const {
        if constexpr (requires { value_.storage(); }) {
            return {target_, value_.storage()};
        } else {
            return {target_, value_.left().storage(), value_.right().storage(), Operand::subtracts};
        }
    }

private:
    typename Type::Value* const target_;  // the variable's
    Operand value_;
};

template <class Operand>
bool findStep(const Node& node, LongStep& step) {
    using Assigned = VariableAssignment<LongType, Operand>;
    if (&typeid(node) != &typeid(Assigned)) return false;
    step = static_cast<const Assigned&>(node).step();
    return true;
}

template <class... Pairs>
bool findStepOfPair(PairList<Pairs...> /*pairs*/, const Node& node, LongStep& step) {
    return (findStep<Pairs>(node, step) || ...);
}

// Appends something to a variable's own text.
class AppendAssignment final : public StringNode {
public:
    AppendAssignment(FND::String& target, std::unique_ptr<StringSum> sum)
        : target_(target), sum_(std::move(sum)) {}

    std::int32_t execute() override {
        sum_->appendTo(target_);
        return Node::goOn;
    }

    const FND::String& result() override {
        sum_->appendTo(target_);
        return target_;
    }

private:
    FND::String& target_;  // the variable's
    const std::unique_ptr<StringSum> sum_;
};

// The store into any other target. `rereads`: the target may run script code, so reading it again
// can be observed, and finding the target's storage may invalidate a reference to the value.
// `Target` is the class of the target, or a base of it.
template <class Type, class Target, class Operand, bool rereads>
class TargetAssignment final : public Type::Node {
public:
    TargetAssignment(std::unique_ptr<Node> target, Operand value)
        : target_(static_cast<Target*>(target.release())), value_(std::move(value)) {}

    std::int32_t execute() override {
        if constexpr (rereads) {
            result();
        } else {
            store();
        }
        return Node::goOn;
    }

    typename Type::Argument result() override {
        if constexpr (std::is_same_v<Type, LongType>) {
            return store();
        } else {
            store();
            return target_->result();
        }
    }

private:
    // Gives the value stored; a reference only to something that outlives the call.
    std::conditional_t<Type::byReference, void, typename Type::Value> store() {
        if constexpr (rereads) {
            const HeldCopy<typename Type::Value> held(value_.value());
            target_->set(held.value());
            if constexpr (!Type::byReference) return held.value();
        } else {
            typename Type::Argument value = value_.value();
            if constexpr (std::is_same_v<Target, typename Type::DataNode>) {
                target_->set(value);
            } else {
                target_->Target::set(value);
            }
            if constexpr (!Type::byReference) return value;
        }
    }

    const std::unique_ptr<Target> target_;
    Operand value_;
};

// Sets an element of a named container to its own value and a constant: `Access` finds it once.
template <class Access, class Operation>
class ElementUpdate final : public LongNode {
public:
    using Value =
        LongPairNode<LongPair<Operation, AnyOperand<LongType>, ConstantOperand<LongType>>>;

    ElementUpdate(std::unique_ptr<Access> target, std::unique_ptr<Value> value)
        : target_(std::move(target)), value_(std::move(value)), read_(*readOf(*value_)) {}

    long result() override {
        const long constant = value_->pair().right().value();
        if (long* const element = read_.element().findValue()) [[likely]] {
            return *element = Operation::apply(*element, constant);
        }
        const long value = Operation::apply(0, constant);
        target_->set(value);
        return value;
    }

    // The node for the assignment of `value` to `target`, which then owns both, if both have the
    // right form; otherwise null.
    static Node* make(std::unique_ptr<Node>& target, std::unique_ptr<Node>& value) {
        const Node& left = *target;
        const Node& right = *value;
        if (&typeid(left) != &typeid(Access) || &typeid(right) != &typeid(Value)) return nullptr;
        auto& access = static_cast<Access&>(*target);
        Access* const read = readOf(static_cast<Value&>(*value));
        if (read == nullptr || !read->element().isSame(access.element())) return nullptr;
        std::unique_ptr<Value> sum(static_cast<Value*>(value.release()));
        std::unique_ptr<Access> element(static_cast<Access*>(target.release()));
        return new ElementUpdate(std::move(element), std::move(sum));
    }

private:
    static Access* readOf(Value& value) {
        LongNode* const node = value.pair().left().peek();
        return &typeid(*node) == &typeid(Access) ? static_cast<Access*>(node) : nullptr;
    }

    const std::unique_ptr<Access> target_;
    const std::unique_ptr<Value> value_;
    Access& read_;  // the operand in `value_`
};

Node* makeElementUpdate(std::unique_ptr<Node>& target, std::unique_ptr<Node>& value) {
    using ByKey = HashAccess<LongType, NamedContainer<Hash>, VariableOperand<StringType>>;
    using ByIndex = NamedElementAccess<LongType>;
    if constexpr (!SpecialisesNodes) return nullptr;
    if (Node* const node = ElementUpdate<ByKey, LongAddition>::make(target, value)) return node;
    if (Node* const node = ElementUpdate<ByKey, LongSubtraction>::make(target, value)) return node;
    if (Node* const node = ElementUpdate<ByIndex, LongAddition>::make(target, value)) return node;
    return ElementUpdate<ByIndex, LongSubtraction>::make(target, value);
}

template <class Type>
class Assignment {
public:
    static Node* factory(Interpreter& /*interpreter*/, ParserStack& stack,
                         const FctDescr& /*descriptor*/) {
        const bool isTargetActive = stack.traits(1).mayRunScript;
        auto value = stack.pop<Node>();
        auto target = stack.pop<Node>();
        if (auto* const variable = variableOf<Type>(*target)) {
            const auto make = [&](auto operand) -> Node* {
                return new VariableAssignment<Type, decltype(operand)>(variable,
                                                                       std::move(operand));
            };
            const auto makeWithLeaf = [&](std::unique_ptr<Node> node) {
                return withOperand<Type>(std::move(node), make);
            };
            if constexpr (SpecialisesNodes && std::is_same_v<Type, StringType>) {
                Node& operand = *value;
                if (&typeid(operand) == &typeid(StringSum) &&
                    static_cast<StringSum&>(operand).firstText() == &variable->value()) {
                    return new AppendAssignment(
                        variable->value(),
                        std::unique_ptr<StringSum>(static_cast<StringSum*>(value.release())));
                }
            }
            if constexpr (std::is_same_v<Type, LongType>) {
                return withPair(AssignedPairs(), std::move(value), make, makeWithLeaf);
            } else {
                return makeWithLeaf(std::move(value));
            }
        }
        // A target that may run script code is evaluated again after the store, since its value is
        // used, and may change the object that a reference to the value refers to.
        if (isTargetActive) {
            using Any = AnyOperand<Type>;
            return new TargetAssignment<Type, typename Type::DataNode, Any, true>(
                std::move(target), Any(std::move(value)));
        }
        if constexpr (std::is_same_v<Type, LongType>) {
            if (Node* const node = makeElementUpdate(target, value)) return node;
        }
        return withOperand<Type>(std::move(value), [&](auto operand) -> Node* {
            using Operand = decltype(operand);
            if constexpr (SpecialisesNodes) {
                using Element = NamedElementAccess<Type>;
                if (isNamedElement<Type>(*target)) {
                    return new TargetAssignment<Type, Element, Operand, false>(std::move(target),
                                                                               std::move(operand));
                }
            }
            return new TargetAssignment<Type, typename Type::DataNode, Operand, false>(
                std::move(target), std::move(operand));
        });
    }
};

// Gives the handle just stored; the target keeps its sub-type.
class AdtAssignment final : public AdtNode {
public:
    AdtAssignment(std::unique_ptr<AdtDataNode> target, std::unique_ptr<AdtNode> value)
        : target_(std::move(target)), value_(std::move(value)) {}

    static Node* factory(Interpreter& /*interpreter*/, ParserStack& stack,
                         const FctDescr& /*descriptor*/) {
        auto value = stack.pop<AdtNode>();
        auto target = stack.pop<AdtDataNode>();
        return new AdtAssignment(std::move(target), std::move(value));
    }

    long result() override {
        const long value = value_->result();
        target_->set(value);
        return value;
    }

    const FND::String& subType() const override { return target_->subType(); }

private:
    const std::unique_ptr<AdtDataNode> target_;
    const std::unique_ptr<AdtNode> value_;
};

constexpr std::string_view assignmentS =
    "Assigns `value` to `target` and gives what `target` holds then.";

constexpr BuiltIn assignmentBuiltInsS[] = {
    {.number = 1,
     .signature = "Long Long=(out Long target, Long value)",
     .factory = Assignment<LongType>::factory,
     .facts = {.order = CallFacts::Order::Backward, .replaces = 0},
     .manual = "Assigns `value` to `target` and gives `value`.",
     .example = "Long n; (n = 5) == 5"},
    {.number = 2,
     .signature = "Adt Adt=(out Adt target, Adt value)",
     .factory = AdtAssignment::factory,
     .facts = {.order = CallFacts::Order::Backward, .replaces = 0},
     .manual = "Assigns a handle of an extension's data type and gives it; the name of the data "
               "type stays that of `target`.",
     .example = "Ebuf a; Ebuf b; a = b; true"},
    {.number = 3,
     .signature = "String String=(out String target, String value)",
     .factory = Assignment<StringType>::factory,
     .facts = {.order = CallFacts::Order::Backward, .replaces = 0},
     .manual = assignmentS,
     .example = R"(String s; (s = "x") == "x")"},
    {.number = 4,
     .signature = "Decimal Decimal=(out Decimal target, Decimal value)",
     .factory = Assignment<DecimalType>::factory,
     .facts = {.order = CallFacts::Order::Backward, .replaces = 0},
     .manual = assignmentS,
     .example = "Decimal d; (d = 1.5) == 1.5"},
    {.number = 5,
     .signature = "Date Date=(out Date target, Date value)",
     .factory = Assignment<DateType>::factory,
     .facts = {.order = CallFacts::Order::Backward, .replaces = 0},
     .manual = assignmentS,
     .example = "Date d; (d = MAX_DATE) == MAX_DATE"},
    {.number = 6,
     .signature = "Nexid Nexid=(out Nexid target, Nexid value)",
     .factory = Assignment<NexidType>::factory,
     .facts = {.order = CallFacts::Order::Backward, .replaces = 0},
     .manual = assignmentS,
     .example = "Nexid n; (n = INVALID_NEXID) == INVALID_NEXID"},
    {.number = 90,
     .signature = "Bool Bool=(out Bool target, Bool value)",
     .factory = Assignment<BoolType>::factory,
     .facts = {.order = CallFacts::Order::Backward, .replaces = 0},
     .manual = assignmentS,
     .example = "Bool b; (b = true) == true"},
};

}  // namespace

std::span<const BuiltIn> assignmentBuiltIns() { return assignmentBuiltInsS; }

LongStep longStepOf(const Node& node) {
    using Named = VariableOperand<LongType>;
    using Constant = ConstantOperand<LongType>;
    LongStep step;
    if (!findStep<Named>(node, step) && !findStep<Constant>(node, step)) {
        findStepOfPair(PairsOf<Named, Constant, LongAddition, LongSubtraction>(), node, step) ||
            findStepOfPair(PairsOf<Named, Named, LongAddition, LongSubtraction>(), node, step);
    }
    return step;
}

}  // namespace SCR

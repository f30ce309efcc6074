#include <typeinfo>

#include "scr/builtin/base/BuiltIn.h"
#include "scr/builtin/base/StringSum.h"
#include "scr/call/Binding.h"
#include "scr/parser/ParseErrors.h"
#include "scr/parser/ParserStack.h"
#include "scr/run/MemoryCharge.h"
#include "scr/tree/ElementAccess.h"
#include "scr/tree/Operand.h"

namespace SCR {

namespace {

// The store into a named variable. Its value is what the variable holds after the store.
template <class Type>
class VariableAssignment final : public Type::Node, public Code::Lowerable {
public:
    VariableAssignment(typename Type::Variable* target, std::unique_ptr<Node> value)
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

    Code::Ref lowerValue(Code::Builder& code, Code::Ref /*target*/) override {
        if constexpr (std::is_same_v<Type, LongType>) {
            const Code::Ref variable = code.variable(target_);
            const Code::Builder::Frame frame(code);
            const Code::Ref value = value_.lower(code, variable);
            if (value != variable) code.emit(Code::Op::Move, variable, value);
            return variable;
        } else if constexpr (std::is_same_v<Type, BoolType>) {
            const Code::Ref value = value_.lower(code);
            code.emit(Code::Op::StoreBool, {}, value, {}, target_);
            return value;
        } else {
            const Code::Ref place = code.address(target_);
            const Code::Builder::Frame frame(code);
            // A text has to be charged before it takes the place.
            constexpr bool isText = std::is_same_v<Type, StringType>;
            const Code::Ref value = value_.lower(code, isText ? Code::Ref() : place);
            static constexpr Code::Helper helper{Code::guarded<storeAt>, isText, false};
            if (value != place) code.call(helper, place, value);
            return place;
        }
    }

private:
    static long storeAt(RunControl& /*control*/, long target, long value, long /*c*/) {
        using Value = typename Type::Value;
        SCR::store(Code::at<Value>(target), Code::at<const Value>(value));
        return 0;
    }

    typename Type::Value* const target_;  // the variable's
    const Operand<Type> value_;
};

// The store of a sum of texts into a named variable, which is where they are put together.
class SumAssignment final : public StringNode {
public:
    SumAssignment(FND::String& target, std::unique_ptr<StringSum> sum)
        : target_(target), sum_(std::move(sum)) {}

    std::int32_t execute() override {
        sum_->storeIn(target_);
        return Node::goOn;
    }

    const FND::String& result() override {
        sum_->storeIn(target_);
        return target_;
    }

private:
    FND::String& target_;  // the variable's
    const std::unique_ptr<StringSum> sum_;
};

// The store into any other target. `rereads`: the target may run script code, so reading it again
// can be observed, and finding the target's storage may invalidate a reference to the value.
template <class Type, bool rereads>
class TargetAssignment final : public Type::Node, public Code::Lowerable {
public:
    TargetAssignment(std::unique_ptr<Node> target, std::unique_ptr<Node> value)
        : target_(static_cast<typename Type::DataNode*>(target.release())),
          value_(std::move(value)) {}

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

    // As a statement; the value is seldom used.
    void lowerStatement(Code::Builder& code) override {
        auto* const element = dynamic_cast<LowerableTarget*>(target_.get());
        if (rereads || element == nullptr || !element->isNamed()) {
            code.execute(*this);
            return;
        }
        const Code::Builder::Frame frame(code);
        Code::Builder::Held value = code.hold(value_.lower(code));
        element->lowerStore(code, value.release());
    }
    Code::Ref lowerValue(Code::Builder& code, Code::Ref target) override {
        return code.callNode(static_cast<typename Type::Node&>(*this), target);
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
            target_->set(value);
            if constexpr (!Type::byReference) return value;
        }
    }

    const std::unique_ptr<typename Type::DataNode> target_;
    const Operand<Type> value_;
};

template <class Type>
class Assignment {
public:
    static Node* factory(Interpreter& /*interpreter*/, ParserStack& stack,
                         const FctDescr& /*descriptor*/) {
        const bool isTargetActive = stack.traits(1).mayRunScript();
        auto value = stack.pop<Node>();
        auto target = stack.pop<Node>();
        if (auto* const variable = variableOf<Type>(*target)) {
            if constexpr (std::is_same_v<Type, StringType>) {
                Node& operand = *value;
                if (&typeid(operand) == &typeid(StringSum)) {
                    return new SumAssignment(
                        variable->value(),
                        std::unique_ptr<StringSum>(static_cast<StringSum*>(value.release())));
                }
            }
            return new VariableAssignment<Type>(variable, std::move(value));
        }
        // A target that may run script code is evaluated again after the store, since its value is
        // used, and may change the object that a reference to the value refers to.
        if (isTargetActive) {
            return new TargetAssignment<Type, true>(std::move(target), std::move(value));
        }
        return new TargetAssignment<Type, false>(std::move(target), std::move(value));
    }
};

// Gives the handle just stored; the target keeps its sub-type.
class AdtAssignment final : public AdtNode {
public:
    AdtAssignment(std::unique_ptr<AdtDataNode> target, std::unique_ptr<AdtNode> value)
        : target_(std::move(target)), value_(std::move(value)) {}

    static Node* factory(Interpreter& /*interpreter*/, ParserStack& stack,
                         const FctDescr& /*descriptor*/) {
        auto value = asHandle(stack.pop<Node>());
        auto target = stack.pop<AdtDataNode>();
        if (!mayBecome(value->subType(), target->subType())) {
            SCR_YaccError(Messages::wrongObject(target->subType(), value->subType()));
            return nullptr;
        }
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

}  // namespace SCR

#include "records/script/TotalExtension.h"

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "records/script/Arguments.h"
#include "records/script/CurrentRecord.h"
#include "scr/Capabilities.h"
#include "scr/ContainerAccess.h"
#include "scr/Extension.h"
#include "scr/FctDescr.h"
#include "scr/HostContainers.h"
#include "scr/Interpreter.h"
#include "scr/Variable.h"
#include "scr/VariableAccess.h"
#include "scr/parser/ParseErrors.h"
#include "scr/parser/ParserStack.h"

namespace Records {
namespace {

using Kind = Totals::Kind;

// What every call of a total has.
class TotalNode : public SCR::VoidNode {
public:
    TotalNode(SCR::Interpreter& interpreter, CurrentRecord& current, const char* name,
              Totals::Reference entry)
        : interpreter_(interpreter), current_(current), name_(name), entry_(std::move(entry)) {}

protected:
    bool mayAdd() const {
        if (current_.totals.mayAdd()) return true;
        report("there is no record yet");
        return false;
    }
    void report(const char* wrong) const {
        if (wrong != nullptr) interpreter_.logError(std::string(name_) + ": " + wrong);
    }
    SCR::Interpreter& interpreter_;
    CurrentRecord& current_;
    const char* const name_;
    const Totals::Reference entry_;
};

// What is added is a value of the script; the null values of Decimal and Date add nothing.
template <class Type>
class Added {
public:
    using Value = typename Type::Value;
    explicit Added(std::unique_ptr<SCR::Node> node)
        : node_(static_cast<typename Type::Node*>(node.release())) {}
    decltype(auto) value() const { return node_->result(); }
    static bool isNull(const Value& value) {
        if constexpr (requires { value.isValid(); }) return !value.isValid();
        return false;
    }

private:
    std::unique_ptr<typename Type::Node> node_;
};

// One is added: `totalCount`, `totalSet`.
template <class Type>
class One {
public:
    using Value = typename Type::Value;
    Value value() const { return Value(1); }
    static bool isNull(const Value& /*value*/) { return false; }
};

template <class Type, class Source>
class VariableTotal final : public TotalNode {
public:
    VariableTotal(SCR::Interpreter& interpreter, CurrentRecord& current, const char* name,
                  Totals::Reference entry, Source source)
        : TotalNode(interpreter, current, name, std::move(entry)),
          total_(static_cast<typename Type::Variable&>(*entry_->variable)),
          source_(std::move(source)) {}
    void result() override {
        const auto& value = source_.value();
        if (!mayAdd() || Source::isNull(value)) return;
        report(current_.totals.add<typename Type::Value>(*entry_, total_.value(), value));
    }

private:
    typename Type::Variable& total_;
    Source source_;
};

template <class Type, class Source>
class KeyTotal final : public TotalNode {
public:
    using Value = typename Type::Value;
    KeyTotal(SCR::Interpreter& interpreter, CurrentRecord& current, const char* name,
             Totals::Reference entry, std::unique_ptr<SCR::StringNode> key, bool holdsKey,
             Source source)
        : TotalNode(interpreter, current, name, std::move(entry)),
          hash_(static_cast<SCR::Hash&>(*entry_->variable)),
          key_(std::move(key)),
          holdsKey_(holdsKey),
          source_(std::move(source)) {}
    void result() override {
        const FND::String* key = &key_->result();
        if (holdsKey_) key = &(held_ = *key);
        const auto& value = source_.value();
        if (!mayAdd() || Source::isNull(value)) return;
        const unsigned long before = hash_.size();
        Value* const total = SCR::HashRef<Value>(hash_, &interpreter_).at(*key);
        if (total == nullptr) return;
        const bool isNew = hash_.size() != before;
        report(current_.totals.add<Value>(*entry_, *key, isNew, *total, value));
    }

private:
    SCR::Hash& hash_;
    const std::unique_ptr<SCR::StringNode> key_;
    const bool holdsKey_;  // what is added may run script code, which may change the key
    FND::String held_;
    Source source_;
};

// Names the key of which only the first record stays.
class UniqueNode final : public SCR::VoidNode {
public:
    UniqueNode(CurrentRecord& current, std::unique_ptr<SCR::StringNode> key)
        : current_(current), key_(std::move(key)) {}
    void result() override { current_.keepFirst(key_->result()); }

private:
    CurrentRecord& current_;
    const std::unique_ptr<SCR::StringNode> key_;
};

// The variable that a node stands for, if it is not an element or a constant; null otherwise.
SCR::Variable* variableOf(SCR::Node* node) {
    SCR::Variable* found = nullptr;
    const auto look = [&]<class Access>(Access* access) {
        if (access != nullptr) found = access->variable();
    };
    look(dynamic_cast<SCR::LongVariableAccess*>(node));
    look(dynamic_cast<SCR::DecimalVariableAccess*>(node));
    look(dynamic_cast<SCR::StringVariableAccess*>(node));
    look(dynamic_cast<SCR::DateVariableAccess*>(node));
    look(dynamic_cast<SCR::BoolVariableAccess*>(node));
    if (auto* const hash = dynamic_cast<SCR::HashVariableAccess*>(node)) found = hash->result();
    return found;
}

class TotalFunction final : public SCR::FctDescr {
public:
    TotalFunction(const char* name, Kind kind, CurrentRecord& current)
        : FctDescr(name, SCR::TypeCode::Void, 1, anyNumber, make), kind_(kind), current_(current) {
        effects(SCR::Effect::Totals);
    }
    SCR::Variable* clone() const override { return new TotalFunction(*this); }

private:
    static SCR::Node* make(SCR::Interpreter& interpreter, SCR::ParserStack& stack,
                           const FctDescr& descriptor) {
        std::vector<Argument> arguments = popArguments(stack);
        return static_cast<const TotalFunction&>(descriptor).makeNode(interpreter, arguments);
    }
    SCR::Node* makeNode(SCR::Interpreter& interpreter, std::vector<Argument>& arguments) const;
    template <class Type, class Source>
    SCR::Node* makeNode(SCR::Interpreter& interpreter, std::vector<Argument>& arguments,
                        Totals::Reference entry, Source source) const;
    // Whether there can be such totals of the type.
    bool takes(int type, bool isHash) const;
    SCR::Node* complain(const std::string& what) const {
        SCR_YaccError(name() + ": " + what);
        return nullptr;
    }

    const Kind kind_;
    CurrentRecord& current_;
};

bool TotalFunction::takes(int type, bool isHash) const {
    namespace Code = SCR::TypeCode;
    switch (kind_) {
        case Kind::Sum:
            return type == Code::Long || type == Code::Decimal;
        case Kind::Min:
        case Kind::Max:
            return type == Code::Long || type == Code::Decimal || type == Code::Date ||
                   type == Code::String;
        case Kind::Count:
            return type == Code::Long;
        case Kind::Set:
            return isHash && (type == Code::Long || type == Code::Bool);
    }
    return false;
}

template <class Type, class Source>
SCR::Node* TotalFunction::makeNode(SCR::Interpreter& interpreter, std::vector<Argument>& arguments,
                                   Totals::Reference entry, Source source) const {
    const char* const ownName = name().c_str();
    if (!entry->isHash) {
        if constexpr (!std::is_same_v<Type, SCR::BoolType>) {
            return new VariableTotal<Type, Source>(interpreter, current_, ownName, std::move(entry),
                                                   std::move(source));
        }
    }
    std::unique_ptr<SCR::StringNode> key(
        static_cast<SCR::StringNode*>(arguments[1].node.release()));
    return new KeyTotal<Type, Source>(interpreter, current_, ownName, std::move(entry),
                                      std::move(key), arguments.back().traits.mayRunScript(),
                                      std::move(source));
}

SCR::Node* TotalFunction::makeNode(SCR::Interpreter& interpreter,
                                   std::vector<Argument>& arguments) const {
    namespace Code = SCR::TypeCode;
    SCR::Variable* const variable = variableOf(arguments[0].node.get());
    const bool isHash = SCR::Node::baseType(arguments[0].type) == Code::Hash;
    const bool isGood = variable != nullptr && (isHash || SCR::Node::isLeft(arguments[0].type));
    if (!isGood) {
        return complain(
            "the first argument must be a variable, or a hash and then the key of an element");
    }
    const int type = isHash
                         ? SCR::Node::baseType(static_cast<SCR::Hash*>(variable)->containerType())
                         : SCR::Node::baseType(arguments[0].type);
    if (!takes(type, isHash)) {
        return complain("no total is a " + std::string(isHash ? "Hash of " : "") +
                        SCR::Node::datatypeAsString(type));
    }
    const bool addsOne = kind_ == Kind::Count || kind_ == Kind::Set;
    const std::size_t count = 1U + (isHash ? 1U : 0U) + (addsOne ? 0U : 1U);
    if (arguments.size() != count) {
        const char* const value = addsOne ? "" : " and a value";
        return complain(std::string("it takes ") + (isHash ? "a hash, a key" : "a variable") +
                        value);
    }
    if (isHash && SCR::Node::baseType(arguments[1].type) != Code::String) {
        return complain("the key must be a String");
    }
    Argument& added = arguments.back();
    const int given = SCR::Node::baseType(added.type);
    if (!addsOne && given != type) {
        if (SCR::Node::SuperType(given, type) != type) {
            return complain("a " + SCR::Node::datatypeAsString(type) + " is needed, not a " +
                            SCR::Node::datatypeAsString(given));
        }
        added.node.reset(added.node->promote(type));
        if (!added.node) return nullptr;
    }
    Totals::Reference entry = current_.totals.declare(kind_, type, isHash, variable);
    if (!entry) return complain("the variable is a total of another kind");
    const auto make = [&]<class Type>(Type) -> SCR::Node* {
        return makeNode<Type>(interpreter, arguments, std::move(entry),
                              Added<Type>(std::move(added.node)));
    };
    if (addsOne && type == Code::Bool) {
        return makeNode<SCR::BoolType>(interpreter, arguments, std::move(entry),
                                       One<SCR::BoolType>());
    }
    if (addsOne) {
        return makeNode<SCR::LongType>(interpreter, arguments, std::move(entry),
                                       One<SCR::LongType>());
    }
    return type == Code::Long      ? make(SCR::LongType())
           : type == Code::Decimal ? make(SCR::DecimalType())
           : type == Code::Date    ? make(SCR::DateType())
                                   : make(SCR::StringType());
}

class UniqueFunction final : public SCR::FctDescr {
public:
    explicit UniqueFunction(CurrentRecord& current)
        : FctDescr("recordUnique", SCR::TypeCode::Void, 1, 1, make, SCR::TypeCode::String),
          current_(current) {}
    SCR::Variable* clone() const override { return new UniqueFunction(*this); }

private:
    static SCR::Node* make(SCR::Interpreter& /*interpreter*/, SCR::ParserStack& stack,
                           const FctDescr& descriptor) {
        CurrentRecord& current = static_cast<const UniqueFunction&>(descriptor).current_;
        current.totals.declareKeys();
        return new UniqueNode(current, stack.pop<SCR::StringNode>());
    }
    CurrentRecord& current_;
};

class TotalExtension final : public SCR::Extension {
public:
    explicit TotalExtension(CurrentRecord& current)
        : functions_{{{"total", Kind::Sum, current},
                      {"totalMin", Kind::Min, current},
                      {"totalMax", Kind::Max, current},
                      {"totalCount", Kind::Count, current},
                      {"totalSet", Kind::Set, current}}},
          unique_(current) {}

    FND::String extensionName() const override { return "totals"; }
    SCR::Variable* variable(const FND::String& name) override {
        for (TotalFunction& function : functions_) {
            if (name == function.name()) return &function;
        }
        return name == unique_.name() ? &unique_ : nullptr;
    }
    void visitNames(const std::function<void(const FND::String& name)>& visit) const override {
        for (const TotalFunction& function : functions_) visit(function.name());
        visit(unique_.name());
    }

private:
    std::array<TotalFunction, 5> functions_;
    UniqueFunction unique_;
};

}  // namespace

void addTotalFunctions(SCR::Interpreter& interpreter, CurrentRecord& current) {
    auto extension = std::make_unique<TotalExtension>(current);
    if (interpreter.insertExtension(extension.get())) extension.release();
}

}  // namespace Records

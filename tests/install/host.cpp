// A host program that sees only the installed headers. Derives from every class that hosts and
// extensions derive from, casts across the library's boundary, and exits with 0 when everything is
// right.

#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fnd/Decimal.h"
#include "fsm/Engine.h"
#include "fsm/State.h"
#include "scr/Array.h"
#include "scr/CompareInterface.h"
#include "scr/Constant.h"
#include "scr/ContainerAccess.h"
#include "scr/Extension.h"
#include "scr/FctDescr.h"
#include "scr/Interpreter.h"
#include "scr/Log.h"
#include "scr/Node.h"
#include "scr/Variable.h"
#include "scr/parser/ParserStack.h"

namespace {

int faults = 0;

constexpr int longDataS = SCR::TypeCode::Long | SCR::TypeCode::LeftFlag;

void check(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "host: %s\n", what);
    ++faults;
}

class HostLog : public SCR::Log {
public:
    void log(const FND::String& message, FND::Status::Severity severity) override {
        last = message;
        lastSeverity = severity;
    }
    std::string last;
    FND::Status::Severity lastSeverity = FND::Status::Debug;
};

/// The node of a call of `twice`.
class Twice : public SCR::LongNode {
public:
    explicit Twice(std::unique_ptr<SCR::LongNode> operand) : operand_(std::move(operand)) {}
    static SCR::Node* factory(SCR::Interpreter&, SCR::ParserStack& stack, const SCR::FctDescr&) {
        std::unique_ptr<SCR::Node> node(stack.popData());
        auto* operand = dynamic_cast<SCR::LongNode*>(node.get());
        check(operand != nullptr, "a node of the library does not cast to its base");
        if (operand == nullptr) return nullptr;
        node.release();
        return new Twice(std::unique_ptr<SCR::LongNode>(operand));
    }
    long result() override { return 2 * operand_->result(); }

private:
    std::unique_ptr<SCR::LongNode> operand_;
};

/// `first(array)` and `named(hash, key)`: elements of Longs that scripts may assign.
SCR::Node* first(SCR::Interpreter& interpreter, SCR::ParserStack& stack, const SCR::FctDescr&) {
    auto array = stack.pop<SCR::ArrayNode>();
    return SCR::arrayAccess(interpreter, std::move(array), std::make_unique<SCR::LongConstant>(0))
        .release();
}
SCR::Node* named(SCR::Interpreter& interpreter, SCR::ParserStack& stack, const SCR::FctDescr&) {
    auto key = stack.pop<SCR::StringNode>();
    auto hash = stack.pop<SCR::HashNode>();
    return SCR::hashAccess(interpreter, std::move(hash), std::move(key), true).release();
}

class HostExtension : public SCR::Extension {
public:
    FND::String extensionName() const override { return "host"; }
    SCR::Variable* variable(const FND::String& name) override {
        if (name == "amount") return &amount;
        if (name == "twice") return &twice_;
        return nullptr;
    }
    SCR::LongVariable amount;

private:
    SCR::FctDescr twice_{"twice", SCR::TypeCode::Long, 1, 1, Twice::factory, SCR::TypeCode::Long};
};

/// A variable class of the host's own.
class HostVariable : public SCR::Variable {
public:
    HostVariable() : SCR::Variable(SCR::TypeCode::Adt) {}
    SCR::Variable* clone() const override { return new HostVariable; }
};

/// What builds nodes of other kinds.
class OtherExtension : public SCR::Extension {
public:
    FND::String extensionName() const override { return "other"; }
    SCR::Variable* variable(const FND::String& name) override {
        return name == "first" ? &first_ : name == "named" ? &named_ : nullptr;
    }

private:
    SCR::FctDescr first_{"first", longDataS, 1, 1, first, SCR::TypeCode::Array};
    SCR::FctDescr named_{
        "named", longDataS, 2, 2, named, SCR::TypeCode::Hash, SCR::TypeCode::String};
};

class Conditions : public SCR::CompareInterface {
public:
    bool condition(SCR::BoolNode* condition) override {
        conditions.emplace_back(condition);
        return true;
    }
    bool comparePattern(SCR::Interpreter&, SCR::ParserStack&) override { return false; }
    std::vector<std::unique_ptr<SCR::BoolNode>> conditions;
};

}  // namespace

int main() {
    HostLog log;
    {
        SCR::Interpreter interpreter(&log);
        check(interpreter.isValid(), "a fresh interpreter is not valid");
        check(interpreter.insertExtension(new HostExtension), "the extension is refused");
        auto* host = dynamic_cast<HostExtension*>(interpreter.extension("host"));
        check(host != nullptr, "the host's extension does not cast back");
        check(interpreter.compile("if (host::twice(amount) > 10) { amount = 0; }"),
              "the script does not compile");
        for (const long amount : {5L, 6L}) {
            host->amount.value(amount);
            check(interpreter.execute(), "the script does not run");
            check(host->amount.value() == (amount == 5 ? 5 : 0), "the script's result is wrong");
        }
        SCR::Variable* descriptor = interpreter.getVariable("", "strLength");
        check(dynamic_cast<SCR::FctDescr*>(descriptor) != nullptr,
              "a built-in's descriptor does not cast");

        check(!interpreter.compile("amount = ;"), "a wrong script compiles");
        check(log.last == "ERROR: line 1: parse error" && log.lastSeverity == FND::Status::Error,
              "the message of a wrong script is another");
    }
    {
        SCR::Interpreter interpreter(&log);
        check(interpreter.insertExtension(new OtherExtension), "the other extension is refused");
        check(interpreter.compile("Long list[]; Long hash{}; first(list) = 2;"
                                  "named(hash, \"k\") = first(list) + 1;"
                                  "scriptUsable(list[0] == 2 and hash{\"k\"} == 3);"),
              "the script that uses elements does not compile");
        check(interpreter.execute() && interpreter.isValid(), "the elements are wrong");
        Conditions target;
        check(interpreter.compileConditions("1 < 2; 2 < 1;", target) &&
                  target.conditions.size() == 2 && target.conditions[0]->result() &&
                  !target.conditions[1]->result(),
              "the conditions are wrong");
    }
    SCR::Array array(new HostVariable);
    const std::unique_ptr<SCR::Variable> copy(array.clone());
    check(dynamic_cast<HostVariable*>(dynamic_cast<SCR::Array&>(*copy).at(3)) != nullptr,
          "an element is no clone of the host's variable");

    FSM::Engine engine(1);
    check(engine.insertPattern("ab*", 3) && engine.finalSetup(), "the pattern is refused");
    const FSM::State* state = engine.process("abb");
    check(state != nullptr && state->pathNumbers() == std::vector<int>{3},
          "the pattern does not match");
    return faults == 0 ? 0 : 1;
}

// Extensions and receivers of conditions that hosts write themselves: some keep the contracts of
// the headers; the others get a message and do no harm.

#include "Script.h"
#include "scr/Array.h"
#include "scr/CompareInterface.h"
#include "scr/Constant.h"
#include "scr/Extension.h"
#include "scr/FctDescr.h"
#include "scr/parser/ParseErrors.h"
#include "scr/parser/ParserStack.h"

namespace {

using SCR::FctDescr;
using SCR::Interpreter;
using SCR::Node;
using SCR::ParserStack;
namespace TypeCode = SCR::TypeCode;

constexpr int leftLongS = TypeCode::Long | TypeCode::LeftFlag;

// A class of the host's own whose code is that of one of the library's.
class OwnVariable final : public SCR::Variable {
public:
    using Variable::Variable;
    Variable* clone() const override { return new OwnVariable(dataType()); }
};

// The sum of its operands, each a Long.
class Sum final : public SCR::LongNode {
public:
    static Node* factory(Interpreter& /*interpreter*/, ParserStack& stack,
                         const FctDescr& /*descriptor*/) {
        auto sum = std::make_unique<Sum>();
        const int count = stack.topNumParams();
        sum->operands_.resize(static_cast<std::size_t>(count));
        for (auto operand = sum->operands_.rbegin(); operand != sum->operands_.rend(); ++operand) {
            *operand = stack.pop<SCR::LongNode>();
        }
        return sum.release();
    }
    long result() override {
        long sum = 0;
        for (const auto& operand : operands_) sum += operand->result();
        return sum;
    }

private:
    std::vector<std::unique_ptr<SCR::LongNode>> operands_;
};

// Takes `nodes` nodes and `types` type words, and gives a constant.
template <int nodes, int types, class Type>
Node* take(Interpreter& /*interpreter*/, ParserStack& stack, const FctDescr& /*descriptor*/) {
    for (int i = 0; i < nodes; ++i) delete stack.popData();
    for (int i = 0; i < types; ++i) stack.popType();
    return new SCR::ConstantNode<Type>(Type::null());
}

Node* giveNothing(Interpreter& /*interpreter*/, ParserStack& stack, const FctDescr& descriptor) {
    delete stack.popData();
    if (descriptor.name() == "reports") SCR_YaccError("no such thing");
    return nullptr;
}

class OwnExtension final : public SCR::Extension {
public:
    OwnExtension() {
        using Long = SCR::LongType;
        using Text = SCR::StringType;
        add("own", new OwnVariable(leftLongS));
        auto* retyped = new SCR::StringVariable;
        retyped->dataType(leftLongS);
        add("retyped", retyped);
        add("owns", new SCR::Array(new OwnVariable(leftLongS)));
        add("texts", new SCR::Array(new OwnVariable(TypeCode::String | TypeCode::LeftFlag)));
        addFunction("reports", 1, giveNothing);
        addFunction("silent", 1, giveNothing);
        addFunction("noFactory", 1, nullptr);
        addFunction("otherType", 1, take<1, 0, Text>);
        addFunction("noData", 1, take<1, 0, Long>, leftLongS);
        addFunction("lazy", 1, take<0, 0, Long>);
        addFunction("greedy", 1, take<2, 0, Long>);
        addFunction("typed", 1, take<1, 1, Long>);
        addFunction("unchecked", FctDescr::anyNumber, take<3, 0, Long>);
        addFunction("sum", 1, Sum::factory)->addRest(TypeCode::Long);
    }
    FND::String extensionName() const override { return "own"; }
    SCR::Variable* variable(const FND::String& name) override {
        const auto found = variables_.find(name);
        return found != variables_.end() ? found->second.get() : nullptr;
    }

private:
    void add(const FND::String& name, SCR::Variable* variable) { variables_[name].reset(variable); }
    FctDescr* addFunction(const FND::String& name, int maximum, FctDescr::Factory factory,
                          int type = TypeCode::Long) {
        auto* function = new FctDescr(name, type, 1, maximum, factory, TypeCode::Long);
        add(name, function);
        return function;
    }

    std::map<FND::String, std::unique_ptr<SCR::Variable>> variables_;
};

TEST(ExtensionContractTest, WhatBreaksItIsRefusedWithOneMessage) {
    const FND::String other = "is of another class than that of the type `Long'";
    const struct {
        const char* script;
        FND::String message;
    } rows[] = {
        {"own = 5;", "identifier `own' " + other},
        {"Long a = retyped;", "identifier `retyped' " + other},
        {"owns[0] = 5;", "elements of type `Long' can not be accessed"},
        {"strSplit(texts, \"a,b\", \",\");",
         "expected an array of Strings as parameter 1 in call to  function `strSplit"},
        {"reports(1);", "no such thing"},
        {"silent(1);", "call of `Long silent(Long)' could not be made"},
        {"noFactory(1);", "call of `Long noFactory(Long)' could not be made"},
        {"otherType(1);", "the factory of `Long otherType(Long)' made a node of another type"},
        {"noData(1) = 2;", "the factory of `Long noData(Long)' made a node of another type"},
        {"Long a = 1 + lazy(2);",
         "the factory of `Long lazy(Long)' does not take the arguments of its call"},
        {"Long a = 1 + greedy(2);",
         "the factory of `Long greedy(Long)' does not take the arguments of its call"},
        {"sum();", "missing parameter in call to `Long sum(Long,[Long...])'"},
        {"sum(1, 2, \"3\");",
         "expected Long not String as argument 3 in `Long sum(Long,[Long...])'"},
    };
    for (const auto& row : rows) {
        Harness::MemoryLog log;
        Interpreter interpreter(&log);
        ASSERT_TRUE(interpreter.insertExtension(new OwnExtension));
        EXPECT_FALSE(interpreter.compile(row.script)) << row.script;
        EXPECT_EQ(log.text, "ERROR: line 1: " + row.message + "\n") << row.script;
    }
}

TEST(ExtensionContractTest, WhatKeepsToItWorks) {
    const auto run = Harness::run(
        // A factory that takes type words that are not there, or leaves some, does no harm to the
        // operands around its call.
        "String s = \"x\" + longToStr(1 + typed(2)) + longToStr(1 + unchecked(1, \"y\", 2.5));"
        "logStdout(s + longToStr(sum(1) + sum(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11)));",
        {.prepare = [](Interpreter& interpreter) {
            EXPECT_TRUE(interpreter.insertExtension(new OwnExtension));
        }});
    EXPECT_EQ(run.output, "x1167") << run.log;
    FctDescr rest("f", TypeCode::Void, 1, 2, nullptr, TypeCode::String, TypeCode::Bool);
    rest.addRest(TypeCode::Date);
    const std::unique_ptr<SCR::Variable> copy(rest.clone());
    EXPECT_EQ(static_cast<FctDescr&>(*copy).signature(), "Void f(String,[Bool,Date...])");
}

// Refuses conditions and pattern comparisons, or makes something wrong of them.
class Refusing final : public SCR::CompareInterface {
public:
    bool condition(SCR::BoolNode* condition) override {
        delete condition;
        return false;
    }
    bool comparePattern(Interpreter& /*interpreter*/, ParserStack& stack) override {
        if (makesLong) {
            delete stack.popData();
            delete stack.popData();
            stack.popType();
            stack.popType();
            stack.pushData(new SCR::LongConstant(1), TypeCode::Bool);
        }
        return makesLong;
    }
    bool makesLong = false;
};

TEST(ExtensionContractTest, RefusedConditionsAreReported) {
    const struct {
        const char* text;
        bool makesLong;
        const char* message;
    } rows[] = {
        {"true;", false, "the condition was refused"},
        {"\"a\" =~ \"a\";", false, "the pattern comparison was refused"},
        {"\"a\" =~ \"a\";", true, "the pattern comparison made a node of another type"},
    };
    for (const auto& row : rows) {
        Harness::MemoryLog log;
        Interpreter interpreter(&log);
        Refusing target;
        target.makesLong = row.makesLong;
        EXPECT_FALSE(interpreter.compileConditions(row.text, target)) << row.message;
        EXPECT_EQ(log.text, FND::String("ERROR: line 1: ") + row.message + "\n");
    }
}

}  // namespace

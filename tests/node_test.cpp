#include "scr/Node.h"
#include "Test.h"
#include "scr/Constant.h"
#include "scr/Statement.h"
#include "scr/SwitchCase.h"
#include "scr/Variable.h"
#include "scr/parser/ParserStack.h"

namespace {

using SCR::Node;
namespace TypeCode = SCR::TypeCode;

TEST(NodeTest, TypeNames) {
    for (const auto& [code, name] : {std::pair{1, "EdrAlias"},
                                     {10, "Void"},
                                     {11, "String"},
                                     {12, "Bool"},
                                     {13, "Decimal"},
                                     {14, "Long"},
                                     {15, "Date"},
                                     {16, "File"},
                                     {20, "Adt"},
                                     {21, "Nexid"}}) {
        EXPECT_EQ(Node::datatypeAsString(code | 0xC000), name);
        EXPECT_EQ(Node::typeIdForName(name), code) << name;
    }
    EXPECT_EQ(Node::datatypeAsString(18) + Node::datatypeAsString(17), "ArrayUnknown");
    EXPECT_EQ(Node::typeIdForName("Array") + Node::typeIdForName("long"), 0);
}

// A statement that counts its executions and gives a code.
class Probe final : public Node {
public:
    Probe(int& count, std::int32_t code, bool returns = false)
        : count_(count), code_(code), returns_(returns) {}
    std::int32_t execute() override {
        ++count_;
        return code_;
    }
    bool returnsResult() const override { return returns_; }

private:
    int& count_;
    const std::int32_t code_;
    const bool returns_;
};

// The result of a switch that a host builds: 7 when the selector fits its only label, otherwise 0.
template <class Switch, class Constant, class Value>
long chosen(const Value& selector, const Value& label, int typeCode) {
    SCR::ParserStack stack;
    Switch statement(new Constant(selector));
    int turns = 0;
    stack.pushData(new Constant(label), typeCode | TypeCode::ConstFlag);
    EXPECT_TRUE(statement.nextCase(stack));
    EXPECT_TRUE(statement.addStatement(new Probe(turns, 7)));
    EXPECT_TRUE(statement.finalSetup());
    statement.close();
    return statement.execute();
}

TEST(StatementTest, HostsMayBuildSwitches) {
    const auto longs = chosen<SCR::LongSwitchCase, SCR::LongConstant, long>;
    const auto strings = chosen<SCR::StringSwitchCase, SCR::StringConstant, FND::String>;
    const auto patterns = chosen<SCR::RegExprSwitchCase, SCR::StringConstant, FND::String>;
    EXPECT_EQ(longs(3, 3, TypeCode::Long), 7);
    EXPECT_EQ(longs(4, 3, TypeCode::Long), 0);
    EXPECT_EQ(strings("ab", "ab", TypeCode::String), 7);
    EXPECT_EQ(strings("a", "ab", TypeCode::String), 0);
    EXPECT_EQ(patterns("abb", "ab+", TypeCode::String), 7);
    EXPECT_EQ(patterns("a", "ab+", TypeCode::String), 0);
}

}  // namespace

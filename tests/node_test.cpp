#include "scr/Node.h"
#include "Test.h"
#include "scr/Constant.h"
#include "scr/Statement.h"
#include "scr/SwitchCase.h"
#include "scr/Variable.h"
#include "scr/os/FileData.h"
#include "scr/parser/ParserStack.h"

namespace {

using SCR::Node;
namespace TypeCode = SCR::TypeCode;

TEST(NodeTest, TypeNames) {
    const struct {
        int code;
        const char* name;
        bool isDeclarable;
    } rows[] = {
        {1, "EdrAlias", true},  {10, "Void", true},    {11, "String", true},   {12, "Bool", true},
        {13, "Decimal", true},  {14, "Long", true},    {15, "Date", true},     {16, "File", true},
        {18, "Array", false},   {19, "Hash", false},   {20, "Adt", true},      {21, "Nexid", true},
        {17, "Unknown", false}, {0, "Unknown", false}, {99, "Unknown", false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Node::datatypeAsString(row.code), row.name) << row.code;
        EXPECT_EQ(Node::datatypeAsString(row.code | 0xC000), row.name) << row.code;
        if (row.name != FND::String("Unknown")) {
            EXPECT_EQ(Node::typeIdForName(row.name), row.isDeclarable ? row.code : 0) << row.name;
        }
    }
    for (const char* name : {"", "long", "Unknown", "Longs"}) {
        EXPECT_EQ(Node::typeIdForName(name), 0) << name;
    }
}

TEST(NodeTest, VariablesCarryTheirFlags) {
    EXPECT_EQ(SCR::LongVariable().dataType(), 0x400E);
    EXPECT_EQ(SCR::LongVariable(1, true).dataType(), 0x800E);
    EXPECT_EQ(SCR::AdtVariable().dataType(), 0x4014);
    EXPECT_EQ(SCR::FileVariable().dataType(), 16);
    EXPECT_FALSE(SCR::DateVariable().value().isValid());
}

TEST(NodeDeathTest, LinksAreNeverExecuted) {
    SCR::FileVariable file;
    SCR::FileData link(&file);
    EXPECT_EXIT(link.execute(), testing::ExitedWithCode(1), "Should never be executed");
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

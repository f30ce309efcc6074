#include <gtest/gtest.h>

#include <memory>

#include "scr/Constant.h"
#include "scr/FctDescr.h"
#include "scr/FileData.h"
#include "scr/Node.h"
#include "scr/Statement.h"
#include "scr/Variable.h"

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

TEST(NodeTest, TypeWordsKeepTheirOtherBits) {
    EXPECT_EQ(Node::baseType(0x7FFFFFFF), 0x7FFF3FFF);
    EXPECT_EQ(Node::baseType(14 | 0x4000 | 0x8000), 14);
    EXPECT_TRUE(Node::isLeft(0x400E) && !Node::isConst(0x400E));
    EXPECT_TRUE(Node::isConst(0x800E) && !Node::isLeft(0x800E));
}

TEST(NodeTest, SuperTypes) {
    for (int a = 0; a <= 22; ++a) {
        for (int b = 0; b <= 22; ++b) {
            int expected = a == b && a >= 10 && a <= 19 ? a : 0;
            if ((a == 13 && b == 14) || (a == 14 && b == 13)) expected = 13;
            EXPECT_EQ(Node::SuperType(a, b), expected) << a << ", " << b;
        }
    }
}

TEST(NodeTest, OnlyLongConstantsPromote) {
    SCR::LongConstant five(5);
    const std::unique_ptr<Node> promoted(five.promote(TypeCode::Decimal));
    auto* decimal = dynamic_cast<SCR::DecimalConstant*>(promoted.get());
    ASSERT_NE(decimal, nullptr);
    EXPECT_EQ(decimal->result(), FND::Decimal(5));
    EXPECT_EQ(five.promote(TypeCode::Decimal | TypeCode::ConstFlag), nullptr);
    EXPECT_EQ(five.promote(TypeCode::String), nullptr);
    EXPECT_EQ(SCR::StringConstant("5").promote(TypeCode::Long), nullptr);
}

TEST(NodeTest, VariablesCarryTheirFlags) {
    EXPECT_EQ(SCR::LongVariable().dataType(), 0x400E);
    EXPECT_EQ(SCR::LongVariable(1, true).dataType(), 0x800E);
    EXPECT_EQ(SCR::AdtVariable().dataType(), 0x4014);
    EXPECT_EQ(SCR::FileVariable().dataType(), 16);
    EXPECT_FALSE(SCR::DateVariable().value().isValid());

    SCR::AdtVariable handle(7);
    handle.subType("Ebuf");
    const std::unique_ptr<SCR::Variable> copy(handle.clone());
    auto& clone = dynamic_cast<SCR::AdtVariable&>(*copy);
    EXPECT_EQ(clone.value(), 7);
    EXPECT_EQ(clone.subType(), "Ebuf");
    EXPECT_EQ(clone.dataType(), handle.dataType());
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

// True a number of times, then false.
class Countdown final : public SCR::BoolNode {
public:
    explicit Countdown(int turns) : turns_(turns) {}
    bool result() override { return turns_-- > 0; }

private:
    int turns_;
};

TEST(StatementTest, ACodeEndsTheListAndGoesOutward) {
    int before = 0;
    int after = 0;
    auto inner = std::make_unique<SCR::StatementList>();
    inner->addStatement(new Probe(before, 0));
    inner->addStatement(new Probe(before, -1));
    inner->addStatement(new Probe(after, 0));
    SCR::WhileStatement loop(new Countdown(5));
    EXPECT_TRUE(loop.addStatement(inner.release()));
    EXPECT_EQ(loop.execute(), -1);
    EXPECT_EQ(before, 2);
    EXPECT_EQ(after, 0);
}

TEST(FctDescrTest, Signatures) {
    const int left = TypeCode::LeftFlag;
    const struct {
        SCR::FctDescr descriptor;
        const char* signature;
    } rows[] = {
        {{"f", TypeCode::Void, 0, 0, nullptr}, "Void f()"},
        {{"f", TypeCode::Long, 2, 2, nullptr, 11 | left, 13}, "Long f(String,Decimal)"},
        {{"f", TypeCode::Long, 1, 3, nullptr, 11, 14, 12}, "Long f(String,[Long,Bool])"},
        {{"f", TypeCode::Long, 0, 1, nullptr, 21}, "Long f([Nexid])"},
        {{"f", TypeCode::String, 2, -1, nullptr, 11, 11}, "String f(String,String,...)"},
    };
    for (const auto& row : rows) EXPECT_EQ(row.descriptor.signature(), row.signature);

    SCR::FctDescr user("g", TypeCode::Long, 0, 0, nullptr);
    user.addArg(TypeCode::Date);
    EXPECT_EQ(user.signature(), "Long g(Date)");
    const std::unique_ptr<SCR::Variable> clone(user.clone());
    EXPECT_EQ(dynamic_cast<SCR::FctDescr&>(*clone).signature(), "Long g(Date)");
}

}  // namespace

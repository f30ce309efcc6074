// Walks the table of built-ins: holds every row against a table of its own, and runs the examples
// of the manual.

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

#include "Examples.h"
#include "Script.h"
#include "scr/FctDescr.h"
#include "scr/MainExtension.h"
#include "scr/builtin/BuiltIn.h"

namespace {

using SCR::Effect;

constexpr int anyS = SCR::FctDescr::anyNumber;

struct Expected {
    int number;
    std::string name;
    std::string returns;
    std::string arguments;
    int minimum;
    int maximum;
};

const Expected expectedS[] = {
    {1, "Long=", "Long", "out Long, Long", 2, 2},
    {2, "Adt=", "Adt", "out Adt, Adt", 2, 2},
    {3, "String=", "String", "out String, String", 2, 2},
    {4, "Decimal=", "Decimal", "out Decimal, Decimal", 2, 2},
    {5, "Date=", "Date", "out Date, Date", 2, 2},
    {6, "Nexid=", "Nexid", "out Nexid, Nexid", 2, 2},
    {7, "Long+", "Long", "Long, Long", 2, 2},
    {8, "Long*", "Long", "Long, Long", 2, 2},
    {9, "Long-", "Long", "Long, Long", 2, 2},
    {10, "Long/", "Long", "Long, Long", 2, 2},
    {11, "Long%", "Long", "Long, Long", 2, 2},
    {12, "LongNegation", "Long", "Long", 1, 1},
    {13, "Decimal+", "Decimal", "Decimal, Decimal", 2, 2},
    {14, "Decimal*", "Decimal", "Decimal, Decimal", 2, 2},
    {15, "Decimal-", "Decimal", "Decimal, Decimal", 2, 2},
    {16, "Decimal/", "Decimal", "Decimal, Decimal", 2, 2},
    {17, "DecimalNegation", "Decimal", "Decimal", 1, 1},
    {18, "String+", "String", "String, String", 2, 2},
    {19, "scriptUsable", "Void", "Bool", 1, 1},
    {20, "logStdout", "Void", "String", 1, 1},
    {21, "size", "Long", "Array", 1, 1},
    {22, "length", "Long", "String", 1, 1},
    {23, "strLength", "Long", "String", 1, 1},
    {24, "longAbs", "Long", "Long", 1, 1},
    {25, "strToLong", "Long", "String", 1, 1},
    {26, "strHexToLong", "Long", "String", 1, 1},
    {27, "longDecode", "Long", "Long, Long", 2, anyS},
    {28, "decimalToLong", "Long", "Decimal", 1, 1},
    {29, "decimalAbs", "Decimal", "Decimal", 1, 1},
    {30, "strToDecimal", "Decimal", "String", 1, 1},
    {31, "round", "Decimal", "Decimal, Long, Long", 1, 3},
    {32, "trunc", "Decimal", "Decimal, Long", 1, 2},
    {33, "longToDecimal", "Decimal", "Long", 1, 1},
    {34, "decimalToStrHex", "String", "Decimal, String, Long", 1, 3},
    {35, "strHexToDecimal", "Decimal", "String, String, Long", 1, 3},
    {36, "sqrt", "Decimal", "Decimal", 1, 1},
    {37, "toLower", "String", "String", 1, 1},
    {38, "strToLower", "String", "String", 1, 1},
    {39, "toUpper", "String", "String", 1, 1},
    {40, "strToUpper", "String", "String", 1, 1},
    {41, "substr", "String", "String, Long, Long", 3, 3},
    {42, "strSubstr", "String", "String, Long, Long", 3, 3},
    {43, "replace", "String", "String, Long, Long, String", 4, 4},
    {44, "strReplace", "String", "String, Long, Long, String", 4, 4},
    {45, "decimalToStr", "String", "Decimal, Long", 1, 2},
    {46, "longToStr", "String", "Long", 1, 1},
    {47, "longToHexStr", "String", "Long", 1, 1},
    {48, "dateToStr", "String", "Date, String", 1, 2},
    {49, "strDecode", "String", "String, String", 2, anyS},
    {50, "strStartsWith", "Bool", "String, String", 2, 2},
    {51, "strEndsWith", "Bool", "String, String", 2, 2},
    {52, "strSearch", "Long", "String, String, Long", 2, 3},
    {53, "strMatch", "String", "String, constant String, Long", 2, 3},
    {54, "strSearchRegExpr", "Long", "String, constant String, Long", 2, 3},
    {55, "strStrip", "String", "String, Long, String", 1, 3},
    {56, "strByteValue", "Long", "String", 1, 1},
    {57, "strSplit", "Long", "Array, String, String", 3, 3},
    {58, "strPad", "String", "String, String, Long, Bool", 4, 4},
    {59, "Long<", "Bool", "Long, Long", 2, 2},
    {60, "Long>", "Bool", "Long, Long", 2, 2},
    {61, "Long==", "Bool", "Long, Long", 2, 2},
    {62, "Long!=", "Bool", "Long, Long", 2, 2},
    {63, "Long<=", "Bool", "Long, Long", 2, 2},
    {64, "Long>=", "Bool", "Long, Long", 2, 2},
    {65, "Bool==", "Bool", "Bool, Bool", 2, 2},
    {66, "Bool!=", "Bool", "Bool, Bool", 2, 2},
    {67, "String<", "Bool", "String, String", 2, 2},
    {68, "String>", "Bool", "String, String", 2, 2},
    {69, "String==", "Bool", "String, String", 2, 2},
    {70, "String!=", "Bool", "String, String", 2, 2},
    {71, "String<=", "Bool", "String, String", 2, 2},
    {72, "String>=", "Bool", "String, String", 2, 2},
    {73, "Decimal<", "Bool", "Decimal, Decimal", 2, 2},
    {74, "Decimal>", "Bool", "Decimal, Decimal", 2, 2},
    {75, "Decimal==", "Bool", "Decimal, Decimal", 2, 2},
    {76, "Decimal!=", "Bool", "Decimal, Decimal", 2, 2},
    {77, "Decimal<=", "Bool", "Decimal, Decimal", 2, 2},
    {78, "Decimal>=", "Bool", "Decimal, Decimal", 2, 2},
    {79, "Date<", "Bool", "Date, Date", 2, 2},
    {80, "Date>", "Bool", "Date, Date", 2, 2},
    {81, "Date==", "Bool", "Date, Date", 2, 2},
    {82, "Date!=", "Bool", "Date, Date", 2, 2},
    {83, "Date<=", "Bool", "Date, Date", 2, 2},
    {84, "Date>=", "Bool", "Date, Date", 2, 2},
    {85, "currentTimeInMillis", "Long", "", 0, 0},
    {86, "Nexid==", "Bool", "Nexid, Nexid", 2, 2},
    {87, "Nexid!=", "Bool", "Nexid, Nexid", 2, 2},
    {88, "BoolAND", "Bool", "Bool, Bool", 2, 2},
    {89, "BoolOR", "Bool", "Bool, Bool", 2, 2},
    {90, "Bool=", "Bool", "out Bool, Bool", 2, 2},
    {91, "sysdate", "Date", "", 0, 0},
    {92, "strToDate", "Date", "String, String", 1, 2},
    {93, "dateIsValid", "Bool", "Date", 1, 1},
    {94, "dateDiff", "Long", "Date, Date", 2, 2},
    {95, "dateAdd", "Date", "Date, Long, Long, Long, Long, Long, Long", 1, 7},
    {96, "fileOpen", "Bool", "File, String, String", 3, 3},
    {97, "fileClose", "Void", "File", 1, 1},
    {98, "fileWriteStr", "Bool", "File, String", 2, 2},
    {99, "fileWriteLong", "Bool", "File, Long, Long, Bool, String", 2, 5},
    {100, "fileReadLine", "Bool", "File, out String, Long", 3, 3},
    {101, "fileEof", "Bool", "File", 1, 1},
    {102, "fileIsOpen", "Bool", "File", 1, 1},
    {103, "fileDelete", "Bool", "String", 1, 1},
    {104, "fileFlush", "Bool", "File", 1, 1},
    {105, "fileRename", "Bool", "String, String", 2, 2},
    {106, "fileCopy", "Bool", "String, String", 2, 2},
    {107, "fileTell", "Long", "File", 1, 1},
    {108, "fileSeek", "Bool", "File, Long", 2, 2},
    {109, "nexidSet", "Bool", "out Nexid, Long, String, Long, Long", 5, 5},
    {110, "nexidToStr", "String", "Nexid", 1, 1},
    {111, "nexidType", "String", "Nexid", 1, 1},
    {112, "nexidId", "Long", "Nexid", 1, 1},
    {113, "nexidDb", "Long", "Nexid", 1, 1},
    {114, "nexidRev", "Long", "Nexid", 1, 1},
    {115, "arraySize", "Long", "Array", 1, 1},
    {116, "arrayClear", "Void", "Array", 1, 1},
    {117, "hashClear", "Void", "Hash", 1, 1},
    {118, "hashContains", "Bool", "Hash, String", 2, 2},
    {119, "hashKeys", "Long", "Hash, Array", 2, 2},
    {120, "hashRemove", "Bool", "Hash, String", 2, 2},
    {121, "system", "Long", "String, out String", 1, 2},
    {122, "sysGetEnv", "String", "String", 1, 1},
    {123, "mutexCreate", "Long", "", 0, 0},
    {124, "mutexDestroy", "Bool", "Long", 1, 1},
    {125, "mutexAcquire", "Bool", "Long", 1, 1},
    {126, "mutexRelease", "Bool", "Long", 1, 1},
    {127, "sleep", "Void", "Long", 1, 1},
    {128, "strStrToHexStr", "String", "String", 1, 1},
    {129, "strHexStrToStr", "String", "String", 1, 1},
};

/// The types that a descriptor declares, as the table above writes them.
std::string argumentsOf(const SCR::FctDescr& descriptor) {
    std::string text;
    for (int i = 0; descriptor.argType(i) != 0; ++i) {
        const int type = descriptor.argType(i);
        if (i > 0) text += ", ";
        if (SCR::Node::isLeft(type)) text += "out ";
        if (SCR::Node::isConst(type)) text += "constant ";
        text += SCR::Node::datatypeAsString(SCR::Node::baseType(type));
    }
    return text;
}

const SCR::FctDescr* descriptorOf(SCR::MainExtension& extension, const std::string& name) {
    return dynamic_cast<SCR::FctDescr*>(extension.variable(name));
}

TEST(BuiltIns, TheTableHasEveryRowOnceAndInOrder) {
    const auto rows = SCR::builtIns();
    ASSERT_EQ(rows.size(), std::size(expectedS));
    std::set<std::string> names;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(rows[i]->number, static_cast<int>(i) + 1);
        const std::string name = SCR::describe(*rows[i])->name();
        EXPECT_EQ(name, expectedS[i].name);
        EXPECT_TRUE(names.insert(name).second) << name;
    }
}

TEST(BuiltIns, DescriptorsDeclareTheirTypesAndCounts) {
    SCR::MainExtension extension;
    for (const Expected& row : expectedS) {
        SCOPED_TRACE(row.name);
        const SCR::FctDescr* const descriptor = descriptorOf(extension, row.name);
        if (descriptor == nullptr) {
            ADD_FAILURE() << "is missing";
            continue;
        }
        EXPECT_EQ(descriptor->name(), row.name);
        EXPECT_EQ(SCR::Node::datatypeAsString(descriptor->returnType()), row.returns);
        EXPECT_EQ(argumentsOf(*descriptor), row.arguments);
        EXPECT_EQ(descriptor->minimum(), row.minimum);
        EXPECT_EQ(descriptor->maximum(), row.maximum);
        EXPECT_NE(descriptor->factory(), nullptr);
    }
}

TEST(BuiltIns, EffectsOnTheWorldAreDeclared) {
    const Effect both = Effect::ReadsFiles | Effect::WritesFiles;
    const std::map<std::string, Effect> expected = {
        {"fileOpen", both},
        {"fileClose", Effect::WritesFiles},
        {"fileWriteStr", Effect::WritesFiles},
        {"fileWriteLong", Effect::WritesFiles},
        {"fileReadLine", Effect::ReadsFiles},
        {"fileEof", Effect::ReadsFiles},
        {"fileIsOpen", Effect::ReadsFiles},
        {"fileDelete", Effect::WritesFiles},
        {"fileFlush", Effect::WritesFiles},
        {"fileRename", Effect::WritesFiles},
        {"fileCopy", both},
        {"fileTell", Effect::ReadsFiles},
        {"fileSeek", both},
        {"system", Effect::Shell},
        {"sysGetEnv", Effect::Environment},
        {"currentTimeInMillis", Effect::Clock},
        {"sysdate", Effect::Clock},
        {"sleep", Effect::Sleep},
        {"logStdout", Effect::StandardOutput},
        {"mutexCreate", Effect::Mutex},
        {"mutexDestroy", Effect::Mutex},
        {"mutexAcquire", Effect::Mutex},
        {"mutexRelease", Effect::Mutex},
        {"dateToStr", Effect::LocalZone},
        {"strToDate", Effect::LocalZone},
        {"dateDiff", Effect::LocalZone},
        {"dateAdd", Effect::LocalZone},
    };
    std::map<std::string, Effect> actual;
    for (const SCR::BuiltIn* row : SCR::builtIns()) {
        const std::unique_ptr<SCR::FctDescr> descriptor = SCR::describe(*row);
        const std::unique_ptr<SCR::Variable> copy(descriptor->clone());
        const auto& clone = dynamic_cast<SCR::FctDescr&>(*copy);
        if (clone.effects() != Effect::None) actual[clone.name()] = clone.effects();
        EXPECT_EQ(clone.isActive(), descriptor->isActive()) << clone.name();
    }
    EXPECT_EQ(actual, expected);
}

TEST(BuiltIns, AliasesShareTheirFactory) {
    const struct {
        const char* name;
        const char* alias;
    } pairs[] = {{"size", "arraySize"},     {"length", "strLength"}, {"toLower", "strToLower"},
                 {"toUpper", "strToUpper"}, {"substr", "strSubstr"}, {"replace", "strReplace"}};
    SCR::MainExtension extension;
    for (const auto& pair : pairs) {
        const SCR::FctDescr* const descriptor = descriptorOf(extension, pair.name);
        const SCR::FctDescr* const alias = descriptorOf(extension, pair.alias);
        ASSERT_TRUE(descriptor != nullptr && alias != nullptr) << pair.name;
        EXPECT_EQ(descriptor->factory(), alias->factory()) << pair.name;
    }
}

TEST(BuiltInsTest, EveryRowHasAManualWhoseExampleHolds) {
    const Harness::ExampleFolder folder;
    for (const SCR::BuiltIn* row : SCR::builtIns()) {
        SCOPED_TRACE(std::string(row->signature));
        EXPECT_TRUE(row->manual.ends_with('.')) << row->manual;
        EXPECT_FALSE(row->example.empty());
        const std::string script = Harness::scriptOf(row->example);
        const Harness::ScriptRun result = Harness::run(script);
        EXPECT_TRUE(result.ok) << script;
        EXPECT_TRUE(result.output.ends_with("holds")) << script << "\n" << result.output;
        EXPECT_EQ(result.log, "") << script;
    }
}

}  // namespace

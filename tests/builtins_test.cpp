// Walks the table of built-ins and runs the examples of the manual.

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Examples.h"
#include "Script.h"
#include "scr/FctDescr.h"
#include "scr/MainExtension.h"
#include "scr/builtin/BuiltIn.h"

namespace {

const SCR::FctDescr* descriptorOf(SCR::MainExtension& extension, const std::string& name) {
    return dynamic_cast<SCR::FctDescr*>(extension.variable(name));
}

// What the rows declare is approved in docs/builtins.md, which is printed from them.
TEST(BuiltIns, EveryRowIsFoundByItsName) {
    SCR::MainExtension extension;
    const auto rows = SCR::builtIns();
    EXPECT_EQ(rows.size(), 129U);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const SCR::BuiltIn& row = *rows[i];
        SCOPED_TRACE(std::string(row.signature));
        EXPECT_EQ(row.number, static_cast<int>(i) + 1);
        const std::unique_ptr<SCR::FctDescr> declared = SCR::describe(row);
        const SCR::FctDescr* const found = descriptorOf(extension, declared->name());
        ASSERT_NE(found, nullptr);
        EXPECT_EQ(found->name(), declared->name());
        EXPECT_EQ(found->signature(), declared->signature());
        EXPECT_EQ(found->factory(), row.factory);
        EXPECT_NE(row.factory, nullptr);
        EXPECT_EQ(found->effects(), row.effects);
    }
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

TEST(BuiltIns, EveryRowHasAManualWhoseExampleHolds) {
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

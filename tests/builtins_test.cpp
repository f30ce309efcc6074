// Walks the table of built-ins and runs the examples of the manual.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "Folder.h"
#include "Script.h"
#include "fnd/DateTime.h"
#include "scr/FctDescr.h"
#include "scr/MainExtension.h"
#include "scr/builtin/BuiltIn.h"

namespace {

namespace fs = std::filesystem;

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

/// The script that runs an example. One that ends in a condition, without a ";", has to hold: the
/// script prints "holds" then, as it does after one that is nothing but statements.
std::string scriptOf(std::string_view example) {
    std::size_t end = 0;  // of the last statement
    bool isText = false;
    for (std::size_t i = 0; i < example.size(); ++i) {
        if (example[i] == '\\') {
            ++i;
        } else if (example[i] == '"') {
            isText = !isText;
        } else if (!isText && (example[i] == ';' || example[i] == '}')) {
            end = i + 1;
        }
    }
    const std::string statements(example.substr(0, end));
    const std::string condition(example.substr(end));
    const bool isCondition = condition.find_first_not_of(" \n") != std::string::npos;
    return statements + (isCondition ? "if (" + condition + ")" : "") + " logStdout(\"holds\");";
}

/// An empty folder to work in, and UTC as the local zone.
class ExampleTest : public testing::Test {
protected:
    ExampleTest() : before_(fs::current_path()) {
        fs::current_path(folder_.path());
        setenv("TZ", "UTC0", 1);
        FND::DateTime::rereadLocalZone();
    }
    ~ExampleTest() override { fs::current_path(before_); }

private:
    const fs::path before_;
    const Harness::Folder folder_;
};

TEST_F(ExampleTest, EveryRowHasAManualWhoseExampleHolds) {
    for (const SCR::BuiltIn* row : SCR::builtIns()) {
        SCOPED_TRACE(std::string(row->signature));
        EXPECT_TRUE(row->manual.ends_with('.')) << row->manual;
        EXPECT_FALSE(row->example.empty());
        const std::string script = scriptOf(row->example);
        const Harness::ScriptRun result = Harness::run(script);
        EXPECT_TRUE(result.ok) << script;
        EXPECT_TRUE(result.output.ends_with("holds")) << script << "\n" << result.output;
        EXPECT_EQ(result.log, "") << script;
    }
}

}  // namespace

// Walks the table of built-ins and runs the examples of the manual.

#include "Allocations.h"
#include "Examples.h"
#include "Script.h"
#include "scr/Extension.h"
#include "scr/FctDescr.h"
#include "scr/HostExtension.h"
#include "scr/builtin/base/BuiltIn.h"

namespace {

const SCR::FctDescr* descriptorOf(SCR::MainExtension& extension, const std::string& name) {
    return dynamic_cast<SCR::FctDescr*>(extension.variable(name));
}

// docs/builtins.md, which is printed from the rows, shows what they declare.
TEST(BuiltIns, EveryRowIsFoundByItsName) {
    SCR::MainExtension extension;
    const auto rows = SCR::builtIns();
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const SCR::BuiltIn& row = *rows[i];
        SCOPED_TRACE(std::string(row.signature));
        EXPECT_EQ(row.number, static_cast<int>(i) + 1);
        const std::unique_ptr<SCR::FctDescr> declared = SCR::describe(row);
        const SCR::FctDescr* const found = descriptorOf(extension, declared->name());
        ASSERT_NE(found, nullptr);
        EXPECT_EQ(found->signature(), declared->signature());
        EXPECT_EQ(found->factory(), row.factory);
        EXPECT_NE(row.factory, nullptr);
        EXPECT_EQ(found->effects(), row.effects);
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

/// What a generated call passes for a parameter of the type word `type`.
std::vector<std::string> argumentsFor(int type) {
    using namespace SCR;
    if (Node::isConst(type)) return {"\".*\""};
    if (type == (TypeCode::String | TypeCode::LeftFlag)) return {"text"};
    const std::map<int, std::vector<std::string>> arguments{
        {TypeCode::String, {"plain", "digits", "odd", "format", "name"}},
        {TypeCode::Long, {"0", "3000", "9223372036854775807"}},
        {TypeCode::Bool, {"true"}},
        {TypeCode::Decimal, {"1234567890.5"}},
        {TypeCode::Date, {"MAX_DATE"}},
        {TypeCode::File, {"file"}},
        {TypeCode::Array, {"fields"}},
        {TypeCode::Hash, {"counts"}},
        {TypeCode::Nexid, {"nexid"}},
    };
    const auto found = arguments.find(Node::baseType(type));
    return found != arguments.end() ? found->second : std::vector<std::string>();
}

/// Calls of a function with all combinations of such arguments. Their texts are constants of the
/// host, as a script could not make them under the limits that they should pass.
std::vector<std::string> callsOf(const SCR::FctDescr& function) {
    const std::string name = function.name();
    if (name == "strDecode") return {R"(strDecode("k", "k", "a value of many bytes", ""))"};
    const std::size_t sign = name.find_first_of("=<>!+");
    const bool isOperator = sign != std::string::npos;
    std::vector<std::string> lists{""};
    for (int i = 0; i < function.maximum(); ++i) {
        const std::string separator = i == 0 ? "" : isOperator ? name.substr(sign) : ", ";
        std::vector<std::string> longer;
        for (const std::string& list : lists) {
            for (const std::string& argument : argumentsFor(function.argType(i))) {
                longer.push_back(list + separator + argument);
            }
        }
        lists = longer;
    }
    for (std::string& list : lists) list = isOperator ? list : name + "(" + list + ")";
    return lists;
}

/// The descriptors of functions that take or give Strings and may be called at will.
std::vector<const SCR::FctDescr*> textFunctions(SCR::MainExtension& extension) {
    const SCR::Effect others = SCR::Effect::Shell | SCR::Effect::StandardOutput;
    std::vector<const SCR::FctDescr*> functions;
    for (const SCR::BuiltIn* row : SCR::builtIns()) {
        const SCR::FctDescr* const function = descriptorOf(extension, SCR::describe(*row)->name());
        bool isText = function->returnType() == SCR::TypeCode::String;
        for (int i = 0; function->argType(i) != 0; ++i) {
            isText = isText || SCR::Node::baseType(function->argType(i)) == SCR::TypeCode::String;
        }
        if (isText && !has(row->effects, others)) functions.push_back(function);
    }
    return functions;
}

/// A script whose constants are texts of about `size` bytes each.
class CallBench {
public:
    explicit CallBench(std::size_t size) : interpreter_(&log_) {
        FND::String digits;
        FND::String format;
        while (digits.size() < size) digits += "4A";
        while (format.size() < size) format += "%c";
        setenv("KESTREL_TEST", digits.c_str(), 1);
        interpreter_.addGlobalConstant("plain", FND::String(size, 'x'));
        interpreter_.addGlobalConstant("digits", digits);
        interpreter_.addGlobalConstant("odd", digits + "\n");
        interpreter_.addGlobalConstant("format", format);
        interpreter_.addGlobalConstant("name", "KESTREL_TEST");
        SCR::HostExtension::insert(interpreter_, "host")
            ->function("measure", [this](std::string_view given) {
                longest = std::max(longest, given.size());
            });
    }

    CallBench(const CallBench&) = delete;
    CallBench& operator=(const CallBench&) = delete;
    ~CallBench() { unsetenv("KESTREL_TEST"); }

    /// Executes `statement` after declarations of the variables that the calls name.
    void run(const std::string& statement, const SCR::Limits& limits) {
        interpreter_.limits(limits);
        EXPECT_TRUE(
            interpreter_.compile("Nexid nexid; nexidSet(nexid, 1, \"/a long type\", 1, 0);"
                                 "String text; File file; String fields[]; Long counts{};" +
                                 statement))
            << statement;
        longest = 0;
        const long held = Allocations::startPeak();
        interpreter_.execute();
        taken = Allocations::peak() - held;
    }

    std::size_t longest = 0;  ///< of the texts that `measure` was given
    long taken = 0;           ///< bytes of memory

private:
    SCR::Log log_;
    SCR::Interpreter interpreter_;
};

TEST(BuiltIns, NoneGivesAStringBeyondTheLimit) {
    const Harness::ExampleFolder folder;
    SCR::MainExtension extension;
    CallBench bench(3000);
    for (const SCR::FctDescr* function : textFunctions(extension)) {
        // The value assigned was made before.
        if (function->returnType() != SCR::TypeCode::String || function->name() == "String=") {
            continue;
        }
        std::size_t longest = 0;
        for (const std::string& call : callsOf(*function)) {
            const std::string statement = "measure(" + call + ");";
            bench.run(statement, {});
            longest = std::max(longest, bench.longest);
            for (const std::size_t limit : {10U, 1000U}) {
                bench.run(statement, {.string = static_cast<std::int64_t>(limit)});
                EXPECT_LE(bench.longest, limit) << call;
            }
        }
        EXPECT_GT(longest, 10U) << function->name() << " is not tried";
    }
}

TEST(BuiltIns, NoneTakesMemoryBeyondTheLimit) {
    const Harness::ExampleFolder folder;
    SCR::MainExtension extension;
    CallBench bench(300'000);
    for (const SCR::FctDescr* function : textFunctions(extension)) {
        for (const std::string& call : callsOf(*function)) {
            bench.run(call + ";", {.memory = 100'000});
            EXPECT_LE(bench.taken, 150'000) << call;
        }
    }
}

}  // namespace

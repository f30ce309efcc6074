// Include files and scrambled scripts, from their files to the messages of a compile.

#include "Folder.h"
#include "Script.h"
#include "scr/parser/Crypt.h"

namespace {

namespace fs = std::filesystem;

std::string scrambled(const std::string& plain) {
    std::string text;
    SCR::Crypt::encrypt(plain, text);
    return text;
}

class IncludeTest : public testing::Test {
protected:
    void write(const std::string& name, const std::string& text) const {
        folder_.write(name, text);
    }

    /// Runs `script`, which finds the files of the test's folder.
    Harness::ScriptRun run(const std::string& script) {
        Harness::ScriptSetup setup;
        setup.prepare = [this](SCR::Interpreter& interpreter) {
            interpreter.includePath({directory_});
        };
        return Harness::run(script, setup);
    }

    const Harness::Folder folder_;
    const fs::path directory_ = folder_.path();
};

TEST_F(IncludeTest, MessagesNameTheFileAndItsLine) {
    write("outer", "// one\ninclude \"inner\";\nLong afterInner = 1;\n");
    write("inner", "// one\n\ninclude \"bad\";\n");
    write("bad", "Long good;\nLong alsoGood;\nwrong;\n");
    write("good", "Long here = 1;\n/* two\n   three */\n");
    write("openComment", "/* never closed\n");
    write("openString", "String s = \"one\ntwo");
    write("openBlock", "if (true) {\n");
    write("closes", "logStdout(\"closed\"); }\n");
    write("warns", "\nfunction Long none { }\n");
    write("scrambled", scrambled("Long good;\n\nwrong;\n"));
    write("windows", "Long one;\r\nLong two;\r\nwrong;\r\n");
    write("name with \" and 'signs'", "wrong;\n");
    const struct {
        std::string script, log, output;
    } rows[] = {
        {"include \"outer\";", "ERROR: bad: line 3: unknown identifier `wrong'\n", ""},
        {"\n\ninclude \"good\";\nwrong;", "ERROR: line 4: unknown identifier `wrong'\n", ""},
        {"include \"good\";\ninclude \"good\";\nwrong;",
         "`good' included more than once\nERROR: line 3: unknown identifier `wrong'\n", ""},
        {"\ninclude \"warns\";\nfunction Long last { }\n",
         "ERROR: warns: line 2: possible missing return value in `Long none()'\n"
         "ERROR: line 3: possible missing return value in `Long last()'\n",
         ""},
        {"include \"scrambled\";", "ERROR: scrambled: line 3: unknown identifier `wrong'\n", ""},
        {scrambled("\ninclude \"good\";\nwrong;"), "ERROR: line 3: unknown identifier `wrong'\n",
         ""},
        {"include \"windows\";", "ERROR: windows: line 3: unknown identifier `wrong'\n", ""},
        {"include \"name with \" and 'signs'\";",
         "ERROR: name with \" and 'signs': line 1: unknown identifier `wrong'\n", ""},
        // A construct that a file leaves open continues in the next file.
        {"include \"openComment\";\nwrong; */ logStdout(\"x\");", "", "x"},
        {"include \"openBlock\";\ninclude \"closes\";", "", "closed"},
        // The marks of the files are part of a string that one of them leaves open.
        {"include \"openString\";\nwrong;", "ERROR: openString: line 3: parse error\n", ""},
        {"include \"openBlock\";\n", "ERROR: line 3: parse error\n", ""},
    };
    for (const auto& row : rows) {
        const Harness::ScriptRun result = run(row.script);
        EXPECT_EQ(result.log, row.log) << row.script;
        EXPECT_EQ(result.output, row.output) << row.script;
    }
    // A second compile begins anew.
    SCR::Interpreter interpreter(nullptr);
    interpreter.includePath({directory_});
    for (int turn = 0; turn < 2; ++turn) EXPECT_TRUE(interpreter.compile("include \"good\";"));
    // One directory is looked into after all others.
    write("first/bad", "Long here = 1;\n");
    const std::string first = folder_.path("first");
    for (const bool isLast : {false, true}) {
        interpreter.includePath({isLast ? first : directory_.string()});
        interpreter.lastIncludePath({isLast ? directory_.string() : first});
        EXPECT_EQ(interpreter.compile("include \"bad\";"), isLast);
        EXPECT_TRUE(interpreter.compile("include \"good\";"));
    }
}

}  // namespace

// Include files and scrambled scripts, from their files to the messages of a compile.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "Folder.h"
#include "Script.h"
#include "scr/parser/Crypt.h"

namespace {

namespace fs = std::filesystem;
using Severities = std::vector<FND::Status::Severity>;

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
        std::string script;
        std::string log;
        std::string output;
    } rows[] = {
        {"include \"outer\";", "ERROR: bad: line 3: unknown identifier `wrong'\n", ""},
        {"\n\ninclude \"good\";\nwrong;", "ERROR: line 4: unknown identifier `wrong'\n", ""},
        {"include \"good\"; wrong;\nwrong;", "ERROR: line 2: unknown identifier `wrong'\n", ""},
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
}

TEST_F(IncludeTest, OncePerCompile) {
    write("self", "include \"self\";\nlogStdout(\"self \");");
    write("ping", "include \"pong\";\nlogStdout(\"ping \");");
    write("pong", "include \"ping\";\nlogStdout(\"pong \");");
    const Harness::ScriptRun self = run("include \"self\";");
    EXPECT_EQ(self.output, "self ");
    EXPECT_EQ(self.log, "`self' included more than once\n");
    EXPECT_EQ(self.severities, Severities{FND::Status::Warning});
    EXPECT_EQ(run("include \"ping\";").output, "pong ping ");

    // A second compile begins anew.
    Harness::MemoryLog log;
    SCR::Interpreter interpreter(&log);
    interpreter.includePath({directory_});
    const Harness::StdoutCapture capture;
    for (int turn = 0; turn < 2; ++turn) {
        ASSERT_TRUE(interpreter.compile("include \"pong\";"));
        ASSERT_TRUE(interpreter.execute());
    }
    EXPECT_EQ(capture.text(), "ping pong ping pong ");
}

TEST_F(IncludeTest, BadFilesFailTheCompile) {
    fs::create_directory(directory_ / "folder");
    std::string binary;
    for (int i = 0; i < 100000; ++i) binary += static_cast<char>(i * 37 % 256);
    write("binary", binary);
    write("zeros", std::string(1000, '\0'));
    write("huge", "");
    fs::resize_file(directory_ / "huge", std::uintmax_t{1} << 40);
    const std::pair<const char*, const char*> rows[] = {
        {"none", "failed to open include file `none'\n"},
        {"folder", "error while reading `folder'\n"},
        {"binary", "ERROR: binary: line 1: parse error\n"},
        {"zeros", "ERROR: zeros: line 1: parse error\n"},
        {"huge", "the script and its includes exceed the source limit of 268435456 bytes\n"},
    };
    for (const auto& [name, log] : rows) {
        const Harness::ScriptRun result = run("include \"" + std::string(name) + "\";");
        EXPECT_FALSE(result.compiled) << name;
        EXPECT_EQ(result.log, log) << name;
        EXPECT_EQ(result.severities, Severities{FND::Status::Error}) << name;
    }
}

}  // namespace

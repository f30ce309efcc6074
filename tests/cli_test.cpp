// Runs the kestrel command itself and holds its output, messages and exit status against tables.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

struct Result {
    int status = -1;  // 128 + the signal's number when one ended the program
    std::string output;
    std::string messages;
};

std::string contents(const fs::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// A folder of its own that the command runs in, removed at the end.
class CliTest : public testing::Test {
protected:
    CliTest() : folder_((fs::temp_directory_path() / "kestrel-cli-XXXXXX").string()) {
        if (mkdtemp(folder_.data()) == nullptr) std::abort();
    }
    ~CliTest() override { fs::remove_all(folder_); }

    void write(const std::string& name, const std::string& text) const {
        fs::create_directories(fs::path(folder_ + "/" + name).parent_path());
        std::ofstream(folder_ + "/" + name, std::ios::binary) << text;
    }

    Result kestrel(std::vector<std::string> arguments, const std::string& input = "",
                   const std::string& output = "") const {
        write(".stdin", input);
        const std::string outputPath = output.empty() ? folder_ + "/.stdout" : output;
        arguments.insert(arguments.begin(), KESTREL_COMMAND);
        std::vector<char*> argv;
        for (std::string& argument : arguments) argv.push_back(argument.data());
        argv.push_back(nullptr);

        const pid_t child = fork();
        if (child == 0) {
            const auto redirect = [](int descriptor, const std::string& path, int flags) {
                const int file = open(path.c_str(), flags, 0600);
                return file >= 0 && dup2(file, descriptor) >= 0 && close(file) == 0;
            };
            const int writing = O_WRONLY | O_CREAT | O_TRUNC;
            if (chdir(folder_.c_str()) == 0 && unsetenv("KESTREL_INCLUDE") == 0 &&
                redirect(STDIN_FILENO, ".stdin", O_RDONLY) &&
                redirect(STDOUT_FILENO, outputPath, writing) &&
                redirect(STDERR_FILENO, ".stderr", writing)) {
                alarm(60);  // survives the exec; no row may hang the tests
                execv(argv[0], argv.data());
            }
            _exit(127);
        }
        int status = 0;
        waitpid(child, &status, 0);
        Result result;
        result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        if (output.empty()) result.output = contents(outputPath);
        result.messages = contents(folder_ + "/.stderr");
        return result;
    }

    std::string folder_;
};

TEST_F(CliTest, ScriptsRunAndSayHowTheyEnded) {
    write("hello.ks", "logStdout(\"hello\\n\");");
    write("wrong.ks", "logStdout(\"hello\\n\");\nlogStdout(;\n");
    write("lib/part.ks", "logStdout(\"lib\");");
    write("other/part.ks", "logStdout(\"other\");");
    write("includes.ks", "include \"part.ks\";\n");
    write("lib/inner.ks", "Long a;\n\na = true;\n");
    write("lib/outer.ks", "\ninclude \"inner.ks\";\n");
    write("lib/fine.ks", "// nothing\n\n");
    write("nested.ks", "include \"fine.ks\";\ninclude \"outer.ks\";\n");
    write("after.ks", "include \"fine.ks\";\ninclude \"fine.ks\";\nbroken;\n");
    write("lib/cycle.ks", "include \"cycle.ks\";\nlogStdout(\"once\");\n");
    write("lib/lost.ks", "function Long f(Long n) {\nreturn f(n - 1) * n;\n}\n");
    write("loses.ks", "include \"lost.ks\";\nf(1);\n");
    write("lib/hidden.ks", "0A42000000000000000006000000000000410a\n");
    const std::string parseError = "ERROR: line 2: parse error\n";
    struct Row {
        std::vector<std::string> arguments;
        std::string input;
        int status;
        std::string output;
        std::string messages;
    };
    const std::string nul("logStdout(\"a\0b\");", 17);
    const std::string local = "logStdout(dateToStr(strToDate(\"2024-01-01\"), \"%H %L\"));";
    const std::string files =
        "String name; function tell { File f; if (fileOpen(f, name, \"r\"))"
        "logStdout(name + \" \"); }\n"
        "name = \"lib/part.ks\"; tell(); name = \"lib/../hello.ks\"; tell();"
        "name = \"/proc/self/mem\"; tell();";
    setenv("TZ", "XYZ+11", 1);
    const Row rows[] = {
        {{"run", "hello.ks"}, "", 0, "hello\n", ""},
        {{"run", "-"}, "logStdout(\"from stdin\");", 0, "from stdin", ""},
        {{"run", "-"}, nul, 0, std::string("a\0b", 3), ""},
        {{"run", "-"}, "", 0, "", ""},
        {{"run", "-e", "logStdout(\"text\");"}, "", 0, "text", ""},
        {{"run", "-e", "logStdout(\"x\");", "--repeat", "3"}, "", 0, "xxx", ""},
        {{"run", "--repeat", "0", "hello.ks"}, "", 0, "", ""},
        {{"run", "-D", "a=1", "-D", "b=x=y", "-e", "logStdout(a + b);"}, "", 0, "1x=y", ""},
        {{"run", "-D", "a=", "-e", "logStdout(longToStr(strLength(a)));"}, "", 0, "0", ""},
        {{"run", "-I", "lib", "-I", "other", "includes.ks"}, "", 0, "lib", ""},
        {{"run", "-I", "other", "includes.ks", "-I", "lib"}, "", 0, "other", ""},
        {{"run", "-I", "lib", "nested.ks"},
         "",
         3,
         "",
         "ERROR: inner.ks: line 3: expected Bool not Long as argument 1 in `Bool "
         "Bool=(Bool,Bool)'\n"},
        {{"check", "-I", "lib", "loses.ks"},
         "",
         0,
         "",
         "WARNING: lost.ks: line 2: `n' is read after the call of `f' in line 2, which may have "
         "overwritten it\n"},
        {{"run", "-I", "lib", "after.ks"},
         "",
         3,
         "",
         "`fine.ks' included more than once\nERROR: line 3: unknown identifier `broken'\n"},
        {{"run", "-I", "lib", "-e", "include \"cycle.ks\";\n"},
         "",
         0,
         "once",
         "`cycle.ks' included more than once\n"},
        {{"run", "-I", "lib", "-e", "Long A; Long b = \ninclude \"hidden.ks\";\n;"}, "", 0, "", ""},
        {{"run", "--sandbox", "-I", "lib", "includes.ks"},
         "",
         3,
         "",
         "include of `part.ks' is not allowed\n"},
        {{"run", "--allow", "include=lib", "-I", "lib", "includes.ks"}, "", 0, "lib", ""},
        {{"run", "--allow", "include=other", "-I", "lib", "includes.ks"},
         "",
         3,
         "",
         "failed to open include file `part.ks' in the directories allowed for includes\n"},
        {{"run", "--allow", "files=lib", "-e", files}, "", 0, "lib/part.ks ", ""},
        {{"run", "--allow", "files-ro=.", "-e", files}, "", 0, "lib/part.ks lib/../hello.ks ", ""},
        {{"run", "--allow", "files,env", "-e", files}, "", 0, "lib/part.ks lib/../hello.ks ", ""},
        {{"run", "--allow", "all", "-e", files},
         "",
         0,
         "lib/part.ks lib/../hello.ks /proc/self/mem ",
         ""},
        {{"run", "--allow", "files=none", "hello.ks"},
         "",
         2,
         "",
         "ERROR: can not open the directory `none': No such file or directory\n"},
        {{"run", "--zone", "ABC-5", "-e", local}, "", 0, "05 ABC", ""},
        {{"run", "--zone", "UTC", "-e", local}, "", 0, "00 UTC", ""},
        {{"run", "-e", local}, "", 0, "13 XYZ", ""},
        {{"run", "-e", local, "--records", "-", "--fields", "a"}, "x\n", 0, "00 UTCx\n", ""},
        {{"check", "-", "--distributable"},
         local,
         1,
         "-:1: logStdout prints, which a retry does again\n",
         ""},
        {{"run", "--limit", "source=1000", "/dev/zero"},
         "",
         3,
         "",
         "the script and its includes exceed the source limit of 1000 bytes\n"},
        {{"run", "--limit", "source=0", "-e", "Long a;"},
         "",
         3,
         "",
         "the script and its includes exceed the source limit of 1 bytes\n"},
        {{"run", "--limit", "memory=100000", "-e", "String s = strPad(\"\", \"x\", 200000, true);"},
         "",
         4,
         "",
         "ERROR: line 1: script stopped: limit `memory' of 100000 passed\n"},
        {{"run", "wrong.ks"}, "", 3, "", parseError},
        {{"run", "-e", "logStdout(\"a\"); scriptUsable(false);"}, "", 1, "a", ""},
        {{"check", "hello.ks"}, "", 0, "", ""},
        {{"check", "-"}, "1 +;", 3, "", "ERROR: line 1: parse error\n"},
        {{"check", "-I", "lib", "includes.ks", "hello.ks"}, "", 0, "", ""},
        {{"check", "wrong.ks", "hello.ks"}, "", 3, "wrong.ks: does not compile\n", parseError},
        {{"check", "wrong.ks", "none.ks"},
         "",
         3,
         "wrong.ks: does not compile\n",
         parseError + "kestrel: none.ks: No such file or directory\n"},
        {{"decrypt"}, "0A42000000000000000006000000000000410a\n", 0, "A\n", ""},
        {{"functions", "fileIsOpen"},
         "",
         0,
         "Bool fileIsOpen(File file)\n    Whether `file` is open.\n    Effects: reads files.\n"
         "    Example:\n        File f; fileIsOpen(f) == false\n",
         ""},
        {{"--version"}, "", 0, "kestrel " KESTREL_VERSION "\n", ""},
    };
    for (const Row& row : rows) {
        std::string line;
        for (const std::string& argument : row.arguments) line += " " + argument;
        SCOPED_TRACE("kestrel" + line);
        const Result result = kestrel(row.arguments, row.input);
        EXPECT_EQ(result.status, row.status);
        EXPECT_EQ(result.output, row.output);
        EXPECT_EQ(result.messages, row.messages);
    }
    unsetenv("TZ");
}

TEST_F(CliTest, BadUsageIsExplainedAndRunsNothing) {
    write("hello.ks", "logStdout(\"hello\\n\");");
    struct Row {
        std::vector<std::string> arguments;
        std::string message;
    };
    const Row rows[] = {
        {{}, "command"},
        {{"walk"}, "walk"},
        {{"run"}, "FILE"},
        {{"run", "hello.ks", "more.ks"}, "more.ks"},
        {{"run", "hello.ks", "-e", ";"}, "-e"},
        {{"run", "none.ks"}, "none.ks: No such file or directory"},
        {{"run", "."}, "Is a directory"},
        {{"run", "--repeat", "many", "hello.ks"}, "many"},
        {{"run", "--repeat", "-1", "hello.ks"}, "-1"},
        {{"run", "--unknown", "hello.ks"}, "--unknown"},
        {{"run", "-D", "novalue", "hello.ks"}, "'novalue' is not NAME=VALUE"},
        {{"run", "-D", "=value", "hello.ks"}, "is not NAME=VALUE"},
        {{"run", "--zone", "Atlantis", "hello.ks"}, "'Atlantis' is no known time zone"},
        {{"run", "--allow", "files-rw=.", "hello.ks"}, "'files-rw=.' names no capability"},
        {{"run", "-D", "1st=value", "hello.ks"}, "is not NAME=VALUE"},
        {{"run", "-D", "a=1", "-D", "a=2", "hello.ks"}, "a is given twice"},
        {{"check"}, "FILE"},
        {{"run", "-", "--records", "-"}, "can not both come from standard input"},
        {{"check", "-", "--records", "-"}, "can not both come from standard input"},
        {{"conditions", "-", "--records", "-"}, "can not both come from standard input"},
        {{"functions", "strlength"}, "'strlength'"},
        {{"functions", "--markdown", "size"}, "--markdown"},
        {{"encrypt", "none.ks"}, "none.ks: No such file or directory"},
        {{"encrypt", "hello.ks", "more.ks"}, "more.ks"},
        {{"decrypt", "hello.ks"}, "kestrel: hello.ks: not a scrambled text"},
        {{"decrypt"}, "kestrel: standard input: not a scrambled text"},
    };
    for (const Row& row : rows) {
        std::string line;
        for (const std::string& argument : row.arguments) line += " " + argument;
        SCOPED_TRACE("kestrel" + line);
        const Result result = kestrel(row.arguments);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.output, "");
        EXPECT_NE(result.messages.find(row.message), std::string::npos) << result.messages;
    }
}

TEST_F(CliTest, CheckRunsNothingOfTheScript) {
    const std::string script =
        "function BEGIN { logStdout(\"begin\"); }\n"
        "function END { logStdout(\"end\"); }\n"
        "logStdout(\"main\");\n";
    EXPECT_EQ(kestrel({"run", "-"}, script).output, "beginmainend");
    EXPECT_EQ(kestrel({"check", "-"}, script).output, "");
}

TEST_F(CliTest, CheckKnowsTheFunctionsOfRecords) {
    write("calls.csv", "seconds,note\n1,x\n");
    write("seconds.ks", "if (edrLong(seconds) > 1) edrString(note) = recordText();");
    write("items.ks", "function END { recordDrop(); }\nedrLong(call.items, 1) = 2;");
    write("bad.ks", "edrNothing(seconds);");
    const std::string unknown =
        "ERROR: line 2: to many arguments in call to `Long edrLong(EdrAlias)'\n";
    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string messages;
    } rows[] = {
        {{"seconds.ks", "items.ks"}, 0, ""},
        {{"bad.ks"}, 3, "ERROR: line 1: unknown identifier `edrNothing'\n"},
        {{"seconds.ks", "--records", "calls.csv", "--header"}, 0, ""},
        {{"seconds.ks", "items.ks", "--records", "calls.csv", "--header"}, 3, unknown},
        {{"items.ks", "--records", "-", "--format", "jsonl"}, 0, ""},
        {{"seconds.ks", "--records", "-", "--fields", "seconds"},
         3,
         "ERROR: line 1: unknown field `note'\n"},
        {{"seconds.ks", "--records", "-", "--format", "jsonl", "--where", "edrLong(a)"},
         3,
         "expected `Bool' datatype instead of `Long' in where clause\n"},
        {{"seconds.ks", "--records", "nosuch"}, 2, "kestrel: nosuch: No such file or directory\n"},
    };
    for (const auto& row : rows) {
        std::vector<std::string> arguments = row.arguments;
        arguments.insert(arguments.begin(), "check");
        SCOPED_TRACE(arguments.back());
        const Result result = kestrel(arguments);
        EXPECT_EQ(result.status, row.status);
        EXPECT_EQ(result.messages, row.messages);
    }
    const Result named =
        kestrel({"check", "seconds.ks", "items.ks", "--records", "calls.csv", "--header"});
    EXPECT_EQ(named.output, "items.ks: does not compile\n");
}

TEST_F(CliTest, CheckTellsWhatTiesRecordsToOthers) {
    write("pure.ks", "Long n = edrLong(seconds); if (n > 1) edrLong(seconds) = n * 2;");
    write("sum.ks",
          "include \"count.ks\";\nfunction END { logStdout(longToStr(count)); }\n\ntick();");
    write("count.ks", "Long count;\nfunction tick { count = count + recordNumber(); }\n");
    write("wrong.ks", "Long count; count = count + 1; nothing();");
    const Result pure = kestrel({"check", "--distributable", "pure.ks"});
    EXPECT_EQ(pure.status, 0);
    EXPECT_EQ(pure.output, "");
    const std::string found =
        "count.ks:2: `count' keeps what earlier records left in it, assigned in line 2\n"
        "count.ks:2: recordNumber depends on where the input was split\n"
        "sum.ks:2: logStdout prints, which a retry does again\n"
        "sum.ks:2: END reads `count', which knows the records of one worker only, assigned in "
        "line 2 of count.ks\n";
    const Result sum = kestrel({"check", "--distributable", "sum.ks", "pure.ks"});
    EXPECT_EQ(sum.status, 1);
    EXPECT_EQ(sum.output, found);
    EXPECT_EQ(sum.messages, "");
    const Result wrong = kestrel({"check", "--distributable", "wrong.ks"});
    EXPECT_EQ(wrong.status, 3);
    EXPECT_EQ(wrong.output, "");
}

TEST_F(CliTest, ScrambledScriptsRunAndComeBack) {
    const std::string script("logStdout(\"a\0\xFF\");\r\n// end", 25);
    write("plain.ks", script);
    write("scrambled.ks", kestrel({"encrypt", "plain.ks"}).output);
    EXPECT_EQ(contents(folder_ + "/scrambled.ks").find("logStdout"), std::string::npos);
    EXPECT_EQ(kestrel({"decrypt", "scrambled.ks"}).output, script);
    EXPECT_EQ(kestrel({"decrypt", "-"}, kestrel({"encrypt"}, script).output).output, script);
    EXPECT_EQ(kestrel({"run", "scrambled.ks"}).output, std::string("a\0\xFF", 3));
    EXPECT_NE(kestrel({"encrypt", "--help"}).output.find("no protection"), std::string::npos);
}

TEST_F(CliTest, OperatorsAreFoundByTheirSigns) {
    const struct {
        const char* name;
        std::vector<std::string> signatures;
    } rows[] = {
        {"==",
         {"Long left == Long right -> Bool", "Bool left == Bool right -> Bool",
          "String left == String right -> Bool", "Decimal left == Decimal right -> Bool",
          "Date left == Date right -> Bool", "Nexid left == Nexid right -> Bool"}},
        {"OR", {"Bool left or Bool right -> Bool"}},
        {"Long=", {"Long target = Long value -> Long"}},
        {"LongNegation", {"-Long operand -> Long"}},
    };
    for (const auto& row : rows) {
        const std::string output = kestrel({"functions", row.name}).output;
        std::size_t found = 0;
        for (const std::string& signature : row.signatures) {
            if (output.find(signature + "\n    ") != std::string::npos) ++found;
        }
        EXPECT_EQ(found, row.signatures.size()) << output;
        std::size_t examples = 0;
        for (std::size_t at = 0; (at = output.find("Example:", at)) != std::string::npos; ++at) {
            ++examples;
        }
        EXPECT_EQ(examples, row.signatures.size()) << output;
    }
}

TEST_F(CliTest, MatchNumbersThePatternsOfEachLine) {
    write("patterns", "a.*\nab\n");
    write("open", "x\n\n(a");
    write("hidden", "a.*\nab\n\\.[z-b]\nx\n!.*\n");
    std::string large;
    for (char c = 'a'; c <= 'r'; ++c) large += std::string(".*") + c + ".{12}\n";
    write("large", large);
    const std::string nul("ab\0c\n", 5);
    struct Row {
        std::vector<std::string> arguments;
        std::string input;
        int status;
        std::string output;
        std::string messages;  // the beginning
    };
    const Row rows[] = {
        {{"-p", "a.*", "-p", "ab"}, "ab\nax\nb\n\nabc", 0, "0 1\n0\n\n\n0\n", ""},
        {{"-p", "a.*", "-p", "ab", "--first"}, "ab\nax\nb\n", 0, "0\n0\n\n", ""},
        {{"-p", "b", "-f", "patterns"}, "ab\nb\n", 0, "1 2\n0\n", ""},
        {{"-f", "open"}, "", 3, "", "kestrel: pattern 2: unexpected end of pattern\n"},
        {{"-p", "a)", "-p", "[]"},
         "a\n",
         3,
         "",
         "kestrel: pattern 0: parse error near )\nkestrel: pattern 1: parse error near ]\n"},
        {{"-p", "ab"}, nul, 0, "0\n", ""},
        {{"-p", "\xC3\xA9+", "-p", "[^a]"}, "\xC3\xA9\n\xFF\n", 0, "0\n1\n", ""},
        {{"-p", "a*"}, std::string(300000, 'a') + "\n" + std::string(70000, 'b'), 0, "0\n0\n", ""},
        {{"-p", ""}, "\nx\n", 0, "0\n0\n", ""},
        {{"-p", "", "-p", "x", "--first"}, "", 0, "", ""},
        {{"-f", "/dev/null"}, "a\n", 0, "\n", ""},
        {{"-f", "patterns", "--stats"},
         "",
         0,
         "",
         "kestrel: 2 patterns in one automaton: 4 states, "},
        {{"-f", "large", "--stats"}, "a123456789012\n", 0, "0\n", "kestrel: 18 patterns in "},
        {{"-f", "patterns", "--analyse"},
         "",
         0,
         "pattern 1 (\"ab\") is never the lowest: pattern 0 (\"a.*\") matches all its texts, such "
         "as "
         "\"ab\"\npatterns 0 (\"a.*\") and 1 (\"ab\") both match \"ab\"\n",
         ""},
        {{"-p", "\\.[z-b]", "--analyse"}, "", 0, "pattern 0 (\"\\.[z-b]\") matches nothing\n", ""},
        {{"-f", "large", "--analyse"}, "", 4, "", "kestrel: "},
        {{}, "", 2, "", "kestrel: -p PATTERN or -f FILE is required"},
        {{"-f", "none"}, "", 2, "", "kestrel: none: No such file or directory"},
    };
    for (const Row& row : rows) {
        std::vector<std::string> arguments = row.arguments;
        arguments.insert(arguments.begin(), "match");
        std::string line;
        for (const std::string& argument : arguments) line += " " + argument;
        SCOPED_TRACE("kestrel" + line);
        const Result result = kestrel(arguments, row.input);
        EXPECT_EQ(result.status, row.status);
        EXPECT_EQ(result.output, row.output);
        EXPECT_EQ(result.messages.substr(0, row.messages.size()), row.messages);
        EXPECT_EQ(result.messages.empty(), row.messages.empty()) << result.messages;
    }
    const Result full = kestrel({"match", "-p", "a"}, "a\n", "/dev/full");
    EXPECT_EQ(full.status, 1);
    EXPECT_EQ(full.messages, "kestrel: standard output: No space left on device\n");
}

TEST_F(CliTest, CheckWarnsOfCasesThatAreNeverReached) {
    const std::string script =
        "String s;\nregExprSwitch (s) {\ncase \"a.*\":\ncase \"x\": break;\ncase \"[0-4]\": "
        "break;\n"
        "case \"[5-9]\": break;\ncase \"ab\": break;\ncase \"[0-9]\": break;\ncase \"b[z-a]\": "
        "break;\n}";
    const Result result = kestrel({"check", "-"}, script);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.messages,
              "WARNING: the case in line 7 is never reached: line 3 matches all its texts\n"
              "WARNING: the case in line 8 is never reached: lines 5, 6 together match all its "
              "texts\n"
              "WARNING: the case in line 9 is never reached: its pattern matches no text\n");
    EXPECT_EQ(kestrel({"run", "-"}, script).messages, "");

    std::string many = "String s;\nregExprSwitch (s) {\ncase \".*\":\n";
    for (int i = 0; i < 60; ++i) many += "case \"" + std::to_string(i) + "\": break;\n";
    const std::string warnings = kestrel({"check", "-"}, many + "}").messages;
    EXPECT_EQ(std::count(warnings.begin(), warnings.end(), '\n'), 51);
    EXPECT_NE(warnings.find("WARNING: 10 more cases are never reached\n"), std::string::npos);
}

TEST_F(CliTest, RecordsComeOutAsTheyShould) {
    const std::string csv = "a,b\n1,x\n2,yy\n3,z\n";
    write("conditions", "edrLong(a) > 1; edrString(b) =~ \"[xy]+\";");
    struct Row {
        std::vector<std::string> arguments;
        std::string input;
        int status;
        std::string output;
        std::string messages;
    };
    const std::string loops = "function BEGIN { while (true) {} }";
    const std::string counts = "kestrel: records: ";
    const Row rows[] = {
        {{"query", "edrLong(a) > 1", "--header", "--stats"},
         csv,
         0,
         "a,b\n2,yy\n3,z\n",
         counts + "3 read, 2 written, 1 dropped, 0 rejected\n"},
        {{"query", "edrLong(a) > 1", "--format", "jsonl", "--jobs", "2", "--stats"},
         "{\"a\":1}\n[]\n{\"a\": 2}\n",
         1,
         "{\"a\": 2}\n",
         "-:2: no JSON object\n" + counts + "3 read, 1 written, 1 dropped, 1 rejected\n"},
        {{"conditions", "conditions", "--header"}, csv, 0, "1\n0 1\n0\n", ""},
        {{"conditions", "nosuch", "--header"},
         csv,
         2,
         "",
         "kestrel: nosuch: No such file or directory\n"},
        {{"query", "edrLong(nosuch) > 1", "--header"},
         csv,
         3,
         "",
         "ERROR: line 1: unknown field `nosuch'\n"},
        {{"run", "-e", loops, "--limit", "steps=1000"},
         csv,
         4,
         "",
         "ERROR: line 1: script stopped: limit `steps' of 1000 passed\nkestrel: stopped before the "
         "first "
         "record\n"},
        {{"run", "-e", "if (edrLong(f1) == 2) while (true) {}", "--limit", "steps=1000", "--jobs",
          "2", "--stats"},
         "1\n2\n3\n",
         4,
         "1\n",
         "ERROR: line 1: script stopped: limit `steps' of 1000 passed\nkestrel: -:2: the script "
         "was stopped\n" +
             counts + "1 read, 1 written, 0 dropped, 0 rejected\n"},
        {{"run", "-e", "function END { while (true) {} }", "--limit", "steps=1000"},
         "1\n2\n",
         4,
         "1\n2\n",
         "ERROR: line 1: script stopped: limit `steps' of 1000 passed\nkestrel: the function END "
         "was stopped\n"},
        {{"run", "-e", "", "--part", "2/2"}, "1\n2\n", 0, "2\n", ""},
        {{"run", "-e", "", "--part", "3/2"},
         "",
         2,
         "",
         "kestrel: --part: '3/2' is not I/N with I from 1 to N\nRun with --help for more.\n"},
        {{"run", "-e", "", "--format", "jsonl", "--header"},
         "",
         2,
         "",
         "kestrel: --header: JSON names its fields itself\n"},
    };
    for (const Row& row : rows) {
        std::vector<std::string> arguments = row.arguments;
        arguments.insert(arguments.end(), {"--records", "-"});
        SCOPED_TRACE(row.arguments[0] + " " + row.arguments[1]);
        const Result result = kestrel(arguments, row.input);
        EXPECT_EQ(result.status, row.status);
        EXPECT_EQ(result.output, row.output);
        EXPECT_EQ(result.messages, row.messages);
    }
    const Result full = kestrel({"run", "-e", "", "--records", "-"}, csv, "/dev/full");
    EXPECT_EQ(full.status, 1);
    EXPECT_EQ(full.messages, "kestrel: standard output: No space left on device\n");
    EXPECT_EQ(kestrel({"run", "-e", loops, "--limit", "steps=1000"}).status, 4);
}

TEST_F(CliTest, PartsInADirectoryAreMadeOnce) {
    std::string csv = "n,text\n";
    for (int i = 0; i < 500; ++i) csv += std::to_string(i) + ",\"a\n" + std::to_string(i) + "\"\n";
    write("in.csv", csv);
    write("double.ks", "include \"drop.ks\";\nedrLong(n) = edrLong(n) * strToLong(factor);\n");
    write("drop.ks",
          "if (edrLong(n) % 7 == 0) recordDrop();\n"
          "if (edrLong(n) % 11 == 0) recordReject(\"eleven\");\n");
    const std::vector<std::string> job = {"run",       "double.ks", "-D",       "factor=2",
                                          "--records", "in.csv",    "--header", "--out",
                                          "out",       "--part",    "1/1"};
    const auto run = [&](std::vector<std::string> arguments, const std::string& part) {
        arguments.back() = part;
        return kestrel(arguments);
    };
    const auto joined = [&](const std::string& begin) {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder_ + "/out")) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        std::string text;
        for (const std::string& name : names) {
            if (name.starts_with(begin)) text += contents(folder_ + "/out/" + name);
        }
        return text;
    };
    const Result single = kestrel({"run", "double.ks", "-D", "factor=2", "--records", "in.csv",
                                   "--header", "--rejects", "rejects"});
    ASSERT_EQ(single.status, 0);
    for (const int parts : {1, 3, 40}) {
        fs::remove_all(folder_ + "/out");
        for (int part = parts; part > 0; --part) {
            const std::string name = std::to_string(part) + "/" + std::to_string(parts);
            EXPECT_EQ(run(job, name).status, 0);
            const Result again = run(job, name);
            EXPECT_EQ(again.status, 0);
            EXPECT_EQ(again.messages, "kestrel: part " + name + " is complete in out, skipped\n");
        }
        EXPECT_EQ(joined("part-"), single.output);
        EXPECT_EQ(joined("rejects-"), contents(folder_ + "/rejects"));
        EXPECT_EQ(joined("."), "");
    }
    const Result other = run(job, "1/2");
    EXPECT_EQ(other.status, 2);
    EXPECT_NE(other.messages.find("which is not one of 2 parts\n"), std::string::npos);

    // All that the result depends on is looked at, and a damaged result is made anew.
    fs::remove_all(folder_ + "/out");
    const std::string part = "out/part-0000001-of-0000001.csv";
    const struct {
        const char* what;
        std::function<void()> change;
        std::vector<std::string> options;
    } changes[] = {
        {"nothing", [] {}, {}},
        {"a damaged result", [&] { write(part, "damaged"); }, {}},
        {"no result", [&] { fs::remove(folder_ + "/" + part); }, {}},
        {"damaged rejects", [&] { write("out/rejects-0000001-of-0000001.txt", "x"); }, {}},
        {"a damaged manifest", [&] { write("out/manifest-0000001-of-0000001.json", "{}"); }, {}},
        {"the include file", [&] { write("drop.ks", "\n"); }, {}},
        {"the script", [&] { write("double.ks", "include \"drop.ks\";\n"); }, {}},
        {"the input",
         [&] {
             csv.replace(7, 1, "5");
             write("in.csv", csv);
         },
         {}},
        {"a constant", [] {}, {"-D", "more=1"}},
        {"a limit", [] {}, {"--limit", "depth=100"}},
        {"a zone", [] {}, {"--zone", "ABC-5"}},
        {"the sandbox", [] {}, {"--allow", "include"}},
        {"a query", [] {}, {"--where", "edrLong(n) > 3"}},
    };
    for (const auto& change : changes) {
        SCOPED_TRACE(change.what);
        change.change();
        std::vector<std::string> arguments = job;
        arguments.insert(arguments.begin() + 2, change.options.begin(), change.options.end());
        const Result result = run(arguments, "1/1");
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.messages, "");
        EXPECT_NE(contents(folder_ + "/" + part), "damaged");
        EXPECT_NE(run(arguments, "1/1").messages, "");
        if (!change.options.empty()) run(job, "1/1");
    }
    // Parts of one directory go by one zone; that of the process is not asked.
    setenv("TZ", "XYZ+11", 1);
    fs::remove_all(folder_ + "/out");
    std::vector<std::string> zoned = job;
    zoned.insert(zoned.begin() + 2, {"--zone", "ABC-5"});
    EXPECT_EQ(run(zoned, "1/2").status, 0);
    const Result unfit = run(job, "2/2");
    EXPECT_EQ(unfit.status, 2);
    EXPECT_EQ(unfit.messages,
              "kestrel: out holds manifest-0000001-of-0000002.json, which was made in the time "
              "zone ABC-5, not UTC\n");
    EXPECT_EQ(run(zoned, "2/2").status, 0);
    zoned[3] = "ABC-5ABD,0,1";
    EXPECT_EQ(run(zoned, "2/2").status, 2);
    fs::remove_all(folder_ + "/out");
    EXPECT_EQ(run(job, "1/1").status, 0);
    unsetenv("TZ");
    const Result piped = kestrel({"run", "-e", "", "--records", "-", "--out", "out"});
    EXPECT_EQ(piped.status, 2);
    EXPECT_NE(piped.messages.find("must come from a file"), std::string::npos);

    // What a killed run left goes; what a living one writes stays.
    const std::string dead = folder_ + "/out/.part-0000001-of-0000001.csv.Abcdef";
    const std::string alive = folder_ + "/out/.part-0000001-of-0000001.csv.Abcdeg";
    write("out/.part-0000001-of-0000001.csv.Abcdef", "half");
    write("out/.part-0000001-of-0000001.csv.Abcdeg", "half");
    const int descriptor = open(alive.c_str(), O_RDONLY);
    ASSERT_EQ(flock(descriptor, LOCK_EX), 0);
    write(part, "damaged");
    EXPECT_EQ(run(job, "1/1").status, 0);
    EXPECT_FALSE(fs::exists(dead));
    EXPECT_TRUE(fs::exists(alive));
    close(descriptor);
}

TEST_F(CliTest, EveryHelpGivesAnExample) {
    for (const char* command :
         {"", "run", "query", "conditions", "check", "functions", "match", "encrypt", "decrypt"}) {
        std::vector<std::string> arguments = {"--help"};
        if (*command != 0) arguments.insert(arguments.begin(), command);
        const Result result = kestrel(arguments);
        EXPECT_EQ(result.status, 0) << command;
        EXPECT_NE(result.output.find("Example"), std::string::npos) << command;
        EXPECT_NE(result.output.find(std::string("  kestrel ") + command), std::string::npos);
    }
}

TEST_F(CliTest, AFailedWriteIsNoSuccess) {
    for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
             {"run", "-e", "logStdout(\"x\");"},
             {"run", "--repeat", "100000", "-e", "logStdout(\"xxxxxxxxxxxxxxx\\n\");"},
             {"encrypt"},
             {"--help"}}) {
        const Result result = kestrel(arguments, "", "/dev/full");
        EXPECT_EQ(result.status, 74) << arguments.back();
        EXPECT_NE(result.messages.find("kestrel: standard output: "), std::string::npos);
    }
}

}  // namespace

// Runs the kestrel command and compares its output, messages and exit status with tables.

#include <sys/file.h>
#include <sys/stat.h>

#include "Folder.h"

namespace {

namespace fs = std::filesystem;

struct Result {
    int status = -1;  // 128 + the signal's number when one ended the program
    std::string output, messages;
};

class CliTest : public testing::Test {
protected:
    /// Runs `kestrel LINE` in the folder. Blanks separate the words of `line`; text in single
    /// quotes is one word or a part of one.
    Result kestrel(const std::string& line, const std::string& input = "",
                   const std::string& output = "") const {
        folder_.write(".stdin", input);
        const std::string outputPath = output.empty() ? folder_.path(".stdout") : output;
        std::vector<std::string> words{KESTREL_COMMAND};
        bool isQuoted = false;
        bool isBetween = true;
        for (const char byte : line) {
            if (byte == ' ' && !isQuoted) {
                isBetween = true;
                continue;
            }
            if (std::exchange(isBetween, false)) words.emplace_back();
            if (byte == '\'') {
                isQuoted = !isQuoted;
            } else {
                words.back() += byte;
            }
        }
        std::vector<char*> argv;
        for (std::string& word : words) argv.push_back(word.data());
        argv.push_back(nullptr);

        const pid_t child = fork();
        if (child == 0) {
            const auto redirect = [](int descriptor, const std::string& path, int flags) {
                const int file = open(path.c_str(), flags, 0600);
                return file >= 0 && dup2(file, descriptor) >= 0 && close(file) == 0;
            };
            const int writing = O_WRONLY | O_CREAT | O_TRUNC;
            if (chdir(folder_.path().c_str()) == 0 && unsetenv("KESTREL_INCLUDE") == 0 &&
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
        if (output.empty()) result.output = folder_.read(".stdout");
        result.messages = folder_.read(".stderr");
        return result;
    }

    /// The output of a command, "..." for any; messages that begin with "..." need only contain the
    /// rest.
    struct Row {
        std::string line, output;
        std::string messages = "";
        int status = 0;
        std::string input = "";
    };
    void expect(const std::vector<Row>& rows) const {
        for (const Row& row : rows) {
            SCOPED_TRACE("kestrel " + row.line);
            const Result result = kestrel(row.line, row.input);
            EXPECT_EQ(result.status, row.status);
            if (row.output != "...") {
                EXPECT_EQ(result.output, row.output);
            }
            if (row.messages.starts_with("...")) {
                EXPECT_NE(result.messages.find(row.messages.substr(3)), std::string::npos)
                    << result.messages;
            } else {
                EXPECT_EQ(result.messages, row.messages);
            }
        }
    }

    void write(const std::string& name, const std::string& text) const {
        folder_.write(name, text);
    }

    const Harness::Folder folder_;
};

TEST_F(CliTest, ScriptsAreWatched) {
    write("two.ks",
          "include \"part.ks\";\nLong a = 1;\nif (a > twice(1)) {\n    a = 0;\n}\n"
          "switch (a) {\ncase 1: a = 5; break;\ncase 2: a = 6;\n}\n");
    write("part.ks", "function Long twice(Long n) { return n + n; }\n");
    write("drop.ks",
          "Long seen; seen = seen + 1; logStdout(longToStr(seen));\n"
          "if (edrLong(n) == 3) recordReject(\"three\");\nedrLong(n) = seen;");
    write("n.csv", "n,m\n3,a\n\"4\nx\",b\n5,c\n");
    const std::string counted =
        "kestrel: coverage: lines 5 of 7 (71.4 %), branches 1 of 2 (50.0 %), "
        "cases 1 of 2 (50.0 %)\n";
    expect({
        {"run two.ks --coverage a.info --coverage a.html", "", counted},
        {"run two.ks --coverage no/where", "",
         "kestrel: no/where: No such file or directory\n" + counted, 74},
        {"why two.ks",
         "two.ks:2        Long a = 1\n                -> a = 1\n"
         "two.ks:3        if (a > twice(1))\n                -> a is 1, n = 1\n"
         "part.ks:1         return n + n\n                  -> returns 2\n"
         "                -> false: twice(1) is 2\n"
         "two.ks:6        switch (a)\n                -> a is 1\n                -> case 1, line "
         "7\n"
         "two.ks:7        a = 5;\n                -> a = 5\n"},
        {"why drop.ks --records n.csv --header --record 3",
         "record 3 of n.csv\ndrop.ks:1       seen = seen + 1;\n                -> seen = 3\n"
         "drop.ks:1       logStdout(longToStr(seen));\n3"
         "drop.ks:2       if (edrLong(n) == 3)\n                -> false: edrLong(n) is 5\n"
         "drop.ks:3       edrLong(n) = seen;\n                -> edrLong(n) = 3\n"
         "read: 5,c\nwritten: 3,c\n",
         "...n.csv:2: three"},
        {"why drop.ks --records n.csv --header --record 9", "", "...there is no record 9", 2},
        {"why drop.ks --records n.csv --header", "", "...--record", 2},
    });
    const std::string json =
        kestrel("why drop.ks --records n.csv --header --record 1 --json").output;
    EXPECT_NE(json.find("\"line\":2,\"text\":\"edrLong(n) == 3\",\"holds\":true}\n"),
              std::string::npos)
        << json;
    EXPECT_TRUE(
        json.ends_with("{\"event\":\"rejected\",\"record\":1,\"before\":\"3,a\","
                       "\"after\":\"three\"}\n"))
        << json;
    EXPECT_EQ(folder_.read("a.info"),
              "TN:\nSF:part.ks\nFN:1,twice\nFNDA:1,twice\nFNF:1\nFNH:1\nBRF:0\nBRH:0\nDA:1,1\n"
              "LF:1\nLH:1\nend_of_record\n"
              "TN:\nSF:two.ks\nFNF:0\nFNH:0\nBRDA:3,0,false,1\nBRDA:3,0,true,0\n"
              "BRDA:7,6,case 1,1\nBRDA:8,6,case 2,0\nBRF:4\nBRH:2\nDA:2,1\nDA:3,1\nDA:4,0\nDA:6,1\n"
              "DA:7,1\nDA:8,0\nLF:6\nLH:4\nend_of_record\n");
    EXPECT_NE(folder_.read("a.html").find("never chosen"), std::string::npos);
    EXPECT_EQ(
        kestrel("profile two.ks --repeat 3000 --profile p.txt --html p.html --folded p.folded")
            .messages,
        "");
    const std::string profile = folder_.read("p.txt");
    EXPECT_NE(profile.find("  3000"), std::string::npos) << profile;
    EXPECT_NE(profile.find("twice  part.ks:1"), std::string::npos) << profile;
    EXPECT_NE(folder_.read("p.html").find("3\u202f000"), std::string::npos);

    // A debugger leaves files alone, and outlives a query that calls functions.
    write("kept.csv", "kept\n");
    write("call.ks", "function Bool f(Long n) { return n > 1; } edrLong(n) = 7;");
    expect({{"debug call.ks --records n.csv --header --where f(2) --output kept.csv", "...", "...",
             0, "b f if n > 0\nc\nc\nc\n"}});
    EXPECT_EQ(folder_.read("kept.csv"), "kept\n");
}

TEST_F(CliTest, ProjectsAreTested) {
    write("rate.ks",
          "function Long twice(Long n) { return 2 * n; }\n"
          "if (edrLong(n) > 5) recordReject(\"large\");\nedrLong(n) = twice(edrLong(n));\n");
    write("rate.cases",
          "A comment.\n=== good\n--- options --header\n--- records\nn\n2\n7\n"
          "--- written\nn\n4\n--- rejects\nrecords:3: large\t7\n--- checks\ntwice(4) == 8\n");
    write("more/a.cases",
          "=== prints\nlogStdout(\"a\\nb\\n\xe4\\n\");\n---\na\nc\n\\xE4\n\n"
          "=== fails\nLong a = true;\n--- log\nsome\n--- output\nx\n\n"
          "=== prints\n=== loops\nwhile (true) { }\n--- options --limit steps=9\n"
          "=== errors\n--- errors\nLong a = ; ! ERROR: line 1: parse error\nLong b;\nb = ;\n"
          "! ERROR: line 2: parse error\n"
          "=== checks\nLong a = 1;\n--- checks\na == 1\na + 1 == 3\n");
    const std::string fails =
        "ERROR: line 1: expected Bool not Long as argument 1 in `Bool Bool=(Bool,Bool)'\n";
    const std::string loops = "ERROR: line 1: script stopped: limit `steps' of 9 passed\n";
    expect({
        {"test rate.cases", "1 cases, 0 failed\n"},
        {"test",
         "FAILED more/a.cases:1: prints\n  output:\n      a\n    - c\n    + b\n      \\xE4\n"
         "FAILED more/a.cases:8: fails\n  it ended with status 3, not 0\n  output:\n    - x\n"
         "  log:\n    - some\n    + " +
             fails +
             "FAILED more/a.cases:15: prints\n  its title is taken\n"
             "FAILED more/a.cases:16: loops\n  it ended with status 4, not 0\n  log:\n    + " +
             loops +
             "FAILED more/a.cases:25: checks\n  it ended with status 1, not 0\n  log:\n"
             "    + kestrel: check 2 does not hold: a + 1 == 3; a + 1 is 2\n"
             "8 cases, 5 failed\n",
         "", 1},
        {"test more --filter loops --update --junit j.xml", "..."},
        {"test more --filter fails --update", "..."},
        {"test more --filter prints --update", "...", "", 1},
        {"test more --filter l*s", "2 cases, 0 failed\n"},
        {"test more --filter error", "2 cases, 0 failed\n"},
        {"test rate.cases --coverage c.info",
         "1 cases, 0 failed\ncoverage: lines 3 of 3 (100.0 %), branches 2 of 2 (100.0 %), "
         "cases 0 of 0 (100.0 %)\n"},
        {"test no", "", "kestrel: no: No such file or directory\n", 2},
    });
    const std::string updated =
        "=== prints\nlogStdout(\"a\\nb\\n\xe4\\n\");\n---\na\nb\n\\xE4\n\n"
        "=== fails\nLong a = true;\n--- error\n" +
        fails +
        "--- output\n\n=== prints\n=== loops\nwhile (true) { }\n--- options --limit steps=9\n"
        "--- stopped\n" +
        loops;
    EXPECT_EQ(folder_.read("more/a.cases").substr(0, updated.size()), updated);
    EXPECT_NE(folder_.read("j.xml").find("failures=\"1\""), std::string::npos);
}

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
    write("lib/hidden.ks", "0A42000000000000000006000000000000410a\n");
    write("cycles.ks", "include \"cycle.ks\";\n");
    write("hides.ks", "Long A; Long b = \ninclude \"hidden.ks\";\n;");
    write("phases.ks",
          "function BEGIN { logStdout(\"begin\"); } function END { logStdout(\"end\"); }\n"
          "logStdout(\"main\");\n");
    const std::string parseError =
        "wrong.ks:2:11: error[K0014]: a value is missing after `(`\n"
        " 2 | logStdout(;\n   |           ^\n";
    const std::string sourceLimit = "the script and its includes exceed the source limit of ";
    expect({
        {"run hello.ks", "hello\n"},
        {"run -", "from stdin", "", 0, "logStdout(\"from stdin\");"},
        {"run -", std::string("a\0b", 3), "", 0, std::string("logStdout(\"a\0b\");", 17)},
        {"run --repeat 0 hello.ks", ""},
        {"run -D a=1 -D b=x=y -e 'logStdout(a + b);'", "1x=y"},
        {"run -D a= -e 'logStdout(longToStr(strLength(a)));'", "0"},
        {"run -I lib -I other includes.ks", "lib"},
        {"run -I other includes.ks -I lib", "other"},
        {"run -I lib nested.ks", "",
         "inner.ks:3:5: error[K0202]: cannot store a Bool in the Long `a`\n"
         " 3 | a = true;\n   |     ^~~~\n"
         "  note: included here (outer.ks:2)\n  note: included here (nested.ks:2)\n",
         3},
        {"run -I lib after.ks", "",
         "after.ks:2:9: warning[K0602]: `fine.ks' included more than once\n"
         " 2 | include \"fine.ks\";\n   |         ^~~~~~~~~\n"
         "after.ks:3:1: error[K0101]: unknown name `broken`\n 3 | broken;\n   | ^~~~~~\n"
         "  help: declare it above, as in `Long broken;`\n",
         3},
        {"run --log -I lib after.ks", "",
         "`fine.ks' included more than once\nERROR: line 3: unknown identifier `broken'\n", 3},
        {"run -I lib cycles.ks", "once",
         "cycle.ks:1:9: warning[K0602]: `cycle.ks' included more than once\n"
         " 1 | include \"cycle.ks\";\n   |         ^~~~~~~~~~\n"
         "  note: included here (cycles.ks:1)\n"},
        {"run -I lib hides.ks", ""},
        {"run --log --sandbox -I lib includes.ks", "", "include of `part.ks' is not allowed\n", 3},
        {"run --allow include=lib -I lib includes.ks", "lib"},
        {"run --allow include=other -I lib includes.ks", "",
         "includes.ks:1:9: error[K0601]: failed to open include file `part.ks' in the directories "
         "allowed for includes\n 1 | include \"part.ks\";\n   |         ^~~~~~~~~\n"
         "  note: looked for in `lib`\n  note: looked for in `.`\n",
         3},
        {"run --limit source=1000 /dev/zero", "", sourceLimit + "1000 bytes\n", 3},
        {"run --limit source=0 -e 'Long a;'", "", sourceLimit + "1 bytes\n", 3},
        {"run --limit memory=100000 -e 'String s = strPad(\"\", \"x\", 200000, true);'", "",
         "-e:1: error[K0605]: script stopped: limit `memory' of 100000 passed\n", 4},
        {"run wrong.ks", "", parseError, 3},
        {"run -e 'logStdout(\"a\"); scriptUsable(false);'", "a", "", 1},
        {"run phases.ks", "beginmainend"},
        {"check -I lib includes.ks hello.ks", ""},
        {"check wrong.ks none.ks", "", parseError + "kestrel: none.ks: No such file or directory\n",
         3},
        {"decrypt", "A\n", "", 0, "0A42000000000000000006000000000000410a\n"},
        {"functions fileIsOpen",
         "Bool fileIsOpen(File file)\n    Whether `file` is open.\n    Effects: reads files.\n"
         "    Example:\n        File f; fileIsOpen(f) == false\n"},
        {"--version", "kestrel " KESTREL_VERSION "\nscripts run in the " KESTREL_TIER " tier\n"},
    });
}

TEST_F(CliTest, FilesAndZonesAreAsGranted) {
    write("lib/part.ks", "");
    write("hello.ks", "");
    write("files.ks",
          "String name; function tell { File f; if (fileOpen(f, name, \"r\"))"
          "logStdout(name + \" \"); }\n"
          "name = \"lib/part.ks\"; tell(); name = \"lib/../hello.ks\"; tell();"
          "name = \"/proc/self/mem\"; tell();");
    write("local.ks", "logStdout(dateToStr(strToDate(\"2024-01-01\"), \"%H %L\"));");
    write("lib/lost.ks", "function Long f(Long n) {\nreturn f(n - 1) * n;\n}\n");
    write("loses.ks", "include \"lost.ks\";\nf(1);\n");
    setenv("TZ", "XYZ+11", 1);
    expect({
        {"run --allow files=lib files.ks", "lib/part.ks "},
        {"run --allow files-ro=. files.ks", "lib/part.ks lib/../hello.ks "},
        {"run --allow files,env files.ks", "lib/part.ks lib/../hello.ks "},
        {"run --allow all files.ks", "lib/part.ks lib/../hello.ks /proc/self/mem "},
        {"run --allow files=none hello.ks", "",
         "ERROR: can not open the directory `none': No such file or directory\n", 2},
        {"run --zone ABC-5 local.ks", "05 ABC"},
        {"run --zone UTC local.ks", "00 UTC"},
        {"run local.ks", "13 XYZ"},
        {"run local.ks --records - --fields a", "00 UTCx\n", "", 0, "x\n"},
        {"check local.ks --distributable",
         "local.ks:1: logStdout prints, which a repeated execution does again\n", "", 1},
        {"check -I lib loses.ks", "",
         "lost.ks:2: warning[K0802]: `n' is read after the call of `f' in line 2, which may have "
         "overwritten it\n"},
    });
    unsetenv("TZ");
}

TEST_F(CliTest, BadUsageIsExplainedAndRunsNothing) {
    write("hello.ks", "logStdout(\"hello\\n\");");
    const std::pair<const char*, const char*> rows[] = {
        {"", "command"},
        {"run", "FILE"},
        {"run hello.ks -e ;", "-e"},
        {"run none.ks", "none.ks: No such file or directory"},
        {"run --repeat many hello.ks", "many"},
        {"run --unknown hello.ks", "--unknown"},
        {"run -D novalue hello.ks", "'novalue' is not NAME=VALUE"},
        {"run -D 1st=value hello.ks", "is not NAME=VALUE"},
        {"run -D a=1 -D a=2 hello.ks", "a is given twice"},
        {"run -e '' --records - --part 3/2", "--part: '3/2' is not I/N with I from 1 to N"},
        {"run -e '' --records - --format jsonl --header", "--header: JSON names its fields itself"},
        {"run -e '' --records - --out out", "must come from a file"},
        {"run -e '' --records hello.ks --dry-run 1 --out out", "--out: nothing is written"},
        {"debug hello.ks --records hello.ks --out out", "--out: a debugger writes no files"},
        {"run - --records -", "can not both come from standard input"},
        {"conditions - --records -", "can not both come from standard input"},
        {"conditions nosuch --records -", "kestrel: nosuch: No such file or directory"},
        {"functions strlength", "'strlength'"},
        {"encrypt none.ks", "none.ks: No such file or directory"},
        {"decrypt hello.ks", "kestrel: hello.ks: not a scrambled text"},
        {"match", "kestrel: -p PATTERN or -f FILE is required"},
        {"run --zone Atlantis hello.ks", "'Atlantis' is no known time zone"},
        {"run --allow files-rw=. hello.ks", "'files-rw=.' names no capability"},
    };
    for (const auto& [line, message] : rows) expect({{line, "", std::string("...") + message, 2}});
}

TEST_F(CliTest, CheckKnowsTheFunctionsOfRecords) {
    write("calls.csv", "seconds,note\n1,x\n");
    write("seconds.ks", "if (edrLong(seconds) > 1) edrString(note) = recordText();");
    write("items.ks", "function END { recordDrop(); }\nedrLong(call.items, 1) = 2;");
    write("bad.ks", "edrNothing(seconds);");
    expect({
        {"check seconds.ks items.ks", ""},
        {"check bad.ks", "",
         "bad.ks:1:1: error[K0101]: unknown name `edrNothing`\n 1 | edrNothing(seconds);\n"
         "   | ^~~~~~~~~~\n  help: did you mean `edrString`?\n",
         3},
        {"check seconds.ks --records calls.csv --header", ""},
        {"check seconds.ks items.ks --records calls.csv --header", "",
         "items.ks:2:1: error[K0302]: `edrLong` takes fewer arguments\n"
         " 2 | edrLong(call.items, 1) = 2;\n   | ^~~~~~~~~~~~~~~~~~~~~~\n"
         "  help: it is declared `Long edrLong(EdrAlias)`\n",
         3},
        {"check items.ks --records - --format jsonl", ""},
        {"check seconds.ks --records - --fields note", "",
         "seconds.ks:1:13: error[K0103]: the records have no field `seconds`\n"
         " 1 | if (edrLong(seconds) > 1) edrString(note) = recordText();\n"
         "   |             ^~~~~~~\n",
         3},
        {"check seconds.ks --records - --format jsonl --where edrLong(a) --log", "",
         "expected `Bool' datatype instead of `Long' in where clause\n", 3},
        {"check seconds.ks --records nosuch", "", "kestrel: nosuch: No such file or directory\n",
         2},
    });
}

TEST_F(CliTest, CheckTellsWhatTiesRecordsToOthers) {
    write("sum.ks",
          "include \"count.ks\";\nfunction END { logStdout(longToStr(count)); }\n\ntick();");
    write("count.ks", "Long count;\nfunction tick { count = count + recordNumber(); }\n");
    expect(
        {{"check --distributable sum.ks count.ks",
          "count.ks:2: `count' keeps what earlier executions left in it, assigned in line 2\n"
          "count.ks:2: recordNumber depends on the place of the execution among others\n"
          "sum.ks:2: logStdout prints, which a repeated execution does again\n"
          "sum.ks:2: END reads `count', which holds what the executions of one interpreter left in "
          "it, assigned in line 2 of count.ks\n",
          "count.ks:2:10: warning[K0807]: the function `tick` is never called\n"
          " 2 | function tick { count = count + recordNumber(); }\n   |          ^~~~\n",
          1}});
}

TEST_F(CliTest, ScriptsAreLaidOutInPlace) {
    write("a.ks", "a=1;\n");
    write("good.ks", "a = 1;\n");
    write("bad.ks", "\nf((\xC3\xA4];\n");
    fs::permissions(folder_.path("a.ks"), fs::perms(0640));
    fs::create_symlink("a.ks", folder_.path("link.ks"));
    fs::create_directory(folder_.path("folder"));
    expect({
        {"fmt --check a.ks good.ks", "a.ks\n", "", 1},
        {"fmt --diff a.ks good.ks",
         "--- a.ks\n+++ a.ks (formatted)\n@@ -1,1 +1,1 @@\n-a=1;\n+a = 1;\n", "", 1},
        {"fmt -", "b = 2;\n", "", 0, "b=2;"},
        {"fmt bad.ks folder none.ks link.ks", "",
         "kestrel: bad.ks:2:4: no statement has this sign; the text is left alone\n"
         "kestrel: folder: is no file that can be replaced\n"
         "kestrel: none.ks: No such file or directory\n",
         3},
    });
    EXPECT_EQ(folder_.read("a.ks"), "a = 1;\n");
    EXPECT_TRUE(fs::is_symlink(folder_.path("link.ks")));
    EXPECT_EQ(fs::status(folder_.path("a.ks")).permissions(), fs::perms(0640));
    EXPECT_EQ(folder_.read("bad.ks"), "\nf((\xC3\xA4];\n");
}

TEST_F(CliTest, ScrambledScriptsRunAndComeBack) {
    const std::string script("logStdout(\"a\0\xFF\");\r\n// end", 25);
    write("plain.ks", script);
    write("scrambled.ks", kestrel("encrypt plain.ks").output);
    EXPECT_EQ(folder_.read("scrambled.ks").find("logStdout"), std::string::npos);
    expect({{"decrypt scrambled.ks", script},
            {"decrypt -", script, "", 0, kestrel("encrypt", script).output},
            {"run scrambled.ks", std::string("a\0\xFF", 3)}});
    EXPECT_NE(kestrel("encrypt --help").output.find("no protection"), std::string::npos);
}

TEST_F(CliTest, OperatorsAreFoundByTheirSigns) {
    const std::string sums = kestrel("functions +").output;
    for (const char* const type : {"Long", "Decimal", "String"}) {
        const std::string operand(type);
        EXPECT_NE(sums.find(operand + " left + " + operand + " right -> " + operand + "\n    "),
                  std::string::npos)
            << sums;
    }
    EXPECT_NE(kestrel("functions LongNegation").output.find("-Long operand -> Long\n    "),
              std::string::npos);
}

// The properties that the standard requires, and that every reader relies on.
TEST_F(CliTest, ReportsForOtherToolsAreValid) {
    write("a \xC3\xA4.ks", "Long n = \"x\";\ninclude \"in c.ks\";\nn == 2;\n");
    write("in c.ks", "Long n = 1\n");
    write("valid.py", R"(
import json, sys, urllib.parse
log = json.load(sys.stdin)
assert log['version'] == '2.1.0' and log['$schema'].endswith('.json')
run, = log['runs']
rules = [rule['id'] for rule in run['tool']['driver']['rules']]
assert run['tool']['driver']['name'] and len(set(rules)) == len(rules)
assert run['columnKind'] in ('unicodeCodePoints', 'utf16CodeUnits')
for result in run['results']:
    assert result['ruleId'] in rules and result['level'] in ('error', 'warning', 'note', 'none')
    assert result['message']['text']
    for place in result['locations'] + result.get('relatedLocations', []):
        physical = place['physicalLocation']
        uri = physical['artifactLocation']['uri']
        assert uri.isascii() and ' ' not in uri and urllib.parse.urlparse(uri).path == uri, uri
        region = physical.get('region', {'startLine': 1})
        assert region['startLine'] >= 1 and region.get('startColumn', 1) >= 1
        assert region.get('endColumn', 2) > region.get('startColumn', 1)
print([urllib.parse.unquote(r['locations'][0]['physicalLocation']['artifactLocation']['uri'])
       for r in run['results']])
)");
    const Result report = kestrel("check --sarif 'a \xC3\xA4.ks'");
    write("report", report.messages);
    const std::string command =
        "cd " + folder_.path() + " && python3 valid.py < report > list 2>&1";
    EXPECT_EQ(std::system(command.c_str()), 0) << folder_.read("list") << report.messages;
    EXPECT_EQ(folder_.read("list"), "['a \xC3\xA4.ks', 'in c.ks']\n");
}

TEST_F(CliTest, MatchNumbersThePatternsOfEachLine) {
    write("patterns", "a.*\nab\n");
    write("open", "x\n\n(a");
    std::string large;
    for (char c = 'a'; c <= 'r'; ++c) large += std::string(".*") + c + ".{12}\n";
    write("large", large);
    expect({
        {"match -p a.* -p ab", "0 1\n0\n\n\n0\n", "", 0, "ab\nax\nb\n\nabc"},
        {"match -p a.* -p ab --first", "0\n0\n\n", "", 0, "ab\nax\nb\n"},
        {"match -p b -f patterns", "1 2\n0\n", "", 0, "ab\nb\n"},
        {"match -f open", "",
         "open:3:3: error[K0501]: unexpected end of pattern\n 3 | (a\n   |   ^\n", 3},
        {"match -p a) -p []", "",
         "pattern 0:1:2: error[K0501]: parse error near )\n 1 | a)\n   |  ^\n"
         "pattern 1:1:2: error[K0501]: parse error near ]\n 1 | []\n   |  ^\n",
         3, "a\n"},
        {"match -p \xC3\xA9+ -p [^a]", "0\n1\n", "", 0, "\xC3\xA9\n\xFF\n"},
        {"match -p a*", "0\n0\n", "", 0, std::string(300000, 'a') + "\n" + std::string(70000, 'b')},
        {"match -p ''", "0\n0\n", "", 0, "\nx\n"},
        {"match -f patterns --stats", "", "...kestrel: 2 patterns in one automaton: 4 states, "},
        {"match -f large --stats", "0\n", "...kestrel: 18 patterns in ", 0, "a123456789012\n"},
        {"match -f patterns --analyse",
         "pattern 1 (\"ab\") is never the lowest: pattern 0 (\"a.*\") matches all its texts, such "
         "as \"ab\"\npatterns 0 (\"a.*\") and 1 (\"ab\") both match \"ab\"\n"},
        {"match -p \\.[z-b] --analyse", "pattern 0 (\"\\.[z-b]\") matches nothing\n"},
        {"match -p a.* -p !b --save saved", ""},
        {"match --load saved", "0 1\n\n", "", 0, "ab\nb\n"},
        {"match --load open", "", "kestrel: open: not a file of patterns\n", 2},
        {"match -f large --analyse", "153 pairs of patterns were not examined\n"},
    });
}

TEST_F(CliTest, CheckWarnsOfCasesThatAreNeverReached) {
    write(
        "cases.ks",
        "String s = \"\";\nregExprSwitch (s) {\ncase \"a.*\":\ncase \"x\": break;\ncase \"[0-4]\": "
        "break;\ncase \"[5-9]\": break;\ncase \"ab\": break;\ncase \"[0-9]\": break;\ncase "
        "\"b[z-a]\": break;\n}");
    expect({{"check --log cases.ks", "",
             "WARNING: the case in line 7 is never reached: line 3 matches all its texts\n"
             "WARNING: the case in line 8 is never reached: lines 5, 6 together match all its "
             "texts\n"
             "WARNING: the case in line 9 is never reached: its pattern matches no text\n"},
            {"run cases.ks", ""}});
    std::string many = "String s = \"\";\nregExprSwitch (s) {\ncase \".*\":\n";
    for (int i = 0; i < 60; ++i) many += "case \"" + std::to_string(i) + "\": break;\n";
    const std::string warnings = kestrel("check --log -", many + "}").messages;
    EXPECT_EQ(std::count(warnings.begin(), warnings.end(), '\n'), 51);
    EXPECT_NE(warnings.find("WARNING: 10 more cases are never reached\n"), std::string::npos);
}

TEST_F(CliTest, RecordsComeOutAsTheyShould) {
    const std::string csv = "a,b\n1,x\n2,yy\n3,z\n";
    write("conditions", "edrLong(a) > 1; edrString(b) =~ \"[xy]+\";");
    write("wrong", "edrLong(a) > \"1\"; 3;");
    write("loops.ks", "function BEGIN { while (true) {} }");
    write("second.ks", "if (edrLong(f1) == 2) while (true) {}");
    write("end.ks", "function END { while (true) {} }");
    const std::string stopped =
        ".ks:1: error[K0605]: script stopped: limit `steps' of 1000 passed\n";
    const std::string limit = "line 1: script stopped: limit `steps' of 1000 passed\n";
    const std::string counts = "kestrel: records: ";
    expect({
        {"query 'edrLong(a) > 1' --records - --header --stats", "a,b\n2,yy\n3,z\n",
         counts + "3 read, 2 written, 1 dropped, 0 rejected\n", 0, csv},
        {"query 'edrLong(a) > 1' --records - --format jsonl --jobs 2 --stats", "{\"a\": 2}\n",
         "-:2: no JSON object\n" + counts +
             "3 read, 1 written, 1 dropped, 1 rejected\nkestrel: rejected: 1 no JSON object\n",
         1, "{\"a\":1}\n[]\n{\"a\": 2}\n"},
        {"conditions conditions --records - --header", "1\n0 1\n0\n", "", 0, csv},
        {"conditions wrong --records - --header --jobs 2", "",
         "wrong:1:12: error[K0201]: cannot compare a Long and a String with `>`\n"
         " 1 | edrLong(a) > \"1\"; 3;\n   |            ^\n"
         "  help: write `strToLong(\"1\")` or `1`\n"
         "wrong:1:19: error[K0205]: a condition is a Bool, and this is a Long\n"
         " 1 | edrLong(a) > \"1\"; 3;\n   |                   ^\n"
         "  help: compare it, as in `3 != 0`\n",
         3, csv},
        {"check --conditions --werror conditions wrong", "", "...wrong:1:19: error[K0205]", 3},
        {"check --conditions --werror conditions", ""},
        {"query 'edrLong(nosuch) > 1' --records - --header", "",
         "query:1:9: error[K0103]: the records have no field `nosuch`\n"
         " 1 | edrLong(nosuch) > 1\n   |         ^~~~~~\n",
         3, csv},
        {"run loops.ks --records - --limit steps=1000", "",
         "loops" + stopped + "kestrel: stopped before the first record\n", 4, csv},
        {"run loops.ks --limit steps=1000", "", "...loops" + stopped, 4},
        {"run second.ks --records - --limit steps=1000 --jobs 2 --stats json", "1\n3\n",
         "second" + stopped +
             "  note: in record 2 (-:2)\n"
             "{\"read\":3,\"written\":2,\"dropped\":0,\"rejected\":1,\"extra\":0,\"reasons\":{\"" +
             limit.substr(0, limit.size() - 1) + "\":1}}\n",
         1, "1\n2\n3\n"},
        {"run second.ks --records - --limit steps=1000 --jobs 2 --stats --on-error stop", "1\n",
         "kestrel: -:2: " + limit + counts + "1 read, 1 written, 0 dropped, 0 rejected\n", 4,
         "1\n2\n3\n"},
        {"run second.ks --records - --limit steps=1000 --on-error keep", "1\n2\n3\n",
         "second" + stopped + "  note: in record 2\n", 0, "1\n2\n3\n"},
        {"run -e 'if (edrLong(f1) == 2) stopJob(\"why\");' --records -", "1\n",
         "kestrel: -:2: ended by the script: why\n", 1, "1\n2\n3\n"},
        {"run -e 'function BEGIN { scriptUsable(false); }' --records -", "",
         "kestrel: the script declared itself unusable before the first record\n", 1, "1\n"},
        {"run -e 'function BEGIN { strPad(\"\", \"\", -1, true); }' --records -", "",
         "...kestrel: BEGIN failed; stopped before the first record\n", 4, "1\n"},
        {"run -e 'edrLong(f1);' --records - --output /dev/null --rejects-format json "
         "--rejects /dev/stdout",
         "{\"file\":\"-\",\"line\":1,\"number\":1,\"reason\":\"no Long\",\"field\":\"f1\","
         "\"value\":\"a\",\"record\":\"a,\xC3\xBF\",\"encoding\":\"latin1\"}\n",
         "", 0, "a,\xFF\n1\n"},
        {"run -e 'edrLong(a);' --records - --header --output /dev/null --rejects-format input "
         "--rejects /dev/stdout",
         "a,b\r\nx,2\r\n", "-:3: field a: no Long: 'x'\n", 0, "a,b\r\n1,1\r\nx,2\r\n"},
        {"run -e 'edrLong(f1);' --records -", "", "...'a'\n5 more records were rejected\n", 1,
         "a\na\na\na\na\na\na\na\na\na\na\na\na\na\na\na\na\na\na\na\na\na\na\na\na\n"},
        // State, which several workers would have each.
        {"run -e 'Long n; n = n + 1; edrLong(f1) = n;' --records - --jobs 2", "",
         "kestrel: -e:1: `n\' keeps what earlier executions left in it, assigned in line 1\n"
         "kestrel: each worker would have variables of its own: use --jobs 1, or accept that by "
         "--jobs-state each\n",
         2, "1\n"},
        {"run -e 'Long n; n = n + 1;' --records - --part 1/1", "1\n", "", 0, "1\n"},
        {"run -e 'Long n; n = n + 1;' --records - --jobs 2 --jobs-state each", "1\n", "", 0, "1\n"},
        // A mutex of all workers; the record that is stopped gives it up.
        {"run -e 'Long m; function BEGIN { m = mutexCreate(); } mutexAcquire(m); "
         "if (edrLong(f1) < 3) while (true) {} mutexRelease(m);' --records - --jobs 2 "
         "--limit steps=1000 --rejects /dev/null",
         "3\n4\n", "", 0, "1\n2\n3\n4\n"},
        // Prints keep their places.
        {"run -e 'logStdout(\"p\" + edrString(f1) + \" \");' --records - --jobs 2", "p1 1\np2 2\n",
         "", 0, "1\n2\n"},
        {"run end.ks --records - --limit steps=1000", "1\n2\n",
         "end" + stopped + "kestrel: the function END was stopped\n", 4, "1\n2\n"},
        {"run -e '' --records - --part 2/2", "2\n", "", 0, "1\n2\n"},
        {"run -e '' --records - --limit record=3", "1\n222\n",
         "kestrel: -:3: limit `record' of 3 passed\n", 4, "1\n222\n4444\n5\n"},
        {"run -e '' --records - --limit record=2 --header", "",
         "kestrel: -:1: limit `record' of 2 passed\n", 4, "abc\n1\n"},
    });
}

TEST_F(CliTest, ColumnsAreAddedChosenAndConverted) {
    const std::string csv = "id,2nd name,x\r\n1,\"a,b\",5\r\n2,c,06\r\n";
    const std::string json = "{\"a\":1,\"b\":{\"c\":\"x,y\"},\"d\":[1, 2]}\n{\"a\": 2}\n";
    const std::string head = "run --records - --header -e ";
    const std::string object = "run --records - --format jsonl -e ";
    expect({
        {head + "'if (edrLong(id) == 2) edrLong(twice) = edrLong(x) * 2; edrString(n) = \"n\";'",
         "id,2nd name,x,twice,n\r\n1,\"a,b\",5,,n\r\n2,c,06,12,n\r\n", "", 0, csv},
        {head + "'edrDeleteField(x); /* edrLong(no) = */ edrString(\"a b\") = edrString(\"2nd "
                "name\") + "
                "edrString(x);'",
         "id,2nd name,a b\r\n1,\"a,b\",\"a,b\"\r\n2,c,c\r\n", "", 0, csv},
        {head + "'' --select x,id --rename id=n --output-format tsv", "x\tn\n5\t1\n06\t2\n", "", 0,
         csv},
        {head + "'' --select=-x --output-format jsonl",
         "{\"id\":1,\"2nd name\":\"a,b\"}\n{\"id\":2,\"2nd name\":\"c\"}\n", "", 0, csv},
        {head + "'' --select x --output-format jsonl", "{\"x\":5}\n{\"x\":\"06\"}\n", "", 0, csv},
        {head + "'' --select x --output-format lines --jobs 2", "5\n06\n", "", 0, csv},
        {head + "'' --output-format tsv", "a\n2\n",
         "-:2: field a: the format cannot hold this value: 'x\\ty'\n", 1, "a\nx\ty\n2\n"},
        {head + "'edrLong(n) = 1;'", "a,n\n2,1\n", "-:2: it has more fields than there are names\n",
         1, "a\n1,2\n2\n"},
        {head + "'' --select nosuch", "", "kestrel: unknown field `nosuch'\n", 2, csv},
        {head + "'edrLong(nosuch);'", "",
         "-e:1:9: error[K0103]: the records have no field `nosuch`\n 1 | edrLong(nosuch);\n   |    "
         "     ^~~~~~\n",
         3, csv},
        {head + "'edrLong(valeu);'", "",
         "-e:1:9: error[K0103]: the records have no field `valeu`\n 1 | edrLong(valeu);\n   |      "
         "   ^~~~~\n  help: did you mean `value`?\n",
         3, "id,value\n1,2\n"},
        {head + "'edrLong(\"a\" + \"b\");'", "",
         "...is a String, where the name of a field is needed", 3, csv},
        {object + "'' --output-format csv --select a,b.c,d --rename b.c=c",
         "a,c,d\n1,\"x,y\",\"[1, 2]\"\n2,,\n", "", 0, json},
        {object + "'edrLong(\"a b\") = 3;' --select=-a,-b --rename d=e",
         "{\"a b\":3,\"e\":[1, 2]}\n{\"a b\":3}\n", "", 0, json},
        {object + "'recordWrite(); edrLong(d) = 3;' --rename a=b --rename b=a",
         "{\"d\":[1, 2],\"b\":1,\"a\":{\"c\":\"x,y\"}}\n"
         "{\"d\":3,\"b\":1,\"a\":{\"c\":\"x,y\"}}\n{\"b\":2}\n{\"d\":3,\"b\":2}\n",
         "", 0, json},
        {object + "'' --rename a=d", "{\"d\":2}\n",
         "-:1: field d: a member is to be renamed, and there is one of this name\n", 1, json},
        {head + "'' --rename id=x", "", "kestrel: --rename: there is another field `x'\n", 2, csv},
        {head + "'' --rename id=a --rename id=b", "", "kestrel: --rename: `id' gets two names\n", 2,
         csv},
        {head + "'' --select x,x", "", "kestrel: --select: `x' is there twice\n", 2, csv},
        {object + "'' --select d,a", "{\"d\":[1, 2],\"a\":1}\n{\"a\":2}\n", "", 0, json},
        {object + "'' --output-format csv", "", "kestrel: --select must name the columns\n", 2,
         json},
    });
}

TEST_F(CliTest, InputsAreSeveralAndCompressed) {
    const auto bytes = [](const char* hex) {
        std::string text;
        for (; *hex != 0; hex += 2) {
            text += static_cast<char>(std::stoi(std::string(hex, 2), nullptr, 16));
        }
        return text;
    };
    // "k,v\na,1\n"
    const std::string gzip = bytes("1f8b08000000000002ffcbd629e34ad431e402005f0730e308000000");
    const std::string zstd = bytes("28b52ffd20084100006b2c760a612c310a");
    write("a", gzip);
    write("b", "k,v\nb,x\n");
    write("c", "k,w\n");
    write("e", "");
    write("cut", gzip.substr(0, 12));
    write("zip", "PK\3\4...");
    const std::string head = "run -e 'edrLong(v);' --header ";
    const std::string skip = "run -e '' --records - ";
    expect({
        {head + "--records e --records a --records - --records e --records b --jobs 2 --stats",
         "k,v\na,1\na,1\n",
         "b:2: field v: no Long: 'x'\nkestrel: records: 3 read, 2 written, 0 dropped, 1 rejected\n"
         "kestrel: rejected: 1 field v: no Long\n",
         1, zstd},
        {head + "--records a --records c", "k,v\na,1\n",
         "kestrel: c: its header is not that of a\n", 2},
        {skip, "k,v\na,1\nk,v\na,1\n", "", 0, gzip + gzip},
        {skip, "k,v\na,1\nk,v\na,1\n", "", 0, zstd + zstd},
        {head + "--records cut", "", "...cut: the compressed data ends too early\n", 2},
        {head + "--records zip", "", "kestrel: zip: it is a ZIP archive, not lines of text\n", 2},
        {"run -e 'if (edrLong(v) == 2) recordDrop(); if (edrLong(v) == 1) edrLong(n) = 1; "
         "outputFile(\"f\");' --records - --header --dry-run 3",
         "k,v,n\n1 - a,1\n1 + a,1,1\n2 - b,2\n2 dropped\n3 - c,x\n3 ! field v: no Long: 'x'\n",
         "-:4: field v: no Long: 'x'\n", 1, "k,v\na,1\nb,2\nc,x\nd,1\n"},
        {"run -e '' --records - --dry-run 1", "1 = a\n", "", 0, "a\nb\n"},
        {"run -e 'logStdout(\"p\\n\"); recordDrop();' --records - --dry-run 1",
         "p\n1 - a\n1 dropped\n", "", 0, "a\nb\n"},
        {"run -e '' --records - --dry-run 9", "1 - \"a\n1 ! a quote is not closed\n",
         "-:1: a quote is not closed\n", 1, "\"a\n"},
        {head + "--records a --part 1/2", "k,v\n",
         "kestrel: a: it is compressed; only other files have parts\n", 2},
        {skip + "--skip 1 --limit 2 --blank-lines skip --stats", "b\nc\n",
         "kestrel: records: 2 read, 2 written, 0 dropped, 0 rejected\n", 0, "a\n\nb\n \nc\nd\n"},
    });
}

TEST_F(CliTest, TablesAreLookedUp) {
    const std::string csv = "to,secs\n49,10\n33,20\n1,30\n";
    write("rates.csv",
          "prefix,unit price:Decimal,since:Date\n49,0.10,\n33,0.25,2026-02-01\n33,1,2026-03-01\n");
    write("zones.jsonl",
          "{\"z\":{\"b\":1.50,\"a\":\"x\"},\"v\":[1,{\"q\":\"]\"}]}\n\n{\"w\":\"\\u00e4\"}\n");
    write("join.ks",
          "Bool found = tableFind(rates, edrString(to));\n"
          "while (found) { edrDecimal(price) = tableField(rates.unit_price) * edrDecimal(secs);\n"
          "edrDate(since) = tableField(since); recordWrite(); found = tableNext(rates); }\n"
          "recordDrop();\n");
    write("bad.csv", "a:Long,b\n1,\nx,\n");
    write("wide.csv", "a\n1,2\n");
    const std::string head = "run --records - --header --jobs 2 --table rates=rates.csv ";
    const std::string zones =
        "--table zones=zones.jsonl --table-type zones=z.b:Decimal "
        "--table-key zones=z.a,z.b -e 'tableFind(zones, ";
    const std::string joined =
        "to,secs,price,since\n49,10,1.00,\n33,20,5.00,2026-02-01 00:00:00\n33,20,20,2026-03-01 "
        "00:00:00\n";
    expect({
        {head + "join.ks", joined, "", 0, csv},
        {head + zones +
             "\"x\", 1.5); logStdout(tableField(v) + tableField(w)); edrString(w) = "
             "tableField(zones.z.a);'",
         "to,w\n[1,{\"q\":\"]\"}]1,x\n", "", 0, "to\n1\n"},
        {head + zones + "\"\", strToDecimal(\"\")); edrString(w) = tableField(w);'",
         "to,w\n1,\xC3\xA4\n", "", 0, "to\n1\n"},
        // What is found lasts for one record.
        {head + "-e 'if (edrLong(to) == 49) tableFind(rates, \"49\"); edrDecimal(p) = "
                "tableField(unit_price);'",
         "to,p\n49,0.10\n1,\n", "", 0, "to\n49\n1\n"},
        {head + "-e 'tableFind(rates, edrString(to)); if (tableField(since) < "
                "strToDate(\"2026-02-15\")) recordDrop();'",
         "to\n", "-:2: no date to compare; ask dateIsValid first\n", 1, "to\n49\n33\n"},
        {"check --distributable --table rates=rates.csv join.ks", ""},
        {"query 'tableFind(rates, edrString(to))' --records - --header --table rates=rates.csv",
         "to\n33\n", "", 0, "to\n1\n33\n"},
        {head + "-e 'tableFind(none, \"\");'", "", "...there is no table 'none'", 3, csv},
        {head + "-e 'tableFind(rates, 1);'", "", "...is a String, not a Long", 3, csv},
        {head + "-e 'tableFind(rates, \"\", \"\");'", "", "...of the table rates has 1 columns", 3,
         csv},
        {head + "-e 'Long n = tableField(since);'", "", "...store a Date in the Long", 3, csv},
        {head + "--table more=rates.csv -e 'tableField(since);'", "", "...say rates.since", 3, csv},
        {head + "--table bad=bad.csv -e ''", "", "kestrel: bad.csv:3: column a: no Long: 'x'\n", 2},
        {head + "--table wide=wide.csv -e ''", "",
         "kestrel: wide.csv:2: it has more fields than there are names\n", 2},
        {head + "--table-key rates=x -e ''", "", "kestrel: rates.csv: it has no column 'x'\n", 2},
        {head + "--limit tables=100 -e ''", "",
         "kestrel: rates.csv: limit `tables' of 100 bytes passed\n", 4},
    });
}

TEST_F(CliTest, TotalsAreThoseOfOneRun) {
    std::string csv = "id,country,price,day,secs\n";
    for (int i = 0; i < 12'000; ++i) {
        const int n = i * 7919 % 10'007;
        csv += std::to_string(n % 5000) + "," + (n % 3 == 0 ? "de" : "fr\xFF") + "," +
               (n % 13 == 0   ? "bad"
                : n % 17 == 0 ? ""
                              : std::to_string(n) + ".5") +
               ",2026-01-" + std::to_string(10 + n % 20) + "," + std::to_string(n % 100 - 50) +
               "\n";
    }
    write("in.csv", csv);
    write("total.ks", R"(
Decimal sum; Decimal by{}; Long n; Long c{}; Long low; Date first{}; String last; Bool ids{};
function count(String key) { totalCount(n); totalCount(c, key); }
total(by, edrString(country), edrDecimal(price));  // which fails for some records
count(edrString(country));
total(sum, edrDecimal(price));
totalMin(low, edrLong(secs));
totalMin(first, edrString(country), edrDate(day));
totalMax(last, edrString(day));
totalSet(ids, edrString(id));
edrDecimal(price);
recordUnique(edrString(id));
function END {
    String ks[]; Long k = hashKeys(c, ks); Long i;
    for (i = 0; i < k; i = i + 1) {
        String key = ks[i]; edrString(country) = key; edrDecimal(price) = by{key};
        edrLong(secs) = c{key}; edrDate(day) = first{key}; recordWrite();
    }
    edrDecimal(price) = sum; edrLong(secs) = low; edrString(day) = last;
    edrLong(id) = hashKeys(ids, ks); edrLong(country) = n; recordWrite();
})");
    const std::string base = "run total.ks --records in.csv --header ";
    const auto counted = [&](const std::string& line) {
        const Result result = kestrel(line + " --output out --rejects rejects --stats");
        EXPECT_EQ(result.status, 0) << line << result.messages;
        const std::string counts = result.messages.substr(0, result.messages.find('\n'));
        return counts + folder_.read("out") + folder_.read("rejects");
    };
    const std::string single = counted(base + "--jobs 1");
    EXPECT_NE(single.find("12000 read, 5000 written, 6073 dropped, 927 rejected, 3 extra"),
              std::string::npos)
        << single.substr(0, 100);
    EXPECT_NE(single.find("\n5000,11073,52152666.0,2026-01-29,-50\n"), std::string::npos);
    EXPECT_TRUE(counted(base + "--jobs 3") == single);
    expect({{"check --distributable total.ks", ""}});
    for (const int parts : {1, 5}) {
        fs::remove_all(folder_.path("dir"));
        for (int part = parts; part > 0; --part) {
            EXPECT_EQ(kestrel("merge dir").status, 2);  // parts are missing
            const std::string name = std::to_string(part) + "/" + std::to_string(parts);
            EXPECT_EQ(kestrel(base + "--jobs 2 --out dir --part " + name).status, 0);
        }
        EXPECT_TRUE(counted("merge dir") == single) << parts;
    }
    write("dir/state-0000002-of-0000005.txt", "kestrel state 1\n");
    const std::string head = "run --records - -e ";
    const std::string keys = "a\nb\na\nc\nb\n";
    expect({
        {"merge dir", "", "...state-0000002-of-0000005.txt is not as its manifest says\n", 2},
        {base + "--part 1/2", "", "...need --out, and `kestrel merge'\n", 2},
        {head + "'recordUnique(edrString(f1));' --jobs 2", "a\nb\nc\n", "", 0, keys},
        {head + "'recordUnique(edrString(f1));' --dry-run 3", "1 = a\n2 = b\n3 - a\n3 dropped\n",
         "", 0, keys},
        // Neither what is dropped nor what is rejected takes the key.
        {head + "'recordUnique(edrString(f1)); if (recordNumber() < 3) recordDrop();'", "a\nc\nb\n",
         "", 0, keys},
        {head + "'recordUnique(edrString(f1));' --limit tables=0", "",
         "kestrel: recordUnique: limit `tables' of 0 bytes passed\n", 4, keys},
        {head + "'Decimal d; total(d, edrDecimal(f1)); function END { edrDecimal(f1) = d; "
                "recordWrite(); }'",
         "9000000000000000000000000001\n9000000000000000000000000001\n",
         "...more digits than a Decimal", 1, "9000000000000000000000000001\n0.1\n"},
        {head + "'Long n; total(n, edrLong(f1)); function END { edrLong(f1) = n; recordWrite(); }' "
                "--jobs 2",
         "9223372036854775807\n9223372036854775807\n", "...the sum does not fit a Long", 1,
         "9223372036854775807\n1\n"},
        {head + "'Long n; function BEGIN { totalCount(n); }'", "", "...there is no record yet", 4},
        {head + "'Long h{}; total(h{\"a\"}, 1);'", "", "...must be a variable, or a hash and", 3},
        {head + "'Long n; total(n, 1); totalMax(n, 1);'", "", "...a total of another kind", 3},
        {head + "'Long n; total(n, 1.5);'", "", "...a Long is needed, not a Decimal", 3},
        {head + "'Bool b; totalMin(b, true);'", "", "...no total is a Bool", 3},
    });
}

TEST_F(CliTest, ScriptsWriteRecordsAndFilesOfTheirOwn) {
    const std::string csv = "k,v\na,1\nb,2\na,3\n";
    const std::string head = "run --records - --header --stats -e ";
    const std::string counts = "kestrel: records: 3 read, ";
    write("last.ks",
          "String last{}; last{edrString(k)} = edrString(v); recordDrop();\n"
          "function END { String ks[]; Long n = hashKeys(last, ks); Long i;\n"
          "for (i = 0; i < n; i = i + 1) { String key = ks[i]; edrString(k) = key;\n"
          "edrString(v) = last{key}; logStdout(\"p\\n\"); recordWrite(); } }");
    const std::string split = "'outputFile(\"out-\" + edrString(k));";
    expect({
        {head + "'Long i; for (i = 1; i < edrLong(v); i = i + 1) { edrLong(n) = i; recordWrite(); }"
                "if (edrLong(v) == 2) recordDrop();'",
         "k,v,n\na,1,\nb,2,1\na,3,1\na,3,2\na,3,2\n",
         counts + "2 written, 1 dropped, 0 rejected, 3 extra\n", 0, csv},
        {"run last.ks --records - --header", "k,v\np\na,3\np\nb,2\n", "", 0, csv},
        {head + split + " if (edrLong(v) == 3) stopJob(\"x\");'", "k,v\n",
         "kestrel: -:4: ended by the script: x\n" + counts.substr(0, 18) +
             "2 read, 2 written, 0 dropped, 0 rejected\n",
         1, csv},
        {"run --records - -e 'edrLong(b) = 1; recordWrite(); function END { edrLong(z) = 2; "
         "recordWrite(); }' --format jsonl",
         "{\"b\":1}\n{\"b\":1}\n{\"z\":2}\n", "", 0, "{}\n"},
    });
    EXPECT_FALSE(fs::exists(folder_.path("out-a")));
    write(".out-a.aaaaaa", "left by a killed job");
    expect({{head + split + "' --jobs 2", "k,v\n", counts + "3 written, 0 dropped, 0 rejected\n", 0,
             csv}});
    EXPECT_EQ(folder_.read("out-a") + folder_.read("out-b"), "k,v\na,1\na,3\nk,v\nb,2\n");
    EXPECT_FALSE(fs::exists(folder_.path(".out-a.aaaaaa")));
    write("in", csv);
    const std::string file = " --records in -e 'outputFile(\"in\");'";
    expect({
        {"run" + file, "", "kestrel: outputFile: the job has another output or input in `in'\n", 4},
        {"run" + file + " --out dir", "",
         "kestrel: outputFile: a directory of parts has one output\n", 4},
        {"run --sandbox" + file, "", "...`outputFile` is not allowed (files)", 3},
        {"run --allow files=. --rejects /dev/null" + file, ""},
    });
}

// What a script does to a record is the script's until the next record.
TEST_F(CliTest, WhatRecordsTakeCountsAsMemory) {
    const std::string text = "String s = strPad(\"\", \"x\", 400000, true);";
    const struct {
        std::string script;
        const char* options;
        const char* input;
    } rows[] = {
        {text + "edrString(f2) = s;", "", "1\n2\n3\n"},
        {"edrLong(f3000) = 1; edrLong(f6000) = 1;", "", "1\n2\n3\n"},
        {text + "recordReject(s);", " --rejects rejects", "1\n2\n3\n"},
        {text + "edrString(a) = s;", " --format jsonl", "{}\n{}\n{}\n"},
        {"Long i; for (i = 0; i < 40000; i = i + 1) { edrLong(a, i) = 1000000000000; }",
         " --format jsonl", "{}\n{}\n{}\n"},
    };
    for (const auto& row : rows) {
        const std::string line = "run -e '" + row.script + "' --records -" + row.options +
                                 " --output /dev/null --on-error stop --limit memory=";
        const Result stopped = kestrel(line + "800000", row.input);
        EXPECT_EQ(stopped.status, 4) << row.script;
        EXPECT_NE(stopped.messages.find("limit `memory' of "), std::string::npos) << row.script;
        EXPECT_EQ(kestrel(line + "3500000", row.input).messages, "") << row.script;
    }
}

TEST_F(CliTest, PartsInADirectoryAreMadeOnce) {
    std::string csv = "n,text\n";
    for (int i = 0; i < 500; ++i) csv += std::to_string(i) + ",\"a\n" + std::to_string(i) + "\"\n";
    write("in.csv", csv);
    write("double.ks", "include \"drop.ks\";\nedrLong(n) = edrLong(n) * strToLong(factor);\n");
    write("drop.ks",
          "if (edrLong(n) % 7 == 0) recordDrop();\n"
          "if (edrLong(n) % 11 == 0) recordReject(\"eleven\");\n");
    write("t.csv", "k\n");
    const std::string base = "run double.ks -D factor=2 --records in.csv --header --table t=t.csv ";
    const auto run = [&](const std::string& part, const std::string& options = "") {
        return kestrel(base + options + " --out out --part " + part);
    };
    const auto joined = [&](const std::string& begin) {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder_.path("out"))) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        std::string text;
        for (const std::string& name : names) {
            if (name.starts_with(begin)) text += folder_.read("out/" + name);
        }
        return text;
    };
    const Result single = kestrel(base + "--rejects rejects");
    ASSERT_EQ(single.status, 0);
    for (const int parts : {1, 3, 40}) {
        fs::remove_all(folder_.path("out"));
        for (int part = parts; part > 0; --part) {
            const std::string name = std::to_string(part) + "/" + std::to_string(parts);
            EXPECT_EQ(run(name).status, 0);
            const Result again = run(name);
            EXPECT_EQ(again.status, 0);
            EXPECT_EQ(again.messages, "kestrel: part " + name + " is complete in out, skipped\n");
        }
        EXPECT_EQ(joined("part-"), single.output);
        EXPECT_EQ(joined("rejects-"), folder_.read("rejects"));
        EXPECT_EQ(joined("."), "");
    }
    const Result other = run("1/2");
    EXPECT_EQ(other.status, 2);
    EXPECT_NE(other.messages.find("which is not one of 2 parts\n"), std::string::npos);

    // Everything that the result depends on is checked, and a damaged result is made again.
    fs::remove_all(folder_.path("out"));
    const std::string part = "out/part-0000001-of-0000001.csv";
    const struct {
        const char* what;
        std::function<void()> change;
        const char* options = "";
    } changes[] = {
        {"nothing", [] {}},
        {"a damaged result", [&] { write(part, "damaged"); }},
        {"no result", [&] { fs::remove(folder_.path(part)); }},
        {"damaged rejects", [&] { write("out/rejects-0000001-of-0000001.txt", "x"); }},
        {"a damaged manifest", [&] { write("out/manifest-0000001-of-0000001.json", "{}"); }},
        {"the include file", [&] { write("drop.ks", "\n"); }},
        {"the script", [&] { write("double.ks", "include \"drop.ks\";\n"); }},
        {"the input", [&] { write("in.csv", csv.replace(7, 1, "5")); }},
        {"a table", [&] { write("t.csv", "k\nv\n"); }},
        {"a limit", [] {}, "--limit depth=100"},
        {"a zone", [] {}, "--zone ABC-5"},
        {"a query", [] {}, "--where 'edrLong(n) > 3'"},
    };
    for (const auto& change : changes) {
        SCOPED_TRACE(change.what);
        change.change();
        const Result result = run("1/1", change.options);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.messages, "");
        EXPECT_NE(folder_.read(part), "damaged");
        EXPECT_NE(run("1/1", change.options).messages, "");
        if (*change.options != 0) run("1/1");
    }
    const std::string bare = "run -e '' --records in.csv --out bare --part 1/1";
    EXPECT_EQ(kestrel(bare + " --header").messages + kestrel(bare).messages, "");
    // The parts in one directory use one zone; the zone of the process does not matter.
    setenv("TZ", "XYZ+11", 1);
    fs::remove_all(folder_.path("out"));
    EXPECT_EQ(run("1/2", "--zone ABC-5").status, 0);
    const Result unfit = run("2/2");
    EXPECT_EQ(unfit.status, 2);
    EXPECT_EQ(unfit.messages,
              "kestrel: out holds manifest-0000001-of-0000002.json, which was made in the time "
              "zone ABC-5, not UTC\n");
    EXPECT_EQ(run("2/2", "--zone ABC-5").status, 0);
    EXPECT_EQ(run("2/2", "--zone ABC-5ABD,0,1").status, 2);
    fs::remove_all(folder_.path("out"));
    EXPECT_EQ(run("1/1").status, 0);
    unsetenv("TZ");

    // Leftovers of a killed run are removed; the files of a living one stay.
    const std::string dead = folder_.path("out/.part-0000001-of-0000001.csv.Abcdef");
    const std::string alive = folder_.path("out/.part-0000001-of-0000001.csv.Abcdeg");
    write("out/.part-0000001-of-0000001.csv.Abcdef", "half");
    write("out/.part-0000001-of-0000001.csv.Abcdeg", "half");
    const int descriptor = open(alive.c_str(), O_RDONLY);
    ASSERT_EQ(flock(descriptor, LOCK_EX), 0);
    write(part, "damaged");
    EXPECT_EQ(run("1/1").status, 0);
    EXPECT_FALSE(fs::exists(dead));
    EXPECT_TRUE(fs::exists(alive));
    close(descriptor);
}

TEST_F(CliTest, EveryHelpGivesAnExample) {
    for (const std::string command : {"", "run", "query", "conditions", "check", "functions",
                                      "match", "merge", "encrypt", "decrypt"}) {
        const Result result = kestrel(command + " --help");
        EXPECT_EQ(result.status, 0) << command;
        EXPECT_NE(result.output.find("Example"), std::string::npos) << command;
        EXPECT_NE(result.output.find("  kestrel " + command), std::string::npos);
    }
}

TEST_F(CliTest, AFailedWriteIsNoSuccess) {
    // A pipe whose reader sleeps.
    const std::string pipe = folder_.path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const int reader = open(pipe.c_str(), O_RDWR | O_CLOEXEC);
    const std::string full = "/dev/full";
    const std::string fullMessage = "kestrel: standard output: No space left";
    const std::string file = "File f; fileOpen(f, \"/dev/full\", \"w\"); fileWriteStr(f, \"x\");";
    const std::string fileMessage = "kestrel: /dev/full: No space left";
    const std::string prints = "while (true) { logStdout(\"xxxxxxxxxxxxxxx\"); }";
    const struct {
        std::string line;
        std::string output;
        int status;
        std::string message;
    } rows[] = {
        {"run -e 'logStdout(\"x\");'", full, 74, fullMessage},
        {"run --repeat 100000 -e 'logStdout(\"xxxxxxxxxxxxxxx\\n\");'", full, 74, fullMessage},
        {"encrypt", full, 74, fullMessage},
        {"--help", full, 74, fullMessage},
        {"match -p a", full, 74, fullMessage},
        {"run -e '' --records -", full, 74, fullMessage},
        {"run -e '" + file + " fileClose(f);'", "", 74, fileMessage},
        {"run -e '" + file + "'", "", 74, fileMessage},
        {"run -e '" + file + "' --records -", "", 74, fileMessage},
        {"run --limit time=50 -e '" + prints + "'", pipe, 4, "limit `time' of 50 passed"},
        {"run --limit time=50 -e 'function END { " + prints + " }'", pipe, 4,
         "limit `time' of 50 passed"},
    };
    for (const auto& row : rows) {
        const Result result = kestrel(row.line, "a\n", row.output);
        EXPECT_EQ(result.status, row.status) << row.line;
        EXPECT_NE(result.messages.find(row.message), std::string::npos)
            << row.line << result.messages;
    }
    close(reader);
}

}  // namespace

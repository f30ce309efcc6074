// Runs the kestrel command and compares its output, messages and exit status with tables.

#include <sys/stat.h>

#include "CliRun.h"

namespace {

namespace fs = std::filesystem;
using Harness::CliTest;
using Harness::Result;

TEST_F(CliTest, ScriptsAreWatched) {
    write("two.ks",
          "include \"part.ks\";\nLong a = 1;\nif (a > twice(1)) {\n    a = 0;\n}\n"
          "switch (a) {\ncase 1: a = 5; break;\ncase 2: a = 6;\n}\n");
    write("part.ks", "function Long twice(Long n) { return n + n; }\n");
    write("drop.ks",
          "Long seen; seen = seen + 1; logStdout(longToStr(seen));\n"
          "if (edrLong(n) == 3) recordReject(\"three\");\nedrLong(n) = seen;");
    write("n.csv", "n,m\n3,a\n\"4\nx\",b\n5,c\n");
    write("wrong.ks", "Long a = b;");
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
        {"why drop.ks --records n.csv --header --record 2",
         "record 2 of n.csv\ndrop.ks:1       seen = seen + 1;\n                -> seen = 2\n"
         "drop.ks:1       logStdout(longToStr(seen));\n2"
         "drop.ks:2       if (edrLong(n) == 3)\n"
         "                -> rejected: field n: no Long: '4\\nx'\n"
         "                -> false: edrLong(n) is 0\n"
         "drop.ks:3       edrLong(n) = seen;\n                -> edrLong(n) = 2\n"
         "read: \"4\\nx\",b\nrejected: field n: no Long: '4\\nx'\n",
         "..."},
        {"why drop.ks --records n.csv --header --record 0", "",
         "kestrel: --record: 0 is no number from 1 on\nRun with --help for more.\n", 2},
        {"run wrong.ks --coverage wrong.info", "",
         "wrong.ks:1:10: error[K0101]: unknown name `b`\n 1 | Long a = b;\n   |          ^\n"
         "  help: declare it above, as in `Long b;`\n",
         3},
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

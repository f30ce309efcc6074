// Tests the cutting of text into records, the access to fields, and whole jobs, by tables.

#include "Examples.h"
#include "Folder.h"
#include "Script.h"
#include "records/RecordJob.h"
#include "records/json/JsonRecord.h"
#include "records/read/Record.h"
#include "records/read/RecordReader.h"
#include "records/script/RecordExtension.h"
#include "records/script/RecordManual.h"

namespace {

using Records::Layout;
using Records::Record;
using Records::RecordReader;
using namespace std::string_literals;

constexpr Layout csvS{',', true, false};
constexpr Layout tsvS{'\t', false, false};
constexpr Layout linesS{',', false, true};

std::string shown(const std::string& text) { return testing::PrintToString(text); }

// The records of `text`, each in "[...]", malformed ones in "!...!", with their lines before.
std::string cut(const Layout& layout, const std::string& text) {
    const Harness::Folder folder;
    std::FILE* const file = std::fopen(folder.write("in", text).c_str(), "rb");
    Records::StopSignal stop;
    RecordReader reader(fileno(file), layout, stop);
    std::string all;
    for (;;) {
        const RecordReader::State state = reader.next();
        if (state != RecordReader::State::Record && state != RecordReader::State::Malformed) break;
        const bool isGood = state == RecordReader::State::Record;
        all += std::to_string(reader.line()) + (isGood ? "[" : "!");
        all += std::string(reader.text()) + (isGood ? "]" : "!");
    }
    std::fclose(file);
    return all;
}

TEST(Records, TextIsCutIntoRecords) {
    const struct {
        Layout layout;
        std::string text, expected;
    } rows[] = {
        {csvS, "", ""},
        {csvS, "\n", "1[]"},
        {csvS, "a,b\nc", "1[a,b]2[c]"},
        {csvS, "a\r\nb\r\n", "1[a]2[b]"},
        {csvS, "\"a\nb\",c\nd\n", "1[\"a\nb\",c]3[d]"},
        {csvS, "\"a\"\"\r\n\"\"b\"\nd", "1[\"a\"\"\r\n\"\"b\"]3[d]"},
        {csvS, "x,\"1\n2\",\"3\n4\"\nd", "1[x,\"1\n2\",\"3\n4\"]4[d]"},
        {csvS, "a \"quoted\" word,b\nc", "1[a \"quoted\" word,b]2[c]"},
        {csvS, "\"a\"b,c\nd\n", "1!\"a\"b,c!2[d]"},
        {csvS, "a,\"b\nc\nd", "1!a,\"b!2[c]3[d]"},
        {csvS, "\"a\nb\"c\nd", "1!\"a!2[b\"c]3[d]"},
        {csvS, "\"a\r\r\nb", "1!\"a\r!2[b]"},
        {csvS, "\xEF\xBB\xBF\"a\n\"\nb", "1[\"a\n\"]3[b]"},
        {csvS, "\xEF\xBB", "1[\xEF\xBB]"},
        // A quote that a line leaves open for ever; lines after it that leave one open, too.
        {csvS, "x\"\",\"\nx,\",y\n\"c\n\"\nz", "1[x\"\",\"\nx,\",y]3[\"c\n\"]5[z]"},
        {csvS, "1,\"a\n2,\"b\n3,c\n", "1!1,\"a!2!2,\"b!3[3,c]"},
        {csvS, "\"a\n\"b\"\"\nc\",d\n\"e\n\"z\n", "1!\"a!2[\"b\"\"\nc\",d]4!\"e!5!\"z!"},
        {csvS, "a\0b,c\n\0"s, "1[a\0b,c]2[\0]"s},
        {tsvS, "\"a\tb\n\"\n", "1[\"a\tb]2[\"]"},
        {linesS, "a,\"b\nc", "1[a,\"b]2[c]"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(cut(row.layout, row.text), row.expected) << shown(row.text);
    // Records longer than the reader's first buffer.
    const std::string big(1'000'000, 'x');
    EXPECT_EQ(cut(csvS, big + "\n\"" + big + "\n\",y\n"), "1[" + big + "]2[\"" + big + "\n\",y]");
}

// The records of `input` that a job leaves.
struct Outcome {
    Records::RecordJob::End end;
    Records::Counts counts;
    std::string output, rejects;
    std::string log;  // and the job's error
};

Outcome run(Records::JobOptions options, const std::string& input, const std::string& script) {
    const Harness::Folder folder;
    options.input = folder.write("in", input);
    options.output = folder.path("out");
    options.rejects = folder.path("rejects");
    Records::StopSignal stop;
    Harness::MemoryLog log;
    Records::RecordJob job(options, stop);
    const Records::RecordJob::End end = job.run(
        log, [](SCR::Log& to) { return std::make_unique<SCR::Interpreter>(&to); },
        [&](SCR::Interpreter& interpreter) { return interpreter.compile(script); });
    std::string rejects = folder.read("rejects");
    for (std::size_t at; (at = rejects.find(options.input)) != std::string::npos;) {
        rejects.erase(at, options.input.size());
    }
    return {end, job.counts(), folder.read("out"), rejects, log.text + job.error()};
}

TEST(Records, JobsAccountForEveryRecord) {
    using End = Records::RecordJob::End;
    const struct {
        std::string script, input, output, rejects;
        std::vector<std::int64_t> counts;  // read, written, dropped, rejected
        std::optional<std::string> where = {};
        End end = End::Done;
    } rows[] = {
        {"edrLong(id) = edrLong(id) * 10;",
         "id\r\n1\r\n2\r\n",
         "id\r\n10\r\n20\r\n",
         "",
         {2, 2, 0, 0}},
        {"if (edrEmptyInput(dest)) recordDrop(); if (edrString(cost) == \"x\") "
         "recordReject(\"no cost\"); edrDecimal(cost) = edrDecimal(cost) * 2;",
         "id,dest,cost\n1,49,2.50\n2,\"4\"9,1\n3,33,x\n4,,7\n5,49,1.25",
         "id,dest,cost\n1,49,5.00\n5,49,2.50\n",
         ":3: text follows a closing quote\t2,\"4\"9,1\n:4: no cost\t3,33,x\n",
         {5, 2, 1, 2}},
        {"edrString(f2) = \"\";",
         "id,dest\n1,49\n2,33\n",
         "id,dest\n1,\n",
         "",
         {2, 1, 1, 0},
         "edrString(dest) == \"49\""},
        {"", "", "", "", {0, 0, 0, 0}},
        // What does not read as the script asks; empty fields do.
        {"edrLong(id) = edrLong(id) + 1; edrDecimal(cost) = edrDecimal(cost) * 2;",
         "id,cost\n 7 ,1e-1\nabc,2\n,\n5.0,\"12,5\"\n+4e1,\n5.5,1\n9e99,1\n",
         "id,cost\n8,0.2\n1,\n41,\n",
         ":3: field id: no Long: 'abc'\tabc,2\n:5: field cost: no Decimal: '12,5'\t5.0,\"12,5\"\n"
         ":7: field id: no Long: '5.5'\t5.5,1\n:8: field id: no Long: '9e99'\t9e99,1\n",
         {7, 3, 0, 4}},
        {"edrDate(t) = dateAdd(edrDate(t), 0, 0, 0, 1); edrDate(u) = edrDate(v);",
         "t,u,v\n2026-03-01T10:00:00.123Z,,\n 2026-03-01 10:30 ,,\n2026-02-30,,\n,,\n,x,\n",
         "t,u,v\n2026-03-01 11:00:00,,\n2026-03-01 11:30:00,,\n,,\n",
         ":4: field t: no Date: '2026-02-30'\t2026-02-30,,\n"
         ":6: field u: the invalid Date does not replace what it holds: 'x'\t,x,\n",
         {5, 3, 0, 2}},
        // A filter by a date that there is not.
        {"",
         "t,a\n,1\n2026-03-01,2\nx,3\n,4\n",
         "t,a\n2026-03-01,2\n,4\n",
         ":4: field t: no Date: 'x'\tx,3\n",
         {4, 2, 1, 1},
         "edrDate(t) > MIN_DATE or edrLong(a) == 4"},
        {"", "t\n\n", "t\n\n", "", {1, 1, 0, 0}, "dateIsValid(edrDate(t)) == false"},
        {"", "t\nx\n", "t\n", "", {1, 0, 1, 0}, "strToDate(edrString(t)) > MIN_DATE"},
        {"Date none; if (strToDate(edrString(u)) < none) recordDrop();"
         "if (edrDate(t) < strToDate(\"2026-02-01\")) recordDrop(); recordWrite();",
         "t,u\n,2026-01-01\n2026-01-05,\n2026-03-01,\n",
         "t,u\n",
         ":2: field t: no date to compare; ask dateIsValid first\t,2026-01-01\n"
         ":3: no date to compare; ask dateIsValid first\t2026-01-05,\n"
         ":4: no date to compare; ask dateIsValid first\t2026-03-01,\n",
         {3, 0, 0, 3}},
        {"Date none; Date t = edrDate(t); if (dateIsValid(t) and t < none) recordWrite();",
         "t\n\n2026-01-05\n",
         "t\n\n2026-01-05\n2026-01-05\n",
         "",
         {2, 2, 0, 0}},
        // Errors that functions log; the first counts.
        {"String s = strPad(\"a\", \"b\", edrLong(a), true);",
         "a\n1\n-1\n",
         "a\n1\n",
         ":3: strPad: length is negative '-1'\t-1\n",
         {2, 1, 0, 1}},
        // Without a record there is no header: names are not known, and need not be.
        {"edrString(id) = \"\";", "", "", "", {0, 0, 0, 0}, "edrLong(id) > 1"},
        {"edrString(a_b) = \"x\";", "a-b,a_b\n1,2\n", "a-b,a_b\n1,x\n", "", {1, 1, 0, 0}},
        {"edrDate(cost) = edrDate(dest); edrDecimal(cost) = edrDecimal(dest);",
         "\xEF\xBB\xBFid,dest,cost\n1,,\n",
         "id,dest,cost\n1,,\n",
         "",
         {1, 1, 0, 0}},
        {"", "id\n1\n", "", "", {0, 0, 0, 0}, "", End::NotCompiled},
        {"edrString(nosuch) = \"\";", "id\n1\n", "", "", {0, 0, 0, 0}, {}, End::NotCompiled},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.script + " on " + row.input);
        Records::JobOptions options;
        options.where = row.where;
        options.hasHeader = true;
        const Outcome outcome = run(options, row.input, row.script);
        EXPECT_EQ(outcome.end, row.end) << outcome.log;
        EXPECT_EQ(outcome.output, row.output) << outcome.log;
        EXPECT_EQ(outcome.rejects, row.rejects);
        const Records::Counts& counts = outcome.counts;
        EXPECT_EQ(row.counts, (std::vector<std::int64_t>{counts.read, counts.written,
                                                         counts.dropped, counts.rejected}));
    }
}

// What a script leaves of a record, and its messages.
struct Changed {
    std::string text, log;
};

Changed changeJson(const std::string& text, const std::string& script) {
    Records::JobOptions options;
    options.format = options.outputFormat = Records::Format::Jsonl;
    options.layout.isWhole = true;
    options.onError = Records::OnError::Keep;
    Outcome outcome = run(options, text + "\n", script);
    EXPECT_EQ(outcome.end, Records::RecordJob::End::Done) << outcome.log;
    if (!outcome.output.empty()) outcome.output.pop_back();
    return {outcome.output, outcome.log};
}

TEST(Records, JsonIsReadAndChangedInPlace) {
    const std::string text =
        R"({ "a": 1.50, "b":{"c":[10, {"d":"x\u00e9\n"}],"e":null}, "user-id":"u", "t":true,"f":[]})";
    const struct {
        std::string script;
        std::string from, to;  // the change of the text; empty: none
        std::string log;       // a part of the messages
    } rows[] = {
        {"edrDecimal(a) = edrDecimal(a) * 2;", "1.50", "3.00", ""},
        {"edrLong(b.c, 0) = edrLong(b.c, 0) + edrLong(t);", "10", "11", ""},
        {"edrString(a) = edrString(b.c.d, 1);", "1.50", "\"x\xC3\xA9\\n\"", ""},
        {"edrString(user_id) = \"q\\\"\";", "\"u\"", R"("q\"")", ""},
        {"edrString(b.e.g) = \"v\";", "null", R"({"g":"v"})", ""},
        {"edrLong(b.n.m) = 7;", "null}", R"(null,"n":{"m":7}})", ""},
        {"edrLong(new) = 7; edrLong(new) = edrLong(new) + 1;", "[]}", R"([],"new":8})", ""},
        {"edrLong(b.c, 2) = 3; edrLong(f, 0) = edrArrayIndex(b.c);", "",
         R"({ "a": 1.50, "b":{"c":[10, {"d":"x\u00e9\n"},3],"e":null}, "user-id":"u", "t":true,"f":[3]})",
         ""},
        {"edrDeleteField(a); edrDeleteField(a);", "\"a\": 1.50, ", "", ""},
        {"edrDeleteField(f); edrDeleteField(t); edrDeleteField(nosuch.x);", ", \"t\":true,\"f\":[]",
         "", ""},
        {"edrDeleteField(b.c, -2); edrLong(t) = 5;", "",
         R"({ "a": 1.50, "b":{"c":[{"d":"x\u00e9\n"}],"e":null}, "user-id":"u", "t":5,"f":[]})",
         ""},
        {"if (edrMissingInput(z) and edrEmptyInput(b.e) and edrMissingInput(b.e) == false and "
         "edrEmptyInput(z) == false) edrLong(a) = 1;",
         "1.50", "1", ""},
        {"edrLong(b.c, 9) = 1;", "", text, "beyond the end"},
        {"edrLong(a.x) = 1;", "", text, "no object"},
        {"edrString(a) = \"\xFF\";", "", text, "no UTF-8"},
        {"edrLong(user_id);", "", text, "no Long: 'u'"},
        {"edrString(a) = edrString(a.x.y);", "1.50", "\"\"", "leads through what is no object"},
        {"if (edrString(b.e.g) == \"\") edrDecimal(b.e) = edrDecimal(z);", "", text, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.script);
        std::string expected = text;
        if (row.from.empty()) {
            expected = row.to;
        } else {
            expected.replace(expected.find(row.from), row.from.size(), row.to);
        }
        const Changed changed = changeJson(text, row.script);
        EXPECT_EQ(changed.text, expected) << changed.log;
        EXPECT_NE(changed.log.find(row.log), std::string::npos) << changed.log;
        EXPECT_EQ(changed.log.empty(), row.log.empty()) << changed.log;
    }
}

TEST(Records, TheLastJsonMemberOfANameCounts) {
    const struct {
        std::string text, script, expected;
    } rows[] = {
        {R"({"a":1,"b":0,"a":2})", "edrLong(b) = edrLong(a);", R"({"a":1,"b":2,"a":2})"},
        {R"({"a":1,"b":0,"a":2})", "edrLong(a) = 33; edrLong(b) = edrLong(a);",
         R"({"a":1,"b":33,"a":33})"},
        {R"({"a":1,"\u0061":2,"b":0,"a":3})", "edrDeleteField(a); edrLong(a) = 4;",
         R"({"b":0,"a":4})"},
        {R"({"b":0,"a":2, "a":3,"c":4})", "edrDeleteField(a);", R"({"b":0,"c":4})"},
        {R"({"a":2,"a":3})", "edrDeleteField(a); if (edrMissingInput(a)) edrLong(b) = 1;",
         R"({"b":1})"},
        {R"({"o":{"a":1,"b":7,"a":2}})", "edrLong(o.a) = edrLong(o.a) + 1;",
         R"({"o":{"a":1,"b":7,"a":3}})"},
        {R"({"o":{"a":1,"b":7,"a":2},"z":5})", "edrDeleteField(o.a); edrLong(z) = 6;",
         R"({"o":{"b":7},"z":6})"},
        // The very name comes before one that "_" stands for.
        {R"({"a_b":1,"a-b":2})", "edrLong(a_b) = 3;", R"({"a_b":3,"a-b":2})"},
        {R"({"a b":1,"a-b":2})", "edrLong(a_b) = 3;", R"({"a b":1,"a-b":3})"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text + " " + row.script);
        const std::string before = "{\"x\":0,\"b\":0,\"a\":5}\n";
        const std::string all = changeJson(row.text, row.script).text;
        EXPECT_EQ(all, row.expected);
        // The same after records of another shape.
        const std::string both = changeJson(before + row.text, row.script).text;
        EXPECT_EQ(both.substr(both.rfind('\n') + 1), row.expected);
    }
}

TEST(Records, JsonNumbersAreReadHoweverTheyAreWritten) {
    const struct {
        std::string number, type, expected, log;
    } rows[] = {
        {"5.0", "Long", "5", ""},
        {"1e3", "Long", "1000", ""},
        {"-120.50E+1", "Long", "-1205", ""},
        {"-0.0e99999999999", "Long", "0", ""},
        {"922337203685477580.70e1", "Long", "9223372036854775807", ""},
        {"9223372036854775808.0", "Long", "0", "record 1: field a: no Long"},
        {"1e400", "Long", "0", "field a: no Long: '1e400'"},
        {"5.5", "Long", "0", "field a: no Long: '5.5'"},
        {"\" +5.0 \"", "Long", "5", ""},
        {"12.5e-1", "Decimal", "1.25", ""},
        {"1e-400", "Decimal", "0", ""},
        {std::string(60, '9'), "Decimal", "7", "no Decimal: '999"},
        {"\"x\"", "Decimal", "7", "no Decimal: 'x'"},
        {"{\"c\":1}", "Long", "0", "no Long: '{"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.number + " " + row.type);
        const Changed changed = changeJson("{\"a\":" + row.number + ",\"b\":7}",
                                           "edr" + row.type + "(b) = edr" + row.type + "(a);");
        EXPECT_EQ(changed.text, "{\"a\":" + row.number + ",\"b\":" + row.expected + "}");
        EXPECT_NE(changed.log.find(row.log), std::string::npos) << changed.log;
        EXPECT_EQ(changed.log.empty(), row.log.empty()) << changed.log;
    }
}

// Walking over an array, changing it on the way and appending to another one take time in
// proportion to its length; otherwise this would take minutes.
TEST(Records, LongJsonArraysAreWalkedOverOnce) {
    constexpr int count = 100'000;
    std::string text = "{\"sum\":0,\"items\":[";
    std::string expected = "{\"sum\":4999950000,\"items\":[";
    std::string doubled = "],\"out\":[";
    for (int i = 0; i < count; ++i) {
        const std::string comma = i == 0 ? "" : ", ";
        text += comma + "{\"p\":" + std::to_string(i) + "}";
        expected += comma + "{\"p\":" + std::to_string(i * 37L) + "}";
        doubled += (i == 0 ? "" : ",") + std::to_string(2 * i);
    }
    const Changed changed =
        changeJson(text + "],\"out\":[]}",
                   "Long i; Long sum = 0; for (i = 0; i < edrArrayIndex(items); i = i + 1) {"
                   "sum = sum + edrLong(items.p, i); edrLong(out, i) = 2 * edrLong(items.p, i); }"
                   "for (i = 0; i < edrArrayIndex(items); i = i + 1) {"
                   "edrLong(items.p, i) = 37 * edrLong(items.p, i); } edrLong(sum) = sum;");
    EXPECT_TRUE(changed.text == expected + doubled + "]}") << changed.text.substr(0, 200);
    EXPECT_EQ(changed.log, "");
}

// Whatever the number of workers and parts, each record comes out once and in order.
TEST(Records, WorkersAndPartsGiveTheSameResult) {
    std::string text = "id,name\n";
    std::string expected = text;
    Records::Counts counts;
    for (int i = 1; i <= 30'000; ++i) {
        const std::string record = std::to_string(i) + ",\"a\n\"\"b\"\n";
        const bool isBad = i % 1000 == 0;
        if (isBad) text += "\"x\"y\n";
        text += record;
        if (i % 7 != 0) expected += record;
    }
    const auto runJob = [&](int jobs, std::int64_t part, std::int64_t parts) {
        Records::JobOptions options;
        options.hasHeader = true;
        options.jobs = jobs;
        options.part = part;
        options.parts = parts;
        const Outcome outcome = run(options, text, "if (edrLong(id) % 7 == 0) recordDrop();");
        EXPECT_EQ(outcome.end, Records::RecordJob::End::Done) << outcome.log;
        counts.read += outcome.counts.read;
        counts.rejected += outcome.counts.rejected;
        return outcome.output;
    };
    for (const int jobs : {1, 2, 5}) {
        for (const std::int64_t parts : {1, 2, 7, 64}) {
            counts = {};
            std::string all;
            for (std::int64_t part = 1; part <= parts; ++part) all += runJob(jobs, part, parts);
            EXPECT_TRUE(all == expected) << jobs << " workers, " << parts << " parts";
            EXPECT_EQ(counts.read, 30'030);
            EXPECT_EQ(counts.rejected, 30);
        }
    }
}

TEST(Records, EachFunctionHasAManualWhoseExampleHolds) {
    const Harness::ExampleFolder folder;
    SCR::Log log;
    Records::AnyRecord record;
    SCR::Interpreter interpreter(&log);
    record.addTo(interpreter);
    std::set<std::string> undescribed;
    for (const char* const extension : {"record", "table", "totals"}) {
        interpreter.extension(extension)->visitNames(
            [&](const auto& name) { undescribed.insert(name); });
    }
    const Harness::Folder tables;
    Records::JobOptions options;
    options.tables = {
        {"rates", tables.write("rates.csv", "prefix,price:Decimal\n49,0.25\n49,1\n"), {}, {}}};
    options.format = options.outputFormat = Records::Format::Jsonl;
    options.layout.isWhole = true;
    for (const SCR::ModuleFunction& row : Records::recordManual().functions) {
        const std::string name(row.signature.substr(0, row.signature.find('(')));
        EXPECT_EQ(undescribed.erase(name.substr(name.find(' ') + 1)), 1) << name;
        std::string script = Harness::scriptOf(row.example);
        script.replace(script.find("logStdout"), 9, "recordReject");
        const Outcome outcome =
            run(options,
                R"({"name":"Bert","seconds":61,"cost":0.1,"empty":"","begin":)"
                R"("2024-03-01 20:03:04","items":[{"price":1.5},{"price":2.5}]})",
                script);
        EXPECT_NE(outcome.rejects.find(": holds"), std::string::npos) << script << outcome.log;
    }
    EXPECT_EQ(undescribed, std::set<std::string>());
}

}  // namespace

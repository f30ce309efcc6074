// Date functions where the local zone is not UTC.

#include "Script.h"
#include "fnd/DateTime.h"

namespace {

class LocalZone {
public:
    explicit LocalZone(const char* zone) { set(zone); }
    LocalZone(const LocalZone&) = delete;
    LocalZone& operator=(const LocalZone&) = delete;
    ~LocalZone() { set("UTC0"); }

private:
    static void set(const char* zone) {
        setenv("TZ", zone, 1);
        FND::DateTime::rereadLocalZone();
    }
};

// The output of a script; `zone` is that of its interpreter, or empty.
std::string outputOf(const std::string& expression, const std::string& zone = "") {
    Harness::ScriptSetup setup;
    setup.prepare = [&](SCR::Interpreter& interpreter) { EXPECT_TRUE(interpreter.timeZone(zone)); };
    const Harness::ScriptRun result = Harness::run("logStdout(" + expression + ");", setup);
    EXPECT_EQ(result.log, "") << expression;
    return result.output;
}

TEST(DateFunctions, LocalTimeIsUsedWhereItIsAskedFor) {
    // One hour ahead of UTC; two hours from 31 March to 27 October 2024.
    constexpr const char* rule = "CET-1CEST,M3.5.0,M10.5.0/3";
    const struct {
        const char *expression, *output;
    } rows[] = {
        {R"(dateToStr(strToDate("2024-07-01 22:30:00"), "%d %H %Z"))", "01 22 UTC"},
        {R"(dateToStr(strToDate("2024-07-01 22:30:00"), "%d %H %L"))", "02 00 CEST"},
        {R"(dateToStr(strToDate("2024-07-01 22:30:00"), "%L %L %%L"))", "CEST %L %L"},
        {R"(dateToStr(strToDate("2024-07-01 22:30:00"), "%%L %H"))", "%Z 00"},
        {R"(dateToStr(strToDate("2024-07-02 00:30 CEST", "%Y-%m-%d %H:%M %L")))",
         "2024-07-01 22:30:00"},
        {R"(dateToStr(strToDate("2024-10-27 02:30 CET", "%Y-%m-%d %H:%M %L")))",
         "2024-10-27 01:30:00"},
        // Local clock 01:30 plus an hour: 02:30 is skipped and becomes 03:30.
        {R"(dateToStr(dateAdd(strToDate("2024-03-31 00:30:00"), 0, 0, 0, 1)))",
         "2024-03-31 01:30:00"},
        // 13:00 the next day, which is an hour sooner.
        {R"(dateToStr(dateAdd(strToDate("2024-03-30 12:00:00"), 0, 0, 0, 24)))",
         "2024-03-31 11:00:00"},
        {R"(dateToStr(dateAdd(strToDate("2024-03-30 12:00:00"), 0, 0, 1)))", "2024-03-31 12:00:00"},
        // The first 02:30 plus an hour.
        {R"(dateToStr(dateAdd(strToDate("2024-10-27 00:30:00"), 0, 0, 0, 1)))",
         "2024-10-27 02:30:00"},
        // The second 02:30 stays what it is.
        {R"(dateToStr(dateAdd(strToDate("2024-10-27 01:30:00"), 0, 0, 0, 0)))",
         "2024-10-27 01:30:00"},
        {R"(longToStr(dateDiff(strToDate("2024-03-31 12:00:00"), strToDate("2024-03-30 12:00:00"))))",
         "90000"},
    };
    {
        const LocalZone zone(rule);
        for (const auto& row : rows) {
            EXPECT_EQ(outputOf(row.expression), row.output) << row.expression;
        }
    }
    const LocalZone zone("XYZ+11");
    for (const auto& row : rows) {
        EXPECT_EQ(outputOf(row.expression, rule), row.output) << row.expression;
    }
}

TEST(DateFunctions, EachInterpreterHasItsZone) {
    const LocalZone zone("XYZ+11");
    Harness::MemoryLog log;
    SCR::Interpreter first(&log);
    SCR::Interpreter second(&log);
    const std::string script = R"(logStdout(dateToStr(strToDate("2024-07-01"), "%H %L;"));)";
    ASSERT_TRUE(first.compile(script) && second.compile(script));
    const Harness::StdoutCapture capture;
    ASSERT_TRUE(first.timeZone("ABC-5") && second.timeZone("UTC"));
    EXPECT_TRUE(first.execute() && second.execute());
    EXPECT_FALSE(first.timeZone("Atlantis/City"));
    EXPECT_EQ(log.text, "ERROR: unknown time zone `Atlantis/City'\n");
    EXPECT_TRUE(first.execute() && second.timeZone("") && second.execute());
    EXPECT_EQ(capture.text(), "05 ABC;00 UTC;05 ABC;13 XYZ;");
}

TEST(DateFunctions, TheCurrentDateIsThatOfUtcInEveryZone) {
    const LocalZone zone("XYZ+11");
    const std::string away =
        "strToLong(dateToStr(sysdate(), \"%s\")) - currentTimeInMillis() / 1000";
    EXPECT_LE(std::abs(std::stol(outputOf("longToStr(" + away + ")"))), 10);
}

}  // namespace

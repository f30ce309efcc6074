// The questions that the page of the playground asks, and the same server within a program.

#include "Folder.h"
#include "Test.h"
#include "playground/Session.h"

namespace {

using Playground::Json;

class PlaygroundTest : public testing::Test {
protected:
    Json ask(const Json& question) { return Json::parse(session_.answer(question.dump())); }
    Json run(const std::string& script, const std::string& records, const std::string& format) {
        folder_.write("in", records);
        return ask({{"ask", "run"},
                    {"script", script},
                    {"records",
                     {{"format", format},
                      {"header", true},
                      {"input", folder_.path("in")},
                      {"output", folder_.path("out")},
                      {"rejects", folder_.path("rejects")}}}});
    }

    Harness::Folder folder_;
    Playground::Session session_;
};

TEST_F(PlaygroundTest, runs) {
    Json answer = run("edrLong(n) = edrLong(n) + 1; if (edrLong(n) > 5) recordReject(\"large\");",
                      "n\n1\n5\n", "csv");
    EXPECT_EQ(answer["end"], "done") << answer;
    EXPECT_EQ(answer["counts"]["rejected"], 1) << answer;
    EXPECT_EQ(folder_.read("out"), "n\n2\n");
    EXPECT_NE(folder_.read("rejects").find("large"), std::string::npos);
    EXPECT_EQ(run("Long n = ;", "{}\n", "jsonl")["messages"][0]["line"], 1);
    // Nothing outside is in reach, and all ends.
    EXPECT_EQ(run("system(\"true\");", "{}\n", "jsonl")["end"], "not compiled");
    for (const char* const script :
         {"while (true) {}", "String s = \"x\"; while (true) s = s + s;",
          "Long a[]; Long i = 0; while (true) { a[i] = 1; i = i + 1; }",
          "function Long f(Long n) { return f(n) + 1; } Long n = f(1);"}) {
        const Json stopped = ask(
            {{"ask", "run"}, {"script", script}, {"limits", {{"time", 100}, {"unknown", "x"}}}});
        EXPECT_EQ(stopped["end"], "stopped") << script << stopped;
        EXPECT_GE(stopped["messages"].size(), 1u) << script;
    }
}

TEST_F(PlaygroundTest, checksWhatIsTyped) {
    const auto author = [&](const Json& message) {
        return ask({{"ask", "author"}, {"message", message}})["messages"];
    };
    author({{"id", 1}, {"method", "initialize"}, {"params", Json::object()}});
    folder_.write("in", "n,m\n1,2\n");
    const Json document = {
        {"uri", "file:///a.ks"}, {"version", 1}, {"text", "logStdout(edrString(o));"}};
    const auto problems = [&] {
        const Json sent =
            author({{"method", "textDocument/didOpen"}, {"params", {{"textDocument", document}}}});
        return sent.at(0)["params"]["diagnostics"].size();
    };
    EXPECT_EQ(problems(), 0u);
    ask({{"ask", "records"},
         {"records", {{"format", "csv"}, {"header", true}, {"input", folder_.path("in")}}}});
    EXPECT_EQ(problems(), 1u) << "the field `o` is not in the records";
}

TEST_F(PlaygroundTest, inspectsPatterns) {
    const Json cases = ask({{"ask", "cases"}, {"script", R"(
switch (n) { case 1: a(); }
regExprSwitch (t) {
    case "a" "b", "[c]\"": regExprSwitch (u) { case "inner": b(); }
    case NAME: case "last": c();
})"}});
    EXPECT_EQ(cases["switches"], Json::parse(R"([
        {"line": 3, "patterns": ["ab", "[c]\"", "last"]}, {"line": 4, "patterns": ["inner"]}])"));
    const auto inspect = [&](const Json& patterns, const Json& texts) {
        return ask({{"ask", "patterns"}, {"patterns", patterns}, {"texts", texts}});
    };
    const Json found = inspect({"a.*", "ab", "a&b"}, {"ab", "b", ""});
    EXPECT_EQ(found["matches"], Json::parse("[[0, 1], [], []]")) << found;
    EXPECT_EQ(found["analysis"]["shadowed"][0]["by"], Json::array({0})) << found;
    EXPECT_EQ(inspect({"x", "\xC3\xA4(b"}, Json::array())["faults"][0]["column"], 3);
    EXPECT_TRUE(inspect({"(.*a.{16}b.*)&(.*c.{16}d.*)&(.*e.{16}f.*)"}, {"x"}).is_object());
}

TEST_F(PlaygroundTest, refusesWhatIsNoQuestion) {
    for (const char* const question : {"", "{", "[]", "{}", R"({"ask": 1})", R"({"ask": "run"})",
                                       R"({"ask": "author", "message": 1})"}) {
        EXPECT_TRUE(Json::accept(session_.answer(question))) << question;
    }
}

}  // namespace

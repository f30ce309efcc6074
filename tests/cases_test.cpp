// Runs the cases of the language in cases/*.cases, and those of modules in their folders: scripts
// and what they must print.
//
//     === the title of a case, unique in its file
//     logStdout("a script, on as many lines as it takes\n");
//     ---
//     a script, on as many lines as it takes
//     --- log
//     the messages it logs, a line each
//
// A "===" line starts a case and its script, a "---" line the expected output, "--- log" the
// expected messages. Both may be left out, which expects nothing. "--- error" instead of "--- log"
// gives the messages of a script that does not compile. "--- stopped" gives those of a script that
// compiles and is stopped while it runs. Text before the first case is a comment.
//
// A line "--- errors" right after the title makes it a table of scripts that do not compile, each
// followed by its messages, the first of which may stand in the script's last line:
//
//     Long a = ; ! ERROR: line 1: parse error
//     Long b;
//     b = ;
//     ! ERROR: line 2: parse error
//
// A blank line before the next case belongs to neither. A last line end may be missing in the
// output. Control bytes and those above 127 may be written as \xHH in the expected texts. @TMP@
// stands, everywhere, for the case's own empty folder. The local zone is UTC. Each script runs in
// all tiers of code, from its first run on, and observed.

#include "Folder.h"
#include "Script.h"
#include "scr/Observation.h"
#include "scr/code/Hot.h"

namespace {

namespace fs = std::filesystem;

struct Case {
    std::string file;
    int line = 0;  // of the title, or of a table's script
    std::string title, script, output, log;
    bool compiles = true;
    bool stopped = false;
    std::string fault;  // of the case's own text; such a case fails
};

void replaceAll(std::string& text, const std::string& from, const std::string& to) {
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
        text.replace(at, from.size(), to);
    }
}

std::string printable(const std::string& text) {
    std::string shown;
    for (const char byte : text) {
        const auto code = static_cast<unsigned char>(byte);
        char escape[8] = {byte};
        if ((code < 32 && byte != '\n' && byte != '\t') || code >= 127) {
            std::snprintf(escape, sizeof escape, "\\x%02X", static_cast<unsigned>(code));
        }
        shown += escape;
    }
    return shown.empty() || shown.ends_with('\n') ? shown : shown + '\n';
}

std::vector<Case> readCases(const fs::path& path) {
    std::vector<Case> cases;
    std::set<std::string> titles;
    std::string* section = nullptr;
    bool isTable = false;
    std::ifstream stream(path, std::ios::binary);
    std::string line;
    for (int number = 1; std::getline(stream, line); ++number) {
        if (line.starts_with("===")) {
            if (section != nullptr && (*section == "\n" || section->ends_with("\n\n"))) {
                section->pop_back();
            }
            Case& next = cases.emplace_back();
            next.file = path.string();
            next.line = number;
            next.title = line.size() > 4 ? line.substr(4) : "";
            if (next.title.empty()) next.fault = "the case has no title";
            if (!titles.insert(next.title).second) next.fault = "the title is taken";
            section = &next.script;
            isTable = false;
        } else if (cases.empty()) {
            continue;
        } else if (line == "--- errors" && cases.back().script.empty()) {
            cases.back().compiles = false;
            isTable = true;
        } else if (isTable && line.starts_with("! ")) {
            (section = &cases.back().log)->append(line, 2).append("\n");
        } else if (isTable && !line.empty()) {
            if (section == &cases.back().log) {
                Case next = cases.back();
                next.line = number;
                next.script.clear();
                next.log.clear();
                section = &cases.emplace_back(std::move(next)).script;
            }
            const std::size_t mark = line.find(" ! ERROR: ");
            *section += line.substr(0, mark) + '\n';
            if (mark == std::string::npos) continue;
            section = &cases.back().log;
            *section += line.substr(mark + 3) + '\n';
        } else if (line == "---") {
            section = &cases.back().output;
        } else if (line == "--- log" || line == "--- error" || line == "--- stopped") {
            cases.back().compiles = line != "--- error";
            cases.back().stopped = line == "--- stopped";
            section = &cases.back().log;
        } else if (line.starts_with("---")) {
            cases.back().fault = "line " + std::to_string(number) + ": unknown '" + line + "'";
        } else {
            *section += line + '\n';
        }
    }
    return cases;
}

class CaseTest : public testing::Test {
public:
    explicit CaseTest(Case testCase) : case_(std::move(testCase)) {}

    void TestBody() override {
        EXPECT_EQ(case_.fault, "");
        using SCR::Observation;
        constexpr unsigned counted = Observation::countsCM | Observation::positionsCM;
        runIn(SCR::CodeTier::Tree, Observation::eventsCM, case_);
        runIn(SCR::CodeTier::Tree, 0, case_);
        runIn(SCR::CodeTier::Portable, 0, case_);
        runIn(SCR::CodeTier::Native, 0, case_);
        runIn(SCR::CodeTier::Native, counted, case_);
    }

private:
    static void runIn(SCR::CodeTier tier, unsigned aspects, Case from) {
        // The frames of observed calls are too large then.
        const bool isDeep = from.log.find("limit `depth'") != std::string::npos;
        if (KESTREL_SANITIZED && aspects != 0 && isDeep) return;
        SCR::Observation observation(aspects);
        observation.listen(true);
        const Harness::Folder folder;
        for (std::string* text : {&from.script, &from.output, &from.log}) {
            replaceAll(*text, "@TMP@", folder.path());
        }
        Harness::ScriptSetup setup;
        setup.prepare = [&](SCR::Interpreter& interpreter) {
            interpreter.codeTier(tier);
            if (aspects != 0) interpreter.observe(&observation);
        };
        const Harness::ScriptRun run = Harness::run(from.script, setup);
        const testing::ScopedTrace where(from.file.c_str(), from.line,
                                         "tier " + std::to_string(static_cast<int>(tier)) +
                                             ", observed " + std::to_string(aspects) + '\n' +
                                             from.script);
        EXPECT_EQ(run.compiled, from.compiles);
        EXPECT_EQ(run.ok, from.compiles && !from.stopped);
        EXPECT_EQ(printable(run.output), printable(from.output));
        EXPECT_EQ(printable(run.log), printable(from.log));
    }

    Case case_;
};

void registerCases(const fs::path& path) {
    for (const Case& testCase : readCases(path)) {
        std::string name = testCase.title;
        for (char& byte : name) {
            if (std::isalnum(static_cast<unsigned char>(byte)) == 0) byte = '_';
        }
        // Titles that differ only in their signs would give the same name.
        name += "_" + std::to_string(testCase.line);
        testing::RegisterTest(path.stem().string().c_str(), name.c_str(), nullptr, nullptr,
                              path.string().c_str(), testCase.line,
                              [testCase]() -> testing::Test* { return new CaseTest(testCase); });
    }
}

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    setenv("TZ", "UTC0", 1);
    SCR::Code::Hot::makeAfter(1);
    std::vector<fs::path> files;
    for (const auto& entry : fs::recursive_directory_iterator(KESTREL_CASES)) {
        if (entry.path().extension() == ".cases") files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    for (const fs::path& file : files) registerCases(file);
    return RUN_ALL_TESTS();
}

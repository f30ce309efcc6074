// Walks the tables of the modules: examples, signatures, limits and stops of every function.

#include <random>

#include "Allocations.h"
#include "Examples.h"
#include "Script.h"
#include "scr/Module.h"
#include "scr/run/RunControl.h"

namespace {

using SCR::ModuleFunction;
using SCR::ModuleTable;

/// Calls `act` with each function; a failure names it.
template <class Act>
void forEachFunction(const Act& act) {
    const auto tables = SCR::shippedModules();
    EXPECT_GT(tables.size(), 0U);
    for (const ModuleTable* table : tables) {
        const std::unique_ptr<SCR::Extension> module(SCR::makeModule(*table));
        for (const ModuleFunction& row : table->functions) {
            SCOPED_TRACE(std::string(row.signature));
            const std::string_view text = row.signature;
            const std::size_t space = text.find(' ');
            const std::string name(text.substr(space + 1, text.find('(') - space - 1));
            auto* const function = dynamic_cast<SCR::FctDescr*>(module->variable(name));
            ASSERT_NE(function, nullptr);
            act(*table, row, *function);
        }
    }
}

std::string useOf(const ModuleTable& table) { return "use " + std::string(table.name) + "; "; }

/// The signature as the descriptor shows it: without names and marks.
std::string plain(std::string_view signature, const std::string& element) {
    std::string made;
    std::string word;
    int words = 0;
    bool isInside = false;
    for (const char byte : signature) {
        const bool isEnd = byte == ' ' || byte == ',' || byte == ')' || byte == ']' || byte == '(';
        if (byte == '[' && word.empty() && isInside) made += '[';
        if (!isEnd && !(byte == '[' && word.empty())) word += byte;
        if (byte == ']' && word.ends_with('[')) {
            word += ']';
            continue;
        }
        if (!isEnd) continue;
        if (word == "T") word = element;
        if (word.ends_with("[]")) word = "Array";
        if (word.ends_with("{}")) word = "Hash";
        const bool isMark = word == "out" || word == "change";
        if (!word.empty() && !isMark && (!isInside || words++ == 0)) made += word;
        word.clear();
        if (byte == ' ' && isInside) continue;
        if (byte == ',') words = 0;
        isInside = isInside || byte == '(';
        made += byte;
    }
    return made;
}

TEST(Modules, EveryFunctionIsAsItsRowSays) {
    const Harness::ExampleFolder folder;
    forEachFunction(
        [](const ModuleTable& table, const ModuleFunction& row, const SCR::FctDescr& function) {
            int element = 0;
            for (int k = 8; k >= 0; --k) element = std::max(element, function.elementType(k));
            if (function.elementType(0) != 0) element = function.elementType(0);
            const std::string expected = plain(row.signature, SCR::Node::datatypeAsString(element));
            EXPECT_EQ(function.signature(), expected);
            EXPECT_TRUE(row.manual.ends_with('.')) << row.manual;
            const std::string script = useOf(table) + Harness::scriptOf(row.example);
            const Harness::ScriptRun result = Harness::run(script);
            EXPECT_TRUE(result.ok) << script;
            EXPECT_TRUE(result.output.ends_with("holds")) << script << "\n" << result.output;
            EXPECT_EQ(result.log, "") << script;
        });
}

TEST(Modules, ASandboxRefusesEffectsAndNothingElse) {
    const Harness::ExampleFolder folder;
    const Harness::ScriptSetup sandbox{1, [](SCR::Interpreter& interpreter) {
                                           interpreter.capabilities(SCR::Capabilities::none());
                                       }};
    const SCR::Capabilities none = SCR::Capabilities::none();
    forEachFunction([&](const ModuleTable& table, const ModuleFunction& row,
                        const SCR::FctDescr& /*function*/) {
        const bool isRefused = none.lacking(row.effects) != nullptr;
        const auto run = Harness::run(useOf(table) + Harness::scriptOf(row.example), sandbox);
        EXPECT_EQ(run.compiled, !isRefused) << run.log;
        EXPECT_EQ(run.log.find("is not allowed") != std::string::npos, isRefused) << run.log;
    });
}

TEST(Modules, ContainersOfOtherElementsAreNamed) {
    const struct {
        const char* text;
        const char* message;
    } rows[] = {
        {"use list; Bool a[]; list::sort(a);",
         "argument 1 of `sort` is an array of Bool, where one of Long, Decimal, String or Date is "
         "needed"},
        {"use list; Long a[]; String b[]; list::unite(a, b);",
         "argument 2 of `unite` is an array of String, where one of Long is needed"},
        {"use net; Long h{}; net::keyValues(\"\", h);",
         "argument 2 of `keyValues` is a hash of Long, where one of String is needed"},
        {"use text; String h{}; text::join(h, \"\");",
         "argument 1 of `join` is a hash, where an array is needed"},
    };
    for (const auto& row : rows) {
        SCR::Log log;
        SCR::Interpreter interpreter(&log);
        interpreter.check(row.text);
        ASSERT_EQ(interpreter.diagnostics().size(), 1U) << row.text;
        EXPECT_EQ(interpreter.diagnostics()[0].explanation, row.message) << row.text;
    }
}

TEST(Modules, AFolderThatIsGrantedIsSeen) {
    const Harness::ExampleFolder folder;
    ASSERT_EQ(Harness::run("use sys; sys::makeFolder(\"f\");").log, "");
    const Harness::ScriptSetup granted{1, [](SCR::Interpreter& interpreter) {
                                           SCR::Capabilities some = SCR::Capabilities::none();
                                           ASSERT_TRUE(some.allow("files=f"));
                                           interpreter.capabilities(some);
                                       }};
    const auto run = Harness::run(
        "use sys; String n[]; logStdout(longToStr(listFolder(\"f\", n)) + longToStr(listFolder("
        "\".\", n)) + longToStr(listFolder(\"\", n)));"
        "if (isFolder(\"f\") and sys::exists(\"f\") and isFolder(\"\") == false) logStdout(\" "
        "seen\");",
        granted);
    EXPECT_EQ(run.output, "0-1-1 seen") << run.log;
}

/// Expressions for a parameter of the type word `type`, among them what is large or odd.
std::vector<std::string> argumentsFor(int type) {
    using namespace SCR;
    const bool isLeft = Node::isLeft(type);
    switch (Node::baseType(type)) {
        case TypeCode::String:
            if (isLeft) return {"t"};
            return {"plain", "odd", "\"(a)|.\"", "\"NFC\"", "\"\""};
        case TypeCode::Long:
            if (isLeft) return {"l"};
            return {"0", "3", "-1", "9223372036854775807", "300000"};
        case TypeCode::Bool:
            return {isLeft ? "b" : "true"};
        case TypeCode::Decimal:
            if (isLeft) return {"c"};
            return {"1234567890.5", "INVALID_DECIMAL", "-0.5"};
        case TypeCode::Date:
            return {isLeft ? "dt" : "MAX_DATE", isLeft ? "dt" : "MIN_DATE"};
        default:
            return {};
    }
}

/// The first letter of containers whose elements are of this type.
std::string letterOf(int element) {
    using namespace SCR;
    const std::map<int, std::string> letters{{TypeCode::String, "s"},
                                             {TypeCode::Long, "n"},
                                             {TypeCode::Decimal, "d"},
                                             {TypeCode::Bool, "o"},
                                             {TypeCode::Date, "e"}};
    return letters.at(element);
}

/// Statements that call the function with combinations of such arguments, up to 25 for each type of
/// elements.
std::vector<std::string> callsOf(const ModuleTable& table, const ModuleFunction& row,
                                 const SCR::FctDescr& function) {
    using namespace SCR;
    std::vector<std::string_view> parameters;
    for (std::string_view rest = row.signature.substr(row.signature.find('(')); !rest.empty();) {
        const std::size_t end = std::min(rest.find(','), rest.size());
        parameters.push_back(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    const bool isGeneric = row.signature.find("(T[") != std::string_view::npos ||
                           row.signature.find(" T[") != std::string_view::npos;
    std::vector<int> elements{TypeCode::Long};
    if (isGeneric) elements = {TypeCode::Long, TypeCode::String, TypeCode::Decimal};
    std::vector<std::string> chosen;
    for (const int element : elements) {
        std::vector<std::string> lists{""};
        std::vector<std::string> complete;
        if (function.minimum() == 0) complete.push_back("");
        const bool hasRest = function.maximum() == SCR::FctDescr::anyNumber;
        const int most = hasRest ? function.minimum() + 2 : function.maximum();
        for (int i = 0; i < most; ++i) {
            const std::string_view parameter =
                parameters[std::min(static_cast<std::size_t>(i), parameters.size() - 1)];
            const int type = function.argType(i);
            const bool isArray = Node::baseType(type) == TypeCode::Array;
            const bool isT = parameter.find("T[") != std::string_view::npos ||
                             parameter.find("T{") != std::string_view::npos;
            std::vector<std::string> arguments = argumentsFor(
                isGeneric && parameter.find("T ") != std::string_view::npos ? element : type);
            if (function.elementType(i) != 0) {
                arguments = {letterOf(isT && isGeneric ? element : function.elementType(i)) +
                             (isArray ? "a" : "h")};
            }
            std::vector<std::string> longer;
            for (const std::string& list : lists) {
                for (const std::string& argument : arguments) {
                    longer.push_back(list + (i > 0 ? ", " : "") + argument);
                }
            }
            lists = longer;
            if (i + 1 >= function.minimum())
                complete.insert(complete.end(), lists.begin(), lists.end());
        }
        for (std::size_t i = 0; i < complete.size(); i += complete.size() / 25 + 1) {
            chosen.push_back(std::string(table.name) + "::" + function.name() + "(" + complete[i] +
                             ");");
        }
    }
    return chosen;
}

/// An interpreter whose scripts have large texts and filled containers.
class Bench {
public:
    Bench(const ModuleTable& table, std::size_t size) : interpreter_(&log_) {
        FND::String odd;
        while (odd.size() < size) odd += "\xC3\xA4\xFF 1.5,[2]{\"a\": \xCC\x88";
        interpreter_.addGlobalConstant("plain", FND::String(size, 'x'));
        interpreter_.addGlobalConstant("odd", odd);
        auto* const host = SCR::HostExtension::insert(interpreter_, "host");
        host->function("start", [this] {
            SCR::RunControl::current()->stopAtQuestion(stopsAt_);
            held_ = Allocations::startPeak();
        });
        host->function("stop", [this] {
            questions_ = SCR::RunControl::current()->questions();
            SCR::RunControl::current()->stopAtQuestion(-1);
        });
        before_ = useOf(table) +
                  "String t; Long l; Bool b; Decimal c; Date dt; String sa[]; Long na[]; Decimal "
                  "da[]; Bool oa[]; Date ea[]; String sh{}; Long nh{}; Decimal dh{};"
                  "Long i; for (i = 0; i < 50; i = i + 1) { sa[i] = longToStr(50 - i); na[i] = i; "
                  "da[i] = 1.5; oa[i] = true; ea[i] = MAX_DATE; sh{longToStr(i)} = \"x\";"
                  "nh{longToStr(i)} = i; dh{longToStr(i)} = 0.5; }";
    }

    /// The number of questions until it ends; stops at question `stopsAt` if that is not negative.
    std::int64_t run(const std::string& call, const SCR::Limits& limits, std::int64_t stopsAt) {
        log_.text.clear();
        stopsAt_ = stopsAt;
        questions_ = -1;
        interpreter_.limits(limits);
        ok = interpreter_.compile(before_ + "start(); " + call + " stop();");
        if (!ok) {
            // A function for some types of elements only.
            EXPECT_NE(log_.text.find(" not of "), std::string::npos) << call << log_.text;
            return 0;
        }
        ok = interpreter_.execute();
        taken = Allocations::peak() - held_;
        return questions_;
    }

    bool ok = false;
    long taken = 0;  ///< bytes of memory, at the most
    const std::string& log() const { return log_.text; }

private:
    Harness::MemoryLog log_;
    SCR::Interpreter interpreter_;
    std::string before_;
    std::int64_t stopsAt_ = -1;
    std::int64_t questions_ = -1;
    long held_ = 0;
};

constexpr SCR::Effect outsideS = SCR::Effect::Shell | SCR::Effect::WritesFiles | SCR::Effect::Sleep;

TEST(Modules, NoneTakesMemoryBeyondTheLimit) {
    const Harness::ExampleFolder folder;
    forEachFunction(
        [](const ModuleTable& table, const ModuleFunction& row, const SCR::FctDescr& function) {
            if (has(row.effects, outsideS)) return;
            Bench bench(table, 100'000);
            SCR::Limits limits;
            limits.memory = 400'000;
            for (const std::string& call : callsOf(table, row, function)) {
                bench.run(call, limits, -1);
                EXPECT_LE(bench.taken, 700'000) << call;
            }
        });
}

TEST(Modules, EachCanBeStopped) {
    const Harness::ExampleFolder folder;
    constexpr int stops = KESTREL_SANITIZED ? 2 : 8;
    forEachFunction(
        [](const ModuleTable& table, const ModuleFunction& row, const SCR::FctDescr& function) {
            if (has(row.effects, outsideS)) return;
            Bench bench(table, 1000);
            SCR::Limits limits;
            limits.string = 20'000;
            for (const std::string& call : callsOf(table, row, function)) {
                bench.run(call, limits, -1);  // what is made once is there then
                const std::int64_t questions = bench.run(call, limits, 1'000'000'000);
                for (std::int64_t stop = 0; stop < questions; stop += questions / stops + 1) {
                    bench.run(call, limits, stop);
                    EXPECT_FALSE(bench.ok) << call << stop;
                    EXPECT_NE(bench.log().find("stopped by a test"), std::string::npos) << call;
                }
            }
        });
}

// The second of two equal patterns is always left to the library.
TEST(Modules, LongTextsAreGivenBackInPieces) {
    const struct {
        const char* before;
        const char* call;
    } rows[] = {{"sa[9] = plain;", "text::captures(\"a\", \"b\", sa);"},
                {"sh{\"x\"} = plain;", "text::capturesNamed(\"a\", \"a\", sh);"}};
    const auto isText = [](const ModuleTable* table) { return table->name == "text"; };
    const std::vector<const ModuleTable*> tables = SCR::shippedModules();
    const auto text = std::find_if(tables.begin(), tables.end(), isText);
    ASSERT_NE(text, tables.end());
    constexpr std::int64_t never = 1'000'000'000;
    Bench bench(**text, 40'000'000);
    for (const auto& row : rows) {
        const std::string before = row.before;
        const std::int64_t ofCopy = bench.run(before, SCR::Limits(), never);
        EXPECT_GE(bench.run(before + row.call, SCR::Limits(), never), ofCopy + 30) << row.call;
        EXPECT_TRUE(bench.ok) << bench.log();
    }
}

TEST(Modules, PatternsMatchedStraightOnFindTheSame) {
    const std::vector<std::string> parts{"a",        "b",    "ab",     "\\d",     "\\w",
                                         "\\S",      "[^a]", ".",      "[a-c,-]", "\\.",
                                         "[\\s\\d]", "\\n",  "[^\\w]", "\\D",     "k"};
    const std::vector<std::string> counts{"", "", "", "+", "*", "?", "{2}", "{1,2}", "{2,}", "{0}"};
    const std::vector<std::string> bytes{"a",  "b", "c",        "1",    "22",
                                         "_",  ".", ",",        "-",    " ",
                                         "\n", "k", "\xC3\xA4", "\xFF", std::string(1, '\0')};
    std::mt19937 random(1);
    const auto any = [&](const auto& from) { return from[random() % from.size()]; };
    Harness::MemoryLog log;
    SCR::Interpreter interpreter(&log);
    std::string pattern;
    std::string other;
    std::string text;
    auto* const host = SCR::HostExtension::insert(interpreter, "host");
    host->function("pattern", [&](long which) { return which == 0 ? pattern : other; });
    host->function("text", [&] { return text; });
    host->function("compare", [&](const FND::String& straight, const FND::String& library) {
        ASSERT_EQ(straight, library) << pattern << " in " << testing::PrintToString(text);
    });
    ASSERT_TRUE(interpreter.compile(
        "use text; String r[]; Long i; for (i = 0; i < 2; i = i + 1) { String p = pattern(i); "
        "String t = text(); String g[]; String all[]; text::captures(t, p, g);"
        "text::findAll(t, p, all); r[i] = text::join(g, \"|\") + \"/\" + text::join(all, \"|\") + "
        "\"/\" + text::replacePattern(t, p, \"<\\\\0>\"); }"
        "compare(r[0], r[1]);"))
        << log.text;
    for (int i = 0; i < 3000; ++i) {
        pattern = random() % 4 == 0 ? "^" : "";
        bool isOpen = false;
        for (auto left = random() % 6 + 1; left > 0; --left) {
            if (random() % 3 == 0) {
                pattern += isOpen ? ")" : "(";
                isOpen = !isOpen;
            }
            pattern += any(parts) + any(counts);
        }
        pattern += isOpen ? ")" : "";
        pattern += random() % 4 == 0 ? "$" : "";
        other = "(?:" + pattern + ")";
        for (int k = 0; k < 8; ++k) {
            text.clear();
            for (auto left = random() % 12; left > 0; --left) text += any(bytes);
            ASSERT_TRUE(interpreter.execute()) << log.text;
        }
    }
    EXPECT_EQ(log.text, "");
}

}  // namespace

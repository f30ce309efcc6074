// Executes random programs and prints a checksum of what each one wrote and logged. The builds with
// and without specialised nodes must print the same.
//
// usage: random_programs [first program, 0 [number of programs, 1000 [--show]]]
#include <array>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string_view>

#include "Script.h"

namespace {

/// Writes one program. All its loops end; what it computes shows in what it writes.
class Program {
public:
    explicit Program(unsigned long number) : dice_(number) {}

    std::string text() {
        text_ =
            "Long a = 3; Long b = -7; Long c; Long d = 9223372036854775807; Bool p; Bool q = true;"
            "String s = \"x\"; String t = \"abc\"; String u; Decimal x = 1.5; Decimal y;"
            "Long n[]; Long h{}; String w[]; String k{}; Bool f[]; Decimal m[];\n"
            "function Long bump(Long i) { a = a + i; s = s + \"+\"; n[i % 3] = a; return a; }\n"
            "function String tell(String i) { t = t + i; k{i} = s; return t; }\n"
            "function Bool flip { p = p == false; b = b + 1; return p; }\n"
            "function Long twist(Long i, Long j) {"
            " if (i > j) { return i - j; } else { while (j > i) { j = j - 3; return j * i; } }"
            " return 1; }\n"
            "function Long mix(Long i, Long j) { return i * 3 + j % 5; }\n"
            "function String both(String i, String j) { return i + tell(j); }\n"
            "function Bool near(Long i) { return (i - a) % 4 == 0; }\n"
            "function Long wipe(Long i) {"
            " if (i % 5 == 2) { arrayClear(n); arrayClear(m); arrayClear(f); }"
            " if (i % 5 == 3) { arrayClear(w); hashClear(h); hashClear(k); }"
            " return i % 3; }\n";
        for (std::size_t count = 4 + below(12); count > 0; --count) statement(3);
        for (const char* name : {"a", "b", "c", "d", "n[0]", "n[1]", "h{\"x\"}"}) {
            text_ += std::string("logStdout(longToStr(") + name + ") + \" \");";
        }
        for (const char* name : {"x", "y", "m[1]"}) {
            text_ += std::string("logStdout(decimalToStr(") + name + ") + \" \");";
        }
        text_ +=
            "if (p) { logStdout(\"p\"); } if (q) { logStdout(\"q\"); }"
            "logStdout(s + \" \" + t + \" \" + u + w[0] + k{\"x\"} + \"\\n\");\n";
        return text_;
    }

private:
    std::size_t below(std::size_t limit) { return dice_() % limit; }

    template <std::size_t count>
    std::string oneOf(const std::array<const char*, count>& texts) {
        return texts[below(count)];
    }

    /// Two operands, now and then as many as make a chain.
    template <std::size_t count>
    std::string row(const std::array<const char*, count>& signs,
                    std::string (Program::*operand)(int), int depth) {
        std::string text = "(" + (this->*operand)(depth);
        for (std::size_t more = below(20) == 0 ? 8 + below(12) : 1; more > 0; --more) {
            text += oneOf(signs) + (this->*operand)(depth);
        }
        return text + ")";
    }

    std::string longTarget(int depth) {
        switch (below(8)) {
            case 0:
                return "n[" + longValue(depth - 1) + " % 4]";
            case 1:
                return "h{" + stringValue(depth - 1) + "}";
            default:
                return oneOf(std::array{"a", "b", "c", "d"});
        }
    }

    std::string longValue(int depth) {
        constexpr std::array constants{"0",
                                       "1",
                                       "-1",
                                       "2",
                                       "3",
                                       "7",
                                       "10",
                                       "-5",
                                       "64",
                                       "1000003",
                                       "9223372036854775807",
                                       "-9223372036854775807"};
        if (depth <= 0 || below(4) == 0) {
            return below(2) == 0 ? oneOf(constants) : oneOf(std::array{"a", "b", "c", "d"});
        }
        switch (below(18)) {
            case 17:
                return "wipe(" + longValue(depth - 1) + ")";
            case 14:
                if (below(2) == 0) return "mix(" + longValue(0) + ", " + longValue(depth - 1) + ")";
                return "mix(" + longValue(depth - 1) + ", " + longValue(depth - 1) + ")";
            case 15:
                return "n[" + oneOf(std::array{"a", "b", "c"}) +
                       oneOf(std::array{" % 3", " + 1", " - 2"}) + "]";
            case 16:
                return "((" + oneOf(std::array{"a", "b", "d"}) +
                       oneOf(std::array{" * 31 + c", " * 7 + 5", " + b", " + 4", " * 3"}) + ") % " +
                       oneOf(std::array{"7", "-5", "1000003", "0", "1"}) + ")";
            case 0:
                return longTarget(depth);
            case 1:
                return "bump(" + longValue(depth - 1) + ")";
            case 2:
                return "(" + longTarget(depth) + " = " + longValue(depth - 1) + ")";
            case 3:
                return "strLength(" + stringValue(depth - 1) + ")";
            case 4:
                return "twist(" + longValue(depth - 1) + ", " + longValue(depth - 1) + ")";
            case 5:
                return "strSearch(" + stringValue(depth - 1) + ", " + stringValue(depth - 1) + ")";
            default:
                return row(std::array{" + ", " - ", " * ", " / ", " % ", " + "},
                           &Program::longValue, depth - 1);
        }
    }

    std::string stringTarget(int depth) {
        switch (below(8)) {
            case 0:
                return "w[" + longValue(depth - 1) + " % 3]";
            case 1:
                return "k{" + stringValue(depth - 1) + "}";
            default:
                return oneOf(std::array{"s", "t", "u"});
        }
    }

    std::string stringValue(int depth) {
        if (depth <= 0 || below(4) == 0) {
            return below(2) == 0
                       ? oneOf(std::array{"\"\"", "\"x\"", "\"ab\"", "\"longer than most\""})
                       : oneOf(std::array{"s", "t", "u"});
        }
        switch (below(13)) {
            case 12:
                return "both(" + stringValue(depth - 1) + ", " + stringValue(depth - 1) + ")";
            case 0:
                return stringTarget(depth);
            case 1:
                return "tell(" + stringValue(depth - 1) + ")";
            case 2:
                return "(" + stringTarget(depth) + " = " + stringValue(depth - 1) + ")";
            case 3:
                return "longToStr(" + longValue(depth - 1) + ")";
            case 4:
                return "strSubstr(" + stringValue(depth - 1) + ", " + longValue(0) + ", 4)";
            case 5:
                return "decimalToStr(" + decimalValue(depth - 1) + ", 2)";
            case 6:
                return "(" + stringValue(depth - 1) + " + (" + stringValue(depth - 1) + " + " +
                       stringValue(depth - 1) + "))";
            case 7:
                return row(std::array{" + "}, &Program::stringValue, depth - 1);
            default: {
                std::string sum = "(" + stringValue(depth - 1);
                for (std::size_t count = 1 + below(3); count > 0; --count) {
                    sum += " + " + stringValue(depth - 1);
                }
                return sum + ")";
            }
        }
    }

    std::string decimalTarget(int depth) {
        return below(6) == 0 ? "m[" + longValue(depth - 1) + " % 3]" : oneOf(std::array{"x", "y"});
    }

    std::string decimalValue(int depth) {
        if (depth <= 0 || below(4) == 0) {
            return below(2) == 0 ? oneOf(std::array{"0.0", "1.25", "-3.5", "100.0"})
                                 : oneOf(std::array{"x", "y"});
        }
        switch (below(8)) {
            case 0:
                return decimalTarget(depth);
            case 1:
                return "longToDecimal(" + longValue(depth - 1) + ")";
            case 2:
                return "(" + decimalTarget(depth) + " = " + decimalValue(depth - 1) + ")";
            case 3:
                return "round(" + decimalValue(depth - 1) + ", 1)";
            default:
                return row(std::array{" + ", " - ", " * ", " / "}, &Program::decimalValue,
                           depth - 1);
        }
    }

    std::string boolTarget(int depth) {
        return below(4) == 0 ? "f[" + longValue(depth - 1) + " % 3]" : oneOf(std::array{"p", "q"});
    }

    std::string boolValue(int depth) {
        constexpr std::array comparisons{" < ", " > ", " == ", " != ", " <= ", " >= "};
        if (depth <= 0) return oneOf(std::array{"p", "q", "true", "false", "(a < b)", "(c == 0)"});
        switch (below(14)) {
            case 12:
                return "(f[" + oneOf(std::array{"a", "b", "c"}) + "]" +
                       oneOf(std::array{" == ", " != "}) + boolValue(depth - 1) + ")";
            case 13:
                return "(n[" + oneOf(std::array{"a", "b", "c"}) + "]" + oneOf(comparisons) +
                       longValue(depth - 1) + ")";
            case 10:
                return "near(" + longValue(depth - 1) + ")";
            case 11:
                return "((a + " + oneOf(std::array{"b", "c", "d"}) + ") % 3" + oneOf(comparisons) +
                       oneOf(std::array{"0", "-1", "2"}) + ")";
            case 0:
                return boolTarget(depth);
            case 1:
                return "(" + boolTarget(depth) + " = " + boolValue(depth - 1) + ")";
            case 2:
                return "flip()";
            case 3:
                return row(std::array{" and ", " or "}, &Program::boolValue, depth - 1);
            case 4:
                return "(" + stringValue(depth - 1) + oneOf(comparisons) + stringValue(depth - 1) +
                       ")";
            case 5:
                return "(" + decimalValue(depth - 1) + oneOf(comparisons) +
                       decimalValue(depth - 1) + ")";
            case 6:
                return "(" + boolValue(depth - 1) + oneOf(std::array{" == ", " != "}) +
                       boolValue(depth - 1) + ")";
            default:
                return "(" + longValue(depth - 1) + oneOf(comparisons) + longValue(depth - 1) + ")";
        }
    }

    void block(int depth) {
        text_ += "{\n";
        for (std::size_t count = below(4); count > 0; --count) statement(depth);
        text_ += "}\n";
    }

    void assignment() {
        switch (below(7)) {
            case 6: {
                const std::string element =
                    oneOf(std::array{"n[a]", "n[b]", "n[c]", "h{s}", "h{u}"});
                text_ +=
                    element + " = " + element + oneOf(std::array{" + 1", " - 3", " * 2", " + a"});
                break;
            }
            case 0:
                text_ += stringTarget(2) + " = " + stringValue(3);
                break;
            case 1: {
                const std::string name = oneOf(std::array{"s", "t", "u"});
                text_ += name + " = " + name;
                for (std::size_t count = 1 + below(3); count > 0; --count) {
                    text_ += " + " + stringValue(2);
                }
                break;
            }
            case 2:
                text_ += decimalTarget(2) + " = " + decimalValue(3);
                break;
            case 3:
                text_ += boolTarget(2) + " = " + boolValue(3);
                break;
            default:
                text_ += longTarget(2) + " = " + longValue(3);
                break;
        }
        text_ += ";\n";
    }

    void statement(int depth) {
        if (depth <= 0) return assignment();
        const std::string counter = "i" + std::to_string(++counters_);
        const std::string limit = std::to_string(below(6));
        switch (below(16)) {
            case 0:
            case 1:
                text_ += "if (" + boolValue(3) + ") ";
                block(depth - 1);
                if (below(2) == 0) {
                    text_ += "else ";
                    block(depth - 1);
                }
                break;
            case 2:
                text_ += "Long " + counter + " = 0;\nwhile (" + counter + " < " + limit + ") {\n" +
                         counter + " = " + counter + " + 1;\n";
                statement(depth - 1);
                text_ += "}\n";
                break;
            case 3:
                text_ += "Long " + counter + ";\nfor (" + counter + " = " + limit + "; " + counter +
                         " > 0; " + counter + " = " + counter + " - 1) ";
                block(depth - 1);
                break;
            case 4:
                text_ +=
                    "Long " + counter + " = 0;\ndo {\n" + counter + " = " + counter + " + 1;\n";
                statement(depth - 1);
                text_ += "} while (" + counter + " <= " + limit + " and " + boolValue(2) + ");\n";
                break;
            case 5:
                text_ += "switch (" +
                         (below(2) == 0 ? longValue(2) + " % 4"
                                        : oneOf(std::array{"a", "b % 3", "c % 5", "d"})) +
                         ") {\n";
                for (int label = 0; label < 4; ++label) {
                    text_ += "case " + std::to_string(label) + ":\n";
                    block(depth - 1);
                    if (below(2) == 0) text_ += "break;\n";
                }
                text_ += "default: ";
                block(depth - 1);
                text_ += "}\n";
                break;
            case 6:
                text_ += "switch (" + stringValue(2) + ") {\ncase \"x\": case \"\":\n";
                block(depth - 1);
                text_ += "break;\ncase \"abc\": case \"longer than most\": case \"ab\":\n";
                block(depth - 1);
                text_ += "}\n";
                break;
            case 7:
                text_ += "logStdout(" + stringValue(3) + " + \"\\n\");\n";
                break;
            default:
                assignment();
                break;
        }
    }

    std::mt19937_64 dice_;
    std::string text_;
    int counters_ = 0;
};

std::uint64_t checksum(std::uint64_t sum, std::string_view text) {
    for (const char byte : text) sum = (sum ^ static_cast<unsigned char>(byte)) * 1099511628211U;
    return sum;
}

}  // namespace

int main(int argc, char** argv) {
    const long first = argc > 1 ? std::atol(argv[1]) : 0;
    const long count = argc > 2 ? std::atol(argv[2]) : 1000;
    const bool shows = argc > 3;
    Harness::ScriptSetup setup;
    setup.repeat = 2;
    setup.prepare = [](SCR::Interpreter& interpreter) {
        SCR::Limits limits;
        limits.steps = 2000;
        limits.string = 5000;
        limits.elements = 1000;
        interpreter.limits(limits);
    };
    std::uint64_t all = 0;
    long refused = 0;
    for (long number = first; number < first + count; ++number) {
        const std::string text = Program(static_cast<unsigned long>(number)).text();
        const Harness::ScriptRun run = Harness::run(text, setup);
        if (!run.compiled) ++refused;
        const std::uint64_t sum =
            checksum(checksum(14695981039346656037U, run.output), run.log) + (run.ok ? 1 : 0);
        all = all * 31 + sum;
        if (shows)
            std::printf("%s--- output\n%s--- log\n%s", text.c_str(), run.output.c_str(),
                        run.log.c_str());
        if (count > 1) std::printf("%ld %016lx\n", number, sum);
    }
    std::printf("%ld programs, %ld that do not compile: %016lx\n", count, refused, all);
    return refused == 0 ? 0 : 1;
}

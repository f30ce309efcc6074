// Executes random programs in all tiers of code, from the first run of each loop and function on,
// and compares what they write and log. Some are stopped: by a limit, or at a question. The same
// program in its canonical layout does the same, too. What was counted while one ran in code to its
// end must be what an observer saw step by step.
//
// usage: random_programs [first program, 0 [number of programs, 1000 [--show]]]
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>

#include "RandomText.h"
#include "Script.h"
#include "author/Format.h"
#include "scr/Observation.h"
#include "scr/code/Hot.h"
#include "scr/run/RunControl.h"

namespace {

const Harness::RandomText::Rules rulesS = {
    {"number",
     {"0 | 1 | -1 | 2 | 3 | 7 | 10 | -5 | 64 | 1000003 | 9223372036854775807 | "
      "-9223372036854775807"}},
    {"var", {"a | b | c | d"}},
    {"text", {"\"\" | \"x\" | \"ab\" | \"longer than most\" | $svar | $svar | $svar | $svar"}},
    {"svar", {"s | t | u"}},
    {"dvar", {"x | y"}},
    {"bvar", {"p | q"}},
    {"compare", {" < | > | == | != | <= | >= "}},
    {"equal", {" == | != "}},
    {"sign", {" + | - | * | / | % | + "}},
    {"limit", {"0 | 1 | 2 | 3 | 4 | 5"}},
    {"place", {"$var", "$var | $var | $var | $var | $var | $var | n[$long % 4] | h{$string}"}},
    {"long",
     {"$number | $var",
      "$number | $var | $number | $var | $sum | $sum | $sum | $sum | $sum | $place | "
      "bump($long) | ($place = $long) | strLength($string) | twist($long, $long) | "
      "strSearch($string, $string) | mix($number, $long) | mix($long, $long) | "
      "n[$var % 3] | n[$var + 1] | n[$var - 2] | (($var * 31 + c) % $number) | "
      "(($var * 7 + 5) % 7) | (($var + b) % -5) | (($var * 3) % 1000003) | (($var + 4) % 0) | "
      "(($var - 2) / -1) | (-$long) | dive($long) | wipe($long) | pick($long)"}},
    // Sometimes enough operands for a row.
    {"sum",
     {"($long$sign$long) | ($long$sign$long) | ($long$sign$long) | ($long$sign$long) | "
      "($var + a - 1 + $var * 2 - $var + 7 - b + $long + c - $var + $long)"}},
    {"splace", {"$svar", "$svar | $svar | $svar | $svar | w[$long % 3] | k{$string}"}},
    {"string",
     {"$text",
      "$text | $text | $text | both($string, $string) | $splace | tell($string) | "
      "($splace = $string) | longToStr($long) | strSubstr($string, $number, 4) | "
      "decimalToStr($decimal, 2) | ($string + ($string + $string)) | ($string + $string) | "
      "($string + $string + $string) | ($string + $string + $string + $string) | "
      "(s + $text + t + $text + u + $text + $string + s + t + $text + u + $string)"}},
    {"dplace", {"$dvar", "$dvar | $dvar | $dvar | m[$long % 3]"}},
    {"decimal",
     {"0.0 | 1.25 | -3.5 | 100.0 | $dvar | $dvar | $dvar | $dvar",
      "1.25 | $dvar | $dplace | longToDecimal($long) | ($dplace = $decimal) | "
      "round($decimal, 1) | ($decimal + $decimal) | ($decimal - $decimal) | "
      "($decimal * $decimal) | ($decimal / $decimal) | "
      "(x + 1.25 - y + $decimal * 1.5 - x / 3.0 + y + $decimal - x + y + $dvar)"}},
    {"bplace", {"$bvar", "$bvar | $bvar | f[$long % 3]"}},
    {"bool",
     {"p | q | true | false | (a < b) | (c == 0)",
      "(f[$var]$equal$bool) | (n[$var]$compare$long) | near($long) | "
      "((a + $var) % 3$compare$number) | $bplace | ($bplace = $bool) | flip() | "
      "($bool and $bool) | ($bool or $bool) | "
      "(p and q or flip() and p or $bool or q and $bool and p or q or $bool) | "
      "($string$compare$string) | "
      "($decimal$compare$decimal) | ($bool$equal$bool) | ($long$compare$long) | "
      "($long$compare$long)"}},
    {"element", {"n[a] = n[a] | n[b] = n[b] | n[c] = n[c] | h{s} = h{s} | h{u} = h{u}"}},
    {"assign",
     {"$place = $number;",
      "$element + 1; | $element - 3; | $element * 2; | $element + a; | $splace = $string; | "
      "s = s + $string; | t = t + $string + $string; | u = u + $text + $string + $string; | "
      "$dplace = $decimal; | $bplace = $bool; | $place = $long; | $place = $long; | "
      "$place = $long;"}},
    {"body", {"$assign", " | $statement | $statement$statement | $statement$statement$statement"}},
    {"statement",
     {"$assign",
      "if ($bool) {$body} | if ($bool) {$body} else {$body} | "
      "Long i# = 0; while (i# < $limit) { i# = i# + 1; $statement} | "
      "Long i#; for (i# = $limit; i# > 0; i# = i# - 1) {$body} | "
      "Long i# = 0; do { i# = i# + 1; $statement} while (i# <= $limit and $bool); | "
      "switch ($selector) { case 0: {$body} case 1: {$body} break; case 2: {$body} "
      "default: {$body} } | "
      "switch ($selector) { case 1: {$body} break; default: {$body} case 3: {$body} } | "
      "switch ($string) { case \"x\": case \"\": {$body} break; "
      "case \"abc\": case \"longer than most\": case \"ab\": {$body} } | "
      "logStdout($string + \"\\n\"); | $assign | $assign | $assign | $assign | $assign | $assign"}},
    {"selector", {"a | b % 3 | c % 5 | d", "$long % 4 | a | b % 3 | c % 5 | d"}},
};

constexpr std::string_view prologueS = R"(
Long a = 3; Long b = -7; Long c; Long d = 9223372036854775807; Bool p; Bool q = true; String s = "x";
Long r; String t = "abc"; String u; Decimal x = 1.5; Decimal y; Long n[]; Long h{}; String w[]; String k{};
Bool f[]; Decimal m[];
function Long bump(Long i) { a = a + i; s = s + "+"; n[i % 3] = a; return a; }
function String tell(String i) { t = t + i; k{i} = s; return t; }
function Bool flip { p = p == false; b = b + 1; return p; }
function Long twist(Long i, Long j) {
    if (i > j) { return i - j; } else { while (j > i) { j = j - 3; return j * i; } } return 1; }
function Long dive(Long i) { if (i % 4 > 0) { return dive(i - 1) + 1; } return bump(i); }
function Long pick(Long i) { r = 1; if (i % 3 == 0) { r = i; } return r; }
function Long mix(Long i, Long j) { return i * 3 + j % 5; }
function String both(String i, String j) { return i + tell(j); }
function Bool near(Long i) { return (i - a) % 4 == 0; }
function Long wipe(Long i) {
    if (i % 5 == 2) { arrayClear(n); arrayClear(m); arrayClear(f); }
    if (i % 5 == 3) { arrayClear(w); hashClear(h); hashClear(k); } return i % 3; }
)";
constexpr std::string_view epilogueS = R"(
function show(Long i) { logStdout(longToStr(i) + " "); }
function END {
show(a); show(b); show(c); show(d); show(n[0]); show(n[1]); show(h{"x"});
logStdout(decimalToStr(x) + " " + decimalToStr(y) + " " + decimalToStr(m[1]));
if (p) { logStdout("p"); } if (q) { logStdout("q"); }
logStdout(s + " " + t + " " + u + w[0] + k{"x"} + "\n");
}
END();
)";
/// A program. All its loops end, and it prints what it computes.
std::string program(unsigned long number) {
    Harness::RandomText random(rulesS, number);
    std::string text(prologueS);
    for (std::size_t count = 4 + random.below(12); count > 0; --count) {
        text += random.made("statement", 5);
    }
    // An expression that holds more values than a byte can count.
    if (number % 50 == 0) {
        constexpr int levels = 300;
        text += "c = ";
        for (int i = 0; i < levels; ++i) text += "a * a + (";
        text.append("pick(b)").append(levels, ')') += ";\n";
    }
    return text.append(epilogueS);
}

const char* nameOf(SCR::CodeTier tier) {
    constexpr const char* names[] = {"tree", "portable", "native"};
    return names[static_cast<int>(tier)];
}

/// Counts what it is told.
class Watcher final : public SCR::Observation {
public:
    Watcher() : Observation(eventsCM) { listen(true); }
    void statement(std::size_t site) override { ++seen[site]; }
    void chosen(std::size_t site) override { ++seen[site]; }
    void entered(std::size_t site) override { ++seen[site]; }
    void condition(std::size_t site, bool holds) override { seen[site] += holds ? 1 : 0; }
    std::map<std::size_t, long> seen;
};

/// The counts of the sites, by their kind and place.
template <class CountOf>
std::string countsOf(const SCR::Observation& observation, const CountOf& countOf) {
    using Kind = SCR::ObservedSite::Kind;
    std::map<std::string, long> counts;
    for (std::size_t site = 0; site < observation.sites().size(); ++site) {
        const SCR::ObservedSite& at = observation.sites()[site];
        if (at.kind > Kind::Case) continue;
        counts[std::to_string(static_cast<int>(at.kind)) + " " + std::to_string(at.line) + ":" +
               std::to_string(at.column) + " " + at.text] += countOf(site);
    }
    std::string text;
    for (const auto& [place, count] : counts) text += place + " " + std::to_string(count) + '\n';
    return text;
}

Harness::ScriptRun runIn(SCR::CodeTier tier, const std::string& text, unsigned long number,
                         SCR::Observation* observation = nullptr) {
    Harness::ScriptSetup setup;
    setup.repeat = 2;
    setup.prepare = [&](SCR::Interpreter& interpreter) {
        interpreter.observe(observation);
        SCR::Limits limits;
        limits.steps = number % 4 == 1 ? static_cast<long>(number % 97) : 2000;
        limits.depth = number % 4 == 2 ? 1 + static_cast<long>(number % 5) : 100;
        limits.string = 5000;
        limits.elements = 1000;
        interpreter.limits(limits);
        interpreter.codeTier(tier);
    };
    // Observing asks more often.
    if (number % 4 == 3 && observation == nullptr) {
        setup.compiled = [&](SCR::Interpreter& interpreter) {
            interpreter.runControl().stopAtQuestion(static_cast<long>(number % 509));
        };
    }
    return Harness::run(text, setup);
}

// A log without its numbers, as lines change with the layout.
std::string withoutNumbers(std::string log) {
    log.erase(std::remove_if(log.begin(), log.end(), ::isdigit), log.end());
    return log;
}

bool isSameLaidOut(const std::string& text, const Harness::ScriptRun& expected,
                   unsigned long number) {
    const Author::Formatted once = Author::format(text);
    const Harness::ScriptRun run = runIn(SCR::CodeTier::Tree, once.text, number);
    return once.fault.empty() && Author::format(once.text).text == once.text &&
           run.output == expected.output && run.ok == expected.ok &&
           withoutNumbers(run.log) == withoutNumbers(expected.log);
}

}  // namespace

int main(int argc, char** argv) {
    const long first = argc > 1 ? std::atol(argv[1]) : 0;
    const long count = argc > 2 ? std::atol(argv[2]) : 1000;
    const bool shows = argc > 3;
    SCR::Code::Hot::makeAfter(1);
    long faults = 0;
    for (long number = first; number < first + count; ++number) {
        const auto seed = static_cast<unsigned long>(number);
        const std::string text = program(seed);
        const Harness::ScriptRun expected = runIn(SCR::CodeTier::Tree, text, seed);
        if (!expected.compiled) ++faults;
        if (shows) {
            std::printf("%s--- output\n%s--- log\n%s", text.c_str(), expected.output.c_str(),
                        expected.log.c_str());
        }
        if (!isSameLaidOut(text, expected, seed)) {
            ++faults;
            std::printf("program %ld differs when it is laid out\n", number);
        }
        for (const SCR::CodeTier tier : {SCR::CodeTier::Portable, SCR::CodeTier::Native}) {
            const Harness::ScriptRun run = runIn(tier, text, seed);
            if (run.output == expected.output && run.log == expected.log && run.ok == expected.ok) {
                continue;
            }
            ++faults;
            std::printf("program %ld differs in the %s tier: %s%s", number, nameOf(tier),
                        run.output.c_str(), run.log.c_str());
        }
        const bool isStopped = expected.log.find("script stopped") != std::string::npos;
        if (!expected.ok || isStopped) continue;
        Watcher watcher;
        runIn(SCR::CodeTier::Tree, text, seed, &watcher);
        using SCR::Observation;
        Observation counter(Observation::countsCM | Observation::positionsCM);
        const Harness::ScriptRun counted = runIn(SCR::CodeTier::Native, text, seed, &counter);
        const std::string seen =
            countsOf(watcher, [&](std::size_t site) { return watcher.seen[site]; });
        const std::string counts =
            countsOf(counter, [&](std::size_t site) { return counter.reached(site).all(); });
        if (counted.output == expected.output && counts == seen) continue;
        ++faults;
        std::printf("program %ld differs when it is observed: %s%s\n%s--- seen\n%s", number,
                    counted.output.c_str(), counted.log.c_str(), counts.c_str(), seen.c_str());
    }
    std::printf("%ld programs, %ld faults\n", count, faults);
    return faults == 0 ? 0 : 1;
}

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "cli/Command.h"
#include "cli/observe/Observations.h"
#include "cli/observe/Page.h"
#include "cli/records/ScriptRun.h"
#include "scr/Interpreter.h"

namespace Cli {
namespace {

using Kind = SCR::ObservedSite::Kind;
using Time = Observations::Time;

struct ProfileOptions {
    ScriptRun run;
    std::string profile = "-";
    std::string html;
    std::string folded;
    std::int64_t lines = 15;
    std::int64_t interval = 1000;
    bool samplesOnly = false;
};

// The costs of a function or a line.
struct Cost {
    std::string name;
    std::string file;
    int line = 0;
    long count = 0;
    long inCode = 0;  // of the count
    Time self;
    Time total;
};

struct Profile {
    std::vector<Cost> functions;
    std::vector<Cost> lines;
    std::int64_t time = 0;  // in nanoseconds
    std::int64_t code = 0;  // of it
    bool hasCounts = false;
};

Profile profileOf(const Observations& observations, bool hasCounts) {
    Profile profile;
    profile.hasCounts = hasCounts;
    const auto& sites = observations.sites();
    std::map<std::size_t, std::size_t> functions;  // by site
    std::map<std::pair<std::string, int>, std::size_t> lines;
    for (std::size_t site = 0; site < sites.size(); ++site) {
        const SCR::ObservedSite& at = sites[site];
        const SCR::Observation::Count reached = observations.reached(site);
        if (at.kind == Kind::Function) {
            functions[site] = profile.functions.size();
            Cost& cost = profile.functions.emplace_back();
            cost.name = site == 0 ? "(script)" : at.text;
            cost.file = at.file;
            cost.line = at.line;
            cost.count = reached.all();
            cost.inCode = reached.code;
            cost.total = observations.total(site);
        }
        if (at.kind != Kind::Statement) continue;
        const auto [found, isNew] = lines.try_emplace({at.file, at.line}, profile.lines.size());
        if (isNew) profile.lines.emplace_back();
        Cost& line = profile.lines[found->second];
        line.file = at.file;
        line.line = at.line;
        const Time self = observations.self(site);
        if (isNew || reached.all() > line.count) {
            line.count = reached.all();
            line.inCode = reached.code;
        }
        Cost& function = profile.functions[functions[at.function]];
        for (Cost* const cost : {&line, &function}) {
            cost->self.tree += self.tree;
            cost->self.code += self.code;
        }
        profile.time += self.all();
        profile.code += self.code;
    }
    return profile;
}

std::string milliseconds(std::int64_t nanoseconds) {
    char text[48];
    std::snprintf(text, sizeof text, "%.1f", static_cast<double>(nanoseconds) / 1e6);
    return text;
}

std::string right(const std::string& text, std::size_t width) {
    return text.size() < width ? std::string(width - text.size(), ' ') + text : text;
}

template <class Key>
std::vector<const Cost*> sorted(const std::vector<Cost>& costs, const Key& key) {
    std::vector<const Cost*> order;
    order.reserve(costs.size());
    for (const Cost& cost : costs) order.push_back(&cost);
    std::stable_sort(order.begin(), order.end(),
                     [&](const Cost* a, const Cost* b) { return key(*a) > key(*b); });
    return order;
}

constexpr auto bySelfS = [](const Cost& cost) { return std::pair(cost.self.all(), cost.count); };
constexpr auto byTotalS = [](const Cost& cost) { return std::pair(cost.total.all(), cost.count); };

const char* nameOf(SCR::CodeTier tier) {
    const SCR::CodeTier used = std::min(tier, SCR::Interpreter::highestCodeTier());
    return used == SCR::CodeTier::Native     ? "native"
           : used == SCR::CodeTier::Portable ? "portable"
                                             : "tree";
}

std::string about(const ProfileOptions& options, const Observations& observations,
                  const Profile& profile) {
    if (observations.samples() == 0) {
        return std::string("Too short for a sample, so no times are known") +
               (profile.hasCounts ? "; the counts are exact" : "");
    }
    return milliseconds(profile.time) + " ms in the script, " +
           percent(profile.code, std::max<std::int64_t>(profile.time, 1)) +
           " % of it in code (tier " + nameOf(options.run.script().tier()) + "), " +
           std::to_string(observations.samples()) + " samples";
}

std::string placeOf(const Cost& cost, const SourceText& source) {
    const std::string& path = source.file(cost.file).path;
    return (path.empty() ? cost.file : path) + ":" + std::to_string(cost.line);
}

std::string lineOf(const Cost& cost, const SourceText& source) {
    const std::vector<std::string>& lines = source.file(cost.file).lines;
    const auto number = static_cast<std::size_t>(cost.line);
    if (number < 1 || number > lines.size()) return {};
    const std::string& line = lines[number - 1];
    const std::size_t first = line.find_first_not_of(" \t");
    return first == std::string::npos ? std::string() : line.substr(first);
}

std::string share(long part, long whole) { return whole == 0 ? "" : percent(part, whole) + "%"; }

std::string table(const ProfileOptions& options, const Observations& observations,
                  const Profile& profile, const SourceText& source) {
    const std::string none = "-";
    std::string out = about(options, observations, profile) + "\n\n";
    out += "   self ms  total ms         calls  in code  function\n";
    for (const Cost* const cost : sorted(profile.functions, byTotalS)) {
        if (cost->total.all() == 0 && cost->count == 0) continue;
        out += right(milliseconds(cost->self.all()), 10) +
               right(milliseconds(cost->total.all()), 10) +
               right(profile.hasCounts ? std::to_string(cost->count) : none, 14) +
               right(profile.hasCounts ? share(cost->inCode, cost->count) : none, 9) + "  " +
               cost->name + "  " + placeOf(*cost, source) + '\n';
    }
    out += "\n   self ms     share         count  in code  line\n";
    std::int64_t left = options.lines;
    for (const Cost* const cost : sorted(profile.lines, bySelfS)) {
        if (left-- <= 0) break;
        if (cost->self.all() == 0 && cost->count == 0) continue;
        std::string line = lineOf(*cost, source);
        constexpr std::size_t most = 60;
        if (line.size() > most) line = line.substr(0, most) + "...";
        out += right(milliseconds(cost->self.all()), 10) +
               right(percent(cost->self.all(), std::max<std::int64_t>(profile.time, 1)) + "%", 10) +
               right(profile.hasCounts ? std::to_string(cost->count) : none, 14) +
               right(profile.hasCounts ? share(cost->inCode, cost->count) : none, 9) + "  " +
               placeOf(*cost, source) + "  " + line + '\n';
    }
    return out;
}

// A line for each stack: the functions from the script inwards, the line, and its microseconds.
std::string foldedStacks(const Observations& observations, const SourceText& source) {
    const auto& sites = observations.sites();
    std::map<std::string, std::int64_t> folded;
    for (const auto& [stack, time] : observations.stacks()) {
        std::string text;
        for (auto site = stack.rbegin(); site != stack.rend(); ++site) {
            const std::size_t function = sites[*site].function;
            text += (function == 0 ? std::string("(script)") : sites[function].text) + ";";
        }
        const SCR::ObservedSite& at = sites[stack.front()];
        std::string path = source.file(at.file).path;
        std::replace(path.begin(), path.end(), ';', '_');
        folded[text + path + ":" + std::to_string(at.line)] += time.all();
    }
    std::string out;
    for (const auto& [text, time] : folded) out += text + ' ' + std::to_string(time / 1000) + '\n';
    return out;
}

std::string bar(std::int64_t part, std::int64_t whole) {
    if (whole == 0 || part == 0) return {};
    const double width = 90.0 * static_cast<double>(part) / static_cast<double>(whole);
    char text[80];
    std::snprintf(text, sizeof text, "<span class=bar style=\"width:%.1fpx\"></span>",
                  std::max(width, 1.0));
    return text;
}

std::string page(const ProfileOptions& options, const Observations& observations,
                 const Profile& profile, const SourceText& source) {
    std::string out = pageHead("Profile of " + options.run.name());
    out += "<p>" + escaped(about(options, observations, profile)) +
           ". The darker a line, the more of the time was spent in it; time in functions of the "
           "script belongs to their own lines.</p>\n<h2>Functions</h2>\n<table>\n<tr>"
           "<th class=l>function<th>self ms<th class=l><th>total ms<th class=l><th>calls<th>in "
           "code</tr>\n";
    const auto number = [&](long count) {
        return profile.hasCounts ? grouped(count) : std::string("\u2013");
    };
    for (const Cost* const cost : sorted(profile.functions, byTotalS)) {
        if (cost->total.all() == 0 && cost->count == 0) continue;
        out += "<tr><td class=l>" + escaped(cost->name) + "<td>" + milliseconds(cost->self.all()) +
               "<td class=l>" + bar(cost->self.all(), profile.time) + "<td>" +
               milliseconds(cost->total.all()) + "<td class=l>" +
               bar(cost->total.all(), profile.time) + "<td>" + number(cost->count) + "<td>" +
               share(cost->inCode, cost->count) + "</tr>\n";
    }
    out += "</table>\n";
    std::map<std::pair<std::string, int>, const Cost*> lines;
    std::int64_t most = 1;
    for (const Cost& cost : profile.lines) {
        lines[{cost.file, cost.line}] = &cost;
        most = std::max(most, cost.self.all());
    }
    for (const auto& [name, file] : source.files()) {
        out += "<h2>" + escaped(file.path) +
               "</h2>\n<div class=source><table>\n<tr><th><th>ms<th>share<th>count<th>in code<th "
               "class=l></tr>\n";
        bool isInComment = false;
        for (std::size_t i = 0; i < file.lines.size(); ++i) {
            const auto found = lines.find({name, static_cast<int>(i) + 1});
            std::string cells = "<td><td><td><td>";
            std::string style;
            if (found != lines.end()) {
                const Cost& cost = *found->second;
                const double heat =
                    static_cast<double>(cost.self.all()) / static_cast<double>(most);
                char text[80];
                std::snprintf(text, sizeof text, " style=\"background:rgba(var(--hot),%.3f)\"",
                              heat * 0.6);
                if (cost.self.all() != 0) style = text;
                const bool hasTime = cost.self.all() != 0;
                cells = "<td>" + (hasTime ? milliseconds(cost.self.all()) : "") + "<td>" +
                        (hasTime ? percent(cost.self.all(), profile.time) + " %" : "") + "<td>" +
                        (profile.hasCounts ? grouped(cost.count) : "") + "<td>" +
                        share(cost.inCode, cost.count);
            }
            out.append("<tr").append(style).append("><td class=n>");
            out.append(std::to_string(i + 1)).append(cells).append("<td class=c>");
            out.append(highlighted(file.lines[i], isInComment)).append("</tr>\n");
        }
        out += "</table></div>\n";
    }
    return out + pageFoot();
}

ExitStatus run(ProfileOptions& options) {
    if (!options.run.read()) return ExitStatus::Usage;
    Observations observations(SCR::Observation::positionsCM |
                              (options.samplesOnly ? 0 : SCR::Observation::countsCM));
    observations.sample(options.interval);
    ExitStatus status =
        options.run.run([&](SCR::Interpreter& interpreter) { observations.observe(interpreter); });
    observations.stop();
    if (!observations.haveRun(status)) return status;
    const Profile profile = profileOf(observations, !options.samplesOnly);
    const SourceText source = options.run.source();
    const std::string shown = table(options, observations, profile, source);
    if (options.profile == "-") {
        flushOutput(true);
        std::fputs(shown.c_str(), stderr);
    } else if (!writeFile(options.profile, shown)) {
        status = ExitStatus::InputOutput;
    }
    const auto write = [&](const std::string& path, const std::string& text) {
        if (!path.empty() && !writeFile(path, text)) status = ExitStatus::InputOutput;
    };
    if (!options.html.empty()) write(options.html, page(options, observations, profile, source));
    if (!options.folded.empty()) write(options.folded, foldedStacks(observations, source));
    return status;
}

}  // namespace

void addProfileCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<ProfileOptions>();
    CLI::App* command = app.add_subcommand(
        "profile", "Run a script, and tell which lines and functions take the time");
    options->run.declare(*command);
    command
        ->add_option("--profile", options->profile,
                     "Where the table goes; - (default) is standard error")
        ->type_name("FILE");
    command->add_option("--html", options->html, "Write a page with the source coloured by cost")
        ->type_name("FILE");
    command
        ->add_option("--folded", options->folded,
                     "Write the stacks, each with its microseconds, as tools for flame graphs "
                     "read them")
        ->type_name("FILE");
    command->add_option("--lines", options->lines, "Show N lines in the table (default 15)")
        ->type_name("N")
        ->check([](const std::string& text) { return checkNumber(text, 0); });
    command
        ->add_option("--interval", options->interval,
                     "Look every N microseconds where the script is (default 1000)")
        ->type_name("N")
        ->check(CLI::Range(50, 1000000));
    command->add_flag("--no-counts", options->samplesOnly, "Take samples only, which costs least");
    command->footer(
        "The counts are exact, in all tiers. The time is that between samples, and belongs to the "
        "statement that ran at the sample.\n\nExample:\n"
        "  kestrel profile rate.ks --records calls.csv --header --output rated.csv --html "
        "profile.html");
    command->callback([options, &action] {
        options->run.complete();
        action = [options] { return run(*options); };
    });
}

}  // namespace Cli

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/Command.h"
#include "cli/script/ScriptFile.h"
#include "cli/script/ScriptOptions.h"
#include "cli/script/StderrLog.h"
#include "fsm/Analysis.h"
#include "fsm/EngineGroup.h"
#include "fsm/PatternOptions.h"
#include "records/RecordOutput.h"
#include "scr/message/Codes.h"
#include "scr/message/Quote.h"

namespace Cli {
namespace {

constexpr std::size_t blockSizeS = std::size_t{1} << 16;

struct MatchOptions {
    std::vector<std::string> patterns;
    std::string file;
    std::string savesTo;
    std::string loadsFrom;
    bool givesFirst = false;
    bool printsStats = false;
    bool isAnalysis = false;
    FSM::PatternOptions reading;
};

/// In double quotes, with unprintable bytes as escapes of the pattern language. If `isPattern`, the
/// escapes that it already has stay unchanged.
std::string shown(std::string_view text, bool isPattern = false) {
    std::string result = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\n') {
            result += "\\n";
        } else if (c == '\t') {
            result += "\\t";
        } else if (byte < ' ' || byte >= 127) {
            const std::string code = std::to_string(byte);
            result += "\\" + std::string(3 - code.size(), '0') + code;
        } else {
            if (!isPattern && (c == '"' || c == '\\')) result += '\\';
            result += c;
        }
    }
    return result + '"';
}

void appendNumber(std::string& text, std::int32_t number) {
    char digits[16];
    text.append(digits, std::to_chars(digits, std::end(digits), number).ptr);
}

/// Calls visit(line) for each line of standard input, and idle() before each wait for more; either
/// can end the reading by false. False with errno set if reading failed.
template <class Visitor, class Idle>
bool readLines(Visitor visit, Idle idle) {
    std::string block(blockSizeS, '\0');
    std::size_t filled = 0;
    for (;;) {
        if (filled == block.size()) block.resize(2 * block.size());
        const ssize_t count = read(STDIN_FILENO, block.data() + filled, block.size() - filled);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return false;
        if (count == 0) break;
        std::size_t from = filled;  // the bytes before hold no line end
        filled += static_cast<std::size_t>(count);
        std::size_t begin = 0;
        while (const void* const end = std::memchr(block.data() + from, '\n', filled - from)) {
            from = static_cast<std::size_t>(static_cast<const char*>(end) - block.data());
            if (!visit(std::string_view(&block[begin], from - begin))) return true;
            begin = ++from;
        }
        filled -= begin;
        std::memmove(block.data(), &block[begin], filled);
        if (!idle()) return true;
    }
    if (filled > 0) visit(std::string_view(block.data(), filled));
    return true;
}

/// Prints the numbers of the patterns that match, a line for each line of standard input.
ExitStatus matchLines(const FSM::EngineGroup& group, bool givesFirst) {
    std::signal(SIGPIPE, SIG_IGN);  // writing to a closed pipe gives an error instead
    Records::RecordOutput output;
    bool isWritten = output.open("-");
    std::vector<std::int32_t> paths;
    const auto visit = [&](std::string_view text) {
        std::string& buffer = output.buffer();
        if (givesFirst) {
            const std::int32_t path = group.firstPath(text);
            if (path >= 0) appendNumber(buffer, path);
        } else {
            group.process(text, paths);
            for (std::size_t i = 0; i < paths.size(); ++i) {
                if (i > 0) buffer += ' ';
                appendNumber(buffer, paths[i]);
            }
        }
        buffer += '\n';
        isWritten = output.settle();
        return isWritten;
    };
    const auto flush = [&] {
        isWritten = output.flush();
        return isWritten;
    };
    const bool isRead = readLines(visit, flush);
    if (!isRead) report(std::string("standard input: ") + std::strerror(errno));
    if (isWritten) isWritten = output.finish();
    if (!isWritten) report(output.error());
    return isRead && isWritten ? ExitStatus::Success : ExitStatus::InputOutput;
}

ExitStatus printAnalysis(const FSM::Analysis& analysis, const std::vector<std::string>& patterns) {
    const auto pattern = [&](std::int32_t path) {
        return std::to_string(path) + " (" + shown(patterns[static_cast<std::size_t>(path)], true) +
               ")";
    };
    Records::RecordOutput output;
    bool isWritten = output.open("-");
    std::string& text = output.buffer();
    for (const std::int32_t path : analysis.empty) {
        text += "pattern " + pattern(path) + " matches nothing\n";
    }
    for (const std::int32_t path : analysis.leaving) {
        text += "pattern " + pattern(path) +
                " matches the empty text, hence every text that leaves the automaton\n";
    }
    for (const FSM::Analysis::Shadowed& shadowed : analysis.shadowed) {
        text += "pattern " + pattern(shadowed.path) + " is never the lowest: ";
        text += shadowed.by.size() == 1 ? "pattern " : "patterns ";
        for (std::size_t i = 0; i < shadowed.by.size(); ++i) {
            if (i > 0) text += i + 1 == shadowed.by.size() ? " and " : ", ";
            text += pattern(shadowed.by[i]);
        }
        text += shadowed.by.size() == 1 ? " matches" : " together match";
        text += " all its texts, such as " + shown(shadowed.text) + "\n";
    }
    for (const FSM::Analysis::Overlap& overlap : analysis.overlaps) {
        text += "patterns " + pattern(overlap.first) + " and " + pattern(overlap.second) +
                " both match " + shown(overlap.text) + "\n";
        isWritten = isWritten && output.settle();
    }
    if (!analysis.hasAllOverlaps) text += "more patterns overlap\n";
    if (analysis.notExamined > 0) {
        text += std::to_string(analysis.notExamined) + " pairs of patterns were not examined\n";
    }
    if (isWritten) isWritten = output.finish();
    if (!isWritten) report(output.error());
    return isWritten ? ExitStatus::Success : ExitStatus::InputOutput;
}

/// Builds `matcher` from the patterns; prints its counts on standard error if they are asked for.
bool build(FSM::EngineGroup& matcher, const MatchOptions& options) {
    matcher.options(options.reading);
    const auto start = std::chrono::steady_clock::now();
    for (const std::string& pattern : options.patterns) {
        if (matcher.insertPattern(pattern)) continue;
        report(matcher.error());
        return false;
    }
    if (!matcher.finalSetup()) {
        report(matcher.error());
        return false;
    }
    if (!options.printsStats) return true;
    const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start;
    std::string automata = "one automaton";
    if (matcher.partCount() > 1) {
        automata = std::to_string(matcher.partCount()) + " automata, as one would be too large";
    }
    char milliseconds[32];
    std::snprintf(milliseconds, sizeof milliseconds, "%.2f", time.count());
    report(std::to_string(options.patterns.size()) + " patterns in " + automata + ": " +
           std::to_string(matcher.stateCount()) + " states, " + std::to_string(matcher.memory()) +
           " bytes, built in " + milliseconds + " ms");
    return true;
}

// The message about a pattern that does not parse beyond byte `place`.
SCR::Diagnostic refusal(std::string_view pattern, std::size_t place, const std::string& error) {
    constexpr std::size_t mostShown = 160;
    SCR::Diagnostic diagnostic;
    diagnostic.code = SCR::codeName(SCR::MessageCode::Pattern);
    diagnostic.text = diagnostic.explanation = error;
    int column = 1;
    for (std::size_t at = 0; at < std::min(place, pattern.size()); ++column) {
        at += std::max<std::size_t>(SCR::characterSize(pattern.substr(at)), 1);
    }
    diagnostic.place.column = column;
    diagnostic.place.length = 1;
    if (pattern.size() <= mostShown) diagnostic.source = pattern;
    return diagnostic;
}

ExitStatus match(MatchOptions options) {
    const std::size_t given = options.patterns.size();
    if (!options.file.empty()) {
        const std::optional<std::string> text = readScript(options.file);
        if (!text) return ExitStatus::Usage;
        for (std::string& line : linesOf(*text)) options.patterns.push_back(std::move(line));
    }
    bool isParsed = true;
    StderrLog log(ScriptOptions().messageStyle({}));
    for (std::size_t i = 0; i < options.patterns.size(); ++i) {
        FND::String error;
        std::size_t place = 0;
        if (FSM::checkPattern(options.patterns[i], error, place, options.reading)) continue;
        SCR::Diagnostic diagnostic = refusal(options.patterns[i], place, error);
        const bool isInFile = i >= given;
        diagnostic.place.file = isInFile ? options.file : "pattern " + std::to_string(i);
        diagnostic.place.line = isInFile ? static_cast<int>(i - given) + 1 : 1;
        log.diagnose(diagnostic);
        isParsed = false;
    }
    if (!isParsed) return ExitStatus::NotCompiled;
    if (options.isAnalysis) {
        FSM::EngineGroup group;
        if (!build(group, options)) return ExitStatus::Stopped;
        constexpr std::size_t mostOverlaps = 10000;
        std::optional<FSM::Analysis> analysis = FSM::analyse(group, mostOverlaps);
        if (!analysis && group.patternCount() > 0)
            analysis = FSM::analyse(options.patterns, mostOverlaps, options.reading);
        return printAnalysis(analysis.value_or(FSM::Analysis()), options.patterns);
    }
    FSM::EngineGroup group;
    if (!options.loadsFrom.empty()) {
        if (!group.load(options.loadsFrom)) {
            report(group.error());
            return ExitStatus::Usage;
        }
    } else if (!build(group, options)) {
        return ExitStatus::Stopped;
    }
    if (!options.savesTo.empty()) {
        FND::String error;
        if (group.save(options.savesTo, error)) return ExitStatus::Success;
        report(error);
        return ExitStatus::InputOutput;
    }
    return matchLines(group, options.givesFirst);
}

}  // namespace

void addMatchCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<MatchOptions>();
    CLI::App* command = app.add_subcommand(
        "match", "Print which patterns match each line of standard input as a whole");
    command
        ->add_option("-p", options->patterns,
                     "A pattern; may be repeated. Patterns are numbered from 0 in the order given")
        ->type_name("PATTERN")
        ->allow_extra_args(false);
    command
        ->add_option("-f", options->file,
                     "More patterns, a line each, numbered after those of -p; - is standard input")
        ->type_name("FILE");
    command->add_option("--save", options->savesTo, "Read no texts; write the automata to a file")
        ->type_name("FILE");
    CLI::Option* const load =
        command
            ->add_option("--load", options->loadsFrom,
                         "Take the automata from such a file instead of building them")
            ->type_name("FILE")
            ->excludes("-p", "-f", "--save");
    const std::pair<const char*, std::pair<bool*, const char*>> readings[] = {
        {"--ignore-case",
         {&options->reading.ignoresCase,
          "A letter matches its upper and lower case; with --utf8 all letters of Unicode do"}},
        {"--utf8",
         {&options->reading.isUtf8,
          "Patterns and texts are UTF-8; . and sets stand for characters"}},
        {"--textbook",
         {&options->reading.leavesByTextbook,
          "A pattern that matches the empty text is not reported for texts that nothing matches"}},
        {"--nul", {&options->reading.takesNul, "NUL is a byte like others and ends no line"}}};
    for (const auto& [name, reading] : readings) {
        command->add_flag(name, *reading.first, reading.second)->excludes(load);
    }
    command->add_flag("--first", options->givesFirst,
                      "Print only the lowest number of those that match");
    command->add_flag("--stats", options->printsStats,
                      "Print the number of states, their memory and the time to build them, on "
                      "standard error");
    command
        ->add_flag("--analyse", options->isAnalysis,
                   "Read no texts; print which patterns match nothing, are never the lowest or "
                   "overlap, each with a shortest text")
        ->excludes(load);
    command->footer(
        "For each line the numbers of the matching patterns are printed, separated by blanks; an\n"
        "empty line if there are none. A line is bytes of any kind and ends, for the match, at\n"
        "its first NUL unless --nul is given. A saved file keeps --ignore-case, --utf8, "
        "--textbook\n"
        "and --nul. docs/patterns.md describes the patterns.\n"
        "\n"
        "Exit status:\n"
        "  0   all lines were read and answered\n"
        "  2   bad usage, or a file that cannot be read\n"
        "  3   a pattern does not parse\n"
        "  4   the patterns need too many states or too much memory\n"
        "  74  reading or writing failed underway\n"
        "\n"
        "Examples:\n"
        "  kestrel match -p '49.*' -p '4989[0-9]+' < numbers\n"
        "  kestrel match -f prefixes --first --stats < numbers\n"
        "  kestrel match -f prefixes --analyse");
    command->callback([command, options, &action] {
        if (command->count("-p") + command->count("-f") + command->count("--load") == 0) {
            throw CLI::RequiredError("-p PATTERN or -f FILE");
        }
        action = [options] { return match(*options); };
    });
}

}  // namespace Cli

#include "cli/observe/DebugConsole.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdint>
#include <utility>

#include "cli/records/RecordOptions.h"
#include "cli/script/MessageText.h"
#include "scr/Output.h"

namespace Cli {
namespace {

constexpr const char* debugHelpS =
    "b LINE | FILE:LINE | FUNCTION   stop there; with \"if EXPRESSION\", when that holds;\n"
    "                                with \"record N\", for that record\n"
    "b message | b reject            stop at a message, or when a record is rejected\n"
    "b                               list what stops the script;  d N  deletes one\n"
    "w NAME                          stop when the variable has changed\n"
    "r N                             go on to record N\n"
    "c                               continue;  n  next statement;  s  into calls;  o  out of one\n"
    "p EXPRESSION                    print what it comes to;  v  all variables;  f  all fields\n"
    "set NAME = EXPRESSION           change a variable, an element or a field\n"
    "l [LINE]                        list the script;  bt  the calls;  up  down  the call to look "
    "at\n"
    "q                               end the script\n"
    "An empty line does the last step again.\n";

// The debugger that Ctrl-C stops.
Debugger* debuggedG = nullptr;

extern "C" void pauseAtSignal(int /*signal*/) {
    if (debuggedG != nullptr) debuggedG->pause();
}

// The script stops, and the prompt gets no line.
extern "C" void endAtSignal(int /*signal*/) {
    stopJobs();
    if (debuggedG != nullptr) debuggedG->pause();
}

void say(const std::string& text) { SCR::standardOutput().write(text + '\n'); }

std::string fileNameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

std::optional<std::int64_t> numberIn(std::string_view text) {
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, number);
    if (text.empty() || read.ec != std::errc() || read.ptr != end || number < 1)
        return std::nullopt;
    return number;
}

std::string stripped(std::string_view text) {
    const std::size_t first = std::min(text.find_first_not_of(" \t\r"), text.size());
    const std::size_t last = text.find_last_not_of(" \t\r");
    return std::string(text.substr(first, last == std::string_view::npos ? 0 : last + 1 - first));
}

std::string nameOf(const Debugger::Breakpoint& breakpoint) {
    std::string text;
    switch (breakpoint.kind) {
        case Debugger::Breakpoint::Kind::Message:
            return "a message";
        case Debugger::Breakpoint::Kind::Reject:
            return "a rejected record";
        case Debugger::Breakpoint::Kind::Record:
            return "record " + std::to_string(breakpoint.number);
        case Debugger::Breakpoint::Kind::Change:
            return "a change of " + breakpoint.name;
        case Debugger::Breakpoint::Kind::Function:
            text = breakpoint.name;
            if (breakpoint.line > 0) text += ", line " + std::to_string(breakpoint.line);
            break;
        case Debugger::Breakpoint::Kind::Line:
            text = breakpoint.path.empty() ? "line " : fileNameOf(breakpoint.path) + ':';
            text += std::to_string(breakpoint.line);
            break;
    }
    if (breakpoint.number > 0) text += " record " + std::to_string(breakpoint.number);
    if (!breakpoint.condition.empty()) text += " if " + breakpoint.condition;
    return text;
}

}  // namespace

ExitStatus DebugConsole::run(ScriptRun& run) {
    debugger_.stopOnEntry();
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = pauseAtSignal;
    action.sa_flags = static_cast<int>(SA_RESTART);
    debuggedG = &debugger_;
    catchSignals();
    sigaction(SIGINT, &action, &before);
    action.sa_handler = endAtSignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGHUP, &action, nullptr);
    run.records().keepsSignals();
    const ExitStatus status = debugger_.run(run);
    sigaction(SIGINT, &before, nullptr);
    debuggedG = nullptr;
    return status;
}

void DebugConsole::print(std::string_view text) { SCR::standardOutput().write(text); }

void DebugConsole::recordDone(const std::string& text) { say(text); }

void DebugConsole::placed(const Debugger::Breakpoint& breakpoint) {
    const std::string number = std::to_string(breakpoint.id) + ": ";
    say(breakpoint.isPlaced ? number + nameOf(breakpoint) : number + breakpoint.fault);
}

void DebugConsole::showWhere() const {
    const std::vector<Debugger::Frame> frames = debugger_.frames();
    if (frame_ >= frames.size()) return;
    const Debugger::Frame& frame = frames[frame_];
    std::string text = fileNameOf(frame.path) + ':' + std::to_string(frame.line);
    if (!frame.function.empty()) text += " in " + frame.function;
    if (debugger_.record() != 0) text += ", record " + std::to_string(debugger_.record());
    say(text);
    for (const auto& [name, file] : debugger_.source().files()) {
        if (file.path != frame.path) continue;
        const auto line = static_cast<std::size_t>(frame.line);
        if (line >= 1 && line <= file.lines.size()) {
            say("> " + std::to_string(line) + '\t' + readable(file.lines[line - 1]));
        }
        return;
    }
}

Debugger::Resume DebugConsole::stopped(const Debugger::Stop& stop) {
    frame_ = 0;
    listed_ = 0;
    using Reason = Debugger::Reason;
    const bool isTold = stop.reason == Reason::Message || stop.reason == Reason::Reject ||
                        stop.reason == Reason::Change;
    if (isTold) {
        say((stop.reason == Reason::Message  ? "message: "
             : stop.reason == Reason::Reject ? "rejects the record: "
                                             : "changed: ") +
            readable(stop.text));
    } else if (stop.breakpoint != 0) {
        say("breakpoint " + std::to_string(stop.breakpoint));
    }
    showWhere();
    for (;;) {
        SCR::standardOutput().write("(debug) ");
        flushOutput(true);
        const std::optional<std::string> typed = readLine();
        if (!typed) {
            say("");
            return Debugger::Resume::End;
        }
        std::string line = stripped(*typed);
        if (line.empty()) line = last_;
        const auto resume = perform(line);
        if (!resume) continue;
        debugger_.forgetPause();  // Ctrl-C at the prompt
        return *resume;
    }
}

std::optional<std::string> DebugConsole::readLine() {
    std::size_t end = input_.find('\n');
    while (end == std::string::npos) {
        // A signal that ends the command is heard here, too.
        stopSignal().waitForInput(STDIN_FILENO);
        if (stopSignal().isRaised()) return std::nullopt;
        std::array<char, 4096> block;
        const ssize_t count = read(STDIN_FILENO, block.data(), block.size());
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (count <= 0) {
            if (input_.empty()) return std::nullopt;
            return std::exchange(input_, {});
        }
        const std::size_t before = input_.size();
        input_.append(block.data(), static_cast<std::size_t>(count));
        end = input_.find('\n', before);
    }
    std::string line = input_.substr(0, end);
    input_.erase(0, end + 1);
    return line;
}

std::optional<Debugger::Resume> DebugConsole::perform(const std::string& line) {
    const std::size_t blank = std::min(line.find_first_of(" \t"), line.size());
    const std::string word = line.substr(0, blank);
    const std::string rest = stripped(std::string_view(line).substr(blank));
    const std::pair<const char*, Debugger::Resume> steps[] = {
        {"c", Debugger::Resume::Go},   {"continue", Debugger::Resume::Go},
        {"n", Debugger::Resume::Over}, {"next", Debugger::Resume::Over},
        {"s", Debugger::Resume::Into}, {"step", Debugger::Resume::Into},
        {"o", Debugger::Resume::Out},  {"out", Debugger::Resume::Out},
        {"q", Debugger::Resume::End},  {"quit", Debugger::Resume::End}};
    for (const auto& [name, resume] : steps) {
        if (word != name) continue;
        last_ = line;
        return resume;
    }
    if (word == "b" || word == "break") {
        addBreakpoint(rest);
    } else if (word == "d" || word == "delete") {
        const auto id = numberIn(rest);
        if (!id || *id > INT32_MAX || !debugger_.remove(static_cast<int>(*id)))
            say("there is no breakpoint " + rest);
    } else if (word == "w" || word == "watch") {
        if (rest.empty()) {
            say("w NAME: the variable is missing");
        } else {
            addBreakpoint(Kind::Change, rest);
        }
    } else if (word == "r" || word == "record") {
        const auto number = numberIn(rest);
        if (!debugger_.hasRecords() || !number) {
            say(debugger_.hasRecords() ? "r N: which record?" : "there are no records");
            return std::nullopt;
        }
        Debugger::Breakpoint breakpoint;
        breakpoint.kind = Kind::Record;
        breakpoint.number = *number;
        debugger_.add(std::move(breakpoint));
        return Debugger::Resume::Go;
    } else if (word == "p" || word == "print") {
        show(rest);
    } else if (word == "v" || word == "variables") {
        showVariables();
    } else if (word == "f" || word == "fields") {
        if (!debugger_.hasRecord()) say("there is no record");
        showItems(debugger_.fields());
    } else if (word == "set") {
        assign(rest);
    } else if (word == "l" || word == "list") {
        list(rest);
        last_ = "l";
    } else if (word == "bt" || word == "where") {
        showCalls();
    } else if (word == "up" || word == "down") {
        const std::size_t count = debugger_.frames().size();
        if (word == "up" && frame_ + 1 < count) ++frame_;
        if (word == "down" && frame_ > 0) --frame_;
        listed_ = 0;
        showWhere();
    } else if (word == "h" || word == "help") {
        SCR::standardOutput().write(debugHelpS);
    } else if (!word.empty()) {
        say("no command `" + readable(word) + "`; help lists them");
    }
    return std::nullopt;
}

void DebugConsole::addBreakpoint(Kind kind, const std::string& name) {
    Debugger::Breakpoint breakpoint;
    breakpoint.kind = kind;
    breakpoint.name = name;
    debugger_.add(std::move(breakpoint));
    debugger_.placeNew();
}

void DebugConsole::addBreakpoint(std::string text) {
    if (text.empty()) {
        for (const Debugger::Breakpoint& each : debugger_.breakpoints()) {
            say(std::to_string(each.id) + ": " + nameOf(each) +
                (each.isPlaced ? "" : ": " + each.fault));
        }
        return;
    }
    if (text == "message" || text == "reject") {
        return addBreakpoint(text == "message" ? Kind::Message : Kind::Reject);
    }
    Debugger::Breakpoint breakpoint;
    const std::size_t condition = text.find(" if ");
    if (condition != std::string::npos) {
        breakpoint.condition = stripped(std::string_view(text).substr(condition + 4));
        text = stripped(std::string_view(text).substr(0, condition));
    }
    const std::size_t record = text.find(" record ");
    if (record != std::string::npos) {
        const auto number = numberIn(stripped(std::string_view(text).substr(record + 8)));
        if (!number) return say("b LINE record N: which record?");
        breakpoint.number = *number;
        text = stripped(std::string_view(text).substr(0, record));
    }
    const std::size_t colon = text.rfind(':');
    const auto line = numberIn(colon == std::string::npos ? text : text.substr(colon + 1));
    if (!line) {
        breakpoint.kind = Kind::Function;
        breakpoint.name = text;
    } else {
        breakpoint.line = static_cast<int>(std::min<std::int64_t>(*line, INT32_MAX));
        const std::string file = colon == std::string::npos ? "" : text.substr(0, colon);
        if (colon == std::string::npos) {
            const auto frames = debugger_.frames();
            if (frame_ < frames.size()) breakpoint.path = frames[frame_].path;
        } else {
            breakpoint.path = file;
            // By its last name too.
            for (const auto& [name, source] : debugger_.source().files()) {
                if (fileNameOf(source.path) == file) breakpoint.path = source.path;
            }
        }
    }
    debugger_.add(std::move(breakpoint));
    debugger_.placeNew();
}

void DebugConsole::list(const std::string& argument) {
    const auto frames = debugger_.frames();
    if (frame_ >= frames.size()) return;
    constexpr int around = 5;
    const auto asked = numberIn(argument);
    const std::vector<std::string>* lines = nullptr;
    for (const auto& [name, file] : debugger_.source().files()) {
        if (file.path == frames[frame_].path) lines = &file.lines;
    }
    if (lines == nullptr) return say("the text is not known");
    const int count = static_cast<int>(lines->size());
    int first = asked         ? static_cast<int>(std::min<std::int64_t>(*asked, count)) - around
                : listed_ > 0 ? listed_
                              : frames[frame_].line - around;
    first = std::max(first, 1);
    const int last = std::min(first + 2 * around, count);
    for (int line = first; line <= last; ++line) {
        const char* const mark = line == frames[frame_].line ? "> " : "  ";
        say(mark + std::to_string(line) + '\t' +
            readable((*lines)[static_cast<std::size_t>(line) - 1]));
    }
    listed_ = last + 1;
}

void DebugConsole::showCalls() const {
    const auto frames = debugger_.frames();
    constexpr std::size_t most = 50;
    for (std::size_t i = 0; i < std::min(frames.size(), most); ++i) {
        const Debugger::Frame& frame = frames[i];
        say((i == frame_ ? "> " : "  ") + std::to_string(i) + '\t' +
            (frame.function.empty() ? "the script" : frame.function) + " at " +
            fileNameOf(frame.path) + ':' + std::to_string(frame.line));
    }
    if (frames.size() > most) say("  and " + std::to_string(frames.size() - most) + " more");
}

void DebugConsole::showItems(const std::vector<Debugger::Item>& items) const {
    for (const Debugger::Item& item : items) {
        const std::string type = item.type == "field" || item.type.empty() ? "" : item.type + ' ';
        say("  " + type + item.name + " = " + readable(item.value));
    }
}

void DebugConsole::showVariables() { showItems(debugger_.variables(frame_)); }

void DebugConsole::show(const std::string& expression) {
    if (expression.empty()) return say("p EXPRESSION: the expression is missing");
    constexpr std::size_t most = 20;
    for (const Debugger::Item& item : debugger_.variables(frame_)) {
        if (item.name != expression || item.elements < 0) continue;
        say(item.type + ", " + item.value);
        showItems(debugger_.elements({frame_, item.name, {}}, 0, most));
        if (item.elements > static_cast<std::int64_t>(most)) say("  ...");
        return;
    }
    const Debugger::Answer answer = debugger_.evaluate(expression, frame_);
    say(readable(answer.text));
}

void DebugConsole::assign(const std::string& text) {
    // Not the one of a comparison in an index.
    std::size_t sign = std::string::npos;
    int depth = 0;
    bool isText = false;
    for (std::size_t i = 0; i < text.size() && sign == std::string::npos; ++i) {
        if (isText && text[i] == '\\') {
            ++i;
        } else if (text[i] == '"') {
            isText = !isText;
        } else if (!isText && (text[i] == '[' || text[i] == '{' || text[i] == '(')) {
            ++depth;
        } else if (!isText && (text[i] == ']' || text[i] == '}' || text[i] == ')')) {
            --depth;
        } else if (!isText && depth == 0 && text[i] == '=') {
            sign = i;
        }
    }
    if (sign == std::string::npos) return say("set NAME = EXPRESSION");
    const std::string target = stripped(std::string_view(text).substr(0, sign));
    const auto answer =
        debugger_.assign(target, stripped(std::string_view(text).substr(sign + 1)), frame_);
    say((answer.isGood ? target + " = " : "") + readable(answer.text));
}

}  // namespace Cli

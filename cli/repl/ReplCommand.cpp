#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "author/Completion.h"
#include "author/SourceText.h"
#include "cli/Command.h"
#include "cli/author/ExplainPage.h"
#include "cli/records/RecordOptions.h"
#include "cli/records/SampleRecords.h"
#include "cli/repl/LineInput.h"
#include "cli/script/MessageText.h"
#include "cli/script/ScriptFile.h"
#include "cli/script/ScriptOptions.h"
#include "cli/script/StderrLog.h"
#include "scr/Interpreter.h"
#include "scr/Observation.h"
#include "scr/Output.h"

namespace Cli {
namespace {

constexpr const char* commandsHelpS =
    "STATEMENT;         executes it; what it declares stays. Lines go on until brackets are "
    "closed;\n"
    "                   an empty line ends what is not finished\n"
    "EXPRESSION         shows what it comes to\n"
    ":type EXPRESSION   the type of what it would come to; nothing is executed\n"
    ":time INPUT        executes it and tells how long that took\n"
    ":explain [CODE]    tells about a message, that of the last fault if no code is given\n"
    ":records FILE...   takes records from there: .csv and .tsv with a line of names, .jsonl, "
    "lines;\n"
    "                   compressed ones too\n"
    ":next [N]          goes on by one record or by N, and executes the script given, if there is "
    "one\n"
    ":record            the record as it stands;  :fields  its fields\n"
    ":load FILE         executes the script in a file\n"
    ":help              this;  :quit  ends\n";

struct ReplOptions {
    ScriptOptions script;
    std::string file;
    std::vector<std::string> records;
};

// A session of somebody who tries things.
class Session {
public:
    explicit Session(const ReplOptions& options)
        : options_(options),
          log_(options.script.messageStyle("input")),
          functions_(Author::Functions::shipped()) {}

    ExitStatus run();

private:
    enum class State { Complete, Open };

    std::optional<std::string> read(LineInput& input) const;
    static State stateOf(const std::string& text);
    void perform(const std::string& text);
    bool command(const std::string& text);  // whether the session goes on
    void execute(const std::string& text);
    bool show(const std::string& text, bool reports);
    // Begins with the script anew: an interpreter with the functions for such records.
    ExitStatus begin();
    void endScript();
    void nextRecords(const std::string& count);
    void openRecords(const std::string& paths);
    void showFields();
    void explain(const std::string& code);
    std::vector<std::string> complete(const std::string& line, std::size_t begin) const;

    const ReplOptions& options_;
    StderrLog log_;
    std::unique_ptr<SampleRecords> records_;
    const Author::Functions functions_;
    std::unique_ptr<SCR::Interpreter> interpreter_;  // uses the records
    bool knowsFields_ = false;  // a function or the script may have numbers of fields
    std::string declared_;      // what was executed so far, for completion
    bool hasScript_ = false;    // one that is executed for each record
    std::string lastCode_;
};

// What Ctrl-C stops: the interpreter that executes.
std::atomic<SCR::Interpreter*> interruptedG = nullptr;

extern "C" void interruptAtSignal(int /*signal*/) {
    SCR::Interpreter* const interpreter = interruptedG;
    if (interpreter != nullptr) interpreter->interrupt();
}

void interruptsAt(SCR::Interpreter* interpreter) {
    interruptedG = interpreter;
    struct sigaction action {};
    action.sa_handler = interpreter != nullptr ? interruptAtSignal : SIG_DFL;
    action.sa_flags = static_cast<int>(SA_RESTART);
    sigaction(SIGINT, &action, nullptr);
}

void tell(const std::string& text) { SCR::standardOutput().write(text + '\n'); }

std::string withoutBlanks(std::string_view text) {
    const std::size_t first = std::min(text.find_first_not_of(" \t\r\n"), text.size());
    const std::size_t last = text.find_last_not_of(" \t\r\n");
    return std::string(text.substr(first, last == std::string_view::npos ? 0 : last + 1 - first));
}

// Brackets and comments must be closed; texts that are not are faults of their line.
Session::State Session::stateOf(const std::string& text) {
    const SCR::SourceTokens source = SCR::sourceTokens(text);
    if (source.openComment != SCR::SourceTokens::none) return State::Open;
    int depth = 0;
    const SCR::SourceToken* last = nullptr;
    for (const SCR::SourceToken& token : source.tokens) {
        if (!token.isSeen()) continue;
        const std::string_view sign = token.in(text);
        if (sign == "(" || sign == "[" || sign == "{") ++depth;
        if (sign == ")" || sign == "]" || sign == "}") --depth;
        last = &token;
    }
    if (depth != 0 || last == nullptr) return depth > 0 ? State::Open : State::Complete;
    // After one of these, a statement or a value must follow.
    using SCR::SourceKind;
    const std::string_view end = last->in(text);
    const bool isOperator = last->kind == SourceKind::Comparison ||
                            last->word == SCR::Word::BoolOperator || end == "+" || end == "-" ||
                            end == "*" || end == "/" || end == "%" || end == "=" || end == ",";
    if (isOperator || last->word == SCR::Word::Else || last->word == SCR::Word::Do) {
        return State::Open;
    }
    const SCR::SourceToken* first = nullptr;
    for (const SCR::SourceToken& token : source.tokens) {
        if (token.isSeen() && first == nullptr) first = &token;
    }
    const bool isHead = first->word == SCR::Word::If || first->word == SCR::Word::While ||
                        first->word == SCR::Word::For || first->word == SCR::Word::Function ||
                        first->word == SCR::Word::Switch || first->word == SCR::Word::RegExprSwitch;
    return isHead && end != ";" && end != "}" ? State::Open : State::Complete;
}

std::optional<std::string> Session::read(LineInput& input) const {
    std::string text;
    for (;;) {
        const auto line = input.next(text.empty() ? "> " : ". ");
        if (!line) return text.empty() ? std::nullopt : std::optional(text);
        if (!text.empty() && withoutBlanks(*line).empty()) return text;
        text += (text.empty() ? "" : "\n") + *line;
        const std::string stripped = withoutBlanks(text);
        if (stripped.starts_with(':') && !stripped.starts_with(":time ")) return text;
        const std::size_t begin = stripped.starts_with(":time ") ? 6 : 0;
        if (stateOf(stripped.substr(begin)) == State::Complete) return text;
    }
}

bool Session::show(const std::string& text, bool reports) {
    SCR::Expression expression(*interpreter_, text);
    FND::String value;
    const bool isDone = expression && expression.evaluate(value);
    if (!expression && !reports) return false;
    for (const SCR::Diagnostic& message : expression.messages()) {
        lastCode_ = message.code;
        log_.diagnose(message);
    }
    if (isDone && expression.type() != "Void") tell(readable(value));
    return true;
}

void Session::execute(const std::string& text) {
    const bool isDone = interpreter_->extend(text);
    for (const SCR::Diagnostic& message : interpreter_->diagnostics()) {
        if (!message.code.empty()) lastCode_ = message.code;
    }
    if (!isDone) return;
    declared_ += text + '\n';
    for (const SCR::SourceToken& token : SCR::sourceTokens(text).tokens) {
        knowsFields_ = knowsFields_ || token.word == SCR::Word::Function ||
                       token.kind == SCR::SourceKind::IncludeLine;
    }
}

void Session::perform(const std::string& text) {
    const SCR::SourceTokens source = SCR::sourceTokens(text);
    std::string_view end;
    bool isInclude = false;
    for (const SCR::SourceToken& token : source.tokens) {
        if (token.isSeen()) end = token.in(text);
        isInclude = isInclude || token.kind == SCR::SourceKind::IncludeLine;
    }
    if (end.empty() && !isInclude) return;
    if (end == ";" || end == "}" || isInclude) {
        // A value in braces, as in total{"x"}, is no statement.
        if (end == "}" && !isInclude && show(text, false)) return;
        return execute(text);
    }
    show(text, true);
}

// The files, which may have blanks in their names if there is one.
std::vector<std::string> pathsIn(const std::string& text) {
    if (access(text.c_str(), F_OK) == 0) return {text};
    std::istringstream words(text);
    return {std::istream_iterator<std::string>(words), {}};
}

void Session::openRecords(const std::string& text) {
    const std::vector<std::string> paths = pathsIn(text);
    if (paths.empty()) return tell(":records FILE...: the file is missing");
    const bool isJson = SampleRecords::isJson(paths[0]);
    const bool wasJson = records_->current().json != nullptr;
    const std::vector<std::string> before = records_->names().all();
    auto other = isJson != wasJson ? std::make_unique<SampleRecords>(isJson, log_) : nullptr;
    const std::string fault = (other ? other : records_)->open(paths);
    if (!fault.empty()) return tell(readable(fault));
    const std::vector<std::string> names = (other ? other : records_)->names().all();
    if (other || (knowsFields_ && names != before)) {
        // What is compiled knows fields by their numbers.
        endScript();
        if (other) records_ = std::move(other);
        begin();
        tell("the fields are others: what was declared is forgotten");
    }
    if (names.empty()) return;
    std::string line = "fields:";
    for (const std::string& name : names) line += ' ' + name;
    tell(readable(line));
}

void Session::nextRecords(const std::string& count) {
    if (!records_->isOpen()) return tell("there are no records: :records FILE opens some");
    long left = count.empty() ? 1 : std::atol(count.c_str());
    std::optional<std::string> fault;
    for (; left > 0; --left) {
        fault = records_->next();
        if (!fault) return tell("there are no more records");
    }
    if (!fault) return tell(":next N: by how many?");
    Records::CurrentRecord& current = records_->current();
    const std::string number = "record " + std::to_string(current.number);
    if (!fault->empty()) return tell(records_->isOpen() ? number + ": " + *fault : *fault);
    tell(number + ": " + readable(current.original));
    if (!hasScript_) return;
    interpreter_->execute();
    if (current.isRejected()) tell("rejected: " + current.rejection().text());
    if (current.isDropped) tell("dropped");
}

void Session::showFields() {
    Records::CurrentRecord& current = records_->current();
    if (current.json != nullptr) return tell(readable(current.json->text()));
    const auto& names = records_->names().all();
    for (std::size_t i = 0; i < names.size() || current.record.has(i); ++i) {
        const std::string name = i < names.size() ? names[i] : 'f' + std::to_string(i + 1);
        tell(readable(name) + " = " + readable(current.record.value(i)));
    }
}

void Session::explain(const std::string& code) {
    const std::string wanted = code.empty() ? lastCode_ : code;
    if (wanted.empty()) return tell("there was no message yet");
    if (!printExplanation(wanted)) tell("no code " + readable(wanted));
}

bool Session::command(const std::string& text) {
    const std::size_t blank = std::min(text.find_first_of(" \t\n"), text.size());
    const std::string word = text.substr(0, blank);
    const std::string rest = withoutBlanks(std::string_view(text).substr(blank));
    if (word == ":quit" || word == ":q") return false;
    if (word == ":help") {
        SCR::standardOutput().write(commandsHelpS);
    } else if (word == ":type") {
        const SCR::Expression expression(*interpreter_, rest);
        for (const SCR::Diagnostic& message : expression.messages()) {
            lastCode_ = message.code;
            log_.diagnose(message);
        }
        if (expression) tell(expression.type());
    } else if (word == ":time") {
        const auto begin = std::chrono::steady_clock::now();
        perform(rest);
        const std::chrono::duration<double, std::milli> passed =
            std::chrono::steady_clock::now() - begin;
        char line[64];
        std::snprintf(line, sizeof line, "%.3f ms", passed.count());
        tell(line);
    } else if (word == ":explain") {
        explain(rest);
    } else if (word == ":records") {
        openRecords(rest);
    } else if (word == ":next") {
        nextRecords(rest);
    } else if (word == ":record") {
        Records::CurrentRecord& current = records_->current();
        std::string record;
        if (current.json != nullptr) {
            record = current.json->text();
        } else {
            current.record.write(record);
        }
        tell(readable(record));
    } else if (word == ":fields") {
        showFields();
    } else if (word == ":load") {
        if (const auto script = readScript(rest, options_.script.mostBytes())) {
            log_.script(rest);
            execute(*script);
            log_.script("input");
        }
    } else {
        tell("no command " + readable(word) + "; :help lists them");
    }
    return true;
}

std::vector<std::string> Session::complete(const std::string& line, std::size_t begin) const {
    constexpr const char* commands[] = {":explain", ":fields", ":help",    ":load", ":next",
                                        ":quit",    ":record", ":records", ":time", ":type"};
    const std::string word = line.substr(begin);
    std::vector<std::string> words;
    if (word.starts_with(':') && begin == 0) {
        for (const char* const each : commands) {
            if (std::string_view(each).starts_with(word)) words.emplace_back(each);
        }
        return words;
    }
    // After the name of a module, only the name of the function is completed.
    const std::size_t colons = word.rfind("::");
    const std::string prefix = colons == std::string::npos ? "" : word.substr(0, colons + 2);
    const std::string text = declared_ + line;
    const Author::SymbolIndex index(std::make_shared<Author::SourceText>("", text),
                                    [](std::string_view) { return nullptr; });
    const auto fields = [&] { return records_->names().all(); };
    for (const Author::Suggested& each : suggest(index, text.size(), functions_, fields)) {
        if ((prefix + each.label).starts_with(word)) words.push_back(prefix + each.label);
    }
    std::sort(words.begin(), words.end());
    words.erase(std::unique(words.begin(), words.end()), words.end());
    return words;
}

ExitStatus Session::begin() {
    knowsFields_ = !options_.file.empty();
    hasScript_ = false;
    declared_.clear();
    interpreter_ = options_.script.makeInterpreter(log_, recordZoneS);
    if (!interpreter_) return ExitStatus::Usage;
    interruptsAt(interpreter_.get());
    records_->addTo(*interpreter_);
    if (options_.file.empty()) {
        interpreter_->compile("");
        return ExitStatus::Success;
    }
    const auto script = readScript(options_.file, options_.script.mostBytes());
    if (!script) return ExitStatus::Usage;
    declared_ = *script + '\n';
    log_.script(options_.file);
    hasScript_ = interpreter_->compile(*script);
    if (!hasScript_) interpreter_->compile("");
    log_.script("input");
    return hasScript_ ? ExitStatus::Success : ExitStatus::NotCompiled;
}

void Session::endScript() {
    interruptsAt(nullptr);
    interpreter_->finish();
    interpreter_.reset();
}

ExitStatus Session::run() {
    const bool isJson = !options_.records.empty() && SampleRecords::isJson(options_.records[0]);
    records_ = std::make_unique<SampleRecords>(isJson, log_);
    if (!options_.records.empty()) {
        const std::string fault = records_->open(options_.records);
        if (!fault.empty()) {
            report(fault);
            return ExitStatus::Usage;
        }
    }
    if (const ExitStatus status = begin(); status != ExitStatus::Success) return status;
    if (options_.records.empty() && hasScript_) interpreter_->execute();
    const char* const home = std::getenv("HOME");
    LineInput input(
        [this](const std::string& line, std::size_t begin) { return complete(line, begin); },
        home != nullptr ? std::string(home) + "/.kestrel_history" : "");
    while (const auto text = read(input)) {
        const std::string stripped = withoutBlanks(*text);
        if (!stripped.starts_with(':')) {
            perform(*text);
        } else if (!command(stripped)) {
            break;
        }
        flushOutput(true);
    }
    interruptsAt(nullptr);
    interpreter_->finish();
    return statusAfter(ExitStatus::Success, interpreter_->outputFailures());
}

}  // namespace

void addReplCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<ReplOptions>();
    CLI::App* command = app.add_subcommand(
        "repl", "Execute statements and show values as they are typed; :help tells more");
    options->script.declare(*command);
    command
        ->add_option("--records", options->records,
                     "Take records from FILE, one at each :next; may be repeated")
        ->type_name("FILE")
        ->allow_extra_args(false);
    command
        ->add_option("FILE", options->file,
                     "A script that is executed first, or for each record that is taken")
        ->type_name("");
    command->footer(
        "Example:\n"
        "  kestrel repl rate.ks --records calls.csv");
    command->callback([options, &action] {
        options->script.scriptName("input");
        action = [options] { return Session(*options).run(); };
    });
}

}  // namespace Cli

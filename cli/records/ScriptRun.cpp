#include "cli/records/ScriptRun.h"

#include <cerrno>
#include <string_view>

#include "cli/script/MessageText.h"
#include "cli/script/StderrLog.h"
#include "scr/Interpreter.h"
#include "scr/Observation.h"
#include "scr/Output.h"

namespace Cli {
namespace {

/// The prints of the script. When nobody reads them any more, the command ends like other commands.
class Printer final : public SCR::Output {
public:
    bool write(std::string_view text) override { return isAlive(output_.write(text)); }
    bool flush(bool mayWait) override { return isAlive(output_.flush(mayWait)); }

private:
    static bool isAlive(bool isWritten) {
        const int error = errno;
        if (!isWritten && error == EPIPE) endByClosedPipe();
        errno = error;
        return isWritten;
    }

    SCR::Output& output_ = SCR::standardOutput();
};

ExitStatus execute(SCR::Interpreter& interpreter, const std::string& text, std::int64_t turns) {
    if (!interpreter.compile(text)) {
        return interpreter.wasStopped() ? ExitStatus::Stopped : ExitStatus::NotCompiled;
    }
    for (std::int64_t turn = 0; turn < turns; ++turn) {
        if (!interpreter.execute()) return ExitStatus::Stopped;
    }
    return ExitStatus::Success;
}

// Keeps the values of the parts of an expression.
class Parts final : public SCR::Observation {
public:
    Parts() : Observation(eventsCM) { listen(true); }
    void value(std::size_t site, const FND::String& text) override {
        parts += (parts.empty() ? "" : ", ") + sites()[site].text + " is " + text;
    }
    std::string parts;
};

}  // namespace

bool ScriptRun::holdChecks(SCR::Interpreter& interpreter) const {
    bool doAllHold = true;
    SCR::Observation* const outer = interpreter.observation();
    const std::vector<std::string> lines = linesOfFile(checks_);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].find_first_not_of(" \t") == std::string::npos) continue;
        Parts parts;
        interpreter.observe(&parts);
        const bool isCompiled = interpreter.compileQuery(lines[i]);
        interpreter.observe(outer);
        bool holds = false;
        if (isCompiled && interpreter.evaluateQuery(holds) && holds) continue;
        doAllHold = false;
        report("check " + std::to_string(i + 1) + " does not hold: " + readable(lines[i]) +
               (parts.parts.empty() ? "" : "; " + readable(parts.parts)));
    }
    // Nodes of the last query would tell its observer, which is gone.
    interpreter.compileQuery("true");
    return doAllHold;
}

bool ScriptRun::read() {
    text_ = given_ ? given_ : records_.script(file_, script_.mostBytes());
    return text_.has_value();
}

SourceText ScriptRun::source() const {
    return {script_.expand(*text_).value_or(*text_), name(), script_.includePath()};
}

ExitStatus ScriptRun::run(const Prepare& prepare) {
    if (!text_ && !read()) return ExitStatus::Usage;
    if (records_.isGiven()) return runOnRecords(prepare);
    StderrLog log(script_.messageStyle(name()));
    Printer printer;
    auto interpreter = script_.makeInterpreter(log);
    if (!interpreter) return ExitStatus::Usage;
    interpreter->output(&printer);
    if (prepare) prepare(*interpreter);
    ExitStatus status = execute(*interpreter, *text_, repeat_);
    if (status == ExitStatus::Success && !checks_.empty() && !holdChecks(*interpreter)) {
        status = ExitStatus::Rejected;
    }
    if (!interpreter->finish() && status == ExitStatus::Success) status = ExitStatus::Stopped;
    if (status == ExitStatus::Success && !interpreter->isValid()) status = ExitStatus::Rejected;
    status = statusAfter(status, interpreter->outputFailures());
    // The process ends, and the system takes all of its memory back at once. To free the nodes of a
    // long script one by one would take as long as a good part of the compile.
    [[maybe_unused]] static const SCR::Interpreter* volatile leftS = nullptr;
    leftS = interpreter.release();
    return status;
}

ExitStatus ScriptRun::runOnRecords(const Prepare& prepare) {
    bool isChecked = false;
    bool isRefused = false;
    bool hasFailed = false;  // a check
    const auto compile = [&](SCR::Interpreter& interpreter) {
        const std::string file = given_ ? "-e" : file_;
        if (!isChecked && !records_.mayShare(interpreter, *text_, file, isRefused)) return false;
        isChecked = true;
        if (prepare) prepare(interpreter);
        if (!interpreter.compile(*text_)) return false;
        if (!checks_.empty() && !holdChecks(interpreter)) hasFailed = true;
        return true;
    };
    const std::string expanded = script_.expand(*text_).value_or(*text_);
    RecordOptions records = records_;
    records.script(expanded);
    ExitStatus status = ExitStatus::Success;
    if (records.hasDirectory()) {
        Manifest manifest;
        manifest.script(expanded);
        manifest.options = script_.given();
        if (given_) {
            manifest.arguments = {"-e", *given_};
        } else {
            manifest.arguments = {file_};
        }
        for (const std::string& directory : script_.includePath()) {
            manifest.arguments.insert(manifest.arguments.end(), {"-I", directory});
        }
        status = records.runInDirectory(std::move(manifest), script_, compile);
    } else {
        status = records.run(script_, compile);
    }
    if (hasFailed && status == ExitStatus::Success) status = ExitStatus::Rejected;
    return isRefused ? ExitStatus::Usage : status;
}

void ScriptRun::declare(CLI::App& command, bool needsRecords) {
    script_.declare(command);
    records_.declare(command,
                     needsRecords ? RecordOptions::Use::Needed : RecordOptions::Use::Optional);
    if (!needsRecords) {
        command.add_option("--repeat", repeat_, "Execute the script N times (default 1)")
            ->type_name("N")
            ->check([](const std::string& count) {
                return count.starts_with('-') ? count + " is negative" : std::string();
            })
            ->excludes("--records");
    }
    command
        .add_option(
            "--checks", checks_,
            "Evaluate the expressions in FILE, a line each, after the script ran, or before "
            "its first record, and report those that do not hold")
        ->type_name("FILE")
        ->check(CLI::ExistingFile);
    fileOption_ =
        command.add_option("FILE", file_, "The script; - is standard input")->type_name("");
    command.add_option("-e", given_, "The script's text itself, instead of FILE")
        ->type_name("TEXT")
        ->excludes(fileOption_);
}

void ScriptRun::complete() {
    if (!given_ && fileOption_->count() == 0) throw CLI::RequiredError("FILE or -e TEXT");
    script_.scriptName(given_ ? "-e" : file_);
}

}  // namespace Cli

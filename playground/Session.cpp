#include "playground/Session.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <optional>
#include <utility>
#include <vector>

#include "author/Functions.h"
#include "cli/script/MessageText.h"
#include "records/RecordJob.h"
#include "records/RecordOutput.h"
#include "records/read/StopSignal.h"
#include "records/script/RecordExtension.h"
#include "records/script/RecordManual.h"
#include "scr/Capabilities.h"
#include "scr/Interpreter.h"
#include "scr/Limits.h"
#include "scr/Log.h"
#include "scr/Output.h"

namespace Playground {

namespace {

using Records::JobOptions;
using Records::RecordJob;
using SCR::Diagnostic;

constexpr std::size_t mostMessagesS = 1000;

// Addresses have 32 bits there, and a page should leave memory to others.
SCR::Limits limitsOf(const Json& question) {
    SCR::Limits limits;
    limits.time = 2000;
    limits.depth = 500;
    limits.memory = std::int64_t{128} << 20;
    limits.string = std::int64_t{32} << 20;
    limits.elements = std::int64_t{1} << 22;
    limits.source = std::int64_t{4} << 20;
    limits.states = std::int64_t{1} << 18;
    limits.patterns = limits.automata = std::int64_t{64} << 20;
    limits.nesting = 100;
    const Json given = question.value("limits", Json::object());
    for (const auto& [name, value] : given.items()) {
        std::int64_t SCR::Limits::*const limit = SCR::limitOfName(name);
        if (limit == nullptr || !value.is_number()) continue;
        limits.*limit = std::clamp<std::int64_t>(value.get<std::int64_t>(), 0, limits.*limit * 30);
    }
    return limits;
}

std::unique_ptr<SCR::Interpreter> makeInterpreter(SCR::Log& log, const SCR::Limits& limits) {
    auto interpreter = std::make_unique<SCR::Interpreter>(&log);
    interpreter->limits(limits);
    const bool isMade = interpreter->timeZone(FND::String("UTC")) &&
                        interpreter->capabilities(SCR::Capabilities::none());
    return isMade ? std::move(interpreter) : nullptr;
}

// Of the job that "records" describes.
JobOptions jobOptions(const Json& records) {
    JobOptions options;
    const std::string format = records.value("format", "csv");
    options.format = format == "jsonl"   ? Records::Format::Jsonl
                     : format == "tsv"   ? Records::Format::Tsv
                     : format == "lines" ? Records::Format::Lines
                                         : Records::Format::Csv;
    options.outputFormat = options.format;
    options.layout.isQuoted = format == "csv";
    options.layout.isWhole = format == "lines" || options.isJson();
    const std::string delimiter = records.value("delimiter", "");
    options.layout.delimiter = !delimiter.empty() ? delimiter[0] : format == "tsv" ? '\t' : ',';
    options.outputDelimiter = options.layout.delimiter;
    options.hasHeader = !options.layout.isWhole && records.value("header", false);
    if (format == "lines") options.fields = {"line"};
    options.maxRecord = std::size_t{4} << 20;
    options.input = records.at("input");
    options.output = records.value("output", "");
    options.rejects = records.value("rejects", "");
    options.hasNamedOutputs = false;
    return options;
}

// Keeps the messages of a run.
class Messages final : public SCR::Log {
public:
    void log(const FND::String& message, FND::Status::Severity severity) override {
        Diagnostic diagnostic;
        diagnostic.severity = severity;
        diagnostic.text = message;
        diagnose(diagnostic);
    }
    void diagnose(const Diagnostic& diagnostic) override {
        if (diagnostic.isDetail) return;
        if (all.size() == mostMessagesS) {
            ++more;
        } else {
            all.push_back(Json::parse(Cli::jsonOf(diagnostic, ""), nullptr, false));
        }
    }
    Json all = Json::array();
    std::int64_t more = 0;
};

// Nobody reads it: messages are taken from the interpreter.
class QuietLog final : public SCR::Log {};

// The prints of a script that works on no records.
class Prints final : public SCR::Output {
public:
    bool open() { return output_.open("-"); }
    bool write(std::string_view text) override { return tell(output_.write(text)); }
    bool flush(bool /*mayWait*/) override { return tell(output_.flush()); }

private:
    bool tell(bool isDone) {
        if (!isDone) errno = output_.errorNumber();
        return isDone;
    }
    Records::RecordOutput output_;
};

const char* nameOf(RecordJob::End end) {
    switch (end) {
        case RecordJob::End::Done:
            return "done";
        case RecordJob::End::NotCompiled:
            return "not compiled";
        case RecordJob::End::Stopped:
            return "stopped";
        case RecordJob::End::Unusable:
            return "ended by the script";
        default:
            return "failed";
    }
}

Json runAlone(const std::string& script, const SCR::Limits& limits, Messages& messages) {
    const auto interpreter = makeInterpreter(messages, limits);
    Prints prints;
    if (!interpreter || !prints.open()) return {{"end", "failed"}, {"error", "no memory"}};
    interpreter->output(&prints);
    const char* end = "done";
    if (!interpreter->compile(script)) {
        end = interpreter->wasStopped() ? "stopped" : "not compiled";
    } else if (!interpreter->execute() || !interpreter->finish()) {
        end = "stopped";
    }
    std::string error;
    if (!interpreter->outputFailures().empty()) {
        error = "printing: " +
                std::string(std::strerror(interpreter->outputFailures().first().front().error));
    }
    interpreter->output(nullptr);
    if (!prints.flush(true) && error.empty()) error = std::strerror(errno);
    if (!error.empty()) end = "failed";
    return {{"end", end}, {"error", error}};
}

}  // namespace

Session::Session() {
    Author::ServerOptions options;
    options.functions = Author::entriesOf(Records::recordManual(), "");
    options.check = [this](const std::string& text, const std::string& /*path*/,
                           const Author::Checker::Tell& /*tell*/) {
        QuietLog log;
        const SCR::Limits limits = limitsOf(Json::object());
        std::vector<Diagnostic> found;
        const auto compile = [&](SCR::Interpreter& interpreter) {
            const bool isGood = interpreter.check(text);
            found = interpreter.diagnostics();
            return isGood;
        };
        if (records_.is_object()) {
            Records::StopSignal stop;
            RecordJob job(jobOptions(records_), stop);
            job.check(
                log, [&](SCR::Log& to) { return makeInterpreter(to, limits); }, compile, text);
            if (job.error().empty()) return found;
        }
        Records::AnyRecord record;
        const auto interpreter = makeInterpreter(log, limits);
        if (!interpreter) return found;
        record.addTo(*interpreter);
        compile(*interpreter);
        return found;
    };
    server_ = std::make_unique<Author::Server>(
        std::move(options), [this](const Json& message) { sent_.push_back(message); });
}

Json Session::author(const Json& question) {
    server_->answer(question.at("message"));
    return {{"messages", std::exchange(sent_, Json::array())}};
}

Json Session::records(const Json& question) {
    records_ = question.value("records", Json());
    return Json::object();
}

Json Session::run(const Json& question) {
    const std::string script = question.at("script");
    const SCR::Limits limits = limitsOf(question);
    Messages messages;
    Json answer;
    if (question.contains("records")) {
        JobOptions options = jobOptions(question["records"]);
        options.script = script;
        options.progress = [this](const Records::Counts& counts, std::int64_t /*bytes*/) {
            if (progress_) progress_(counts.read);
        };
        Records::StopSignal stop;
        RecordJob job(std::move(options), stop);
        const RecordJob::End end = job.run(
            messages, [&](SCR::Log& to) { return makeInterpreter(to, limits); },
            [&](SCR::Interpreter& interpreter) { return interpreter.compile(script); });
        const Records::Counts& counts = job.counts();
        answer = {{"end", nameOf(end)},
                  {"error", job.error()},
                  {"counts",
                   {{"read", counts.read},
                    {"written", counts.written},
                    {"dropped", counts.dropped},
                    {"rejected", counts.rejected},
                    {"extra", counts.extra}}},
                  {"reasons", job.reasons().all()}};
    } else {
        answer = runAlone(script, limits, messages);
    }
    answer["messages"] = std::move(messages.all);
    answer["moreMessages"] = messages.more;
    return answer;
}

std::string Session::answer(const std::string& question) {
    const Json json = Json::parse(question, nullptr, false);
    Json answer;
    try {
        const std::string kind = json.is_object() ? json.value("ask", "") : "";
        answer = kind == "author"     ? author(json)
                 : kind == "records"  ? records(json)
                 : kind == "run"      ? run(json)
                 : kind == "patterns" ? inspectPatterns(json)
                 : kind == "cases"    ? casesOf(json)
                                      : Json{{"error", "no such question"}};
    } catch (const std::exception& error) {
        answer = {{"error", error.what()}};
    }
    return answer.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace Playground

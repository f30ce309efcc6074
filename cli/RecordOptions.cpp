#include "cli/RecordOptions.h"

#include <atomic>
#include <csignal>
#include <memory>

#include "cli/StderrLog.h"
#include "scr/Interpreter.h"

namespace Cli {
namespace {

std::atomic<bool> stopG{false};
static_assert(std::atomic<bool>::is_always_lock_free);

extern "C" void stopAtSignal(int /*signal*/) { stopG = true; }

void catchSignals() {
    struct sigaction action {};
    action.sa_handler = stopAtSignal;  // without SA_RESTART, so that a waiting read ends
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);  // a closed pipe is an error of the write
}

ExitStatus statusOf(Records::RecordJob::End end) {
    using End = Records::RecordJob::End;
    switch (end) {
        case End::BadInput:
            return ExitStatus::Usage;
        case End::NotCompiled:
            return ExitStatus::NotCompiled;
        case End::Stopped:
        case End::Interrupted:
            return ExitStatus::Stopped;
        case End::Failed:
            return ExitStatus::Rejected;
        case End::Done:
            break;
    }
    return ExitStatus::Success;
}

}  // namespace

void RecordOptions::declare(CLI::App& command) {
    CLI::Option* const records =
        command
            .add_option("--records", job_.input,
                        "Execute the script for each record of FILE; - is standard input")
            ->type_name("FILE");
    records->each([this](const std::string&) { isGiven_ = true; });
    const auto add = [&](CLI::Option* option) { return option->needs(records); };
    add(command.add_option("--format", format_, "The records: csv (default), tsv or lines")
            ->type_name("FORMAT")
            ->check(CLI::IsMember({"csv", "tsv", "lines"})));
    add(command.add_option("--delimiter", delimiter_, "The character between fields")
            ->type_name("C")
            ->check([](const std::string& text) {
                const bool isFit = text.size() == 1 && text.find_first_of("\"\r\n") != 0;
                return isFit ? std::string() : "'" + text + "' is not one usable character";
            }));
    CLI::Option* const header =
        add(command.add_flag("--header", job_.hasHeader, "The first record names the fields"));
    add(command.add_option("--fields", job_.fields, "The names of the fields: a,b,c")
            ->type_name("NAMES")
            ->delimiter(',')
            ->excludes(header));
    add(command
            .add_option("--output", job_.output,
                        "Where records go; - (default) is standard "
                        "output")
            ->type_name("FILE"));
    add(command.add_option("--where", job_.where, "Drop records for which QUERY does not hold")
            ->type_name("QUERY"));
    add(command
            .add_option("--rejects", job_.rejects,
                        "Where rejected records go: place, reason, tabulator, record")
            ->type_name("FILE"));
    add(command.add_flag("--stats", printsCounts_, "Print the counts of records at the end"));
}

ExitStatus RecordOptions::run(const std::function<bool(SCR::Interpreter&)>& prepare,
                              const std::function<bool(SCR::Interpreter&)>& compile) const {
    Records::JobOptions options = job_;
    options.layout.isQuoted = format_ == "csv";
    options.layout.isWhole = format_ == "lines";
    options.layout.delimiter = !delimiter_.empty() ? delimiter_[0] : format_ == "tsv" ? '\t' : ',';
    if (format_ == "lines" && options.fields.empty()) options.fields = {"line"};
    catchSignals();
    StderrLog log;
    Records::RecordJob job(std::move(options), stopG);
    ExitStatus status = ExitStatus::Success;
    {
        SCR::Interpreter interpreter(&log);
        if (!prepare(interpreter)) return ExitStatus::Usage;
        const Records::RecordJob::End end =
            job.run(interpreter, log, [&] { return compile(interpreter); });
        status = statusOf(end);
        const Records::Counts& counts = job.counts();
        if (end == Records::RecordJob::End::Interrupted) {
            report("interrupted after " + std::to_string(counts.read) + " records");
        }
        if (!job.error().empty()) report(job.error());
    }
    const Records::Counts& counts = job.counts();
    if (printsCounts_) {
        report("records: " + std::to_string(counts.read) + " read, " +
               std::to_string(counts.written) + " written, " + std::to_string(counts.dropped) +
               " dropped, " + std::to_string(counts.rejected) + " rejected");
    }
    if (status == ExitStatus::Success) {
        const bool isReported = counts.rejected != 0 && job_.rejects.empty();
        if (isReported || !job.isValid()) status = ExitStatus::Rejected;
    }
    return status;
}

}  // namespace Cli

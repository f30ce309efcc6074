#include "cli/records/RecordOptions.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>
#include <vector>

#include "cli/records/Digest.h"
#include "cli/records/OutputDirectory.h"
#include "cli/records/PartsDirectory.h"
#include "cli/records/Progress.h"
#include "cli/script/ScriptFile.h"
#include "cli/script/StderrLog.h"
#include "fnd/DateTime.h"
#include "records/json/JsonRecord.h"
#include "scr/Interpreter.h"
#include "scr/message/Quote.h"

namespace Cli {
namespace {

Records::StopSignal stopG;

extern "C" void stopAtSignal(int /*signal*/) { stopG.raise(); }

// Takes "I/N", 1 <= I <= N.
bool readPart(const std::string& text, std::int64_t& part, std::int64_t& parts) {
    const char* const end = text.data() + text.size();
    const auto first = std::from_chars(text.data(), end, part);
    if (first.ec != std::errc() || first.ptr == end || *first.ptr != '/') return false;
    const auto second = std::from_chars(first.ptr + 1, end, parts);
    return second.ec == std::errc() && second.ptr == end && part >= 1 && part <= parts &&
           parts <= 1'000'000;
}

// Whether two paths, which may be "-", mean one file. Devices and pipes may take several outputs.
bool isSameFile(const std::string& first, const std::string& second) {
    namespace fs = std::filesystem;
    if (first == "-" || second == "-") return first == second;
    std::error_code error;
    if (fs::exists(first, error) && !fs::is_regular_file(first, error)) return false;
    const fs::path place = fs::weakly_canonical(fs::absolute(first, error), error);
    return place == fs::weakly_canonical(fs::absolute(second, error), error) ||
           fs::equivalent(first, second, error);
}

Records::Format formatOf(const std::string& name) {
    using Records::Format;
    return name == "csv"     ? Format::Csv
           : name == "tsv"   ? Format::Tsv
           : name == "jsonl" ? Format::Jsonl
                             : Format::Lines;
}

std::string checkPart(const std::string& text) {
    std::int64_t part = 0;
    std::int64_t parts = 0;
    return readPart(text, part, parts) ? "" : "'" + text + "' is not I/N with I from 1 to N";
}

}  // namespace

void catchSignals() {
    struct sigaction action {};
    action.sa_handler = stopAtSignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGHUP, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);  // writing to a closed pipe gives an error instead
}

void stopJobs() { stopG.raise(); }

const Records::StopSignal& stopSignal() { return stopG; }

ExitStatus statusOf(Records::RecordJob::End end) {
    using End = Records::RecordJob::End;
    switch (end) {
        case End::BadInput:
            return ExitStatus::Usage;
        case End::NotCompiled:
            return ExitStatus::NotCompiled;
        case End::Unusable:
            return ExitStatus::Rejected;
        case End::Stopped:
        case End::Interrupted:
            return ExitStatus::Stopped;
        case End::TryAgain:
            return ExitStatus::TryAgain;
        case End::Closed:
        case End::Failed:
            return ExitStatus::InputOutput;
        case End::Done:
            break;
    }
    return ExitStatus::Success;
}

void RecordOptions::declare(CLI::App& command, Use use) {
    const bool isNeeded = use == Use::Needed;
    CLI::Option* const records =
        command
            .add_option(
                "--records", inputs_,
                use == Use::Checked
                    ? "Check for a later run on FILE: its format, and the names of its fields"
                    : "Work on each record of FILE, which may be compressed by gzip or zstd; - is "
                      "standard input; may be repeated")
            ->type_name("FILE")
            ->allow_extra_args(false)
            ->required(isNeeded);
    records->each([this](const std::string& path) {
        (isGiven_ ? job_.more.emplace_back() : job_.input) = path;
        isGiven_ = true;
    });
    const auto add = [&](CLI::Option* option) { return option->needs(records); };
    add(command.add_option("--format", format_, "The records: csv (default), tsv, jsonl or lines")
            ->type_name("FORMAT")
            ->check(CLI::IsMember({"csv", "tsv", "jsonl", "lines"})));
    add(command.add_option("--delimiter", delimiter_, "The character between fields")
            ->type_name("C")
            ->check([](const std::string& text) {
                const bool isFit = text.size() == 1 && text.find_first_of("\"\r\n") != 0;
                return isFit ? std::string() : "'" + text + "' is not one usable character";
            }));
    CLI::Option* const header =
        add(command.add_flag("--header", job_.hasHeader, "The first record names the fields"));
    add(command.add_option("--fields", fields_, "The names of the fields: a,b,c")
            ->type_name("NAMES")
            ->excludes(header));
    if (!isNeeded) {
        add(command.add_option("--where", job_.where, "Drop records for which QUERY does not hold")
                ->type_name("QUERY"));
    }
    tables_.declare(command);
    if (use == Use::Checked) return;
    add(command.add_option("--skip", job_.skip, "Pass over the first N records")
            ->type_name("N")
            ->check([](const std::string& text) { return checkNumber(text, 0); }));
    add(command
            .add_option("--blank-lines", blankLines_,
                        "keep (default): a blank line is a record with one field; or skip it")
            ->type_name("WHAT")
            ->check(CLI::IsMember({"keep", "skip"})));
    add(command
            .add_option("--output-format", outputFormat_,
                        "The format of the output: csv, tsv, jsonl or lines (default: that of "
                        "the records)")
            ->type_name("FORMAT")
            ->check(CLI::IsMember({"csv", "tsv", "jsonl", "lines"})));
    add(command
            .add_option("--select", select_,
                        "Write these fields, in this order: a,b; or all but these: -c,-d")
            ->type_name("NAMES"));
    add(command.add_option("--rename", renamed_, "Write the field OLD as NEW; may be repeated")
            ->type_name("OLD=NEW")
            ->allow_extra_args(false)
            ->check([](const std::string& text) {
                const std::size_t equals = text.find('=');
                const bool isFit = equals != 0 && equals + 1 < text.size();
                return isFit ? std::string() : "'" + text + "' is not OLD=NEW";
            }));
    CLI::Option* const output =
        add(command
                .add_option("--output", job_.output,
                            isNeeded ? "Where the result goes; - (default) is standard output"
                                     : "Where records go; - (default) is standard output")
                ->type_name("FILE"));
    CLI::Option* const rejects =
        add(command
                .add_option("--rejects", job_.rejects,
                            "Where rejected records go: place, reason, tabulator, record")
                ->type_name("FILE"));
    add(command
            .add_option("--rejects-format", rejectsFormat_,
                        "How they are written: text (default); input, just as they were read; or "
                        "json, an object in a line")
            ->type_name("FORMAT")
            ->check(CLI::IsMember({"text", "input", "json"})));
    add(command
            .add_option("--on-error", onError_,
                        "What becomes of a record on which the script fails: reject (default), "
                        "keep it as it stands, or stop the job")
            ->type_name("WHAT")
            ->check(CLI::IsMember({"reject", "keep", "stop"})));
    add(command
            .add_option("--jobs", job_.jobs,
                        "Work with N threads, each with an interpreter and variables of its own")
            ->type_name("N")
            ->check(CLI::Range(1, 256)));
    if (!isNeeded) {
        add(command
                .add_option("--jobs-state", jobsState_,
                            "each: let each thread or part have variables of its own, although the "
                            "script carries something from record to record")
                ->type_name("each")
                ->check(CLI::IsMember({"each"})));
    }
    add(command
            .add_option("--part", part_, "Work on part I of N of the file, split between records")
            ->type_name("I/N")
            ->check(checkPart));
    if (!isNeeded) {
        add(command
                .add_option("--out", directory_,
                            "Leave the part's records, rejects and a manifest in DIR, and do "
                            "nothing when they are there")
                ->type_name("DIR")
                ->excludes(output)
                ->excludes(rejects));
    }
    add(command
            .add_option("--dry-run", dryRun_,
                        "Show what the first N records would become, and write no file")
            ->type_name("N")
            ->check([](const std::string& text) { return checkNumber(text, 1); })
            ->excludes(output)
            ->excludes(rejects));
    add(command.add_flag("--progress", showsProgress_,
                         "Show how far it got, if standard error is a terminal"));
    add(command.add_flag("--stats{text}", stats_,
                         "Print the counts of records and of reasons for rejects at the end, as "
                         "text or json: --stats=json"))
        ->check(CLI::IsMember({"text", "json"}));
    if (use != Use::Messages) return;
    // Each message has an input, an output and rejects of its own, and no header.
    for (const char* const name : {"--records", "--header", "--skip", "--output", "--rejects",
                                   "--part", "--dry-run", "--progress"}) {
        command.remove_option(command.get_option(name));
    }
    command.get_option("--out")->required();
}

void RecordOptions::message(const std::string& file, const std::string& stream, std::int64_t number,
                            bool isFirstTime) {
    isFirstTime_ = isFirstTime;
    job_.file = file;
    job_.input = stream + "/" + std::to_string(number);
    message_ = number;
    isGiven_ = true;
}

std::optional<Records::JobOptions> RecordOptions::jobOptions() const {
    Records::JobOptions options = job_;
    using Records::OnError;
    using Records::RejectsFormat;
    options.onError = onError_ == "keep"   ? OnError::Keep
                      : onError_ == "stop" ? OnError::Stop
                                           : OnError::Reject;
    options.rejectsFormat = rejectsFormat_ == "input"  ? RejectsFormat::Input
                            : rejectsFormat_ == "json" ? RejectsFormat::Json
                                                       : RejectsFormat::Text;
    options.format = formatOf(format_);
    options.layout.isQuoted = format_ == "csv";
    options.layout.isWhole = format_ == "lines" || options.isJson();
    options.layout.delimiter = !delimiter_.empty() ? delimiter_[0] : format_ == "tsv" ? '\t' : ',';
    options.outputFormat = outputFormat_.empty() ? options.format : formatOf(outputFormat_);
    const bool isTsv = options.outputFormat == Records::Format::Tsv;
    options.outputDelimiter = options.outputFormat == options.format ? options.layout.delimiter
                              : isTsv                                ? '\t'
                                                                     : ',';
    for (const std::string& name : splitNames(select_)) {
        if (name.empty()) continue;
        const bool isLeft = name.front() == '-';
        (isLeft ? options.columns.left : options.columns.selected)
            .push_back(name.substr(isLeft ? 1 : 0));
    }
    for (const std::string& pair : renamed_) {
        const std::size_t equals = pair.find('=');
        options.columns.renamed.emplace_back(pair.substr(0, equals), pair.substr(equals + 1));
    }
    auto tables = tables_.files();
    if (!tables) return std::nullopt;
    options.tables = std::move(*tables);
    options.skipsBlank = blankLines_ == "skip";
    if (fields_) options.fields = splitNames(*fields_);
    if (format_ == "lines" && !fields_) options.fields = {"line"};
    if (!part_.empty()) readPart(part_, options.part, options.parts);
    const auto refuse = [&](bool isGiven, const char* option, const char* why) {
        if (isGiven) report(option + (": " + std::string(why)));
        return isGiven;
    };
    const char* const names = options.isJson() ? "JSON names its fields itself"
                                               : "the only field of a line is named `line'";
    if (options.layout.isWhole &&
        (refuse(options.hasHeader, "--header", names) ||
         refuse(options.isJson() && fields_, "--fields", names) ||
         refuse(!delimiter_.empty(), "--delimiter", "there are no fields to be delimited"))) {
        return std::nullopt;
    }
    if (refuse(options.parts > 1 && !options.more.empty(), "--part", "only one file has parts")) {
        return std::nullopt;
    }
    const auto isInput = [&](const std::string& path) {
        return isSameFile(path, options.input) ||
               std::any_of(options.more.begin(), options.more.end(),
                           [&](const std::string& input) { return isSameFile(path, input); });
    };
    const bool toRejects = !options.rejects.empty();
    if (refuse(toRejects && isSameFile(options.rejects, options.output), "--rejects",
               "the records go there") ||
        refuse(toRejects && isInput(options.rejects), "--rejects", "the records come from there")) {
        return std::nullopt;
    }
    return options;
}

std::unique_ptr<Records::RecordJob> RecordOptions::checkingJob(const ScriptOptions& options) const {
    std::optional<Records::JobOptions> job = jobOptions();
    if (!job) return nullptr;
    job->maxRecord = options.mostBytesOfRecord();
    job->tableBytes = options.mostBytesOfTables();
    return std::make_unique<Records::RecordJob>(std::move(*job), stopG);
}

ExitStatus RecordOptions::readTables(const ScriptOptions& options, Records::Tables& tables) const {
    const auto files = tables_.files();
    if (!files) return ExitStatus::Usage;
    using End = Records::Tables::End;
    const End end =
        tables.read(*files, options.mostBytesOfRecord(), options.mostBytesOfTables(), stopG);
    if (!tables.error().empty()) report(tables.error());
    return end == End::Done       ? ExitStatus::Success
           : end == End::BadInput ? ExitStatus::Usage
                                  : ExitStatus::Stopped;
}

std::optional<std::string> RecordOptions::script(const std::string& file,
                                                 std::size_t mostBytes) const {
    if (file == "-" && isGiven_ && job_.input == "-") {
        report("the script and the records can not both come from standard input");
        return std::nullopt;
    }
    return readScript(file, mostBytes);
}

ExitStatus RecordOptions::run(const ScriptOptions& options,
                              const std::function<bool(SCR::Interpreter&)>& compile) const {
    std::optional<Records::JobOptions> job = jobOptions();
    if (!job) return ExitStatus::Usage;
    if (rejectsFormat_ != "text" && job->rejects.empty()) {
        report("--rejects-format: there are no --rejects");
        return ExitStatus::Usage;
    }
    Manifest manifest;
    return runJob(std::move(*job), manifest, options, compile);
}

bool RecordOptions::mayShare(SCR::Interpreter& interpreter, const std::string& text,
                             const std::string& file, bool& isRefused) const {
    std::int64_t part = 1;
    std::int64_t parts = 1;
    if (!part_.empty()) readPart(part_, part, parts);
    if (!jobsState_.empty() || (job_.jobs == 1 && parts == 1 && message_ == 0)) return true;
    std::vector<SCR::Finding> findings;
    if (!interpreter.check(text, findings)) return false;
    for (const SCR::Finding& finding : findings) {
        if (!finding.isState) continue;
        report((finding.file.empty() ? file : finding.file) + ":" + std::to_string(finding.line) +
               ": " + finding.text);
        isRefused = true;
    }
    if (isRefused) {
        report(std::string("each worker would have variables of its own: ") +
               (message_ != 0 ? ""
                : parts == 1  ? "use --jobs 1, or "
                              : "do without --part, or ") +
               "accept that by --jobs-state each");
    }
    return !isRefused;
}

std::vector<std::string> RecordOptions::given() const {
    // For a message that is the stream, because the number of the message is the part.
    const std::string input =
        message_ != 0 ? job_.input.substr(0, job_.input.rfind('/')) : job_.input;
    std::vector<std::string> given{"--records=" + input, "--format=" + format_};
    if (job_.skip != 0) given.push_back("--skip=" + std::to_string(job_.skip));
    if (blankLines_ != "keep") given.push_back("--blank-lines=" + blankLines_);
    if (!delimiter_.empty()) given.push_back("--delimiter=" + delimiter_);
    if (job_.hasHeader) given.emplace_back("--header");
    if (fields_) given.push_back("--fields=" + *fields_);
    if (job_.where) given.push_back("--where=" + *job_.where);
    for (const std::string& table : tables_.given()) given.push_back(table);
    if (!outputFormat_.empty()) given.push_back("--output-format=" + outputFormat_);
    if (!select_.empty()) given.push_back("--select=" + select_);
    for (const std::string& renamed : renamed_) given.push_back("--rename=" + renamed);
    given.push_back("--on-error=" + onError_);
    given.push_back("--rejects-format=" + rejectsFormat_);
    return given;
}

ExitStatus RecordOptions::runInDirectory(
    Manifest manifest, const ScriptOptions& options,
    const std::function<bool(SCR::Interpreter&)>& compile) const {
    std::optional<Records::JobOptions> job = jobOptions();
    if (!job) return ExitStatus::Usage;
    if (dryRun_ > 0) {
        report("--out: nothing is written to files of records");
        return ExitStatus::Usage;
    }
    if (!job->more.empty()) {
        report("--out: the records must come from one file");
        return ExitStatus::Usage;
    }
    const std::vector<std::string> own = given();
    manifest.options.insert(manifest.options.end(), own.begin(), own.end());
    manifest.zone.name = options.zone(recordZoneS);
    const auto zone = FND::TimeZone::find(manifest.zone.name);
    if (zone != nullptr) manifest.zone.digest = zone->digest();
    for (const Records::TableFile& table : job->tables) {
        std::optional<std::string> digest = Digest::ofFile(table.path);
        if (!digest) {
            report(table.path + ": " + std::strerror(errno));
            return ExitStatus::Usage;
        }
        manifest.tables[table.name] = std::move(*digest);
    }
    const std::vector<Records::TableFile> tables = job->tables;
    manifest.part = message_ != 0 ? message_ : job->part;
    manifest.parts = message_ != 0 ? 0 : job->parts;
    const std::string& format = outputFormat_.empty() ? format_ : outputFormat_;
    OutputDirectory directory(directory_, format == "lines" ? "txt" : format, manifest);
    if (!directory.open(job->inputPath(0))) {
        report(directory.error());
        return ExitStatus::Usage;
    }
    if (directory.isComplete()) {
        report((message_ != 0 ? job->input
                              : "part " + std::to_string(manifest.part) + "/" +
                                    std::to_string(manifest.parts)) +
               " is complete in " + directory_ + ", skipped");
        return ExitStatus::Success;
    }
    directory.clean(!isFirstTime_);
    job->isWatchedOver = true;
    job->output = directory.output();
    job->rejects = directory.rejects();
    job->hasNamedOutputs = false;
    job->state = directory.state();
    job->writesHeader = message_ <= 1;
    const ExitStatus status = runJob(std::move(*job), manifest, options, compile);
    if (status != ExitStatus::Success) return status;
    for (const Records::TableFile& table : tables) {
        if (Digest::ofFile(table.path) == manifest.tables[table.name]) continue;
        report(table.path + " was changed while it was used");
        return ExitStatus::TryAgain;
    }
    if (directory.complete(manifest)) return status;
    report(directory.error());
    return directory.hasInputChanged() ? ExitStatus::TryAgain : ExitStatus::InputOutput;
}

ExitStatus RecordOptions::merge(const PartsDirectory& directory, const MergeOutput& output,
                                const ScriptOptions& options,
                                const std::function<bool(SCR::Interpreter&)>& compile) const {
    std::optional<Records::JobOptions> job = jobOptions();
    if (!job) return ExitStatus::Usage;
    for (const Records::TableFile& table : job->tables) {
        const auto known = directory.first().tables.find(table.name);
        if (known != directory.first().tables.end() &&
            Digest::ofFile(table.path) == known->second) {
            continue;
        }
        report(table.path + " was changed after the parts were made");
        return ExitStatus::Usage;
    }
    // Messages are not read again, and have no header.
    if (directory.first().parts == 0) job->file = "/dev/null";
    job->output = output.output;
    job->rejects = output.rejects;
    job->maxRecord = options.mostBytesOfRecord();
    job->tableBytes = options.mostBytesOfTables();
    catchSignals();
    StderrLog log(options.messageStyle(options.scriptName()));
    const std::string& zone = directory.first().zone.name;
    Records::RecordJob merged(std::move(*job), stopG);
    const auto end = merged.merge(
        log, [&](SCR::Log& to) { return options.makeInterpreter(to, zone); }, compile,
        directory.files(), directory.counts());
    if (!merged.error().empty()) report(merged.error());
    if (!output.stats.empty()) printStats(merged, output.stats);
    return statusAfter(statusOf(end), merged.failures());
}

void RecordOptions::printStats(const Records::RecordJob& job, const std::string& form) {
    const Records::Counts& counts = job.counts();
    using Named = std::pair<std::string, std::int64_t>;
    const Named all[] = {{"read", counts.read},
                         {"written", counts.written},
                         {"dropped", counts.dropped},
                         {"rejected", counts.rejected}};
    std::vector<Named> counted(std::begin(all), std::end(all));
    if (counts.extra != 0 || form == "json") counted.emplace_back("extra", counts.extra);
    std::vector<Named> reasons(job.reasons().all().begin(), job.reasons().all().end());
    std::stable_sort(reasons.begin(), reasons.end(),
                     [](const Named& a, const Named& b) { return a.second > b.second; });
    const bool isJson = form == "json";
    std::string line;
    const char* separator = "";
    for (const auto& [name, count] : counted) {
        const std::string number = std::to_string(count);
        line += separator;
        if (isJson) {
            line.append("\"").append(name).append("\":").append(number);
        } else {
            line.append(number).append(" ").append(name);
        }
        separator = isJson ? "," : ", ";
    }
    if (!isJson) {
        report("records: " + line);
        for (const auto& [reason, count] : reasons) {
            FND::String text;
            SCR::appendPrintable(text, reason);
            report("rejected: " + std::to_string(count) + " " + text);
        }
        return;
    }
    line += ",\"reasons\":{";
    separator = "";
    for (const auto& [reason, count] : reasons) {
        line += separator;
        Records::appendText(reason, line);
        line += ":" + std::to_string(count);
        separator = ",";
    }
    std::fprintf(stderr, "{%s}}\n", line.c_str());
}

ExitStatus RecordOptions::runJob(Records::JobOptions jobOptions, Manifest& manifest,
                                 const ScriptOptions& options,
                                 const std::function<bool(SCR::Interpreter&)>& compile) const {
    const bool keepsRejects = !jobOptions.rejects.empty();
    const std::string output = jobOptions.output;
    Progress progress(jobOptions.input);
    if (showsProgress_ && isatty(STDERR_FILENO) != 0) {
        jobOptions.progress = [&](const Records::Counts& counts, std::int64_t bytes) {
            progress.show(counts.read, bytes);
        };
    }
    jobOptions.maxRecord = options.mostBytesOfRecord();
    jobOptions.tableBytes = options.mostBytesOfTables();
    jobOptions.most = options.mostRecords();
    if (dryRun_ > 0) {
        jobOptions.most = std::min(jobOptions.most, dryRun_);
        jobOptions.isDryRun = true;
        jobOptions.jobs = 1;
        // A dry run opens no file, whatever the options say.
        jobOptions.output = "-";
        jobOptions.rejects.clear();
    }
    if (!keepsSignals_) catchSignals();
    StderrLog log(options.messageStyle(options.scriptName()));
    using End = Records::RecordJob::End;
    Records::RecordJob job(std::move(jobOptions), stopG);
    const End end = job.run(
        log, [&](SCR::Log& to) { return options.makeInterpreter(to, recordZoneS); }, compile);
    progress.clear();
    ExitStatus status = statusOf(end);
    const Records::Counts& counts = job.counts();
    if (end == End::Interrupted && !keepsSignals_) {
        report("interrupted after " + std::to_string(counts.read) + " records" +
               (job.hasOutput() ? "" : "; " + output + " is as it was before"));
    }
    if (!job.error().empty()) report(job.error());
    if (!stats_.empty()) printStats(job, stats_);
    manifest.counts = counts;
    manifest.inputEnd = job.inputEnd();
    if (status == ExitStatus::Success) {
        const bool isReported = counts.rejected != 0 && !keepsRejects;
        if (isReported || !job.isValid()) status = ExitStatus::Rejected;
    }
    return statusAfter(status, job.failures());
}

}  // namespace Cli

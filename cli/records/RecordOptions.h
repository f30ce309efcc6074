#pragma once

#include <CLI/App.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/Command.h"
#include "cli/records/Manifest.h"
#include "cli/records/TableOptions.h"
#include "cli/script/ScriptOptions.h"
#include "records/RecordJob.h"

namespace Cli {

class PartsDirectory;

/// The local zone of scripts that are executed for records, unless the user names one: the same on
/// every machine that works on a part of the records.
inline constexpr const char* recordZoneS = "UTC";

/// Lets signals end jobs, and the wait for one.
void catchSignals();
/// Ends the jobs as a signal does.
void stopJobs();
/// Whether one came.
const Records::StopSignal& stopSignal();

/// The status for a job's end.
ExitStatus statusOf(Records::RecordJob::End end);

/// Where the merged result of parts goes.
struct MergeOutput {
    std::string output = "-";
    std::string rejects;
    std::string stats;
};

/// The options of a command that does something for each record of a file.
class RecordOptions {
public:
    /// What a command does with the records.
    enum class Use { Optional, Needed, Checked, Messages };

    /// Declares the options on `command`; this object must live until the command line is parsed.
    /// `Checked` declares those that scripts depend on, `Messages` those for inputs that `message`
    /// gives.
    void declare(CLI::App& command, Use use = Use::Optional);
    /// Whether the user named records to work on.
    bool isGiven() const { return isGiven_; }
    /// The text of the script in `file`, decrypted if need be. Nothing after a report: the file
    /// cannot be read, or both the script and the records would come from standard input. Reads
    /// little more than `mostBytes`.
    std::optional<std::string> script(const std::string& file, std::size_t mostBytes) const;
    /// Limits the records further, to those for which `query` holds.
    void where(const std::string& query) { job_.where = query; }
    /// Names the text of the script, with its include files.
    void script(const std::string& expanded) { job_.script = expanded; }
    /// Instead of each record, writes the numbers of the conditions that hold for it.
    void conditions(const std::string& conditions) { job_.conditions = conditions; }

    /// Told, with one worker, of the records: `begins` is called with the number of each before it
    /// is worked on.
    struct Watcher {
        std::function<void(Records::CurrentRecord&, const Records::FieldNames&)> attach;
        std::function<void(std::int64_t number)> begins;
        std::function<void(const Records::Shown&)> show;
    };
    /// Works on all records, writes no file, and tells `watcher` of each.
    void watch(Watcher watcher) {
        if (dryRun_ == 0) dryRun_ = INT64_MAX;
        job_.attach = std::move(watcher.attach);
        job_.watch = std::move(watcher.begins);
        job_.show = std::move(watcher.show);
    }
    /// The same for the records up to number `record`, of which only that one is shown.
    void only(std::int64_t record, Watcher watcher) {
        dryRun_ = job_.only = record;
        watch(std::move(watcher));
    }
    /// The caller cares for signals.
    void keepsSignals() { keepsSignals_ = true; }
    /// The first input.
    const std::string& input() const { return job_.input; }
    /// Removes what killed workers left in the directory of results.
    void removeLeftovers() const { Records::RecordOutput::removeAllLeftovers(directory_); }
    /// Makes one message of a stream the input: its records are in `file`, its sequence number in
    /// the stream `stream` is `number`, from 1. `runInDirectory` keeps its result under that.
    /// `isFirstTime`: no worker left anything for it.
    void message(const std::string& file, const std::string& stream, std::int64_t number,
                 bool isFirstTime);

    /// Runs the job, with an interpreter for each worker, set up by `options`. `compile` reports
    /// why it refuses a script.
    ExitStatus run(const ScriptOptions& options,
                   const std::function<bool(SCR::Interpreter&)>& compile) const;
    /// Whether several workers may execute the script `text`, from `file`, which `interpreter` is
    /// about to compile: they must carry nothing from record to record unless the user accepts
    /// that each has variables of its own. False after a report, also when it does not compile.
    bool mayShare(SCR::Interpreter& interpreter, const std::string& text, const std::string& file,
                  bool& isRefused) const;
    /// Whether the result goes into a directory.
    bool hasDirectory() const { return !directory_.empty(); }
    /// Runs the job and leaves its result with a manifest in the directory, unless it is already
    /// there. `manifest` names the script; this function sets its other members.
    ExitStatus runInDirectory(Manifest manifest, const ScriptOptions& options,
                              const std::function<bool(SCR::Interpreter&)>& compile) const;
    /// Merges the parts of `directory`, which were made with these options.
    ExitStatus merge(const PartsDirectory& directory, const MergeOutput& output,
                     const ScriptOptions& options,
                     const std::function<bool(SCR::Interpreter&)>& compile) const;
    /// A job that only checks; null after a report. It must not outlive this object.
    std::unique_ptr<Records::RecordJob> checkingJob(const ScriptOptions& options) const;
    /// Reads the tables that the options name. `Success`, or another status after a report.
    ExitStatus readTables(const ScriptOptions& options, Records::Tables& tables) const;

private:
    std::optional<Records::JobOptions> jobOptions() const;
    // Runs the job that `jobOptions` describe, and fills in what the manifest tells about the run.
    ExitStatus runJob(Records::JobOptions jobOptions, Manifest& manifest,
                      const ScriptOptions& options,
                      const std::function<bool(SCR::Interpreter&)>& compile) const;
    static void printStats(const Records::RecordJob& job, const std::string& form);
    // The options that change the result.
    std::vector<std::string> given() const;

    Records::JobOptions job_;
    std::vector<std::string> inputs_;
    std::int64_t dryRun_ = 0;  // records to be shown; 0: no dry run
    std::string blankLines_ = "keep";
    std::string format_ = "csv";
    std::string outputFormat_;
    std::string delimiter_;
    std::string select_;
    std::vector<std::string> renamed_;
    std::optional<std::string> fields_;
    std::string part_;
    TableOptions tables_;
    std::string jobsState_;
    std::string directory_;
    bool isGiven_ = false;
    bool isFirstTime_ = false;  // there are no leftovers
    std::int64_t message_ = 0;  // the number of the message; 0: the input is none
    std::string onError_ = "reject";
    std::string rejectsFormat_ = "text";
    std::string stats_;  // how the counts are printed; empty: not at all
    bool showsProgress_ = false;
    bool keepsSignals_ = false;
};

}  // namespace Cli

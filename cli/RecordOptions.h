#pragma once

#include <CLI/App.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/Command.h"
#include "cli/Manifest.h"
#include "cli/ScriptOptions.h"
#include "records/RecordJob.h"

namespace Cli {

/// The local zone of scripts that are executed for records, unless the user names one: the same
/// wherever a part of the records is worked on.
inline constexpr const char* recordZoneS = "UTC";

/// The status that a job's end stands for.
ExitStatus statusOf(Records::RecordJob::End end);

/// The options of a command that does something for each record of a file.
class RecordOptions {
public:
    /// What a command does with the records.
    enum class Use { Optional, Needed, Checked };

    /// Declares the options on `command`; this object must live until the command line is parsed.
    /// `Checked` takes those that scripts depend on.
    void declare(CLI::App& command, Use use = Use::Optional);
    /// Whether the user named records to work on.
    bool isGiven() const { return isGiven_; }
    /// The text of the script in `file`, decrypted if need be. Nothing after a report: it cannot be
    /// read, or both it and the records would come from standard input. `mostBytes` are worth
    /// reading.
    std::optional<std::string> script(const std::string& file, std::size_t mostBytes) const;
    /// Further says which records are wanted: those for which `query` holds.
    void where(const std::string& query) { job_.where = query; }
    /// Writes, in place of each record, the numbers of the conditions that hold for it.
    void conditions(const std::string& conditions) { job_.conditions = conditions; }

    /// Runs the job, with an interpreter for each worker that `options` are applied to. `compile`
    /// reports what it refuses.
    ExitStatus run(const ScriptOptions& options,
                   const std::function<bool(SCR::Interpreter&)>& compile) const;
    /// Whether the result goes into a directory.
    bool hasDirectory() const { return !directory_.empty(); }
    /// Runs the job and leaves its result with a manifest in the directory, unless it is there
    /// already. `manifest` names the script; its other members are set here.
    ExitStatus runInDirectory(Manifest manifest, const ScriptOptions& options,
                              const std::function<bool(SCR::Interpreter&)>& compile) const;
    /// A job that only checks; null after a report. It must not outlive this object.
    std::unique_ptr<Records::RecordJob> checkingJob() const;

private:
    std::optional<Records::JobOptions> jobOptions() const;
    // Runs the job that `jobOptions` describe, and sets what the manifest tells of the run.
    ExitStatus runJob(Records::JobOptions jobOptions, Manifest& manifest,
                      const ScriptOptions& options,
                      const std::function<bool(SCR::Interpreter&)>& compile) const;
    // The options that change the result.
    std::vector<std::string> given() const;

    Records::JobOptions job_;
    std::string format_ = "csv";
    std::string delimiter_;
    std::optional<std::string> fields_;
    std::string part_;
    std::string directory_;
    bool isGiven_ = false;
    bool printsCounts_ = false;
    bool showsProgress_ = false;
};

}  // namespace Cli

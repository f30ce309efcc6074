#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "records/Columns.h"
#include "records/NamedOutputs.h"
#include "records/RecordOutput.h"
#include "records/RecordWorker.h"
#include "records/StopWatcher.h"
#include "records/WorkerPool.h"
#include "records/read/RecordReader.h"
#include "records/read/StopSignal.h"
#include "records/script/RecordExtension.h"
#include "records/script/Tables.h"
#include "records/store/KeyIndex.h"
#include "scr/Output.h"

namespace SCR {
class Interpreter;
class Log;
}  // namespace SCR

namespace Records {

/// How rejected records are written.
enum class RejectsFormat {
    Text,   ///< "FILE:LINE: REASON", a tabulator, the record
    Input,  ///< the record alone, after the header if there is one
    Json    ///< an object in a line: file, line, number, reason, field, value, record
};

/// What a dry run shows of a record.
struct Shown {
    enum class Result { Unchanged, Changed, Rejected, Dropped };
    std::int64_t number = 0;  ///< 1-based
    Result result = Result::Unchanged;
    std::string before;  ///< the record as it was read
    std::string after;   ///< what is written instead, a line each, or why it is rejected
};

/// What a job reads and writes.
struct JobOptions {
    std::string input = "-";        ///< A path, or "-" for standard input.
    std::string file;               ///< Where the input lies, if not at its name; read like that.
    std::vector<std::string> more;  ///< Further inputs, which have the same header.
    std::int64_t skip = 0;          ///< The first records that are passed over,
    std::int64_t most = INT64_MAX;  ///< and how many of the others are worked on.
    bool skipsBlank = false;        ///< Lines of blanks are no records.
    const std::string& inputName(std::size_t i) const { return i == 0 ? input : more[i - 1]; }
    const std::string& inputPath(std::size_t i) const {
        return i == 0 && !file.empty() ? file : inputName(i);
    }
    std::string output = "-";  ///< A path, or "-" for standard output.
    std::string rejects;       ///< A path; empty: rejected records are only reported.
    RejectsFormat rejectsFormat = RejectsFormat::Text;
    OnError onError = OnError::Reject;
    std::optional<std::string> where;  ///< A query; records for which it does not hold are dropped.
    std::optional<std::string> conditions;  ///< Their numbers are written instead of records.
    Layout layout;
    Format format = Format::Csv;        ///< That `layout` is for,
    Format outputFormat = Format::Csv;  ///< and that of the output,
    char outputDelimiter = ',';         ///< whose fields this character separates.
    ColumnOptions columns;
    bool isJson() const { return format == Format::Jsonl; }
    std::vector<TableFile> tables;      ///< that scripts look up rows in
    std::size_t tableBytes = SIZE_MAX;  ///< Memory that they may take.
    std::string script;                 ///< Fields that it assigns or deletes are added or removed.
    bool hasHeader = false;             ///< The first record names the fields.
    std::vector<std::string> fields;    ///< The fields' names, without a header.
    std::size_t maxRecord = RecordReader::maxRecordCM;  ///< Bytes that a record may have.
    /// Shows what each record would become, before and after, and writes no file.
    bool isDryRun = false;
    /// In a dry run: the one record to show, 0 for all, and where that goes; without a place for
    /// it, all are shown in the output.
    std::int64_t only = 0;
    std::function<void(const Shown&)> show;
    /// Called with the number of each record before the script is executed for it.
    std::function<void(std::int64_t number)> watch;
    /// The caller removes leftovers of its outputs before, and syncs their directory afterwards.
    bool isWatchedOver = false;
    /// Called with what a worker's script and the job share, before the script is compiled.
    std::function<void(CurrentRecord& record, const FieldNames& names)> attach;
    bool hasNamedOutputs = true;  ///< Whether scripts may name outputs.
    bool writesHeader = true;     ///< Of the output, where that has one.
    int jobs = 1;                 ///< Workers, each with an interpreter and a thread.
    std::int64_t part = 1;        ///< The part to work on, from 1, of `parts` parts of the file:
    std::int64_t parts = 1;       ///< the records that begin in that part of its bytes.
    /// Where a part leaves its totals and the keys of its records for `RecordJob::merge`, a path.
    /// Its script does not run END then. No file is made if the script has neither.
    std::string state;
    /// Called now and then with the counts and the bytes read so far.
    std::function<void(const Counts&, std::int64_t)> progress;
};

/// Executes a script for each record of a file, and writes the records that the script does not
/// drop, in their order. A job runs once, on the calling thread and those of its workers.
class RecordJob : private BatchStream {
public:
    static constexpr std::int64_t unknownEndCM = INT64_MAX;
    enum class End {
        Done,
        BadInput,
        NotCompiled,
        Stopped,   ///< By a limit, or by the failure of a record or of BEGIN.
        Unusable,  ///< The script ended the job, or declared itself unusable in BEGIN.
        Interrupted,
        Closed,  ///< Nobody reads the output any more.
        Failed,
        TryAgain  ///< Failed for want of something that the system may have later.
    };
    /// Makes an interpreter with the log given, which outlives it; null after a report.
    using Make = std::function<std::unique_ptr<SCR::Interpreter>(SCR::Log& log)>;
    using Compile = std::function<bool(SCR::Interpreter&)>;

    /// `stop` ends the job after the current record; not owned. The job raises it itself when it
    /// cannot go on.
    RecordJob(JobOptions options, StopSignal& stop);
    ~RecordJob() override;

    /// Runs the job. `compile` compiles the script with an interpreter from `make`. Messages go to
    /// `log`. `error` tells the reason for an end other than Done and NotCompiled.
    End run(SCR::Log& log, const Make& make, const Compile& compile);

    /// Compiles with `compile`, in an interpreter from `make`, as `run` would, including the names
    /// of fields, and works on no record. May be called for several scripts; the header is read
    /// once.
    End check(SCR::Log& log, const Make& make, const Compile& compile, const std::string& script);

    /// The files that a job with `JobOptions::state` left; no state if it left none.
    struct PartFiles {
        std::string records;
        std::string rejects;
        std::string state;
    };
    /// Instead of records, takes the results of all `parts` of a job with the same script and
    /// options. Compiles with `compile`, writes their records, except for those whose key an
    /// earlier one has, and lets END write more from the totals of all. `counts` are those of the
    /// parts together.
    End merge(SCR::Log& log, const Make& make, const Compile& compile,
              const std::vector<PartFiles>& parts, const Counts& counts);

    const Counts& counts() const { return counts_; }
    const RejectCounts& reasons() const { return reasons_; }
    /// How much of the input, in bytes, the result depends on: up to the end of the last record
    /// worked on or passed over; `unknownEndCM` when all of it may matter.
    std::int64_t inputEnd() const { return inputEnd_; }
    const std::string& error() const { return error_; }
    /// Whether what was written stays, however the job ended.
    bool hasOutput() const { return output_.isDirect(); }
    /// The known failures of the script's outputs.
    const SCR::OutputFailures& failures() const { return failures_; }
    /// Whether the script still called itself usable at the end.
    bool isValid() const { return isValid_; }

private:
    class Input;
    // How long scripts may go on after the job was told to stop.
    static constexpr std::chrono::milliseconds allowanceCM{5000};
    End openInput();
    End readHeader();
    // Goes on with the next input; false when there is none, or it cannot be read.
    bool openNext();
    bool failInput(End end);
    End openFile();
    End readTables();
    // Works out the columns of the output for `script`, and their names.
    End planColumns(const std::string& script);
    void writeHeader();
    End addWorker();
    // Whether BEGIN of the worker's script went well; it logged errors if `hasErrors`.
    End afterBegin(RecordWorker& worker, bool isCompiled, bool hasErrors);
    End process();
    End openOutputs();
    // Merges the totals of the workers, of which one runs END then, or leaves them in a file.
    End joinTotals(End end);
    // Removes records whose keys earlier ones have.
    End dropRepeated(Batch& batch);
    End addPart(const PartFiles& part);
    // Lets the scripts run the function END; `end` is how the job ended before.
    End finishScripts(End end);
    // Completes the files, or keeps what was written when the job ended early.
    End finishOutputs(End end);
    // Of the records that are lines which were read already: passes those over that come before
    // the wanted ones,
    void passLines();
    // and adds others.
    void fillLines(Batch& batch);
    // Notes how much of the input was read.
    void noteEnd(bool isMalformed);
    // Tells why the reader failed.
    End failToRead();
    // Writes the results of a batch.
    End write(Batch& batch);
    End fail(const std::string& error, int errorNumber = 0);
    End fail(const RecordOutput& output);

    RecordWorker* makeWorker() override;
    bool fill(Batch& batch) override;
    bool deliver(Batch& batch) override;
    bool flush() override;
    void end() override { stop_.raise(); }

    const JobOptions options_;
    StopSignal& stop_;
    std::unique_ptr<Input> input_;  // null until it is opened
    std::optional<RecordReader> reader_;
    FieldNames names_;
    Tables tables_;
    std::string header_;     // as it was read,
    std::string headerEnd_;  // with its line end, if there is one
    Columns columns_;
    SCR::Log* log_ = nullptr;
    Make make_;
    Compile compile_;
    std::vector<std::unique_ptr<RecordWorker>> workers_;
    std::optional<StopWatcher> watcher_;  // while the job runs
    WorkerPool pool_{*this};
    RecordOutput output_;
    NamedOutputs outputs_;
    RecordOutput prints_;  // of scripts, unless they join the output
    RecordOutput rejects_;
    KeyIndex keys_;               // of records of which only the first stays
    std::size_t outputSize_ = 0;  // bytes that output_ took
    std::string state_;           // of a part: its keys
    Counts counts_;
    RejectCounts reasons_;
    std::size_t reported_ = 0;    // rejections that were printed
    std::size_t file_ = 0;        // the number of the input being read
    std::int64_t partBegin_ = 0;  // in bytes of the file
    std::int64_t partEnd_ = -1;   // -1: to the end
    std::int64_t inputEnd_ = 0;
    std::int64_t taken_ = 0;  // records read so far, including those before the part
    RecordReader::State last_ = RecordReader::State::Record;
    End fault_ = End::Done;  // of the input, found while a batch was filled,
    std::string faultText_;  // and the reason
    int inputError_ = 0;     // errno, when last_ is Failed
    End end_ = End::Done;    // of what was delivered
    std::string error_;
    SCR::OutputFailures failures_;
    bool isValid_ = true;
};

}  // namespace Records

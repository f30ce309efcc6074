#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "records/RecordExtension.h"
#include "records/RecordOutput.h"
#include "records/RecordReader.h"

namespace SCR {
class Interpreter;
class Log;
}  // namespace SCR

namespace Records {

/// What a job reads and writes.
struct JobOptions {
    std::string input = "-";   ///< A path, or "-" for standard input.
    std::string output = "-";  ///< A path, or "-" for standard output.
    std::string rejects;       ///< A path; empty: rejected records are only reported.
    std::string where;         ///< A query; records for which it does not hold are dropped.
    Layout layout;
    bool hasHeader = false;           ///< The first record names the fields.
    std::vector<std::string> fields;  ///< The fields' names, without a header.
};

/// What became of the records: read = written + dropped + rejected.
struct Counts {
    std::int64_t read = 0;
    std::int64_t written = 0;
    std::int64_t dropped = 0;
    std::int64_t rejected = 0;
};

/// Executes a script for each record of a file, and writes the records that it does not drop, in
/// their order. A job runs once, on one thread.
class RecordJob {
public:
    enum class End { Done, BadInput, NotCompiled, Stopped, Interrupted, Failed };

    /// `stop`, set by any thread or a signal handler, ends the job behind the current record; not
    /// owned.
    RecordJob(JobOptions options, const std::atomic<bool>& stop);

    /// Runs the job. `interpreter` is a fresh one and must be destroyed before the job; `compile`
    /// compiles the script with it. `error` tells why the end is none of Done and NotCompiled.
    End run(SCR::Interpreter& interpreter, SCR::Log& log, const std::function<bool()>& compile);

    const Counts& counts() const { return counts_; }
    const std::string& error() const { return error_; }
    /// Whether the script still called itself usable at the end.
    bool isValid() const { return isValid_; }

private:
    End process(SCR::Interpreter& interpreter, SCR::Log& log, RecordReader& reader);
    bool reject(SCR::Log& log, const RecordReader& reader, const std::string& reason);
    End fail(const std::string& error);

    const JobOptions options_;
    const std::atomic<bool>& stop_;
    FieldNames names_;
    CurrentRecord current_;
    RecordOutput output_;
    RecordOutput rejects_;
    Counts counts_;
    std::string error_;
    bool isValid_ = true;
};

}  // namespace Records

#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "records/RecordExtension.h"
#include "records/StopSignal.h"

namespace SCR {
class ConditionList;
class Interpreter;
}  // namespace SCR

namespace Records {

struct JobOptions;

/// Counts of the results: read = written + dropped + rejected.
struct Counts {
    std::int64_t read = 0;
    std::int64_t written = 0;
    std::int64_t dropped = 0;
    std::int64_t rejected = 0;
};

/// The distance in memory at which two threads do not slow each other down: a pair of cache lines,
/// as processors fetch two at a time.
inline constexpr std::size_t threadDistanceS = 128;

/// Consecutive records of the input and their results. So many that handing them over costs little,
/// so few that they stay in a processor's cache.
struct alignas(threadDistanceS) Batch {
    static constexpr std::size_t sizeCM = std::size_t{1} << 17;  ///< in bytes
    static constexpr std::size_t recordsCM = std::size_t{1} << 13;
    bool isFull() const { return text.size() >= sizeCM || items.size() >= recordsCM; }

    struct Item {
        std::size_t begin;
        std::size_t size;
        std::size_t endSize;  ///< of the line end after it
        std::int64_t line;
        const char* reason;  ///< why the record is malformed, or null
    };

    void clear();
    /// Removes what was delivered.
    void clearOutput();
    void add(std::string_view record, std::string_view lineEnd, std::int64_t line,
             const char* reason);

    std::string text;
    std::vector<Item> items;
    std::int64_t firstNumber = 1;
    std::int64_t offset = 0;  ///< The position in the input, in bytes, where the last one begins.

    std::size_t next = 0;  ///< The item to go on with.
    std::string output;
    std::string rejects;
    std::vector<std::string> reports;  ///< rejections, when no file takes them
    std::size_t reportSize = 0;        ///< of all of them, in bytes
    Counts counts;
    bool isCut = false;  ///< The last records were not executed,
    std::string error;   ///< because the script was stopped here; empty: because the job was.
};

/// An interpreter that executes a script for records. Used by one thread at a time.
class alignas(threadDistanceS) RecordWorker {
public:
    /// `options`, `names` and `stop`, which ends the work after the current record, must outlive
    /// the worker.
    RecordWorker(const JobOptions& options, const FieldNames& names, const StopSignal& stop);
    /// Runs the script's function END.
    ~RecordWorker();

    /// Takes ownership of a fresh interpreter and adds the functions of records to it.
    void adopt(std::unique_ptr<SCR::Interpreter> interpreter);
    /// Compiles the query and the conditions of the options, after the script.
    bool compile();
    /// Executes the script for each record of the batch. False when the output is so large that it
    /// must be delivered before the rest.
    bool process(Batch& batch);
    SCR::Interpreter& interpreter() { return *interpreter_; }

private:
    bool run(const Batch::Item& item, Batch& batch);
    void reject(const Batch::Item& item, std::string_view reason, Batch& batch) const;

    const JobOptions& options_;
    const FieldNames& names_;
    const StopSignal& stop_;
    CurrentRecord current_;
    std::unique_ptr<SCR::Interpreter> interpreter_;   // works on current_
    std::unique_ptr<SCR::ConditionList> conditions_;  // of the interpreter
    std::vector<std::int32_t> holding_;
};

}  // namespace Records

#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "records/Columns.h"
#include "records/read/StopSignal.h"
#include "records/script/RecordExtension.h"
#include "records/store/KeyIndex.h"
#include "scr/Output.h"
#include "scr/run/RunControl.h"

namespace SCR {
class ConditionList;
class Interpreter;
}  // namespace SCR

namespace Records {

struct JobOptions;

/// Counts of the results: read = written + dropped + rejected. `extra` are records that scripts
/// wrote besides, which were not read.
struct Counts {
    std::int64_t read = 0;
    std::int64_t written = 0;
    std::int64_t dropped = 0;
    std::int64_t rejected = 0;
    std::int64_t extra = 0;
};

/// How many records were rejected for each reason, values left out. Beyond a hundred reasons the
/// others count as one.
class RejectCounts {
public:
    void add(const std::string& kind, std::int64_t count = 1);
    void add(const RejectCounts& others);
    void clear() { counts_.clear(); }
    const std::map<std::string, std::int64_t>& all() const { return counts_; }

private:
    std::map<std::string, std::int64_t> counts_;
};

/// The distance in memory at which two threads do not slow each other down: a pair of cache lines,
/// as processors fetch two at a time.
inline constexpr std::size_t threadDistanceS = 128;

/// Consecutive records of the input and their results. So many that handing them over costs little,
/// so few that they stay in a processor's cache.
struct alignas(threadDistanceS) Batch {
    static constexpr std::size_t sizeCM = std::size_t{1} << 17;  ///< in bytes
    static constexpr std::size_t recordsCM = std::size_t{1} << 13;
    bool isFull() const { return bytesLeft() == 0 || items.size() >= recordsCM; }
    /// How many bytes are left before it is full; the last record may need more.
    std::size_t bytesLeft() const {
        return sizeCM - std::min(sizeCM, text.size() + stretch_.size());
    }

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
    /// Adds a record that its line end follows in memory. It is copied together with those that
    /// follow it there, at the latest by `keep`.
    void add(std::string_view record, std::size_t endSize, std::int64_t line, const char* reason) {
        if (record.data() != stretch_.data() + stretch_.size()) begin(record);
        items.push_back({text.size() + stretch_.size(), record.size(), endSize, line, reason});
        stretch_ = {stretch_.data(), stretch_.size() + record.size() + endSize};
    }
    /// To be called before the memory of the records that were added is used for others.
    void keep();

    std::string text;  ///< of the records, with their line ends
    std::vector<Item> items;
    std::int64_t firstNumber = 1;
    std::size_t file = 0;     ///< The input that they are from.
    std::int64_t offset = 0;  ///< The position in the input, in bytes, where the last one begins.

    std::size_t next = 0;  ///< The item to go on with.
    std::string output;
    std::map<std::string, std::string> outputs;  ///< those that the script names
    std::size_t outputSize = 0;                  ///< of these, in bytes
    std::string prints;  ///< of the script, when they do not join the output
    std::string rejects;
    /// The first rejections, when no file takes their reasons.
    static constexpr std::size_t reportsCM = 20;
    std::vector<SCR::Diagnostic> reports;
    RejectCounts reasons;
    Counts counts;

    /// Why the last records were not executed.
    enum class Cut {
        None,         ///< They were.
        Interrupted,  ///< The job was.
        Failed,       ///< A record failed, which stops the job.
        Ended         ///< The script wanted to end the job.
    };
    Cut cut = Cut::None;
    std::string error;  ///< The reason, unless the job was interrupted.

    /// A record that stays only if it is the first with its key.
    struct Keyed {
        std::string output;  ///< the one that the script named
        std::size_t begin;   ///< in that output
        std::size_t end;
        std::string key;
    };
    std::vector<Keyed> keyed;

private:
    void begin(std::string_view record);
    std::string_view stretch_;  // added, and not in `text` yet
};

/// An interpreter that executes a script for records. Used by one thread at a time.
class alignas(threadDistanceS) RecordWorker {
public:
    /// `columns` are those of the output. `options`, `names`, `tables`, `stop`, which ends the work
    /// after the current record, and `log`, for messages that are about no record, must outlive the
    /// worker.
    RecordWorker(const JobOptions& options, const FieldNames& names, const Columns& columns,
                 const Tables& tables, const StopSignal& stop, SCR::Log* log);
    /// Runs the script's function END, unless `finish` did.
    ~RecordWorker();

    /// The log for the interpreter that it adopts.
    SCR::Log& log() { return current_; }
    /// Takes ownership of a fresh interpreter and adds the functions of records to it.
    void adopt(std::unique_ptr<SCR::Interpreter> interpreter);
    /// Compiles the query and the conditions of the options, after the script.
    bool compile();
    /// Executes the script for each record of the batch. False when the output is so large that it
    /// must be delivered before the rest. When that happens within a record, calls `deliver`, which
    /// gives false when the job is over.
    bool process(Batch& batch, const std::function<bool()>& deliver);
    /// Runs the script's function END; false when it was stopped. What END writes is given to
    /// `deliver`, in pieces; its lines end like the header, in `endSize` bytes.
    bool finish(const std::function<bool(Batch&)>& deliver, std::size_t endSize = 1);

    /// What the script counts from record to record.
    Totals& totals() { return current_.totals; }
    SCR::Interpreter& interpreter() { return *interpreter_; }
    /// Whether the script wants to end the job, and why.
    bool endsJob() const { return current_.endsJob; }
    const std::string& jobEnd() const { return current_.jobEnd; }
    /// Whether nobody reads what the script prints any more.
    bool isClosed() const { return prints_.isClosed; }

private:
    // Where the script prints: between the records that go to standard output, and in their order.
    // A script whose prints nobody reads any more is stopped.
    class Prints final : public SCR::Output {
    public:
        explicit Prints(RecordWorker& worker) : worker_(worker) {}
        bool write(std::string_view text) override;
        bool flush(bool mayWait) override;
        Batch* batch = nullptr;  // being worked on
        // Where the prints end that stand in the output before anything of the current record.
        std::size_t end = 0;
        const std::function<bool()>* deliver = nullptr;
        bool isClosed = false;

    private:
        bool isTaken(bool isWritten);
        RecordWorker& worker_;
    };

    bool run(const Batch::Item& item, Batch& batch);
    // Writes the current record besides, in the middle of a script.
    void writeExtra(SCR::Interpreter& running);
    // Where the current record goes.
    std::string& outputFor(Batch& batch) const;
    // Shows in `batch` what became of the record, whose result begins at `before` in the output.
    void show(const Batch::Item& item, Batch& batch, std::size_t before);
    // Executes the script for the current record, if the query holds. False when a script failed.
    bool execute(bool& holds);
    bool evaluateQuery(bool& holds);
    // Whether the record is rejected because the script compared a date that there is not.
    bool failsForDate();
    bool cut(const Batch::Item& item, Batch& batch, Batch::Cut cut);
    void reject(const Batch::Item& item, const Rejection& rejection, Batch& batch);
    // The message about the rejection of a record.
    SCR::Diagnostic reportOf(const Batch::Item& item, const Rejection& rejection,
                             const Batch& batch) const;
    // Writes the current record, and notes its key.
    bool writeFirst(Batch& batch);
    // Appends the current record. False after a failure of the record, with `out` unchanged.
    bool write(Batch& batch);
    // The same with its line end, if it is written as it was read. Otherwise false.
    bool copy(Batch& batch);
    void writeConditions(std::string& out) const;
    std::string placeOf(const Batch::Item& item, const Batch& batch) const;

    const JobOptions& options_;
    const FieldNames& names_;
    const StopSignal& stop_;
    CurrentRecord current_;
    Columns columns_;              // for current_
    bool asksForDates_ = false;    // the query tells by itself which dates are valid
    const bool copies_;            // records that were not changed
    std::size_t lineEndSize_ = 0;  // of the current record
    std::string kept_;             // the current record, after it was written besides
    Prints prints_{*this};
    Batch end_;                                                // what END writes
    const std::function<bool(Batch&)>* deliverEnd_ = nullptr;  // while END runs
    std::unique_ptr<SCR::Interpreter> interpreter_;            // works on current_
    SCR::RunControl::InvalidDates* dates_ = nullptr;           // of the interpreter
    std::unique_ptr<SCR::ConditionList> conditions_;           // of the interpreter
    std::vector<std::int32_t> holding_;
    KeyIndex shown_;  // keys, in a dry run
};

}  // namespace Records

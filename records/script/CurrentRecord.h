#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fnd/DateTime.h"
#include "fnd/Decimal.h"
#include "records/json/JsonRecord.h"
#include "records/read/Record.h"
#include "records/script/TableExtension.h"
#include "records/store/Totals.h"
#include "scr/Log.h"
#include "scr/run/ScriptCharge.h"

namespace SCR {
class Interpreter;
}  // namespace SCR

namespace Records {

/// What becomes of a record on which the script fails: a field does not read as what the script
/// asks, a value cannot be written, a function logs an error, or a limit stops the script.
enum class OnError {
    Reject,  ///< It is rejected.
    Keep,    ///< It is written as the script left it; the errors are logged.
    Stop     ///< The job stops.
};

/// Why a record is rejected.
struct Rejection {
    std::string reason;
    std::string field;  ///< The field that the reason is about, or empty,
    std::string value;  ///< and the beginning of what it holds.

    /// The reason without the value.
    std::string kind() const;
    /// The reason with the value, in one printable line.
    std::string text() const;
};

/// What a script and its job tell each other about the current record. As the log of the script's
/// interpreter, it takes errors for failures of the record. One thread.
class CurrentRecord final : public SCR::Log {
public:
    /// `log`, which is not owned, takes messages that are no failure of a record; null drops them.
    /// `tables` are those that the script looks up rows in.
    CurrentRecord(const Layout& layout, bool isJson, OnError onError, SCR::Log* log = nullptr,
                  TableRows tables = {});

    /// The script is about to work on record `number`. Gives the reason why `text`, which must live
    /// until the next record or `leave`, is malformed, or null.
    const char* begin(std::int64_t number, std::string_view text);
    /// The script has worked on it: messages are about no record any more.
    void end() {
        isOpen_ = false;
        totals.end();
    }
    /// Forgets the record.
    void leave();

    /// Notes a failure; the first one counts.
    void fail(std::string_view reason, std::string_view field = {}, std::string_view value = {});
    void diagnose(const SCR::Diagnostic& diagnostic) override;
    /// Messages are dropped, or not any more.
    void mute(bool isMuted) { isMuted_ = isMuted; }
    /// Of the records with this key, those that are written, only the first stays.
    void keepFirst(std::string_view uniqueKey);
    /// The script rejects the record, for a reason that counts if there was no failure.
    void reject(std::string_view reason);

    // What the text `value` of field `name` is as one of the types; a failure for other texts.
    // Empty texts are null values.
    long asLong(const std::string& name, std::string_view value);
    FND::Decimal asDecimal(const std::string& name, std::string_view value);
    FND::DateTime asDate(const std::string& name, std::string_view value);

    /// Whether there was a failure, or the script rejected the record.
    bool isRejected() const { return isRejected_; }
    bool hasFailed() const { return hasFailed_; }
    const Rejection& rejection() const { return rejection_; }
    /// The message of the script that the rejection is for; null when there was none.
    const SCR::Diagnostic* cause() const { return cause_ ? &*cause_ : nullptr; }

    Record record;
    TableRows tables;
    Totals totals;
    std::unique_ptr<JsonRecord> json;  ///< Used instead of `record` when records are JSON.
    std::string_view original;         ///< The text as it was read.
    std::int64_t number = 0;           ///< 1-based
    /// Whether a Decimal with too many digits, or a Date with fractions of a second, is a failure
    /// instead of being rounded or cut off.
    bool isExact = false;
    bool isDropped = false;
    bool hasKey = false;  ///< Only the first record with the key stays.
    std::string key;
    std::string output;  ///< The output that the script chose; empty: that of the job.
    std::function<void(SCR::Interpreter&)> write;  ///< Writes the record as it stands.
    std::function<void()> noteFailure;             ///< Called when the first failure is noted.
    std::string jobEnd;                            ///< why the script wants to end the job
    bool endsJob = false;                          ///< It wants to.
    /// Called when the record becomes one that is rejected.
    std::function<void(const Rejection&)> rejecting;
    /// While set, failures and rejections only go there: the record stays as it is.
    std::vector<std::string>* aside = nullptr;
    bool readsNoDate = false;  ///< A date was asked for that is missing, empty or none,
    std::string noDateField;   ///< last in this field.
    FND::DateTime noDate;      ///< What was given then.

private:
    OnError onError_;
    SCR::Log* const log_;
    bool isOpen_ = false;
    bool isMuted_ = false;
    bool hasFailed_ = false;
    bool isRejected_ = false;
    Rejection rejection_;
    std::optional<SCR::Diagnostic> cause_;
    SCR::ScriptCharge charge_;  // for the reason
};

}  // namespace Records

#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "records/Record.h"
#include "records/json/JsonRecord.h"
#include "scr/value/KeyHash.h"

namespace SCR {
class HostExtension;
class Interpreter;
}  // namespace SCR

namespace Records {

/// The names of a record's fields. In addition, the fields have the names "f1", "f2" and so on.
class FieldNames {
public:
    /// Characters that identifiers cannot have count as "_". Of equal names, one without such
    /// characters wins, otherwise the first one.
    void add(std::string_view name);
    /// From now on every name is known; right for an input without a single record.
    void addAll() { hasAll_ = true; }
    /// The 0-based number of the field `name`, or -1.
    long index(const std::string& name) const;

private:
    struct Place {
        long number;
        bool isExact;
    };
    std::unordered_map<std::string, Place, SCR::KeyHash> names_;
    long count_ = 0;
    bool hasAll_ = false;
};

/// What a script and its job tell each other about the current record.
struct CurrentRecord {
    CurrentRecord(const Layout& layout, bool isJson)
        : record(layout), json(isJson ? std::make_unique<JsonRecord>() : nullptr) {}
    Record record;
    std::unique_ptr<JsonRecord> json;  ///< Used instead of `record` when records are JSON.
    std::string_view original;         ///< The text as it was read.
    std::int64_t number = 0;           ///< 1-based
    bool isDropped = false;
    bool isRejected = false;
    std::string reason;        ///< why the record is rejected
    SCR::ScriptCharge charge;  ///< for the reason

    /// Gives back what the script was charged for. To be called once the next record is taken.
    void release();
};

/// The whole number that `text` is, 0 for "". For any other text throws std::invalid_argument,
/// which names the field and the record.
long toLong(const CurrentRecord& current, const std::string& field, std::string_view text);

/// Adds the field functions and the record functions to `interpreter`. They work on `current`.
/// Neither `current` nor `names` is owned, and both must outlive the interpreter.
void addRecordFunctions(SCR::Interpreter& interpreter, CurrentRecord& current,
                        const FieldNames& names);

/// A record about which nothing is known, for scripts that are only compiled: every field name is
/// known, and calls may give indices.
class AnyRecord {
public:
    /// Adds the functions of records to `interpreter`, which this object must outlive.
    void addTo(SCR::Interpreter& interpreter) { addRecordFunctions(interpreter, current_, names_); }

private:
    CurrentRecord current_{Layout(), true};
    FieldNames names_;
};

/// Adds the field functions for JSON records to `host`; names are paths into `current`.
void addJsonFunctions(SCR::HostExtension& host, CurrentRecord& current);

}  // namespace Records

#pragma once

#include "records/read/FieldNames.h"
#include "records/script/CurrentRecord.h"

namespace SCR {
class HostExtension;
class Interpreter;
}  // namespace SCR

namespace Records {

/// Adds the field functions and the record functions to `interpreter`. They work on `current`.
/// Neither `current` nor `names` is owned, and both must outlive the interpreter.
void addRecordFunctions(SCR::Interpreter& interpreter, CurrentRecord& current,
                        const FieldNames& names);

/// A record about which nothing is known, for scripts that are only compiled: every field name is
/// known, and calls may give indices.
class AnyRecord {
public:
    /// The script may look up rows in `tables`, which are not owned.
    explicit AnyRecord(const Tables& tables = {})
        : current_(Layout(), true, OnError::Reject, nullptr, TableRows(tables)) {}
    /// Adds the functions of records to `interpreter`, which this object must outlive.
    void addTo(SCR::Interpreter& interpreter) { addRecordFunctions(interpreter, current_, names_); }

private:
    CurrentRecord current_;
    FieldNames names_;
};

/// Why a field does not take an invalid value.
inline constexpr const char* noDecimalS = "the invalid Decimal does not replace what it holds";
inline constexpr const char* noDateS = "the invalid Date does not replace what it holds";

/// Adds the field functions for JSON records to `host`; names are paths into `current`.
void addJsonFunctions(SCR::HostExtension& host, CurrentRecord& current);

}  // namespace Records

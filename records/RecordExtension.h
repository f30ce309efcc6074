#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "records/CurrentRecord.h"
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
    CurrentRecord current_{Layout(), true, OnError::Reject};
    FieldNames names_;
};

/// Why a field does not take an invalid value.
inline constexpr const char* noDecimalS = "the invalid Decimal does not replace what it holds";
inline constexpr const char* noDateS = "the invalid Date does not replace what it holds";

/// Adds the field functions for JSON records to `host`; names are paths into `current`.
void addJsonFunctions(SCR::HostExtension& host, CurrentRecord& current);

}  // namespace Records

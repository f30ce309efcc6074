#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "records/Record.h"

namespace SCR {
class Interpreter;
}

namespace Records {

/// The names of a record's fields. Besides its name each field has the names "f1", "f2" and so on.
class FieldNames {
public:
    /// Characters that no identifier has count as "_"; the first of two equal names is kept.
    void add(std::string_view name);
    /// The 0-based number of the field `name`, or -1.
    long index(const std::string& name) const;

private:
    std::unordered_map<std::string, long> names_;
    long count_ = 0;
};

/// What a script and the job that runs it say to each other about the current record.
struct CurrentRecord {
    explicit CurrentRecord(const Layout& layout) : record(layout) {}
    Record record;
    std::int64_t number = 0;  ///< 1-based
    bool isDropped = false;
    bool isRejected = false;
    std::string reason;  ///< of the rejection
};

/// Adds the field functions and the record functions to `interpreter`. They work on `current`;
/// neither that nor `names` is owned, and both must outlive the interpreter.
void addRecordFunctions(SCR::Interpreter& interpreter, CurrentRecord& current,
                        const FieldNames& names);

}  // namespace Records

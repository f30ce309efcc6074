#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "records/CurrentRecord.h"
#include "records/FieldNames.h"
#include "records/RecordReader.h"

namespace Cli {

/// The records of a file, one after the other, for somebody who looks at them. The end of the
/// file's name tells the format: ".csv" and ".tsv", whose first line names the fields, ".jsonl" and
/// ".json"; other files are lines.
class SampleRecords {
public:
    /// `isJson`: scripts get the functions for JSON. Messages about records go to `log`.
    SampleRecords(bool isJson, SCR::Log& log);
    ~SampleRecords();
    SampleRecords(const SampleRecords&) = delete;
    SampleRecords& operator=(const SampleRecords&) = delete;

    /// Adds the functions of records to `interpreter`, which this object must outlive.
    void addTo(SCR::Interpreter& interpreter);
    /// Goes on with the file `path`. "", or why it cannot be read.
    std::string open(const std::string& path);
    bool isOpen() const { return reader_ != nullptr; }
    /// Takes the next record. None at the end of the file; otherwise "", or what is wrong.
    std::optional<std::string> next();

    Records::CurrentRecord& current() { return current_; }
    const Records::FieldNames& names() const { return names_; }

    static bool isJson(const std::string& path);

private:
    void close();

    Records::CurrentRecord current_;
    Records::FieldNames names_;
    std::unique_ptr<Records::RecordReader> reader_;
    int descriptor_ = -1;
    std::string text_;
    std::int64_t number_ = 0;
};

}  // namespace Cli

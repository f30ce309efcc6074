#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "records/read/FieldNames.h"
#include "records/read/RecordReader.h"
#include "records/script/CurrentRecord.h"

namespace Cli {

/// The records of files, one after the other, for somebody who looks at them. The end of a file's
/// name tells the format: ".csv" and ".tsv", whose first line names the fields, ".jsonl" and
/// ".json"; other files are lines. Compressed files have ".gz" or ".zst" after that.
class SampleRecords {
public:
    /// `isJson`: scripts get the functions for JSON. Messages about records go to `log`.
    SampleRecords(bool isJson, SCR::Log& log);
    ~SampleRecords();
    SampleRecords(const SampleRecords&) = delete;
    SampleRecords& operator=(const SampleRecords&) = delete;

    /// Adds the functions of records to `interpreter`, which this object must outlive.
    void addTo(SCR::Interpreter& interpreter);
    /// Goes on with these files, which must have the same fields. "", or why the first one cannot
    /// be read.
    std::string open(const std::vector<std::string>& paths);
    bool isOpen() const { return reader_ != nullptr; }
    /// Takes the next record. None at the end of the files; otherwise "", or what is wrong.
    std::optional<std::string> next();

    Records::CurrentRecord& current() { return current_; }
    const Records::FieldNames& names() const { return names_; }

    static bool isJson(const std::string& path);

private:
    void close();
    std::string openFile(const std::string& path, Records::FieldNames& names);
    std::optional<std::string> nextOfFile();

    Records::CurrentRecord current_;
    Records::FieldNames names_;
    std::unique_ptr<Records::RecordReader> reader_;
    int descriptor_ = -1;
    std::vector<std::string> paths_;  // that follow, the next one last
    std::string text_;
    std::int64_t number_ = 0;
};

}  // namespace Cli

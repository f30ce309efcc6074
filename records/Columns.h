#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "records/read/FieldNames.h"
#include "records/script/CurrentRecord.h"

namespace Records {

/// A format of records.
enum class Format { Csv, Tsv, Jsonl, Lines };

/// What the user and the script want of the output's columns.
struct ColumnOptions {
    std::vector<std::string> selected;                         ///< In this order; empty: all.
    std::vector<std::string> left;                             ///< These are left out.
    std::vector<std::pair<std::string, std::string>> renamed;  ///< Old and new names.
    bool changesAnything() const { return !selected.empty() || !left.empty() || !renamed.empty(); }
};

/// The columns of the output, and how records are written with them. One thread.
class Columns {
public:
    /// Works out the columns of tables that have `names`, of which those from `added` on are not in
    /// the input. `from` is how fields lie there, `delimiter` what separates them in the output.
    /// Gives what is wrong, or "".
    std::string plan(const ColumnOptions& options, const FieldNames& names, std::size_t added,
                     const Layout& from, Format input, Format output, char delimiter);
    /// To be called before `write`, for the records that it will write.
    void bind(CurrentRecord& current);

    /// Whether records are written as they stand.
    bool areUnchanged() const { return !isPlanned_; }
    /// The names for the output; none if its format has none.
    std::string header() const;
    /// Whether there is a column for each field of the record, which was just read.
    bool fits(CurrentRecord& current) const;
    /// Appends the record, without a line end. False after a failure of the record.
    bool write(CurrentRecord& current, std::string& out) const;

private:
    struct Column {
        std::size_t field;  // the number, or what JsonRecord::add gave
        std::string name;
        std::string path;  // of a JSON field
    };
    std::string planTable(const ColumnOptions& options, const FieldNames& names);
    std::string planJson(const ColumnOptions& options);
    // Tells when a field gets a name that another one has; otherwise "".
    std::string clash(const ColumnOptions& options) const;
    bool writeTable(CurrentRecord& current, std::string& out) const;
    bool writeObject(CurrentRecord& current, std::string& out) const;
    bool changeObject(CurrentRecord& current, std::string& out) const;

    bool isPlanned_ = false;
    bool isOpen_ = false;       // whatever fields a record has, under the names f1, f2, ...
    bool isSelection_ = false;  // fields that no column has are left out
    std::vector<Column> columns_;
    std::vector<Column> removed_;                     // members of a JSON object
    std::vector<std::pair<Column, Column>> renamed_;  // the same: from and to
    std::size_t fields_ = 0;                          // that a record may have
    Layout to_;
    Format input_ = Format::Csv;
    Format output_ = Format::Csv;
};

}  // namespace Records

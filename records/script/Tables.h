#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "records/read/StopSignal.h"
#include "records/store/Table.h"

namespace Records {

/// A file of rows that scripts look up.
struct TableFile {
    std::string name;                                        ///< For scripts; an identifier.
    std::string path;                                        ///< Its ending tells the format.
    std::vector<std::string> keys;                           ///< Columns; empty: the first one.
    std::vector<std::pair<std::string, Table::Type>> types;  ///< Those of columns.
};

/// The name of a type, as scripts spell it.
const char* nameOf(Table::Type type);
/// The type named; none of another name.
std::optional<Table::Type> tableTypeOf(std::string_view name);

/// The tables of a job. They are read once, and then shared by any number of threads.
class Tables {
public:
    enum class End { Done, BadInput, TooLarge, Interrupted };

    /// Reads the files, of which each record may have `maxRecord` bytes, into at most `mostBytes`
    /// of memory. `error` tells why it did not.
    End read(const std::vector<TableFile>& files, std::size_t maxRecord, std::size_t mostBytes,
             const StopSignal& stop);
    const std::string& error() const { return error_; }

    const std::vector<std::unique_ptr<Table>>& all() const { return tables_; }

private:
    class Reading;
    std::vector<std::unique_ptr<Table>> tables_;
    std::string error_;
};

}  // namespace Records

#pragma once

#include <cstdint>
#include <vector>

#include "records/script/Tables.h"

namespace SCR {
class Interpreter;
}  // namespace SCR

namespace Records {

/// The rows of tables that a script looked up last. One thread.
class TableRows {
public:
    TableRows() = default;
    /// `tables` are not owned.
    explicit TableRows(const Tables& tables) {
        for (const auto& table : tables.all()) all_.push_back({table.get(), Table::noneCM});
    }

    struct Place {
        const Table* table;
        std::uint32_t row;  ///< `Table::noneCM` when nothing was found.
    };
    /// The places keep where they are.
    std::vector<Place>& all() { return all_; }
    /// No row is found any more.
    void leave() {
        for (Place& place : all_) place.row = Table::noneCM;
    }

private:
    std::vector<Place> all_;
};

/// Adds the functions that look up rows to `interpreter`. `rows` is not owned and must outlive it.
void addTableFunctions(SCR::Interpreter& interpreter, TableRows& rows);

}  // namespace Records

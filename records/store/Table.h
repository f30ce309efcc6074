#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "fnd/DateTime.h"
#include "fnd/Decimal.h"
#include "records/store/KeyIndex.h"

namespace Records {

/// Rows that scripts look up by key. It is filled once and then read by any number of threads.
class Table {
public:
    /// What the cells of a column are read as.
    enum class Type { String, Long, Decimal, Date };
    struct Column {
        std::string name;
        Type type = Type::String;
    };
    static constexpr std::uint32_t noneCM = KeyIndex::noneCM;

    explicit Table(std::string name) : name_(std::move(name)) {}
    const std::string& name() const { return name_; }

    // While it is filled.

    /// Adds a column, also when there are rows already, and gives its number.
    std::size_t addColumn(std::string name, Type type = Type::String);
    /// The columns of the key, which must exist.
    void keys(std::vector<std::size_t> columns) { keys_ = std::move(columns); }
    /// Adds a row with its first cells as they are stored; those that are missing are empty.
    void addRow(const std::vector<std::string>& cells);
    /// The memory that it takes.
    std::size_t bytes() const;

    // When it is full.

    const std::vector<Column>& columns() const { return columns_; }
    const std::vector<std::size_t>& keys() const { return keys_; }
    /// The number of the column that is spelled `name`; otherwise of the first whose name is `name`
    /// when characters that identifiers cannot have are taken for "_". `noneCM` when there is none.
    std::size_t column(std::string_view name) const;
    /// The first row with the key, or `noneCM`.
    std::uint32_t find(std::string_view key) const {
        const std::uint32_t number = index_.find(key);
        return number == noneCM ? noneCM : first_[number];
    }
    /// The next row with the same key, or `noneCM`.
    std::uint32_t next(std::uint32_t row) const { return next_[row]; }
    /// A cell as it is stored; nothing when it is empty.
    std::string_view cell(std::uint32_t row, std::size_t column) const;

    /// How a value is stored: a text as it is, any other by its bytes.
    template <class Value>
    static std::string stored(const Value& value) {
        static_assert(std::is_trivially_copyable_v<Value>);
        return {reinterpret_cast<const char*>(&value), sizeof value};
    }
    /// The value that is stored so; a null value for an empty cell.
    template <class Value>
    static Value value(std::string_view stored, const Value& null) {
        static_assert(std::is_trivially_copyable_v<Value>);
        Value value = null;
        if (stored.size() == sizeof value) std::memcpy(&value, stored.data(), sizeof value);
        return value;
    }

    // These append a value of a column to a key; equal values are equal in keys.

    static void appendKey(std::string_view value, std::string& key);
    static void appendKey(long value, std::string& key) { appendKey(stored(value), key); }
    static void appendKey(const FND::DateTime& value, std::string& key) {
        appendKey(stored(value), key);
    }
    static void appendKey(const FND::Decimal& value, std::string& key);

private:
    struct Row {
        std::uint64_t begin;    // in text_
        std::uint64_t lengths;  // of the cells, in lengths_; their number is up to the next row
    };

    const std::string name_;
    std::vector<Column> columns_;
    std::vector<std::size_t> keys_;
    std::string text_;
    std::vector<std::uint32_t> lengths_;
    std::vector<Row> rows_;
    KeyIndex index_;
    std::vector<std::uint32_t> first_;  // by key: its first row
    std::vector<std::uint32_t> last_;   // and its last one
    std::vector<std::uint32_t> next_;   // by row
    std::string key_;                   // of the row being added
};

}  // namespace Records

#include "records/store/Table.h"

#include <algorithm>

#include "records/json/JsonText.h"

namespace Records {
std::size_t Table::addColumn(std::string name, Type type) {
    columns_.push_back({std::move(name), type});
    return columns_.size() - 1;
}

std::size_t Table::column(std::string_view name) const {
    const auto find = [&](const auto& fits) {
        const auto found = std::find_if(columns_.begin(), columns_.end(), fits);
        return found == columns_.end() ? std::size_t{noneCM}
                                       : static_cast<std::size_t>(found - columns_.begin());
    };
    const std::size_t exact = find([&](const Column& column) { return column.name == name; });
    return exact != noneCM
               ? exact
               : find([&](const Column& column) { return JsonText::standsFor(name, column.name); });
}

void Table::appendKey(std::string_view value, std::string& key) {
    key += stored(static_cast<std::uint32_t>(value.size()));
    key += value;
}

void Table::appendKey(const FND::Decimal& value, std::string& key) {
    std::string text = value.toPlainString();
    if (value.scale() > 0) {
        text.erase(text.find_last_not_of('0') + 1);
        if (text.back() == '.') text.pop_back();
    }
    appendKey(std::string_view(text), key);
}

void Table::addRow(const std::vector<std::string>& cells) {
    key_.clear();
    for (const std::size_t column : keys_) {
        const std::string_view cell = column < cells.size() ? cells[column] : std::string_view();
        if (columns_[column].type == Type::Decimal) {
            appendKey(value(cell, FND::Decimal::invalid()), key_);
        } else if (columns_[column].type == Type::Long) {
            appendKey(value(cell, 0L), key_);
        } else if (columns_[column].type == Type::Date) {
            appendKey(value(cell, FND::DateTime()), key_);
        } else {
            appendKey(cell, key_);
        }
    }
    const auto row = static_cast<std::uint32_t>(rows_.size());
    rows_.push_back({text_.size(), lengths_.size()});
    for (const std::string& cell : cells) {
        text_ += cell;
        lengths_.push_back(static_cast<std::uint32_t>(cell.size()));
    }
    next_.push_back(noneCM);
    const auto [number, isNew] = index_.add(key_);
    if (isNew) {
        first_.push_back(row);
        last_.push_back(row);
    } else {
        next_[last_[number]] = row;
        last_[number] = row;
    }
}

std::size_t Table::bytes() const {
    return text_.capacity() + rows_.capacity() * sizeof(Row) + index_.bytes() +
           (lengths_.capacity() + first_.capacity() + last_.capacity() + next_.capacity()) *
               sizeof(std::uint32_t);
}

std::string_view Table::cell(std::uint32_t row, std::size_t column) const {
    const Row& found = rows_[row];
    const std::size_t cells =
        (row + 1 < rows_.size() ? rows_[row + 1].lengths : lengths_.size()) - found.lengths;
    if (column >= cells) return {};
    std::size_t begin = found.begin;
    for (std::size_t i = 0; i < column; ++i) begin += lengths_[found.lengths + i];
    return std::string_view(text_).substr(begin, lengths_[found.lengths + column]);
}

}  // namespace Records

#include "records/script/Tables.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <unordered_map>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "records/json/JsonMembers.h"
#include "records/read/FieldText.h"
#include "records/read/Record.h"
#include "records/read/RecordReader.h"
#include "scr/message/Quote.h"
#include "scr/value/KeyHash.h"

namespace Records {
namespace {

constexpr std::array<std::pair<Table::Type, const char*>, 4> typesS{
    {{Table::Type::String, "String"},
     {Table::Type::Long, "Long"},
     {Table::Type::Decimal, "Decimal"},
     {Table::Type::Date, "Date"}}};

// The value that a text is, as a table stores it; none when it does not read as the type.
std::optional<std::string> storedAs(Table::Type type, std::string_view text) {
    if (text.empty()) return std::string();
    switch (type) {
        case Table::Type::Long:
            if (const std::optional<long> whole = readLong(text)) return Table::stored(*whole);
            return std::nullopt;
        case Table::Type::Decimal: {
            const FND::Decimal decimal = readDecimal(text);
            return decimal.isValid() ? std::optional(Table::stored(decimal)) : std::nullopt;
        }
        case Table::Type::Date: {
            const FND::DateTime date = readDate(text);
            return date.isValid() ? std::optional(Table::stored(date)) : std::nullopt;
        }
        case Table::Type::String:
            break;
    }
    return std::string(text);
}

// The ending of a name, without that of a compressed file.
std::string endingOf(std::string path) {
    for (const std::string_view packed : {".gz", ".zst"}) {
        if (path.ends_with(packed)) path.resize(path.size() - packed.size());
    }
    const std::size_t dot = path.rfind('.');
    return dot == std::string::npos ? std::string() : path.substr(dot);
}

Layout layoutOf(const std::string& ending) {
    if (ending == ".tsv") return {'\t', false, false};
    if (ending == ".jsonl" || ending == ".ndjson") return {',', false, true};
    return {};
}

}  // namespace

const char* nameOf(Table::Type type) { return typesS[static_cast<std::size_t>(type)].second; }

std::optional<Table::Type> tableTypeOf(std::string_view name) {
    for (const auto& [type, text] : typesS) {
        if (name == text) return type;
    }
    return std::nullopt;
}

// One file being read.
class Tables::Reading {
public:
    Reading(Tables& tables, const TableFile& file, Table& table)
        : tables_(tables), file_(file), table_(table) {}

    End read(std::size_t maxRecord, std::size_t mostBytes, const StopSignal& stop);

private:
    End fail(const std::string& reason, End end = End::BadInput) {
        tables_.error_ = file_.path + reason;
        return end;
    }
    End failAt(const RecordReader& reader, const std::string& reason) {
        std::string place = ":";
        place.append(std::to_string(reader.line())).append(": ");
        return fail(place + reason);
    }
    End readAll(RecordReader& reader, std::size_t mostBytes);
    End addHeader(RecordReader& reader);
    End addRecord(RecordReader& reader);
    // Takes the texts of a record; gives why it is malformed, or null.
    const char* takeCells(std::string_view text);
    // Adds a column `name` and the type that the options give it.
    void addColumn(std::string name);
    // Sets the columns of the key. False after a failure.
    bool setKeys();
    const char* set(std::size_t column, std::string_view text);

    Tables& tables_;
    const TableFile& file_;
    Table& table_;
    const Layout layout_{layoutOf(endingOf(file_.path))};
    Record record_{layout_};
    JsonMembers members_;
    std::unordered_map<std::string, std::size_t, SCR::KeyHash> numbers_;  // of JSON paths
    std::vector<std::string> cells_;
    std::size_t filled_ = 0;  // of cells_
    std::string reason_;
};

Tables::End Tables::Reading::read(std::size_t maxRecord, std::size_t mostBytes,
                                  const StopSignal& stop) {
    const int descriptor = ::open(file_.path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) return fail(std::string(": ") + std::strerror(errno));
    struct Close {
        int descriptor;
        ~Close() { close(descriptor); }
    } const close{descriptor};
    RecordReader reader(descriptor, layout_, stop, maxRecord);
    return readAll(reader, mostBytes);
}

Tables::End Tables::Reading::readAll(RecordReader& reader, std::size_t mostBytes) {
    using State = RecordReader::State;
    bool isHeader = !layout_.isWhole;
    if (layout_.isWhole) {
        for (const auto& [name, type] : file_.types) addColumn(name);
        for (const std::string& name : file_.keys) {
            if (table_.column(name) == Table::noneCM) addColumn(name);
        }
        if (!setKeys()) return End::BadInput;
    }
    while (table_.bytes() <= mostBytes) {
        const State state = reader.next();
        switch (state) {
            case State::Waiting:
                reader.wait();
                break;
            case State::End:
                if (isHeader) return fail(": it has no header");
                return End::Done;
            case State::Interrupted:
                return End::Interrupted;
            case State::Malformed:
                return failAt(reader, reader.reason());
            case State::Failed: {
                const int error = errno;
                if (!reader.error().empty()) return fail(": " + reader.error());
                return failAt(reader,
                              error == EMSGSIZE ? "limit `record' passed" : std::strerror(error));
            }
            case State::Record: {
                const bool isBlank = layout_.isWhole &&
                                     reader.text().find_first_not_of(" \t\r") == std::string::npos;
                if (isBlank) break;
                const End end = isHeader ? addHeader(reader) : addRecord(reader);
                if (end != End::Done) return end;
                isHeader = false;
                break;
            }
        }
    }
    return fail(": limit `tables' of " + std::to_string(mostBytes) + " bytes passed",
                End::TooLarge);
}

void Tables::Reading::addColumn(std::string name) {
    Table::Type type = Table::Type::String;
    if (const std::size_t colon = name.rfind(':'); colon != std::string::npos && !layout_.isWhole) {
        if (const auto told = tableTypeOf(std::string_view(name).substr(colon + 1))) {
            type = *told;
            name.resize(colon);
        }
    }
    for (const auto& [column, given] : file_.types) {
        if (column == name) type = given;
    }
    const std::size_t number = table_.addColumn(std::move(name), type);
    numbers_.emplace(table_.columns()[number].name, number);
}

bool Tables::Reading::setKeys() {
    std::vector<std::size_t> keys;
    const auto find = [&](const std::string& name) {
        const auto found = numbers_.find(name);
        if (found != numbers_.end()) return found->second;
        fail(": it has no column " + SCR::quotedValue(name));
        return std::size_t{Table::noneCM};
    };
    for (const std::string& name : file_.keys) {
        keys.push_back(find(name));
        if (keys.back() == Table::noneCM) return false;
    }
    for (const auto& [name, type] : file_.types) {
        if (find(name) == Table::noneCM) return false;
    }
    if (keys.empty() && layout_.isWhole) {
        fail(": JSON needs --table-key " + file_.name + "=MEMBER");
        return false;
    }
    if (keys.empty()) keys.push_back(0);
    table_.keys(std::move(keys));
    return true;
}

Tables::End Tables::Reading::addHeader(RecordReader& reader) {
    record_.take(reader.text());
    for (std::size_t i = 0; record_.has(i); ++i) {
        std::string name(record_.value(i));
        addColumn(std::move(name));
        if (numbers_.size() == i + 1) continue;
        return failAt(reader,
                      "two columns are named " + SCR::quotedValue(table_.columns().back().name));
    }
    return setKeys() ? End::Done : End::BadInput;
}

const char* Tables::Reading::set(std::size_t column, std::string_view text) {
    if (filled_ <= column) {
        if (cells_.size() <= column) cells_.resize(column + 1);
        for (; filled_ <= column; ++filled_) cells_[filled_].clear();
    }
    std::optional<std::string> stored = storedAs(table_.columns()[column].type, text);
    if (stored) {
        cells_[column] = std::move(*stored);
        return nullptr;
    }
    reason_ = "column " + table_.columns()[column].name + ": no " +
              nameOf(table_.columns()[column].type) + ": " + SCR::quotedValue(text);
    return reason_.c_str();
}

const char* Tables::Reading::takeCells(std::string_view text) {
    constexpr std::size_t mostColumns = 100'000;
    filled_ = 0;
    const char* wrong = nullptr;
    if (layout_.isWhole) {
        const auto take = [&](std::string_view path, std::string_view member) {
            if (wrong != nullptr) return;
            const std::string name(path);
            if (!numbers_.contains(name)) addColumn(name);
            wrong = table_.columns().size() > mostColumns ? "too many members"
                                                          : set(numbers_[name], member);
        };
        const char* const malformed = members_.visit(text, take);
        return malformed != nullptr ? malformed : wrong;
    }
    record_.take(text);
    for (std::size_t i = 0; wrong == nullptr && record_.has(i); ++i) {
        wrong = i < table_.columns().size() ? set(i, record_.value(i))
                                            : "it has more fields than there are names";
    }
    return wrong;
}

Tables::End Tables::Reading::addRecord(RecordReader& reader) {
    if (const char* const wrong = takeCells(reader.text())) return failAt(reader, wrong);
    cells_.resize(filled_);
    table_.addRow(cells_);
    return End::Done;
}

Tables::End Tables::read(const std::vector<TableFile>& files, std::size_t maxRecord,
                         std::size_t mostBytes, const StopSignal& stop) {
    tables_.clear();
    for (const TableFile& file : files) {
        tables_.push_back(std::make_unique<Table>(file.name));
        Reading reading(*this, file, *tables_.back());
        const End end = reading.read(maxRecord, mostBytes, stop);
        if (end != End::Done) return end;
        mostBytes -= std::min(mostBytes, tables_.back()->bytes());
    }
    return End::Done;
}

}  // namespace Records

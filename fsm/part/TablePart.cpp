#include "fsm/part/TablePart.h"

#include <algorithm>
#include <utility>

#include "fsm/store/Archive.h"
#include "fsm/table/ByteScan.h"

namespace FSM {

namespace {

// Walks `count` tables, each from its start, over the text at the same time, so that the loads of
// one do not wait for those of another. Leaves in `rows` the rows in which the text ends.
template <std::size_t count>
void walkTogether(const std::unique_ptr<Table>* tables, const char* text, std::size_t length,
                  Table::Row* rows) {
    const Table::Row* tableRows[count];
    const std::uint8_t* classOf[count];
    Table::Row row[count];
    for (std::size_t i = 0; i < count; ++i) {
        tableRows[i] = tables[i]->rows();
        classOf[i] = tables[i]->classOf().data();
        row[i] = tables[i]->startRow();
    }
    const bool takesNul = tables[0]->takesNul();  // as all of them
    const auto isEnd = [&](unsigned char byte) { return byte == 0 && !takesNul; };
    auto next = reinterpret_cast<const unsigned char*>(text);
    const unsigned char* end = next + length;
    while (next != end && !isEnd(*next)) {
        // A few bytes at a time, as most checks find something to do.
        const unsigned char* stop = end - next > 8 ? next + 8 : end;
        for (; next != stop && !isEnd(*next); ++next) {
            for (std::size_t i = 0; i < count; ++i) {
                row[i] = (tableRows[i] + classOf[i][*next])[row[i]];
            }
        }
        bool isBusy = false;
        bool isTrapped = true;
        for (std::size_t i = 0; i < count; ++i) {
            isBusy = isBusy || row[i] > tables[i]->lastLineLoop();
            isTrapped = isTrapped && row[i] <= tables[i]->lastTrap();
        }
        if (isBusy) continue;
        if (isTrapped) break;
        next = lineEnd(next, end, takesNul);
    }
    std::copy(row, row + count, rows);
}

void addRow(const Table& table, Table::Row row, Found& found) {
    if (row == 0) {
        found.add(table.negatedPaths());
    } else if (table.firstPath(row) >= 0) {
        found.add(table.state(row)->pathNumbers());
    }
}

// The numbers of the patterns that have settled, appended to a vector in ascending order.
class SettledPaths {
public:
    static constexpr bool isUsed = true;

    explicit SettledPaths(std::vector<std::int32_t>& paths)
        : paths_(paths), begin_(std::ssize(paths)) {}

    bool isAnySettled() const { return std::ssize(paths_) > begin_; }
    void settle(const std::vector<std::int32_t>& settled) {
        for (std::int32_t path : settled) {
            if (!isAnySettled() || paths_.back() < path) {
                paths_.push_back(path);
                continue;
            }
            auto place = std::lower_bound(paths_.begin() + begin_, paths_.end(), path);
            if (*place != path) paths_.insert(place, path);
        }
    }
    void forget() { paths_.erase(paths_.begin() + begin_, paths_.end()); }

private:
    std::vector<std::int32_t>& paths_;
    const std::ptrdiff_t begin_;
};

// The lowest number of the patterns that have settled, or -1.
class SettledFirst {
public:
    static constexpr bool isUsed = true;

    bool isAnySettled() const { return first_ >= 0; }
    void settle(const std::vector<std::int32_t>& settled) {
        if (first_ < 0 || settled.front() < first_) first_ = settled.front();
    }
    void forget() { first_ = -1; }
    std::int32_t first() const { return first_; }

private:
    std::int32_t first_ = -1;
};

}  // namespace

void TablePart::add(std::unique_ptr<Table> table) {
    (table->hasTailsApart() ? tailed_ : plain_).push_back(std::move(table));
}

bool TablePart::archive(Archive& archive) {
    std::uint64_t count = automatonCount();
    archive.value(count);
    if (!archive.isReading()) {
        for (const auto& table : plain_) table->archive(archive);
        for (const auto& table : tailed_) table->archive(archive);
        return true;
    }
    while (archive.isGood() && count-- > 0) {
        auto table = std::make_unique<Table>();
        if (!table->archive(archive)) return false;
        add(std::move(table));
    }
    return archive.isGood();
}

bool TablePart::matchTailed(const Table& table, std::string_view text, Found& found) {
    Table::Row row = 0;
    bool isAnySettled = false;
    if (found.wantsAll()) {
        SettledPaths settled(found.paths());
        row = table.walk(text.data(), text.size(), settled);
        isAnySettled = settled.isAnySettled();
        if (isAnySettled) found.countList();
    } else {
        SettledFirst settled;
        row = table.walk(text.data(), text.size(), settled);
        isAnySettled = settled.isAnySettled();
        if (isAnySettled) found.add(settled.first());
    }
    addRow(table, row, found);
    return table.isInside(row) || isAnySettled;
}

bool TablePart::match(std::string_view text, Found& found) const {
    constexpr std::size_t atOnce = 4;
    Table::Row rows[atOnce];
    bool isInside = false;
    for (std::size_t first = 0; first < plain_.size(); first += atOnce) {
        const std::unique_ptr<Table>* together = &plain_[first];
        const std::size_t count = std::min(atOnce, plain_.size() - first);
        switch (count) {
            case 1:
                rows[0] = together[0]->walk(text.data(), text.size());
                break;
            case 2:
                walkTogether<2>(together, text.data(), text.size(), rows);
                break;
            case 3:
                walkTogether<3>(together, text.data(), text.size(), rows);
                break;
            default:
                walkTogether<4>(together, text.data(), text.size(), rows);
                break;
        }
        for (std::size_t i = 0; i < count; ++i) {
            isInside = isInside || rows[i] != 0;
            addRow(*together[i], rows[i], found);
        }
    }
    for (const auto& table : tailed_) isInside = matchTailed(*table, text, found) || isInside;
    return isInside;
}

void TablePart::addNegated(Found& found) const {
    for (const auto& table : plain_) found.add(table->negatedPaths());
    for (const auto& table : tailed_) found.add(table->negatedPaths());
}

std::size_t TablePart::stateCount() const {
    std::size_t count = 0;
    for (const auto& table : plain_) count += table->stateCount();
    for (const auto& table : tailed_) count += table->stateCount();
    return count;
}

std::size_t TablePart::memory() const {
    std::size_t bytes = sizeof *this;
    for (const auto& table : plain_) bytes += table->memory();
    for (const auto& table : tailed_) bytes += table->memory();
    return bytes;
}

}  // namespace FSM

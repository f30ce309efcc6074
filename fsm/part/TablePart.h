#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "fsm/part/Part.h"
#include "fsm/table/Table.h"

namespace FSM {

/// Deterministic automata that are walked side by side, up to four at a time.
class TablePart final : public Part {
public:
    void add(std::unique_ptr<Table> table);

    Kind kind() const override { return Kind::Tables; }
    bool archive(Archive& archive) override;
    bool match(std::string_view text, Found& found) const override;
    void addNegated(Found& found) const override;
    std::size_t stateCount() const override;
    std::size_t memory() const override;

    std::size_t automatonCount() const override { return plain_.size() + tailed_.size(); }
    /// The only table, if it needs no memory beside its state; otherwise null.
    const Table* only() const {
        return plain_.size() == 1 && tailed_.empty() ? plain_[0].get() : nullptr;
    }
    /// The only table, if it has tails apart; otherwise null.
    const Table* onlyTailed() const {
        return tailed_.size() == 1 && plain_.empty() ? tailed_[0].get() : nullptr;
    }
    /// What `match` does with such a table.
    static bool matchTailed(const Table& table, std::string_view text, Found& found);

private:
    std::vector<std::unique_ptr<Table>> plain_;
    std::vector<std::unique_ptr<Table>> tailed_;  // with tails apart
};

}  // namespace FSM

#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "fsm/store/SharedGroup.h"
#include "scr/Node.h"
#include "scr/run/PendingBuilds.h"

namespace SCR {

/// The matcher of a switch over patterns. Step n of the build inserts label n, `finalStep` sets the
/// automaton up.
class SwitchAutomaton final : public PendingBuild {
public:
    static constexpr std::size_t finalStep = std::numeric_limits<std::size_t>::max();

    /// `stateLimit` limits the states of each automaton of the patterns.
    explicit SwitchAutomaton(std::size_t stateLimit) : stateLimit_(stateLimit) {}

    /// Adds the pattern of `label`, a constant in line `line`.
    void add(std::unique_ptr<StringNode> label, int line);
    /// The number of labels added.
    std::size_t size() const { return labels_.size(); }

    std::optional<Messages::Message> build(Interpreter* interpreter, std::size_t step,
                                           const FND::String& file) override;
    bool adopt(const PendingBuild& built) override;
    std::vector<Warning> takeWarnings() override { return std::exchange(warnings_, {}); }

    /// The number of the first label that matches `text`, or -1.
    std::int32_t first(const FND::String& text) const { return group_->firstPath(text); }
    /// The same; counts as work.
    std::int32_t firstOfLarge(const FND::String& text) const;

private:
    std::optional<Messages::Message> insert(const FND::String& pattern);
    void dropLabels();
    // Warns about the cases that no text reaches.
    void warnOfUnreached();

    const std::size_t stateLimit_;
    bool isRefused_ = false;                  // a pattern was refused
    std::unique_ptr<FSM::EngineGroup> list_;  // until the set-up
    FSM::SharedGroup group_;
    std::vector<std::unique_ptr<StringNode>> labels_;  // until the set-up
    std::vector<std::int32_t> lines_;                  // until the set-up
    std::vector<std::string_view> places_;             // of the labels, while a script is checked
    std::vector<Warning> warnings_;
    bool isShared_ = false;              // others may adopt it
    std::vector<FND::String> patterns_;  // when it is shared
};

}  // namespace SCR

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "fsm/part/NumberLists.h"
#include "fsm/part/Part.h"

namespace FSM {

struct Pattern;
struct PatternOptions;

/// Patterns whose deterministic automaton would be too large and whose non-deterministic one goes
/// round in single states only, such as words at a distance. 64 places of the text are looked at
/// at once: for each state, a bit for each place tells whether the bytes before it lead there. A
/// gap of any length is a few shifts. So time depends on the patterns once for 64 bytes.
class StreamPart final : public Part {
public:
    /// What the non-deterministic automaton of a pattern is like.
    struct Traits {
        bool suits = false;  // the part can take it
        /// Whether bytes are counted after a place that may be anywhere: each such place needs a
        /// memory of its own in a deterministic automaton.
        bool countsFromAnywhere = false;
    };
    /// With `mustStartWild` only patterns suit that no byte but newline leaves.
    static Traits traits(const Pattern& pattern, bool mustStartWild);

    /// Makes a part of `count` patterns from `first` on, none of them negated. Null if they do not
    /// suit together.
    static std::unique_ptr<StreamPart> make(const Pattern* first, std::size_t count,
                                            const PatternOptions& options);

    Kind kind() const override { return Kind::Streams; }
    bool archive(Archive& archive) override;
    bool match(std::string_view text, Found& found) const override;
    std::size_t stateCount() const override { return steps_.size(); }
    std::size_t memory() const override;

private:
    friend class StreamMaker;

    using Word = std::uint64_t;
    // How a stream comes from others. Bit n of a stream stands for the place before byte n.
    struct Step {
        std::uint32_t from;
        std::uint32_t by;  // another stream or a distance
    };
    enum class Move : std::uint32_t {
        Take,    // the places after a byte of `by`
        Shift,   // `by` places later
        Smear,   // the same places and up to `by` later
        Join,    // the places of both
        Stay,    // the same places and those after more bytes of `by`
        Spread,  // all places from the first one on
    };
    static constexpr std::size_t movesCM = 6;
    // Steps of one kind, which are taken in a loop.
    struct Run {
        Move move;
        std::uint32_t end;
    };
    struct Accept {
        std::uint32_t stream;
        NumberLists::Ref list;
    };

    bool isSound() const;
    std::size_t firstStep() const { return classCount_ + 1; }
    std::size_t streamCount() const { return firstStep() + steps_.size(); }
    template <bool isShort>
    void move(Word* streams, Word* before) const;

    std::uint32_t takesNul_ = 0;
    std::uint32_t classCount_ = 0;
    std::array<std::uint8_t, 256> classOf_{};
    // The first streams are the bytes of each class; one that holds the beginning of the text
    // follows, and then one for each step.
    Flat<Step> steps_;
    Flat<Run> runs_;
    Flat<Accept> accepts_;
    NumberLists lists_;
};

}  // namespace FSM

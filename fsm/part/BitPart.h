#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "fsm/part/NumberLists.h"
#include "fsm/part/Part.h"

namespace FSM {

enum class Limit;
struct BuildLimits;
struct Pattern;
struct PatternOptions;

/// Patterns whose deterministic automaton would be too large: the non-deterministic one, with a bit
/// for each place in the patterns. All places move at once: most to the next place, which is a
/// shift, or stay; the others go by a list of exceptions. So a byte costs some nanoseconds for each
/// 64 places, whatever the patterns.
class BitPart final : public Part {
public:
    /// Makes a part of `count` patterns from `first` on; null, with the limit in `passed`, if they
    /// would pass one of `limits`, where a state is a place of the patterns.
    static std::unique_ptr<BitPart> make(const Pattern* first, std::size_t count,
                                         const PatternOptions& options, const BuildLimits& limits,
                                         Limit& passed);

    Kind kind() const override { return Kind::Bits; }
    bool archive(Archive& archive) override;
    bool match(std::string_view text, Found& found) const override;
    void addNegated(Found& found) const override { found.add(negated_); }
    std::size_t stateCount() const override { return accepts_.size(); }
    std::size_t memory() const override;

private:
    friend class BitMaker;

    using Word = std::uint64_t;
    struct Bits {  // of one word
        std::uint32_t word;
        Word bits;
    };
    // From any of some places to all of others; the lists end where those of the next begin.
    struct Exception {
        std::uint32_t from;
        std::uint32_t to;
    };

    template <std::size_t fixedWords>
    void follow(const Word* state, Word* next) const;
    template <std::size_t fixedWords>
    bool walk(std::string_view text, Found& found) const;
    void addMatches(const Word* state, Found& found) const;

    bool isSound() const;

    std::uint64_t words_ = 0;
    std::uint32_t takesNul_ = 0;
    std::array<std::uint8_t, 256> classOf_{};
    Flat<Word> entered_;  // for each class, the places that its bytes enter
    Flat<Word> start_;    // the places that a text may enter first
    Flat<Word> shifts_;   // the places that lead to the next one
    Flat<Word> loops_;    // the places that lead to themselves
    Flat<Word> ends_;     // the places where a pattern may end
    Flat<Exception> exceptions_;
    // Of up to `mostFixedCM` words: the places with exceptions, the exception of each place, and
    // for each exception the words of its origins and of its targets.
    static constexpr std::size_t mostFixedCM = 4;
    Flat<Word> origins_;
    Flat<std::uint32_t> exceptionOf_;
    Flat<Word> moves_;
    Flat<Bits> bits_;                 // of the exceptions
    Flat<NumberLists::Ref> accepts_;  // of each place
    NumberLists::Ref acceptsEmpty_ = 0;
    NumberLists lists_;
    std::vector<std::int32_t> negated_;
};

}  // namespace FSM

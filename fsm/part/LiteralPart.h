#pragma once

#include <span>
#include <string_view>
#include <utility>

#include "fsm/PatternOptions.h"
#include "fsm/part/NumberLists.h"
#include "fsm/part/Part.h"
#include "fsm/part/Trie.h"
#include "fsm/table/ByteScan.h"

namespace FSM {

/// A word at the beginning of a text, which is to be the whole text or the beginning of a line.
struct Literal {
    std::string_view word;
    std::int32_t path;
    bool isOpen;  // any bytes but newline may follow
};

/// Patterns that are a word, with or without ".*" after it: a tree of the words. Time and memory
/// to build it are in proportion to the words.
class LiteralPart final : public Part {
public:
    /// The words are only read while the part is made. `literals` is sorted.
    LiteralPart(Vector<Literal>& literals, const PatternOptions& options);

    LiteralPart() = default;

    Kind kind() const override { return Kind::Literals; }
    bool holdsWords() const override { return true; }
    bool archive(Archive& archive) override;
    bool match(std::string_view text, Found& found) const override;

    /// Whether the text has left the automaton, as it is too long for all words.
    bool isTooLong(std::string_view text) const;
    /// A text on its way through the tree.
    struct Walk;
    /// Texts that may be walked at once.
    static constexpr std::size_t togetherCM = 8;
    /// Whether records are so often out of reach of the caches that texts at once pay.
    bool paysTogether() const { return trie_.bytes() + ends_.bytes() > largeCM; }
    /// Walks up to `togetherCM` texts at once. `finish` then does for each what `match` does.
    void walkTogether(std::span<const std::string_view> texts, std::span<Walk> walks) const;
    bool finish(Walk& walk, Found& found) const;

    std::size_t stateCount() const override { return trie_.recordCount(); }
    std::size_t memory() const override {
        return sizeof *this + trie_.bytes() + ends_.bytes() + lists_.bytes();
    }

private:
    // What a word means when a text reaches its end.
    struct End {
        NumberLists::Ref whole = 0;  // matches if the text ends here
        NumberLists::Ref open = 0;   // matches if the line is the last one
        std::uint32_t before = 0;    // the longest shorter word with an open end, plus 1
    };

    // About the size of a cache of one core.
    static constexpr std::size_t largeCM = std::size_t{2} << 20;

    // Why a walk ended.
    enum class Stop : std::uint32_t {
        No,
        TooLong,  // the text is longer than any word
        Word,     // in a leaf, with the whole of its word
        InWord,   // in a leaf, before the end of its word
        Inside,   // with the text
        Outside,  // no word goes on
    };

    Walk begin(std::string_view text) const;
    bool isAtEnd(const Walk& walk) const;
    template <bool halves>
    bool step(Walk& walk) const;
    template <bool halves>
    bool matchOne(std::string_view text, Found& found) const;
    __attribute__((target("popcnt"))) bool matchCounting(std::string_view text, Found& found) const;
    template <bool halves>
    void stepAll(std::span<Walk> walks) const;
    __attribute__((target("popcnt"))) void stepAllCounting(std::span<Walk> walks) const;
    void linkPrefixes(const Vector<std::string_view>& words, Vector<End>& ends) const;
    void addOpen(std::uint32_t end, Found& found) const;

    Trie trie_;
    Flat<End> ends_;  // of each word
    NumberLists lists_;
    std::uint64_t longest_ = 0;
    std::uint32_t hasOpen_ = 0;
    std::uint32_t takesNul_ = 0;
};

struct LiteralPart::Walk {
    const Trie::Record* record = nullptr;
    const unsigned char* at = nullptr;
    const unsigned char* end = nullptr;
    std::uint32_t open = 0;  // the last word with an open end, plus 1
    Stop stop = Stop::No;
};

inline bool LiteralPart::isAtEnd(const Walk& walk) const {
    return walk.at == walk.end || (*walk.at == 0 && takesNul_ == 0);
}

inline LiteralPart::Walk LiteralPart::begin(std::string_view text) const {
    const auto* const at = reinterpret_cast<const unsigned char*>(text.data());
    return {trie_.records(), at, at + text.size(), 0, isTooLong(text) ? Stop::TooLong : Stop::No};
}

// Unless a NUL ends it before.
inline bool LiteralPart::isTooLong(std::string_view text) const {
    return hasOpen_ == 0 && text.size() > longest_ &&
           (takesNul_ != 0 || !holdsNul(reinterpret_cast<const unsigned char*>(text.data()),
                                        longest_ + 1, text.size()));
}

}  // namespace FSM

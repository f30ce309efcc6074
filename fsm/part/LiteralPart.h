#pragma once

#include <string_view>
#include <utility>

#include "fsm/PatternOptions.h"
#include "fsm/part/NumberLists.h"
#include "fsm/part/Part.h"
#include "fsm/part/Trie.h"

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

    template <bool halves>
    bool walk(std::string_view text, Found& found) const;
    __attribute__((target("popcnt"))) bool walkCounting(std::string_view text, Found& found) const;
    void linkPrefixes(const Vector<std::string_view>& words, Vector<End>& ends) const;
    void addOpen(std::uint32_t end, Found& found) const;

    Trie trie_;
    Flat<End> ends_;  // of each word
    NumberLists lists_;
    std::uint64_t longest_ = 0;
    std::uint32_t hasOpen_ = 0;
    std::uint32_t takesNul_ = 0;
};

}  // namespace FSM

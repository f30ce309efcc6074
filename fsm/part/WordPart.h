#pragma once

#include <array>
#include <string_view>

#include "fsm/part/NumberLists.h"
#include "fsm/part/Part.h"
#include "fsm/part/WordScan.h"
#include "fsm/pattern/Shape.h"

namespace FSM {

/// Patterns of words with ".*" between them and before or after: the words are searched in the
/// text, and each pattern remembers how many of its words have been met. Time does not depend on
/// how many patterns there are, but on how many words the text holds.
class WordPart final : public Part {
public:
    /// Collects the patterns.
    class Maker {
    public:
        /// `shape` is no `isLiteral()`.
        void add(const Shape& shape, std::int32_t path);
        bool isEmpty() const { return sequences_.empty(); }
        /// Words and their bytes so far.
        std::size_t wordCount() const { return wordEnds_.size(); }
        std::size_t byteCount() const { return bytes_.size(); }

    private:
        friend class WordPart;
        struct Sequence {
            std::size_t lastWord;  // the place after its last word
            std::int32_t path;
            bool startsWild;
            bool endsWild;
        };

        Vector<char> bytes_;
        Vector<std::size_t> wordEnds_;
        Vector<Sequence> sequences_;
    };

    WordPart(const Maker& maker, const PatternOptions& options);

    WordPart() = default;

    Kind kind() const override { return Kind::Words; }
    bool holdsWords() const override { return true; }
    bool archive(Archive& archive) override;
    bool match(std::string_view text, Found& found) const override;
    std::size_t stateCount() const override;
    std::size_t memory() const override;

private:
    // A word as one of a sequence.
    struct Use {
        std::uint32_t slot;  // of the memory for it
        std::int32_t path;   // reported once the word is met; -1 if more words follow
        std::uint8_t isFirst;
        std::uint8_t isAtStart;  // the word must begin the text
        std::uint16_t isAtEnd;   // the word must end the text
    };
    // Short words pass a filter that is of no use for long ones.
    static constexpr std::size_t shortestLongCM = 4;
    struct Words {
        WordScan scan;
        Flat<NumberLists::Ref> alone;   // of each word: the patterns of that word alone
        Flat<std::uint32_t> usesBegin;  // of each word: its uses; one entry more than words
    };

    struct Memory;
    void meet(const Words& words, std::uint32_t word, std::size_t begin, std::size_t end,
              std::size_t textEnd, Memory& memory, Found& found) const;

    std::array<Words, 2> words_;                // the short ones and the long ones
    std::array<std::uint32_t, 2> firstWord_{};  // in the memory of words met
    Flat<Use> uses_;
    NumberLists lists_;
    std::uint32_t slotCount_ = 0;
    std::uint32_t wordCount_ = 0;
    std::uint32_t takesNul_ = 0;
};

}  // namespace FSM

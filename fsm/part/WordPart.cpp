#include "fsm/part/WordPart.h"

#include <algorithm>
#include <new>

#include "fsm/store/Archive.h"
#include "fsm/table/ByteScan.h"

namespace FSM {

// What a thread remembers while it matches one text. Entries of earlier texts are told by their
// stamps, so nothing is cleared between texts.
struct WordPart::Memory {
    struct Slot {
        std::size_t end;  // of the earliest place at which the words so far are met
        std::uint32_t stamp;
    };

    void begin(std::size_t slotCount, std::size_t wordCount) {
        if (slots.size() < slotCount) slots.resize(slotCount);
        if (met.size() < wordCount) met.resize(wordCount);
        if (++stamp == 0) {
            std::fill(slots.begin(), slots.end(), Slot());
            std::fill(met.begin(), met.end(), 0);
            stamp = 1;
        }
    }

    std::uint32_t stamp = 0;
    std::vector<Slot> slots;
    std::vector<std::uint32_t> met;  // the stamps of the words reported
};

void WordPart::Maker::add(const Shape& shape, std::int32_t path) {
    countWork(shape.bytes.size() / 4 + 4);
    for (std::size_t i = 0; i < shape.wordCount(); ++i) {
        const std::string_view word = shape.word(i);
        bytes_.insert(bytes_.end(), word.begin(), word.end());
        wordEnds_.push_back(bytes_.size());
    }
    sequences_.push_back({wordEnds_.size(), path, shape.startsWild, shape.endsWild});
}

WordPart::WordPart(const Maker& maker, const PatternOptions& options)
    : takesNul_(options.takesNul ? 1 : 0) {
    // Each use of a word, by the words.
    struct WordUse {
        std::string_view word;
        Use use;
    };
    Vector<WordUse> uses;
    std::size_t at = 0;
    for (const Maker::Sequence& sequence : maker.sequences_) {
        const std::size_t first = at;
        for (; at < sequence.lastWord; ++at) {
            const std::size_t begin = at == 0 ? 0 : maker.wordEnds_[at - 1];
            const bool isLast = at + 1 == sequence.lastWord;
            Use use{slotCount_, isLast ? sequence.path : -1, 0, 0, 0};
            if (at == first) use.isFirst = 1;
            if (at == first && !sequence.startsWild) use.isAtStart = 1;
            if (isLast && !sequence.endsWild) use.isAtEnd = 1;
            uses.push_back({{maker.bytes_.data() + begin, maker.wordEnds_[at] - begin}, use});
            const bool isAlone = at == first && isLast && sequence.startsWild && sequence.endsWild;
            if (!isAlone) ++slotCount_;
        }
    }
    countWork(uses.size() * 32);
    std::stable_sort(uses.begin(), uses.end(), [](const WordUse& a, const WordUse& b) {
        const bool isLong = a.word.size() >= shortestLongCM;
        if (isLong != (b.word.size() >= shortestLongCM)) return !isLong;
        return a.word < b.word;
    });
    NumberLists::Maker lists;
    Vector<Use> flatUses;
    Vector<std::int32_t> paths;
    std::size_t next = 0;
    for (std::size_t kind = 0; kind < words_.size(); ++kind) {
        Vector<std::string_view> texts;
        Vector<NumberLists::Ref> alone;
        Vector<std::uint32_t> begins;
        firstWord_[kind] = wordCount_;
        while (next < uses.size() && (uses[next].word.size() >= shortestLongCM) == (kind == 1)) {
            const std::string_view word = uses[next].word;
            texts.push_back(word);
            begins.push_back(static_cast<std::uint32_t>(flatUses.size()));
            paths.clear();
            for (; next < uses.size() && uses[next].word == word; ++next) {
                const Use& use = uses[next].use;
                if (use.isFirst != 0 && use.path >= 0 && use.isAtStart == 0 && use.isAtEnd == 0) {
                    paths.push_back(use.path);
                } else {
                    flatUses.push_back(use);
                }
            }
            std::sort(paths.begin(), paths.end());
            paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
            alone.push_back(lists.add(paths));
            countWork(4 + paths.size());
        }
        begins.push_back(static_cast<std::uint32_t>(flatUses.size()));
        wordCount_ += static_cast<std::uint32_t>(texts.size());
        words_[kind].scan = WordScan(texts);
        words_[kind].alone = Flat<NumberLists::Ref>(std::move(alone));
        words_[kind].usesBegin = Flat<std::uint32_t>(std::move(begins));
    }
    uses_ = Flat<Use>(std::move(flatUses));
    lists_ = NumberLists(lists.take());
}

bool WordPart::archive(Archive& archive) {
    archive.all(firstWord_, slotCount_, wordCount_, takesNul_, uses_, lists_.values());
    std::size_t count = 0;
    bool isSound = true;
    for (std::size_t kind = 0; kind < words_.size(); ++kind) {
        Words& words = words_[kind];
        isSound = isSound && firstWord_[kind] == count;
        archive.all(words.alone, words.usesBegin);
        if (!archive.isGood() || !words.scan.archive(archive, words.alone.size())) return false;
        count += words.alone.size();
        if (!archive.isReading()) continue;
        isSound = isSound && words.usesBegin.size() == words.alone.size() + 1;
        for (std::size_t i = 0; isSound && i < words.alone.size(); ++i) {
            isSound =
                lists_.isSound(words.alone[i]) && words.usesBegin[i] <= words.usesBegin[i + 1];
        }
        isSound = isSound && words.usesBegin[words.alone.size()] <= uses_.size();
    }
    isSound = isSound && count == wordCount_ && slotCount_ <= uses_.size();
    for (std::size_t i = 0; isSound && i < uses_.size(); ++i) {
        isSound = uses_[i].slot < slotCount_ && (uses_[i].isFirst != 0 || uses_[i].slot > 0);
    }
    return !archive.isReading() || isSound;
}

bool WordPart::match(std::string_view text, Found& found) const {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
    const unsigned char* const end = lineEnd(bytes, bytes + text.size(), takesNul_ != 0);
    if (end != bytes + text.size() && *end == '\n') return false;
    text = text.substr(0, static_cast<std::size_t>(end - bytes));
    thread_local Memory memory;
    memory.begin(slotCount_, wordCount_);
    // Words of sequences must be met in the order of their beginnings, whatever their kind.
    const bool isMixed = slotCount_ > 0 && firstWord_[1] > 0 && firstWord_[1] < wordCount_;
    const auto visitor = [&](const Words& words) {
        return [&](std::uint32_t word, std::size_t begin, std::size_t wordEnd) {
            meet(words, word, begin, wordEnd, text.size(), memory, found);
            return true;
        };
    };
    if (!isMixed) {
        for (const Words& words : words_) words.scan.scan(text, 0, text.size(), visitor(words));
    } else {
        // Looks for long words up to each place of a short one.
        std::size_t done = 0;
        const auto meetLong = [&](std::size_t upTo) {
            words_[1].scan.scan(text, done, upTo, visitor(words_[1]));
            done = upTo;
        };
        words_[0].scan.scan(text, 0, text.size(),
                            [&](std::uint32_t word, std::size_t begin, std::size_t wordEnd) {
                                if (begin > done) meetLong(begin);
                                return visitor(words_[0])(word, begin, wordEnd);
                            });
        meetLong(text.size());
    }
    return true;
}

inline void WordPart::meet(const Words& words, std::uint32_t word, std::size_t begin,
                           std::size_t end, std::size_t textEnd, Memory& memory,
                           Found& found) const {
    if (const NumberLists::Ref list = words.alone[word]) {
        std::uint32_t& met =
            memory.met[firstWord_[static_cast<std::size_t>(&words - words_.data())] + word];
        if (met != memory.stamp) lists_.add(list, found);
        met = memory.stamp;
    }
    for (std::uint32_t i = words.usesBegin[word]; i < words.usesBegin[word + 1]; ++i) {
        const Use& use = uses_[i];
        if (use.isFirst != 0) {
            if (use.isAtStart != 0 && begin != 0) continue;
        } else {
            const Memory::Slot& before = memory.slots[use.slot - 1];
            if (before.stamp != memory.stamp || before.end > begin) continue;
        }
        if (use.isAtEnd != 0 && end != textEnd) continue;
        Memory::Slot& own = memory.slots[use.slot];
        if (own.stamp != memory.stamp) {
            own = {end, memory.stamp};
            if (use.path >= 0) found.add(use.path);
        } else if (end < own.end) {
            own.end = end;
        }
    }
}

std::size_t WordPart::stateCount() const {
    return words_[0].scan.recordCount() + words_[1].scan.recordCount();
}

std::size_t WordPart::memory() const {
    std::size_t bytes = sizeof *this + uses_.bytes() + lists_.bytes();
    for (const Words& words : words_) {
        bytes += words.scan.bytes() + words.alone.bytes() + words.usesBegin.bytes();
    }
    return bytes;
}

}  // namespace FSM

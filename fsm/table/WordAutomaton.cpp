#include "fsm/table/WordAutomaton.h"

#include <algorithm>
#include <utility>

namespace FSM {

namespace {

// Bytes that no word holds, and newline.
constexpr std::uint8_t otherClassS = 0;
constexpr std::uint8_t newlineClassS = 1;

class WordDeterminiser {
public:
    WordDeterminiser(std::span<const InnerWord> words, RawAutomaton& raw)
        : words_(words), raw_(raw) {}

    void run() {
        raw_ = RawAutomaton();
        findClasses();
        raw_.next = RowBlocks(raw_.classCount);
        addState();
        for (const InnerWord& word : words_) add(word);
        close();
        addNewline();
        raw_.mayHaveDeadEnds = false;
        raw_.acceptedLists = raw_.settledLists;
        raw_.listsCharge.take(blockBytes(raw_.lists.size() * sizeof(std::vector<std::int32_t>)));
    }

private:
    using StateIndex = std::uint32_t;

    void findClasses() {
        raw_.classOf.fill(otherClassS);
        raw_.classOf['\n'] = newlineClassS;
        unsigned next = newlineClassS + 1;
        for (const InnerWord& word : words_) {
            countWork(word.word.size());
            for (const char c : word.word) {
                std::uint8_t& classOf = raw_.classOf[static_cast<unsigned char>(c)];
                if (classOf == otherClassS) classOf = static_cast<std::uint8_t>(next++);
            }
        }
        raw_.classCount = next;
    }

    StateIndex addState() {
        raw_.next.add(RawAutomaton::noStateCM);
        own_.emplace_back();
        return static_cast<StateIndex>(own_.size() - 1);
    }

    void add(const InnerWord& word) {
        StateIndex state = 0;
        for (const char c : word.word) {
            const unsigned byteClass = raw_.classOf[static_cast<unsigned char>(c)];
            StateIndex next = raw_.next.row(state)[byteClass];
            if (next == RawAutomaton::noStateCM) {
                next = addState();
                raw_.next.row(state)[byteClass] = next;
            }
            state = next;
        }
        own_[state].push_back(word.path);
    }

    // Breadth first: where no word goes on from a state, one that its end begins may.
    void close() {
        raw_.lists.emplace_back();
        raw_.settledLists.resize(own_.size());
        Vector<StateIndex> shorter(own_.size());  // the longest other beginning at the end of each
        Vector<StateIndex> open(1);
        for (std::size_t i = 0; i < open.size(); ++i) {
            const StateIndex state = open[i];
            countWork(raw_.classCount);
            raw_.settledLists[state] = listOf(own_[state], raw_.settledLists[shorter[state]]);
            std::uint32_t* const row = raw_.next.row(state);
            const std::uint32_t* const shorterRow = raw_.next.row(shorter[state]);
            for (unsigned c = 0; c < raw_.classCount; ++c) {
                if (c == newlineClassS) continue;
                const StateIndex back = state == 0 ? 0 : shorterRow[c];
                if (row[c] == RawAutomaton::noStateCM) {
                    row[c] = back;
                } else {
                    shorter[row[c]] = back;
                    open.push_back(row[c]);
                }
            }
        }
    }

    // The list of the words that end in a state: its own ones and those of a shorter ending.
    std::uint32_t listOf(std::vector<std::int32_t>& own, std::uint32_t shorter) {
        if (own.empty()) return shorter;
        own.insert(own.end(), raw_.lists[shorter].begin(), raw_.lists[shorter].end());
        countWork(8 * own.size());
        raw_.listsCharge.take(blockBytes(own.size() * sizeof own[0]));
        raw_.lists.push_back(sortedOnce(std::move(own)));
        return static_cast<std::uint32_t>(raw_.lists.size() - 1);
    }

    void addNewline() {
        const StateIndex left = addState();
        raw_.leftByNewline = left;
        for (StateIndex state = 0; state < left; ++state) {
            raw_.next.row(state)[newlineClassS] = left;
        }
        raw_.settledLists.push_back(0);
        raw_.isAfterNewline.resize(own_.size());
        raw_.isAfterNewline[left] = true;
    }

    const std::span<const InnerWord> words_;
    RawAutomaton& raw_;
    std::vector<std::vector<std::int32_t>> own_;  // of each state, the words that end there
};

}  // namespace

void determine(std::span<const InnerWord> words, RawAutomaton& raw) {
    WordDeterminiser(words, raw).run();
}

}  // namespace FSM

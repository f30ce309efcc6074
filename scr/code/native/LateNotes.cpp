#include "scr/code/native/LateNotes.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

namespace SCR::Code {

namespace {

// Whether somebody may look at the notes while it runs.
bool isSeen(const Operation& operation) {
    switch (operation.op) {
        case Op::Turn:
        case Op::EnterCall:
        case Op::CheckCall:
        case Op::LoadElement:
        case Op::StoreElement:
            return true;
        case Op::Call: {
            const auto& helper = *static_cast<const Helper*>(operation.pointer);
            return helper.mayFail || helper.mayAssign;
        }
        default:
            return false;
    }
}

class Delay {
public:
    explicit Delay(Listing& listing)
        : listing_(listing), words_(wordsOf(listing.operations)), size_(listing.operations.size()) {
        isNeeded_.assign(words_.size() * size_, false);
        states_.assign(words_.size() * size_, unreached);
    }

    void run() {
        if (words_.empty()) return;
        findNeeds();
        while (!follow()) {
        }
        std::vector<Operation>& operations = listing_.operations;
        for (std::size_t i = 0; i < size_; ++i) {
            Operation& operation = operations[i];
            if (isSeen(operation) || operation.op == Op::Leave) operation.notes = setAt(i);
        }
        for (Operation& operation : operations) {
            if (operation.op != Op::LateNote) continue;
            operation.op = isStored(wordOf(operation), valueOf(operation)) ? Op::Note : Op::Nothing;
        }
    }

private:
    // What is known of a word before an operation: that its memory is right, the constant that
    // belongs there, from 1 on, or that nobody needs it.
    using State = std::int32_t;
    static constexpr State unreached = -2;
    static constexpr State unneeded = -1;
    static constexpr State inMemory = 0;

    static std::vector<const void*> wordsOf(const std::vector<Operation>& operations) {
        std::vector<const void*> words;
        for (const Operation& operation : operations) {
            if (operation.op == Op::LateNote) words.push_back(operation.pointer);
        }
        std::sort(words.begin(), words.end());
        words.erase(std::unique(words.begin(), words.end()), words.end());
        return words;
    }
    std::size_t wordOf(const Operation& note) const {
        const auto found = std::lower_bound(words_.begin(), words_.end(), note.pointer);
        return static_cast<std::size_t>(found - words_.begin());
    }
    static State valueOf(const Operation& note) { return static_cast<State>(note.a.index()) + 1; }
    bool isStored(std::size_t word, State value) const {
        return std::find(stored_.begin(), stored_.end(), std::pair(word, value)) != stored_.end();
    }

    // Calls `use` with each operation that may be the next one.
    template <class Use>
    void withNext(std::size_t at, const Use& use) const {
        const Operation& operation = listing_.operations[at];
        if (isJump(operation.op)) use(listing_.labels[operation.label]);
        if (operation.op == Op::Switch) {
            const SwitchTable& table = listing_.switches[operation.label];
            for (const Label label : table.labels) use(listing_.labels[label]);
            use(listing_.labels[table.otherwise]);
        }
        if (operation.op != Op::Jump && operation.op != Op::Switch && operation.op != Op::Leave) {
            use(at + 1);
        }
    }

    // Finds which words are seen before they are noted again.
    void findNeeds() {
        const std::size_t words = words_.size();
        for (bool isChanged = true; isChanged;) {
            isChanged = false;
            for (std::size_t i = size_; i-- > 0;) {
                const Operation& operation = listing_.operations[i];
                for (std::size_t word = 0; word < words; ++word) {
                    bool isNeeded = isSeen(operation);
                    if (operation.op != Op::LateNote || wordOf(operation) != word) {
                        withNext(i, [&](std::size_t next) {
                            isNeeded = isNeeded || (next < size_ && isNeeded_[next * words + word]);
                        });
                    }
                    if (isNeeded == isNeeded_[i * words + word]) continue;
                    isNeeded_[i * words + word] = true;
                    isChanged = true;
                }
            }
        }
    }

    // Follows all ways. False when another value has to be stored at once.
    bool follow() {
        const std::size_t words = words_.size();
        const std::size_t before = stored_.size();
        std::fill(states_.begin(), states_.end(), unreached);
        std::vector<std::size_t> waiting{0};
        std::fill_n(states_.begin(), words, inMemory);
        std::vector<State> after(words);
        while (!waiting.empty()) {
            const std::size_t at = waiting.back();
            waiting.pop_back();
            const Operation& operation = listing_.operations[at];
            std::copy_n(states_.begin() + static_cast<std::ptrdiff_t>(at * words), words,
                        after.begin());
            if (operation.op == Op::LateNote) {
                const std::size_t word = wordOf(operation);
                const State value = valueOf(operation);
                after[word] = isStored(word, value) ? inMemory : value;
            } else if (operation.op == Op::Call && isSeen(operation)) {
                std::fill(after.begin(), after.end(), inMemory);
            }
            withNext(at, [&](std::size_t next) {
                if (next < size_ && reach(next, after)) waiting.push_back(next);
            });
        }
        return stored_.size() == before;
    }

    // Whether that is news there.
    bool reach(std::size_t at, const std::vector<State>& states) {
        bool isNews = false;
        for (std::size_t word = 0; word < states.size(); ++word) {
            State& known = states_[at * words_.size() + word];
            if (known == states[word] || known == unneeded) continue;
            if (known == unreached) {
                known = states[word];
            } else {
                if (isNeeded_[at * words_.size() + word]) {
                    storeAtOnce(word, known);
                    storeAtOnce(word, states[word]);
                }
                known = unneeded;
            }
            isNews = true;
        }
        return isNews;
    }
    void storeAtOnce(std::size_t word, State value) {
        if (value > inMemory && !isStored(word, value)) stored_.emplace_back(word, value);
    }

    // The number of the set of notes to store there.
    std::uint32_t setAt(std::size_t at) {
        std::vector<std::pair<void*, long>> notes;
        for (std::size_t word = 0; word < words_.size(); ++word) {
            const State state = states_[at * words_.size() + word];
            if (state <= inMemory) continue;
            notes.emplace_back(const_cast<void*>(words_[word]),
                               listing_.constants[static_cast<std::size_t>(state) - 1]);
        }
        if (notes.empty()) return 0;
        const auto [found, isNew] = sets_.try_emplace(std::move(notes), 0);
        if (isNew) {
            listing_.notes.push_back(found->first);
            found->second = static_cast<std::uint32_t>(listing_.notes.size());
        }
        return found->second;
    }

    Listing& listing_;
    const std::vector<const void*> words_;  // that are noted
    const std::size_t size_;
    std::vector<bool> isNeeded_;  // by operation and word
    std::vector<State> states_;   // likewise
    std::vector<std::pair<std::size_t, State>> stored_;
    std::map<std::vector<std::pair<void*, long>>, std::uint32_t> sets_;
};

}  // namespace

void delayNotes(Listing& listing) { Delay(listing).run(); }

}  // namespace SCR::Code

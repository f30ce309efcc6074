#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "fsm/PatternOptions.h"
#include "fsm/store/Flat.h"
#include "fsm/table/ByteClasses.h"
#include "fsm/table/ByteScan.h"
#include "fsm/table/DetState.h"
#include "fsm/table/Determiniser.h"
#include "fsm/table/WindowScan.h"

namespace FSM {

class Archive;

/// The walk over a table whose patterns have no tails apart: there is nothing to remember.
struct NothingSettles {
    static constexpr bool isUsed = false;
    bool isAnySettled() const { return false; }
    void settle(const std::vector<std::int32_t>&) {}
    void forget() {}
};

/// A finished deterministic automaton in the form that is fastest to walk. Bytes are mapped to
/// classes; the state is the offset of its row in one flat array of target rows, so a byte costs
/// one load that depends on the byte before. Row 0 stands for texts that have left the automaton.
/// The states that no byte leaves follow it, and then those that only newline leaves. So one
/// comparison shows that nothing more, or only the next newline, is of interest.
///
/// Never changed after `build`; reading is safe from any number of threads.
class Table {
public:
    using Row = std::uint32_t;
    using Paths = std::vector<std::int32_t>;

    /// How many path numbers all lists together may have, and which limit that is.
    struct MostListed {
        explicit MostListed(const BuildLimits& limits)
            : isByStates(limits.states < limits.bytes / sizeof(std::int32_t) / perStateCM),
              numbers(isByStates ? limits.states * perStateCM
                                 : limits.bytes / sizeof(std::int32_t)) {}
        static constexpr std::size_t perStateCM = 128;
        bool isByStates;
        std::size_t numbers;
        Limit limit() const { return isByStates ? Limit::States : Limit::Bytes; }
    };

    Table() = default;
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;

    /// Writes the table to a file, or reads one, which must outlive it. False if it is not sound.
    bool archive(Archive& archive);

    /// Takes ownership of `raw`. `negated` holds the numbers of the negated patterns, ascending.
    /// With `keepsDeadEnds` the table distinguishes texts that have left the automaton from those
    /// inside it from which nothing can match any more; that is unnecessary if no pattern matches
    /// "", or if `options` make no difference between them. False if the lists of path numbers
    /// together would take more than `maxListed` numbers. Throws the exceptions of the budget.
    bool build(RawAutomaton raw, const Paths& negated, const PatternOptions& options,
               bool keepsDeadEnds, std::size_t maxListed);

    /// The row after the whole text, which ends at its first NUL; 0 when the text has left the
    /// automaton. Where NUL is a byte like others, only a text of known length may hold it.
    Row walk(const char* text) const {
        NothingSettles memory;
        return walkBytes<false>(reinterpret_cast<const unsigned char*>(text), nullptr, memory,
                                start_);
    }
    /// The same for a text that ends at `text + length`, if no NUL comes before.
    Row walk(const char* text, std::size_t length) const {
        NothingSettles memory;
        return walk(text, length, memory);
    }
    /// The same for a text that continues one that ended in `row`.
    Row walkOn(Row row, const char* text, std::size_t length) const {
        NothingSettles memory;
        auto begin = reinterpret_cast<const unsigned char*>(text);
        return walkBytes<true>(begin, begin + length, memory, row);
    }
    /// The row after the whole text. Calls `pause` after each piece of a long one, with its size.
    Row walk(std::string_view text, void (*pause)(std::size_t bytes)) const {
        constexpr std::size_t pieceSize = 64 * 1024;
        Row row = startRow();
        for (;;) {
            const std::string_view piece = text.substr(0, pieceSize);
            row = walkOn(row, piece.data(), piece.size());
            text.remove_prefix(piece.size());
            if (row == 0 || text.empty() || endsIn(piece)) return row;
            pause(piece.size());
        }
    }
    /// The same with tails apart. Calls settle(paths) of `memory` for the patterns that match from
    /// there to the end of the line, and forget() for a newline after which none of them does.
    template <class Memory>
    Row walk(const char* text, std::size_t length, Memory& memory) const {
        auto begin = reinterpret_cast<const unsigned char*>(text);
        return walkBytes<true>(begin, begin + length, memory, start_);
    }

    /// Whether a text ends in `piece`, by a NUL.
    bool endsIn(std::string_view piece) const {
        return takesNul_ == 0 && piece.find('\0') != std::string_view::npos;
    }
    bool takesNul() const { return takesNul_ != 0; }
    /// Whether a walk has to remember patterns with tails.
    bool hasTailsApart() const { return lastSpecial_ != lastLineLoop_; }
    /// Whether a text that ends in `row` has not left the automaton, ignoring settled patterns.
    bool isInside(Row row) const { return row != 0 && row != leftByNewline_; }

    /// The state of a row; for row 0 the start state or, with textbook leaving, one of its own.
    const DetState* state(Row row) const { return &states_[row == 0 ? leftIndex_ : index(row)]; }
    /// The lowest path number reported in a row, -1 for none.
    std::int32_t firstPath(Row row) const { return reports_[index(row)].first[0]; }
    /// Sets `paths` to the numbers reported in a row. Always writes as many as are mostly enough
    /// and then cuts: how many there are would be guessed wrong too often.
    void report(Row row, Paths& paths) const {
        const Report& report = reports_[index(row)];
        paths.clear();
        if (report.count > report.first.size()) {
            const Paths& all = state(row)->pathNumbers();
            paths.assign(all.begin(), all.end());
            return;
        }
        if (paths.capacity() < report.first.size()) paths.reserve(report.first.size());
        for (const std::int32_t path : report.first) paths.push_back(path);
        paths.resize(report.count);
    }
    /// The numbers of the negated patterns.
    const Paths& negatedPaths() const { return negated_; }

    DetState* start() const { return &states_[startIndex_]; }
    State* successor(const DetState& state, unsigned char c) const;
    /// The states in the order of their rows; entry 0 is for texts that have left the automaton.
    DetState* states() const { return states_.get(); }
    std::size_t stateCount() const { return rows_.size() / stride_ - 1; }
    const std::array<std::uint8_t, 256>& classOf() const { return classOf_; }
    unsigned classCount() const { return stride_; }

    // Used by a walk over several tables at once.
    const Row* rows() const { return rows_.data(); }
    Row startRow() const { return start_; }
    /// The row after one more byte; row 0 stays row 0.
    Row next(Row row, char byte) const {
        return rows_[row + classOf_[static_cast<unsigned char>(byte)]];
    }
    /// The last row of a state that no byte but newline leaves.
    Row lastLineLoop() const { return lastLineLoop_; }
    /// The last row of a state that no byte leaves, row 0 included.
    Row lastTrap() const { return lastTrap_; }

    /// All bytes of memory that this table holds.
    std::size_t memory() const;

private:
    void findLoops();
    bool findWindow(Row home, const Vector<ByteSet>& bytesOf, Vector<WindowScan>& windows,
                    std::size_t& workLeft) const;
    void findStart();
    void listStates(std::span<const std::uint32_t> listOf);
    void makeReports();
    bool isSound() const;
    std::size_t index(Row row) const { return (std::uint64_t{row} * reciprocal_) >> 32; }

    // After this many bytes the walk checks whether it is still in the same state.
    static constexpr int stepsCM = 8;

    static Row step(const Row* rows, const std::uint8_t* classOf, unsigned char byte, Row row) {
        const Row* column = rows + classOf[byte];
        // Keeps the addition of the class out of the chain of loads from row to row.
        asm("" : "+r"(column));
        return column[row];
    }

    template <bool isBounded, class Memory>
    Row walkBytes(const unsigned char* text, const unsigned char* end, Memory& memory,
                  Row row) const {
        if (isBounded && !windows_.empty()) return walkWindows(text, end, memory, row);
        const unsigned char* const begin = text;
        const Row* rows = rows_.data();
        const std::uint8_t* classOf = classOf_.data();
        const Row lastQuiet = Memory::isUsed ? lastSpecial_ : lastLineLoop_;
        for (;;) {
            if (row <= lastQuiet) {
                if (!leaveQuiet<isBounded>(text, end, memory, row)) return row;
                continue;
            }
            const Row before = row;
            const int steps =
                isBounded && end - text < stepsCM ? static_cast<int>(end - text) : stepsCM;
            for (int i = 0; i < steps && row > lastQuiet; ++i) {
                if (*text == 0 && (!isBounded || takesNul_ == 0)) return row;
                row = step(rows, classOf, *text++, row);
            }
            if (isBounded && steps < stepsCM && row > lastQuiet) return row;
            if (row == before && loopOf_[index(row)] != 0) {
                const ByteScan& loop = loops_[loopOf_[index(row)] - 1];
                text = isBounded ? loop.skip(begin, text, end) : loop.skip(text);
            }
        }
    }

    // Takes the step from a row at which there is something to remember or only the next newline is
    // of interest. False if there is none.
    template <bool isBounded, class Memory>
    [[gnu::always_inline]] bool leaveQuiet(const unsigned char*& text, const unsigned char* end,
                                           Memory& memory, Row& row) const {
        const auto isAtEnd = [&] {
            return (isBounded && text == end) || (*text == 0 && (!isBounded || takesNul_ == 0));
        };
        if (Memory::isUsed && row > lastLineLoop_) {
            remember(row, memory);
        } else if (row > lastTrap_ || memory.isAnySettled()) {
            text = isBounded ? lineEnd(text, end, takesNul_ != 0) : lineEnd(text);
            if (row == 0 && !isAtEnd()) memory.forget();
        }
        if (row <= lastTrap_ || isAtEnd()) return false;
        row = step(rows_.data(), classOf_.data(), *text++, row);
        return true;
    }

    // The walk over a table with states that windows keep. From a place that such a window passes
    // over, the walk goes on as if it were in that state one byte later. So the walk is back there
    // when it is in the row that the last byte leads to from there.
    template <class Memory>
    [[gnu::noinline]] Row walkWindows(const unsigned char* text, const unsigned char* end,
                                      Memory& memory, Row row) const {
        const Row* const rows = rows_.data();
        const std::uint8_t* const classOf = classOf_.data();
        const Row lastQuiet = Memory::isUsed ? lastSpecial_ : lastLineLoop_;
        const auto isNul = [&] { return *text == 0 && takesNul_ == 0; };
        const bool isLong = end - text >= WindowScan::leastSize();
        Row home = windowOf_[startIndex_] != 0 ? start_ : 0;
        for (;;) {
            if (row <= lastQuiet) {
                if (!leaveQuiet<true>(text, end, memory, row)) return row;
                continue;
            }
            if (isLong && end - text >= WindowScan::widthCM) {
                if (const unsigned window = windowOf_[index(row)]) {
                    home = row;
                    text = windows_[window - 1].skip(text, end, takesNul_ != 0);
                }
            }
            if (!isLong || end - text < WindowScan::widthCM) {
                for (; text != end && row > lastQuiet; ++text) {
                    if (isNul()) return row;
                    row = step(rows, classOf, *text, row);
                }
                if (row > lastQuiet) return row;
                continue;
            }
            const std::ptrdiff_t steps = std::min<std::ptrdiff_t>(end - text, 8);
            for (std::ptrdiff_t i = 0; i < steps && row > lastQuiet; ++i) {
                if (isNul()) return row;
                const unsigned char byte = *text++;
                row = step(rows, classOf, byte, row);
                if (row == home) break;
                if (i > 0 && home != 0 && row == step(rows, classOf, byte, home)) {
                    --text;
                    row = home;
                    break;
                }
            }
        }
    }

    template <class Memory>
    void remember(Row row, Memory& memory) const {
        const Special& special = specials_[index(row - lastLineLoop_) - 1];
        if (special.isAfterNewline) memory.forget();
        if (!special.settled.empty()) memory.settle(special.settled);
    }

    // The lowest path numbers of a state, then -1, and how many it has.
    struct Report {
        std::array<std::int32_t, 3> first;
        std::uint32_t count;
    };

    struct Special {
        bool isAfterNewline;
        Paths settled;
    };

    std::array<std::uint8_t, 256> classOf_{};
    Flat<Row> rows_;
    Row start_ = 0;
    Row lastTrap_ = 0;
    Row lastLineLoop_ = 0;
    Row lastSpecial_ = 0;  // of the rows at which a walk must remember or forget
    Row leftByNewline_ = 0;
    unsigned stride_ = 1;
    std::uint64_t reciprocal_ = 0;  // of the stride, times 2^32
    std::size_t startIndex_ = 0;
    std::size_t leftIndex_ = 0;
    std::uint32_t takesNul_ = 0;
    std::uint32_t leavesByTextbook_ = 0;
    std::unique_ptr<DetState[]> states_;
    Flat<Report> reports_;
    Flat<std::uint16_t> loopOf_;  // for each state, the number of its loop from 1 on, or 0
    Flat<ByteScan> loops_;        // the bytes on which states stay
    // For each state that most bytes do not leave, the number of its window from 1 on, or 0: the
    // three bytes that lead elsewhere than the last two of them do. Empty if there is none.
    Flat<std::uint16_t> windowOf_;
    Flat<WindowScan> windows_;
    Vector<Special> specials_;
    std::vector<Paths> lists_;
    Charge listsCharge_;
    Charge charge_;  // for the states, and what other lists hold
    Paths negated_;
};

}  // namespace FSM

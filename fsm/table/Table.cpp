#include "fsm/table/Table.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <numeric>
#include <utility>

#include "fsm/store/Archive.h"
#include "fsm/table/ByteClasses.h"

namespace FSM {

namespace {

constexpr std::uint32_t noStateS = RawAutomaton::noStateCM;

// The states from which a pattern's end can be reached, and the start.
Vector<bool> liveStates(const RawAutomaton& raw) {
    const std::size_t stateCount = raw.stateCount();
    // Calls visit(state, target) for all moves, once for neighbouring classes with the same target.
    const auto forMoves = [&](auto visit) {
        for (std::uint32_t state = 0; state < stateCount; ++state) {
            const std::uint32_t* row = raw.next.row(state);
            countWork(raw.classCount);
            for (unsigned c = 0; c < raw.classCount; ++c) {
                if (row[c] != noStateS && (c == 0 || row[c] != row[c - 1])) visit(state, row[c]);
            }
        }
    };
    Vector<std::size_t> sourceEnds(stateCount + 1);
    forMoves([&](std::uint32_t, std::uint32_t target) { ++sourceEnds[target + 1]; });
    std::partial_sum(sourceEnds.begin(), sourceEnds.end(), sourceEnds.begin());
    // Not filled with zeros first, as that would take long.
    const Charge charge(blockBytes(sourceEnds.back() * sizeof(std::uint32_t)));
    const auto sources = std::make_unique_for_overwrite<std::uint32_t[]>(sourceEnds.back());
    Vector<std::size_t> filled(sourceEnds.begin(), sourceEnds.end() - 1);
    forMoves([&](std::uint32_t state, std::uint32_t target) { sources[filled[target]++] = state; });
    Vector<bool> isLive(stateCount);
    Vector<std::uint32_t> open;
    for (std::uint32_t state = 0; state < stateCount; ++state) {
        if (raw.acceptedLists[state] == 0) continue;
        isLive[state] = true;
        open.push_back(state);
    }
    while (!open.empty()) {
        std::uint32_t state = open.back();
        open.pop_back();
        countWork(1 + sourceEnds[state + 1] - sourceEnds[state]);
        for (std::size_t i = sourceEnds[state]; i < sourceEnds[state + 1]; ++i) {
            if (isLive[sources[i]]) continue;
            isLive[sources[i]] = true;
            open.push_back(sources[i]);
        }
    }
    isLive[0] = true;
    return isLive;
}

// Merges classes that lead to the same target from every state.
void mergeClasses(RawAutomaton& raw) {
    const unsigned oldCount = raw.classCount;
    const std::size_t stateCount = raw.stateCount();
    // Each class stands with the first one that no state has told from it so far. The others are
    // compared with that one for state after state; soon few or none are left.
    Vector<std::uint8_t> firstOf(oldCount);
    Vector<std::uint8_t> others;
    for (unsigned c = 1; c < oldCount; ++c) others.push_back(static_cast<std::uint8_t>(c));
    struct Split {
        std::uint8_t from;
        std::uint8_t first;
    };
    Vector<Split> splits;  // that the current state makes
    for (std::size_t state = 0; state < stateCount && !others.empty(); ++state) {
        const std::uint32_t* const row = raw.next.row(state);
        countWork(1 + others.size() / 4);
        splits.clear();
        std::erase_if(others, [&](std::uint8_t c) {
            std::uint8_t& first = firstOf[c];
            if (row[c] == row[first]) return false;
            const auto same = std::find_if(splits.begin(), splits.end(), [&](const Split& split) {
                return split.from == first && row[split.first] == row[c];
            });
            const bool isNew = same == splits.end();
            if (isNew) splits.push_back({first, c});
            first = isNew ? c : same->first;
            return isNew;
        });
    }
    if (others.empty()) return;
    Vector<unsigned> kept;
    Vector<std::uint8_t> renamed(oldCount);
    for (unsigned c = 0; c < oldCount; ++c) {
        renamed[c] = static_cast<std::uint8_t>(kept.size());
        if (firstOf[c] == c) {
            kept.push_back(c);
        } else {
            renamed[c] = renamed[firstOf[c]];
        }
    }
    for (std::size_t state = 0; state < stateCount; ++state) {
        std::uint32_t* const row = raw.next.row(state);
        countWork(kept.size());
        for (std::size_t c = 0; c < kept.size(); ++c) row[c] = row[kept[c]];
    }
    raw.classCount = static_cast<unsigned>(kept.size());
    for (std::uint8_t& c : raw.classOf) c = renamed[c];
}

// How a state is left: not at all, only by newline, or otherwise. NUL counts only if it does not
// end a text before it is looked up. In between come the states at which a walk has to remember
// something.
enum class Kind { Trap, LineLoop, Special, Other };
constexpr std::size_t kindsS = 4;

Vector<Kind> kindsOf(const RawAutomaton& raw, bool takesNul) {
    // 0: only NUL that does not count, 1: newline and perhaps that, 2: others.
    Vector<int> kindOfClass(raw.classCount, 0);
    for (unsigned byte = takesNul ? 0 : 1; byte < 256; ++byte) {
        int& kind = kindOfClass[raw.classOf[byte]];
        kind = std::max(kind, byte == '\n' ? 1 : 2);
    }
    constexpr Kind kindOfWidest[] = {Kind::Trap, Kind::LineLoop, Kind::Other};
    Vector<Kind> kinds(raw.stateCount());
    for (std::uint32_t state = 0; state < raw.stateCount(); ++state) {
        const std::uint32_t* row = raw.next.row(state);
        countWork(raw.classCount);
        int widest = 0;
        for (unsigned c = 0; c < raw.classCount && widest < 2; ++c) {
            if (row[c] != state) widest = std::max(widest, kindOfClass[c]);
        }
        kinds[state] = kindOfWidest[widest];
        if (raw.hasTailsApart() && (raw.settledLists[state] != 0 || raw.isAfterNewline[state])) {
            kinds[state] = Kind::Special;
        }
    }
    return kinds;
}

}  // namespace

bool Table::build(RawAutomaton raw, const Paths& negated, const PatternOptions& options,
                  bool keepsDeadEnds, std::size_t maxListed) {
    takesNul_ = options.takesNul ? 1 : 0;
    leavesByTextbook_ = options.leavesByTextbook ? 1 : 0;
    keepsDeadEnds = keepsDeadEnds && !options.leavesByTextbook;
    Vector<bool> isKept(raw.stateCount(), true);
    if (!keepsDeadEnds && !raw.hasTailsApart() && raw.mayHaveDeadEnds) {
        isKept = liveStates(raw);
        for (std::size_t state = 0; state < raw.stateCount(); ++state) {
            std::uint32_t* const row = raw.next.row(state);
            countWork(raw.classCount);
            for (unsigned c = 0; c < raw.classCount; ++c) {
                if (row[c] != noStateS && !isKept[row[c]]) row[c] = noStateS;
            }
        }
    }
    mergeClasses(raw);

    // Rows: 0, then the states sorted by their kinds, in raw order.
    const Vector<Kind> kinds = kindsOf(raw, options.takesNul);
    Vector<std::uint32_t> order;
    std::size_t countUpTo[kindsS];
    for (std::size_t kind = 0; kind < kindsS; ++kind) {
        for (std::uint32_t state = 0; state < raw.stateCount(); ++state) {
            if (isKept[state] && kinds[state] == static_cast<Kind>(kind)) {
                order.push_back(state);
            }
        }
        countUpTo[kind] = order.size();
    }

    stride_ = raw.classCount;
    classOf_ = raw.classOf;
    if ((order.size() + 1) * stride_ > std::numeric_limits<Row>::max()) return false;
    reciprocal_ = (std::uint64_t{1} << 32) / stride_ + 1;
    lastTrap_ = static_cast<Row>(countUpTo[0] * stride_);
    lastLineLoop_ = static_cast<Row>(countUpTo[1] * stride_);
    lastSpecial_ = static_cast<Row>(countUpTo[2] * stride_);
    Vector<Row> rowOf(raw.stateCount());
    for (std::size_t i = 0; i < order.size(); ++i) {
        rowOf[order[i]] = static_cast<Row>((i + 1) * stride_);
    }
    start_ = rowOf[0];
    findStart();
    Vector<Row> rows((order.size() + 1) * stride_);
    Row* next = rows.data() + stride_;
    for (std::uint32_t state : order) {
        const std::uint32_t* const row = raw.next.row(state);
        countWork(stride_);
        for (unsigned c = 0; c < stride_; ++c) *next++ = row[c] == noStateS ? 0 : rowOf[row[c]];
    }
    rows_ = Flat<Row>(std::move(rows));

    findLoops();
    for (std::size_t i = countUpTo[1]; i < countUpTo[2]; ++i) {
        const Paths& settled = raw.lists[raw.settledLists[order[i]]];
        countWork(4 + settled.size());
        charge_.take(blockBytes(settled.size() * sizeof(std::int32_t)));
        specials_.push_back({raw.isAfterNewline[order[i]], settled});
    }
    if (raw.leftByNewline != noStateS) leftByNewline_ = rowOf[raw.leftByNewline];

    negated_ = negated;
    lists_ = std::move(raw.lists);
    listsCharge_ = std::move(raw.listsCharge);
    if (!negated.empty()) {
        std::size_t listed = 0;
        for (Paths& list : lists_) {
            // Negated patterns are added to the lists where they do not match.
            const std::size_t most = list.size() + negated.size();
            charge_.take(negated.size() * sizeof(std::int32_t));
            countWork(4 + most);
            Paths reported;
            reported.reserve(most);
            std::set_symmetric_difference(list.begin(), list.end(), negated.begin(), negated.end(),
                                          std::back_inserter(reported));
            listed += reported.size();
            if (listed > maxListed) return false;
            list = std::move(reported);
        }
    }
    // The first list is that of no accepted pattern.
    Vector<std::uint32_t> listOf(1, options.leavesByTextbook ? 0 : raw.acceptedLists[0]);
    for (const std::uint32_t state : order) listOf.push_back(raw.acceptedLists[state]);
    listStates(listOf);
    makeReports();
    return true;
}

void Table::findStart() {
    startIndex_ = start_ / stride_;
    leftIndex_ = leavesByTextbook_ != 0 ? 0 : startIndex_;
}

// Makes the states; `listOf` tells the list of path numbers of each.
void Table::listStates(std::span<const std::uint32_t> listOf) {
    charge_.take(blockBytes(listOf.size() * sizeof(DetState)));
    states_ = std::make_unique<DetState[]>(listOf.size());
    for (std::size_t i = 0; i < listOf.size(); ++i) {
        countWork(1);
        states_[i].paths_ = &lists_[listOf[i]];
        states_[i].table_ = this;
    }
}

void Table::makeReports() {
    Vector<Report> reports;
    reports.reserve(stateCount() + 1);
    for (std::size_t i = 0; i <= stateCount(); ++i) {
        const Paths& list = states_[i].pathNumbers();
        Report& report = reports.emplace_back();
        report.first.fill(-1);
        report.count = static_cast<std::uint32_t>(list.size());
        std::copy_n(list.begin(), std::min(list.size(), report.first.size()), report.first.begin());
    }
    reports_ = Flat<Report>(std::move(reports));
}

namespace {

// Lists of path numbers, one after the other.
struct FlatLists {
    std::vector<std::int32_t> numbers;
    std::vector<std::uint64_t> ends;

    void add(const Table::Paths& list) {
        numbers.insert(numbers.end(), list.begin(), list.end());
        ends.push_back(numbers.size());
    }
    // Null if the ends are not ascending.
    bool giveTo(std::vector<Table::Paths>& lists) const {
        std::size_t begin = 0;
        for (const std::uint64_t end : ends) {
            if (end < begin || end > numbers.size()) return false;
            lists.emplace_back(numbers.begin() + static_cast<std::ptrdiff_t>(begin),
                               numbers.begin() + static_cast<std::ptrdiff_t>(end));
            begin = end;
        }
        return true;
    }
};

}  // namespace

bool Table::archive(Archive& archive) {
    std::vector<std::uint32_t> listOf;
    FlatLists lists;
    FlatLists settled;
    std::vector<std::uint8_t> isAfterNewline;
    if (!archive.isReading()) {
        for (const Paths& list : lists_) lists.add(list);
        for (std::size_t i = 0; i <= stateCount(); ++i) {
            listOf.push_back(static_cast<std::uint32_t>(states_[i].paths_ - lists_.data()));
        }
        for (const Special& special : specials_) {
            settled.add(special.settled);
            isAfterNewline.push_back(special.isAfterNewline ? 1 : 0);
        }
    }
    archive.all(classOf_, start_, lastTrap_, lastLineLoop_, lastSpecial_, leftByNewline_, stride_,
                takesNul_, leavesByTextbook_, rows_, reports_, loopOf_, loops_, windowOf_, windows_,
                listOf, lists.numbers, lists.ends, settled.numbers, settled.ends, isAfterNewline,
                negated_);
    if (!archive.isReading()) return true;
    if (!archive.isGood() || stride_ == 0 || stride_ > 256 || rows_.size() % stride_ != 0 ||
        rows_.size() < 2 * std::size_t{stride_} || rows_.size() > std::numeric_limits<Row>::max() ||
        listOf.size() != rows_.size() / stride_) {
        return false;
    }
    reciprocal_ = (std::uint64_t{1} << 32) / stride_ + 1;
    findStart();
    std::vector<Paths> settledLists;
    if (!isSound() || !lists.giveTo(lists_) || !settled.giveTo(settledLists) ||
        settledLists.size() != (lastSpecial_ - lastLineLoop_) / stride_ ||
        isAfterNewline.size() != settledLists.size() ||
        std::any_of(listOf.begin(), listOf.end(),
                    [&](std::uint32_t list) { return list >= lists_.size(); })) {
        return false;
    }
    for (std::size_t i = 0; i < settledLists.size(); ++i) {
        specials_.push_back({isAfterNewline[i] != 0, std::move(settledLists[i])});
    }
    listStates(listOf);
    return true;
}

bool Table::isSound() const {
    const auto isRow = [&](Row row) { return row < rows_.size() && index(row) * stride_ == row; };
    const std::span<const Row> rows = rows_.view();
    const std::span<const ByteScan> loops = loops_.view();
    const std::span<const std::uint16_t> loopOf = loopOf_.view();
    const std::span<const std::uint16_t> windowOf = windowOf_.view();
    return std::all_of(rows.begin(), rows.end(), isRow) && isRow(start_) && start_ != 0 &&
           reports_.size() == rows.size() / stride_ && loopOf.size() == reports_.size() &&
           std::all_of(loopOf.begin(), loopOf.end(),
                       [&](std::uint16_t loop) { return loop <= loops.size(); }) &&
           // Or a walk would go on after the end of a text.
           std::none_of(loops.begin(), loops.end(),
                        [](const ByteScan& loop) { return loop.contains(0); }) &&
           (windows_.empty() || windowOf.size() == reports_.size()) &&
           std::all_of(windowOf.begin(), windowOf.end(),
                       [&](std::uint16_t window) { return window <= windows_.size(); }) &&
           isRow(lastTrap_) && isRow(lastLineLoop_) && isRow(lastSpecial_) &&
           isRow(leftByNewline_) && lastTrap_ <= lastLineLoop_ && lastLineLoop_ <= lastSpecial_ &&
           std::all_of(rows.begin(), rows.begin() + stride_, [](Row row) { return row == 0; }) &&
           std::all_of(classOf_.begin(), classOf_.end(),
                       [&](std::uint8_t c) { return c < stride_; });
}

// Notes the bytes on which a state stays as it is. States that only newline leaves are left out:
// the walk never looks at their bytes.
void Table::findLoops() {
    std::size_t stateCount = this->stateCount();
    Vector<std::uint16_t> loopOf(stateCount + 1);
    Vector<std::uint16_t> windowOf(stateCount + 1);
    Vector<ByteScan> loops;
    Vector<WindowScan> windows;
    std::size_t workLeft = 16384 + 4 * rows_.size();
    constexpr std::size_t mostBytes = 128;
    Vector<ByteSet> bytesOf(stride_);
    Vector<std::size_t> byteCounts(stride_);
    for (unsigned byte = 0; byte < 256; ++byte) {
        bytesOf[classOf_[byte]].set(byte);
        if (byte != 0) ++byteCounts[classOf_[byte]];
    }
    ByteSetNumbers<std::uint16_t> known;  // by the classes
    for (std::size_t i = lastSpecial_ / stride_ + 1; i <= stateCount; ++i) {
        Row row = static_cast<Row>(i * stride_);
        countWork(stride_);
        const auto own = rows_.view().subspan(row, stride_);
        if (std::find(own.begin(), own.end(), row) == own.end()) continue;
        ByteSet classes;
        std::size_t byteCount = 0;
        for (unsigned c = 0; c < stride_; ++c) {
            if (own[c] != row) continue;
            classes.set(c);
            byteCount += byteCounts[c];
        }
        std::uint16_t& number = known[classes];
        if (number == 0 && loops.size() < std::numeric_limits<std::uint16_t>::max()) {
            ByteSet bytes;
            forMembers(classes, [&](unsigned c) { bytes |= bytesOf[c]; });
            loops.emplace_back(bytes.reset(0));
            number = static_cast<std::uint16_t>(loops.size());
        }
        loopOf[i] = number;
        if (byteCount >= mostBytes && findWindow(row, bytesOf, windows, workLeft)) {
            windowOf[i] = static_cast<std::uint16_t>(windows.size());
        }
    }
    loopOf_ = Flat<std::uint16_t>(std::move(loopOf));
    loops_ = Flat<ByteScan>(std::move(loops));
    if (windows.empty()) return;
    windowOf_ = Flat<std::uint16_t>(std::move(windowOf));
    windows_ = Flat<WindowScan>(std::move(windows));
}

namespace {

// Classes of bytes at three places in a row.
using ClassProduct = std::array<ByteSet, 3>;

// Adds `added`, if it can to one that differs from it in the set at `place` alone.
void addTo(Vector<ClassProduct>& products, std::size_t first, const ClassProduct& added,
           std::size_t place) {
    for (std::size_t i = first; i < products.size(); ++i) {
        ClassProduct widened = products[i];
        widened[place] = added[place];
        countWork(1);
        if (widened != added) continue;
        products[i][place] |= added[place];
        return;
    }
    products.push_back(added);
}

}  // namespace

// Adds the window of a state, if few places of a text of the bytes that matter pass it.
bool Table::findWindow(Row home, const Vector<ByteSet>& bytesOf, Vector<WindowScan>& windows,
                       std::size_t& workLeft) const {
    constexpr std::size_t mostProducts = 128;
    constexpr std::size_t mostWindows = 256;
    constexpr double mostPart = 0.04;
    const auto row = [&](Row from, unsigned c) { return rows_[from + c]; };
    const auto isWatched = [&](Row to) { return to <= lastSpecial_; };
    ByteSet all;
    for (unsigned c = 0; c < stride_; ++c) all.set(c);
    ClassProduct leaving{ByteSet(), all, all};
    Vector<ClassProduct> products(1);
    for (unsigned a = 0; a < stride_; ++a) {
        const Row one = row(home, a);
        if (one == home) continue;
        if (isWatched(one)) {
            leaving[0].set(a);
            continue;
        }
        Vector<ClassProduct> own;
        ClassProduct watched{ByteSet().set(a), ByteSet(), all};
        for (unsigned b = 0; b < stride_; ++b) {
            const Row two = row(one, b);
            if (two == row(home, b)) continue;
            if (isWatched(two)) {
                watched[1].set(b);
                continue;
            }
            ClassProduct product{ByteSet().set(a), ByteSet().set(b), ByteSet()};
            for (unsigned c = 0; c < stride_; ++c) {
                if (row(two, c) != row(row(home, b), c)) product[2].set(c);
            }
            countWork(stride_);
            if (workLeft < stride_) return false;
            workLeft -= stride_;
            if (product[2].any()) addTo(own, 0, product, 1);
        }
        if (watched[1].any()) own.push_back(watched);
        for (const ClassProduct& product : own) addTo(products, 1, product, 0);
        if (products.size() > mostProducts || workLeft < stride_) return false;
        workLeft -= stride_;
    }
    if (products.size() == 1 || windows.size() == mostWindows) return false;
    products[0] = leaving;

    Vector<unsigned char> bytes(stride_);  // one of each class
    for (unsigned byte = 256; byte-- > 0;) {
        bytes[classOf_[byte]] = static_cast<unsigned char>(byte);
    }
    Vector<WindowScan::Product> byBytes;
    for (const ClassProduct& product : products) {
        WindowScan::Product& sets = byBytes.emplace_back();
        for (std::size_t place = 0; place < sets.size(); ++place) {
            if (product[place] == all) {
                sets[place].set();
            } else {
                forMembers(product[place], [&](unsigned c) { sets[place] |= bytesOf[c]; });
            }
        }
        countWork(3 * 8);
    }
    const WindowScan window(byBytes);
    if (window.density(bytes) > mostPart + 1.0 / stride_) return false;
    windows.push_back(window);
    return true;
}

State* Table::successor(const DetState& state, unsigned char c) const {
    const auto stateIndex = static_cast<std::size_t>(&state - states_.get());
    Row row = rows_[stateIndex * stride_ + classOf_[c]];
    return row == 0 ? nullptr : &states_[index(row)];
}

std::size_t Table::memory() const {
    std::size_t bytes =
        sizeof *this + rows_.bytes() + (stateCount() + 1) * sizeof(DetState) + reports_.bytes() +
        windowOf_.bytes() + windows_.bytes() + lists_.capacity() * sizeof(Paths) +
        negated_.capacity() * sizeof(std::int32_t) + loopOf_.bytes() + loops_.bytes();
    for (const Paths& list : lists_) bytes += list.capacity() * sizeof(std::int32_t);
    for (const Special& special : specials_) {
        bytes += sizeof special + special.settled.capacity() * sizeof(std::int32_t);
    }
    return bytes;
}

}  // namespace FSM

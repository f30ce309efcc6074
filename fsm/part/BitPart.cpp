#include "fsm/part/BitPart.h"

#include <algorithm>
#include <map>

#include "fsm/pattern/PatternList.h"
#include "fsm/store/Archive.h"
#include "fsm/store/Lists.h"
#include "fsm/table/ByteClasses.h"
#include "fsm/table/FlatNfa.h"

namespace FSM {

/// A place is a move of the automaton without its origin: the bytes that it takes and where it
/// leads.
class BitMaker {
public:
    BitMaker(const Pattern* first, std::size_t count, const BuildLimits& limits)
        : first_(first), count_(count), limits_(limits), nfa_(first, count) {
        nfa_.reduce();
    }

    Limit make(BitPart& part) {
        findPlaces();
        if (places_.size() > limits_.states) return Limit::States;
        const ByteClasses classes(nfa_.sets());
        part.words_ = std::max<std::size_t>((places_.size() + 63) / 64, 1);
        if (classes.count() * part.words_ > limits_.bytes / sizeof(Word)) return Limit::Bytes;
        findFollows();
        if (passed_ != Limit::None) return passed_;
        order();
        fill(part, classes);
        return Limit::None;
    }

private:
    using Word = BitPart::Word;
    using Numbers = Vector<std::uint32_t>;
    using Exceptions = std::map<Numbers, Numbers, std::less<>,
                                CountedAllocator<std::pair<const Numbers, Numbers>>>;

    void findPlaces() {
        for (std::uint32_t state = 0; state < nfa_.stateCount(); ++state) {
            for (const auto* edge = nfa_.edgesBegin(state); edge != nfa_.edgesEnd(state); ++edge) {
                places_.push_back(*edge);
            }
        }
        countWork(8 * places_.size());
        std::sort(places_.begin(), places_.end());
        places_.erase(std::unique(places_.begin(), places_.end()), places_.end());
        placesOf_.resize(nfa_.stateCount());
        for (std::uint32_t state = 0; state < nfa_.stateCount(); ++state) {
            for (const auto* edge = nfa_.edgesBegin(state); edge != nfa_.edgesEnd(state); ++edge) {
                countWork(4);
                placesOf_[state].push_back(static_cast<std::uint32_t>(
                    std::lower_bound(places_.begin(), places_.end(), *edge) - places_.begin()));
            }
        }
    }

    // For each target, the places that may be entered from there, and the patterns that end there.
    void findFollows() {
        follows_.resize(nfa_.targetCount());
        accepts_.resize(nfa_.targetCount());
        isSeen_.resize(nfa_.stateCount());
        for (const FlatNfa::Edge& place : places_) {
            findFollow(place.target, follows_[place.target], accepts_[place.target]);
            if (passed_ != Limit::None) return;
        }
        for (const std::uint32_t start : nfa_.starts()) {
            findFollow(start, startFollows_, startAccepts_);
            if (passed_ != Limit::None) return;
        }
    }

    void findFollow(std::uint32_t target, Numbers& follow, Vector<std::int32_t>& accepts) {
        if (&follow != &startFollows_ && (!follow.empty() || !accepts.empty())) return;
        Numbers states;
        if (nfa_.isReduced()) {
            states.assign(nfa_.targets().begin(target), nfa_.targets().end(target));
        } else {
            states.push_back(target);
            isSeen_[target] = true;
            for (std::size_t i = 0; i < states.size(); ++i) {
                const std::uint32_t* const end = nfa_.epsilons().end(states[i]);
                for (const auto* next = nfa_.epsilons().begin(states[i]); next != end; ++next) {
                    if (isSeen_[*next]) continue;
                    isSeen_[*next] = true;
                    states.push_back(*next);
                }
            }
            for (const std::uint32_t state : states) isSeen_[state] = false;
        }
        for (const std::uint32_t state : states) {
            follow.insert(follow.end(), placesOf_[state].begin(), placesOf_[state].end());
            const std::uint32_t* const end = nfa_.patterns().end(state);
            for (const auto* pattern = nfa_.patterns().begin(state); pattern != end; ++pattern) {
                accepts.push_back(first_[*pattern].path);
            }
        }
        sortOnce(follow);
        sortOnce(accepts);
        const std::size_t steps = 4 * states.size() + 16 * (follow.size() + accepts.size());
        countWork(steps);
        work_ += steps;
        followCount_ += follow.size() + accepts.size();
        if (followCount_ > limits_.bytes / sizeof(BitPart::Bits)) passed_ = Limit::Bytes;
        if (work_ > limits_.work) passed_ = Limit::Work;
    }

    // Numbers the places so that many lead to the next one.
    void order() {
        constexpr std::uint32_t noneS = ~std::uint32_t{0};
        bitOf_.assign(places_.size(), noneS);
        std::uint32_t next = 0;
        const auto follow = [&](const Numbers& starts) {
            Numbers open(starts.rbegin(), starts.rend());
            while (!open.empty()) {
                const std::uint32_t place = open.back();
                open.pop_back();
                if (bitOf_[place] != noneS) continue;
                bitOf_[place] = next++;
                const Numbers& follows = follows_[places_[place].target];
                countWork(1 + follows.size());
                // The ones entered from here come right after it, those not seen yet the first.
                for (auto to = follows.rbegin(); to != follows.rend(); ++to) {
                    if (bitOf_[*to] == noneS) open.push_back(*to);
                }
            }
        };
        follow(startFollows_);
        // Places that nothing leads to.
        Numbers all(places_.size());
        for (std::uint32_t i = 0; i < all.size(); ++i) all[i] = i;
        follow(all);
    }

    void fill(BitPart& part, const ByteClasses& classes) {
        const std::size_t words = part.words_;
        part.classOf_ = classes.map();
        Vector<Word> entered(classes.count() * words);
        Vector<Word> start(words);
        Vector<Word> shifts(words);
        Vector<Word> loops(words);
        Vector<Word> ends(words);
        Vector<NumberLists::Ref> accepts(places_.size());
        NumberLists::Maker lists;
        Vector<Vector<std::uint8_t>> classesOfSet;
        for (const ByteSet& set : nfa_.sets()) classesOfSet.push_back(classes.classesOf(set));
        Vector<NumberLists::Ref> listOf;  // of each target
        for (const Vector<std::int32_t>& list : accepts_) listOf.push_back(lists.add(list));

        // Exceptions, by the places that they lead to.
        Exceptions exceptions;
        Numbers others;
        for (std::uint32_t place = 0; place < places_.size(); ++place) {
            const std::uint32_t bit = bitOf_[place];
            const std::uint32_t target = places_[place].target;
            for (const std::uint8_t c : classesOfSet[places_[place].set]) {
                set(&entered[c * words], bit);
            }
            accepts[bit] = listOf[target];
            if (listOf[target] != 0) set(ends.data(), bit);
            others.clear();
            for (const std::uint32_t follow : follows_[target]) {
                const std::uint32_t to = bitOf_[follow];
                if (to == bit) {
                    set(loops.data(), bit);
                } else if (to == bit + 1) {
                    set(shifts.data(), bit);
                } else {
                    others.push_back(to);
                }
            }
            countWork(8 + 4 * others.size());
            std::sort(others.begin(), others.end());
            if (!others.empty()) exceptions[others].push_back(bit);
        }
        for (const std::uint32_t follow : startFollows_) set(start.data(), bitOf_[follow]);

        Vector<BitPart::Exception> flat;
        Vector<BitPart::Bits> bits;
        for (const auto& [to, from] : exceptions) {
            const auto fromBegin = static_cast<std::uint32_t>(bits.size());
            appendBits(from, bits);
            flat.push_back({fromBegin, static_cast<std::uint32_t>(bits.size())});
            appendBits(to, bits);
        }
        flat.push_back({static_cast<std::uint32_t>(bits.size()), 0});
        if (words <= BitPart::mostFixedCM) fillMoves(part, exceptions);
        part.entered_ = Flat<Word>(std::move(entered));
        part.start_ = Flat<Word>(std::move(start));
        part.shifts_ = Flat<Word>(std::move(shifts));
        part.loops_ = Flat<Word>(std::move(loops));
        part.ends_ = Flat<Word>(std::move(ends));
        part.exceptions_ = Flat<BitPart::Exception>(std::move(flat));
        part.bits_ = Flat<BitPart::Bits>(std::move(bits));
        part.accepts_ = Flat<NumberLists::Ref>(std::move(accepts));
        part.acceptsEmpty_ = lists.add(startAccepts_);
        part.lists_ = NumberLists(lists.take());
        part.negated_ = PatternList::negatedPaths(first_, count_);
    }

    void fillMoves(BitPart& part, const Exceptions& exceptions) const {
        const std::size_t words = part.words_;
        Vector<Word> origins(words);
        Vector<std::uint32_t> exceptionOf(places_.size());
        Vector<Word> moves(2 * words * exceptions.size());
        std::uint32_t number = 0;
        for (const auto& [to, from] : exceptions) {
            Word* const own = &moves[2 * words * number];
            for (const std::uint32_t place : from) {
                set(origins.data(), place);
                set(own, place);
                exceptionOf[place] = number;
            }
            for (const std::uint32_t place : to) set(own + words, place);
            ++number;
        }
        part.origins_ = Flat<Word>(std::move(origins));
        part.exceptionOf_ = Flat<std::uint32_t>(std::move(exceptionOf));
        part.moves_ = Flat<Word>(std::move(moves));
    }

    static void set(Word* words, std::uint32_t bit) { words[bit / 64] |= Word{1} << (bit % 64); }

    // `places` in any order.
    static void appendBits(const Numbers& places, Vector<BitPart::Bits>& bits) {
        const std::size_t begin = bits.size();
        Numbers sorted = places;
        std::sort(sorted.begin(), sorted.end());
        for (const std::uint32_t place : sorted) {
            if (bits.size() == begin || bits.back().word != place / 64) {
                bits.push_back({place / 64, 0});
            }
            bits.back().bits |= Word{1} << (place % 64);
        }
    }

    template <class Number>
    static void sortOnce(Vector<Number>& values) {
        std::sort(values.begin(), values.end());
        values.erase(std::unique(values.begin(), values.end()), values.end());
    }

    const Pattern* first_;
    std::size_t count_;
    const BuildLimits limits_;
    Limit passed_ = Limit::None;
    std::size_t followCount_ = 0;
    std::size_t work_ = 0;
    FlatNfa nfa_;
    Vector<FlatNfa::Edge> places_;  // sorted
    Vector<Numbers> placesOf_;      // of each state
    Vector<Numbers> follows_;       // of each target
    Vector<Vector<std::int32_t>> accepts_;
    Numbers startFollows_;
    Vector<std::int32_t> startAccepts_;
    Vector<bool> isSeen_;
    Numbers bitOf_;  // of each place
};

std::unique_ptr<BitPart> BitPart::make(const Pattern* first, std::size_t count,
                                       const PatternOptions& options, const BuildLimits& limits,
                                       Limit& passed) {
    auto part = std::make_unique<BitPart>();
    part->takesNul_ = options.takesNul ? 1 : 0;
    passed = BitMaker(first, count, limits).make(*part);
    if (passed != Limit::None) part.reset();
    return part;
}

void BitPart::addMatches(const Word* state, Found& found) const {
    for (std::size_t i = 0; i < words_; ++i) {
        for (Word bits = state[i] & ends_[i]; bits != 0; bits &= bits - 1) {
            lists_.add(accepts_[i * 64 + static_cast<unsigned>(__builtin_ctzll(bits))], found);
        }
    }
}

// Adds the places that `state` leads to by exceptions.
template <std::size_t fixedWords>
inline void BitPart::follow(const Word* state, Word* next) const {
    if constexpr (fixedWords != 0) {
        for (std::size_t word = 0; word < fixedWords; ++word) {
            for (Word bits = state[word] & origins_[word]; bits != 0;) {
                const std::size_t place = word * 64 + static_cast<unsigned>(__builtin_ctzll(bits));
                const Word* const move = &moves_[exceptionOf_[place] * 2 * fixedWords];
                for (std::size_t i = 0; i < fixedWords; ++i) next[i] |= move[fixedWords + i];
                bits &= ~move[word];
            }
        }
        return;
    }
    const Exception* const end = exceptions_.data() + exceptions_.size() - 1;
    for (const Exception* exception = exceptions_.data(); exception != end; ++exception) {
        Word from = 0;
        for (std::uint32_t i = exception->from; i < exception->to; ++i) {
            from |= state[bits_[i].word] & bits_[i].bits;
        }
        if (from == 0) continue;
        for (std::uint32_t i = exception->to; i < exception[1].from; ++i) {
            next[bits_[i].word] |= bits_[i].bits;
        }
    }
}

template <std::size_t fixedWords>
bool BitPart::walk(std::string_view text, Found& found) const {
    const std::size_t words = fixedWords != 0 ? fixedWords : words_;
    Word fixed[2][fixedWords != 0 ? fixedWords : 1];
    Word* state = fixed[0];
    Word* next = fixed[1];
    if constexpr (fixedWords == 0) {
        thread_local std::vector<Word> roomS;
        if (roomS.size() < 2 * words) roomS.resize(2 * words);
        state = roomS.data();
        next = state + words;
    }
    const auto* at = reinterpret_cast<const unsigned char*>(text.data());
    const auto* const end = at + text.size();
    const auto isTextEnd = [&] { return at == end || (*at == 0 && takesNul_ == 0); };
    if (isTextEnd()) {
        lists_.add(acceptsEmpty_, found);
        return true;
    }
    const Word* entered = &entered_[classOf_[*at++] * words];
    Word any = 0;
    for (std::size_t i = 0; i < words; ++i) any |= state[i] = start_[i] & entered[i];
    for (; any != 0 && !isTextEnd(); ++at) {
        entered = &entered_[classOf_[*at] * words];
        Word carry = 0;
        for (std::size_t i = 0; i < words; ++i) {
            const Word shifted = state[i] & shifts_[i];
            next[i] = shifted << 1 | carry | (state[i] & loops_[i]);
            carry = shifted >> 63;
        }
        follow<fixedWords>(state, next);
        any = 0;
        for (std::size_t i = 0; i < words; ++i) any |= next[i] &= entered[i];
        std::swap(state, next);
    }
    if (any == 0) return false;
    addMatches(state, found);
    return true;
}

bool BitPart::match(std::string_view text, Found& found) const {
    const auto walkText = [&](Found& into) {
        switch (words_) {
            case 1:
                return walk<1>(text, into);
            case 2:
                return walk<2>(text, into);
            case 3:
                return walk<3>(text, into);
            case 4:
                return walk<4>(text, into);
            default:
                return walk<0>(text, into);
        }
    };
    if (negated_.empty()) return walkText(found);
    // Negated patterns are reported where they do not match.
    thread_local std::vector<std::int32_t> matchedS;
    matchedS.clear();
    Found matched(matchedS);
    const bool isInside = walkText(matched);
    matched.sortOnce();
    auto negated = negated_.begin();
    for (const std::int32_t path : matchedS) {
        while (negated != negated_.end() && *negated < path) found.add(*negated++);
        if (negated != negated_.end() && *negated == path) {
            ++negated;
        } else {
            found.add(path);
        }
    }
    while (negated != negated_.end()) found.add(*negated++);
    return isInside;
}

bool BitPart::archive(Archive& archive) {
    archive.all(words_, takesNul_, classOf_, entered_, start_, shifts_, loops_, ends_, origins_,
                moves_, exceptions_, exceptionOf_, bits_, accepts_, acceptsEmpty_, lists_.values(),
                negated_);
    return archive.isGood() && (!archive.isReading() || isSound());
}

bool BitPart::isSound() const {
    const std::size_t places = accepts_.size();
    if (words_ == 0 || words_ > entered_.size() || entered_.size() % words_ != 0 ||
        start_.size() != words_ || shifts_.size() != words_ || loops_.size() != words_ ||
        ends_.size() != words_ || places > words_ * 64 || exceptions_.empty()) {
        return false;
    }
    for (const std::uint8_t c : classOf_) {
        if ((std::size_t{c} + 1) * words_ > entered_.size()) return false;
    }
    for (std::size_t place = 0; place < words_ * 64; ++place) {
        if ((ends_[place / 64] >> (place % 64) & 1) != 0 && place >= places) return false;
    }
    for (const NumberLists::Ref list : accepts_.view()) {
        if (!lists_.isSound(list)) return false;
    }
    if (!lists_.isSound(acceptsEmpty_)) return false;
    for (std::size_t i = 0; i + 1 < exceptions_.size(); ++i) {
        const Exception& exception = exceptions_[i];
        if (exception.from > exception.to || exception.to > exceptions_[i + 1].from) return false;
    }
    if (exceptions_[exceptions_.size() - 1].from > bits_.size()) return false;
    for (const Bits& bits : bits_.view()) {
        if (bits.word >= words_) return false;
    }
    if (words_ > mostFixedCM) return true;
    if (origins_.size() != words_ || exceptionOf_.size() != places) return false;
    for (std::size_t place = 0; place < words_ * 64; ++place) {
        if ((origins_[place / 64] >> (place % 64) & 1) == 0) continue;
        // Following an exception strikes out its origins, or it would not end.
        if (place >= places) return false;
        const std::size_t move = std::size_t{exceptionOf_[place]} * 2 * words_;
        if (move + 2 * words_ > moves_.size() ||
            (moves_[move + place / 64] >> (place % 64) & 1) == 0) {
            return false;
        }
    }
    return true;
}

std::size_t BitPart::memory() const {
    return sizeof *this + entered_.bytes() + start_.bytes() + shifts_.bytes() + loops_.bytes() +
           ends_.bytes() + origins_.bytes() + exceptionOf_.bytes() + moves_.bytes() +
           exceptions_.bytes() + bits_.bytes() + accepts_.bytes() + lists_.bytes() +
           negated_.capacity() * sizeof(std::int32_t);
}

}  // namespace FSM

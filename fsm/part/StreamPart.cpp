#include "fsm/part/StreamPart.h"

#include <algorithm>
#include <map>
#include <utility>
#include <vector>

#include "fsm/pattern/PatternList.h"
#include "fsm/store/Archive.h"
#include "fsm/table/ByteClasses.h"
#include "fsm/table/ByteScan.h"
#include "fsm/table/FlatNfa.h"

namespace FSM {

/// Writes down the steps that make the stream of each state from those of the states before it.
class StreamMaker {
public:
    StreamMaker(const Pattern* first, std::size_t count)
        : first_(first), nfa_(first, count), line_(~ByteSet().set('\n')) {
        nfa_.reduce();
    }

    StreamPart::Traits traits(bool mustStartWild) {
        if (!suits() || (mustStartWild && !startsWild())) return {};
        return {true, countsFromAnywhere()};
    }

    bool make(StreamPart& part) {
        if (!suits()) return false;
        const ByteClasses classes(nfa_.sets());
        part.classOf_ = classes.map();
        part.classCount_ = classes.count();
        nodes_.resize(classes.count() + 1);
        for (const ByteSet& set : nfa_.sets()) {
            Numbers streams;
            for (const std::uint8_t c : classes.classesOf(set)) streams.push_back(c);
            streamOfSet_.push_back(set == line_ ? noneS : join(std::move(streams)));
        }
        placeOf_.resize(nfa_.stateCount());
        for (const std::uint32_t state : order_) placeOf_[state] = findPlace(state);
        findAccepts(part);
        arrange(part);
        return true;
    }

private:
    using Move = StreamPart::Move;
    using Numbers = Vector<std::uint32_t>;
    struct Node {
        Move move{};
        std::uint32_t from = 0;
        std::uint32_t by = 0;

        friend auto operator<=>(const Node&, const Node&) = default;
    };
    // A state that is reached some bytes after a stream.
    struct Place {
        std::uint32_t stream = 0;
        std::uint32_t distance = 0;

        friend auto operator<=>(const Place&, const Place&) = default;
    };
    struct Entry {
        std::uint32_t set;
        std::uint32_t from;

        friend auto operator<=>(const Entry&, const Entry&) = default;
    };

    static constexpr std::uint32_t noneS = ~std::uint32_t{0};
    static constexpr std::size_t entriesPerStateS = 256;
    // A gap of so many bytes after any place makes a deterministic automaton of 2^n states.
    static constexpr std::uint32_t longGapS = 8;
    static constexpr std::uint32_t wordBits = 64;

    template <class Visitor>
    void forStates(std::uint32_t target, Visitor visit) const {
        std::for_each(nfa_.targets().begin(target), nfa_.targets().end(target), visit);
    }

    // Finds the entries of all states, and an order in which each comes after those that lead to
    // it. False if there is none, or a newline does not end everything.
    bool suits() {
        if (!nfa_.isReduced()) return false;
        for (const ByteSet& set : nfa_.sets()) {
            if (set['\n']) return false;
        }
        const std::size_t count = nfa_.stateCount();
        entries_.resize(count);
        loops_.resize(count);
        isStart_.resize(count);
        std::size_t entryCount = 0;
        for (std::uint32_t state = 0; state < count; ++state) {
            for (const auto* edge = nfa_.edgesBegin(state); edge != nfa_.edgesEnd(state); ++edge) {
                forStates(edge->target, [&](std::uint32_t to) {
                    if (to == state) {
                        loops_[to] |= nfa_.sets()[edge->set];
                    } else {
                        entries_[to].push_back({edge->set, state});
                        ++entryCount;
                    }
                });
                countWork(4);
            }
            if (entryCount > entriesPerStateS * count) return false;
        }
        for (const std::uint32_t start : nfa_.starts()) {
            forStates(start, [&](std::uint32_t state) { isStart_[state] = true; });
        }
        for (std::uint32_t state = 0; state < count; ++state) {
            if (!isStart_[state] && entries_[state].empty()) return false;
        }
        return findOrder();
    }

    bool findOrder() {
        Numbers left;
        for (const auto& entries : entries_) {
            left.push_back(static_cast<std::uint32_t>(entries.size()));
        }
        for (std::uint32_t state = 0; state < left.size(); ++state) {
            if (left[state] == 0) order_.push_back(state);
        }
        for (std::size_t i = 0; i < order_.size(); ++i) {
            const std::uint32_t state = order_[i];
            for (const auto* edge = nfa_.edgesBegin(state); edge != nfa_.edgesEnd(state); ++edge) {
                countWork(2);
                forStates(edge->target, [&](std::uint32_t to) {
                    if (to != state && --left[to] == 0) order_.push_back(to);
                });
            }
        }
        return order_.size() == left.size();
    }

    bool startsWild() const {
        for (const std::uint32_t state : order_) {
            if (isStart_[state] && loops_[state] == line_) return true;
        }
        return false;
    }

    bool countsFromAnywhere() const {
        Vector<bool> isAnywhere(order_.size());
        Numbers counted(order_.size());
        for (const std::uint32_t state : order_) {
            isAnywhere[state] = loops_[state].any();
            for (const Entry& entry : entries_[state]) {
                if (isAnywhere[entry.from]) isAnywhere[state] = true;
                if (isWide(nfa_.sets()[entry.set]) && loops_[state].none()) {
                    counted[state] = std::max(counted[state], counted[entry.from] + 1);
                }
            }
            if (isAnywhere[state] && counted[state] >= longGapS) return true;
        }
        return false;
    }

    // Whether a set leaves a choice, besides that between the cases of a letter.
    static bool isWide(const ByteSet& set) {
        if (set.count() != 2) return set.count() > 1;
        unsigned difference = 0;
        forMembers(set, [&](unsigned byte) { difference ^= byte; });
        return difference != ('a' ^ 'A');
    }

    Place findPlace(std::uint32_t state) {
        Vector<Entry>& entries = entries_[state];
        std::sort(entries.begin(), entries.end());
        entries.erase(std::unique(entries.begin(), entries.end()), entries.end());
        countWork(8 * (1 + entries.size()));
        if (!isStart_[state] && loops_[state].none() && entries.size() == 1 &&
            streamOfSet_[entries[0].set] == noneS) {
            Place place = placeOf_[entries[0].from];
            ++place.distance;
            return place;
        }
        Numbers streams;
        if (isStart_[state]) streams.push_back(startStream());
        for (std::size_t i = 0; i < entries.size();) {
            const std::uint32_t set = entries[i].set;
            Vector<Place> places;
            for (; i < entries.size() && entries[i].set == set; ++i) {
                places.push_back(placeOf_[entries[i].from]);
            }
            const std::uint32_t from = joinPlaces(places);
            streams.push_back(streamOfSet_[set] == noneS
                                  ? shift(from, 1)
                                  : node({Move::Take, from, streamOfSet_[set]}));
        }
        const std::uint32_t stream = join(std::move(streams));
        if (loops_[state].none()) return {stream, 0};
        if (loops_[state] == line_) return {node({Move::Spread, stream, 0}), 0};
        return {node({Move::Stay, stream, streamOfLoop(state)}), 0};
    }

    std::uint32_t streamOfLoop(std::uint32_t state) {
        Numbers streams;
        for (const auto* edge = nfa_.edgesBegin(state); edge != nfa_.edgesEnd(state); ++edge) {
            forStates(edge->target, [&](std::uint32_t to) {
                if (to == state) streams.push_back(streamOfSet_[edge->set]);
            });
        }
        return join(std::move(streams));
    }

    std::uint32_t startStream() const { return static_cast<std::uint32_t>(firstNode() - 1); }
    std::size_t firstNode() const { return nodes_.size() - known_.size(); }

    // The number of a stream; the same for the same step.
    std::uint32_t node(const Node& wanted) {
        const auto [found, isNew] =
            known_.try_emplace(wanted, static_cast<std::uint32_t>(nodes_.size()));
        if (isNew) nodes_.push_back(wanted);
        countWork(8);
        return found->second;
    }

    std::uint32_t shift(std::uint32_t stream, std::uint32_t distance) {
        while (distance > 0 && stream >= firstNode() && nodes_[stream].move == Move::Shift) {
            distance += nodes_[stream].by;
            stream = nodes_[stream].from;
        }
        for (; distance > wordBits; distance -= wordBits) {
            stream = node({Move::Shift, stream, wordBits});
        }
        return distance == 0 ? stream : node({Move::Shift, stream, distance});
    }

    std::uint32_t smear(std::uint32_t stream, std::uint32_t distance) {
        if (distance == 0) return stream;
        std::uint32_t covered = std::min(distance, wordBits - 1);
        stream = node({Move::Smear, stream, covered});
        while (covered < distance) {
            const std::uint32_t more = std::min(covered + 1, distance - covered);
            stream = join(Numbers{stream, shift(stream, more)});
            covered += more;
        }
        return stream;
    }

    std::uint32_t join(Numbers streams) {
        std::sort(streams.begin(), streams.end());
        std::uint32_t all = streams.empty() ? noneS : streams[0];
        for (std::size_t i = 1; i < streams.size(); ++i) {
            if (streams[i] != streams[i - 1]) all = node({Move::Join, all, streams[i]});
        }
        return all;
    }

    std::uint32_t joinPlaces(Vector<Place>& places) {
        std::sort(places.begin(), places.end());
        Numbers streams;
        for (std::size_t i = 0; i < places.size();) {
            const Place first = places[i];
            std::uint32_t last = first.distance;
            for (; i < places.size() && places[i].stream == first.stream &&
                   places[i].distance <= last + 1;
                 ++i) {
                last = places[i].distance;
            }
            streams.push_back(smear(shift(first.stream, first.distance), last - first.distance));
        }
        return join(std::move(streams));
    }

    void findAccepts(StreamPart& part) {
        NumberLists::Maker lists;
        Vector<std::int32_t> paths;
        for (std::uint32_t state = 0; state < nfa_.stateCount(); ++state) {
            if (nfa_.patterns().isEmpty(state)) continue;
            paths.clear();
            std::for_each(nfa_.patterns().begin(state), nfa_.patterns().end(state),
                          [&](std::uint32_t pattern) { paths.push_back(first_[pattern].path); });
            std::sort(paths.begin(), paths.end());
            paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
            const Place place = placeOf_[state];
            accepts_.push_back({shift(place.stream, place.distance), lists.add(paths)});
        }
        part.lists_ = NumberLists(lists.take());
    }

    // Numbers the streams that lead to accepting ones so that those made alike come together.
    void arrange(StreamPart& part) {
        const auto first = static_cast<std::uint32_t>(firstNode());
        const auto isStream = [](const Node& node) {
            return node.move == Move::Take || node.move == Move::Join || node.move == Move::Stay;
        };
        Vector<bool> isUsed(nodes_.size());
        for (const StreamPart::Accept& accept : accepts_) isUsed[accept.stream] = true;
        for (auto i = static_cast<std::uint32_t>(nodes_.size()); i-- > first;) {
            if (!isUsed[i]) continue;
            isUsed[nodes_[i].from] = true;
            if (isStream(nodes_[i])) isUsed[nodes_[i].by] = true;
        }
        Vector<Numbers> users(nodes_.size());
        Numbers left(nodes_.size());
        std::array<Numbers, StreamPart::movesCM> ready;
        const auto readyOf = [&](std::uint32_t i) -> Numbers& {
            return ready[static_cast<std::size_t>(nodes_[i].move)];
        };
        for (std::uint32_t i = first; i < nodes_.size(); ++i) {
            if (!isUsed[i]) continue;
            const auto needs = [&](std::uint32_t stream) {
                if (stream < first) return;
                users[stream].push_back(i);
                ++left[i];
            };
            needs(nodes_[i].from);
            if (isStream(nodes_[i])) needs(nodes_[i].by);
            if (left[i] == 0) readyOf(i).push_back(i);
            countWork(8);
        }
        Numbers numberOf(nodes_.size());
        for (std::uint32_t i = 0; i < first; ++i) numberOf[i] = i;
        Vector<StreamPart::Step> steps;
        Vector<StreamPart::Run> runs;
        for (;;) {
            auto most = std::max_element(
                ready.begin(), ready.end(),
                [](const Numbers& a, const Numbers& b) { return a.size() < b.size(); });
            if (most->empty()) break;
            for (std::size_t next = 0; next < most->size(); ++next) {
                const std::uint32_t i = (*most)[next];
                numberOf[i] = first + static_cast<std::uint32_t>(steps.size());
                const Node& made = nodes_[i];
                steps.push_back(
                    {numberOf[made.from], isStream(made) ? numberOf[made.by] : made.by});
                for (const std::uint32_t user : users[i]) {
                    if (--left[user] == 0) readyOf(user).push_back(user);
                }
            }
            runs.push_back({static_cast<Move>(most - ready.begin()),
                            static_cast<std::uint32_t>(steps.size())});
            most->clear();
        }
        Vector<StreamPart::Accept> accepts = accepts_;
        for (StreamPart::Accept& accept : accepts) accept.stream = numberOf[accept.stream];
        part.steps_ = Flat<StreamPart::Step>(std::move(steps));
        part.runs_ = Flat<StreamPart::Run>(std::move(runs));
        part.accepts_ = Flat<StreamPart::Accept>(std::move(accepts));
    }

    const Pattern* first_;
    FlatNfa nfa_;
    const ByteSet line_;             // all bytes but newline
    Vector<Vector<Entry>> entries_;  // of each state
    Vector<ByteSet> loops_;          // of each state, the bytes that lead back to it
    Vector<bool> isStart_;
    Numbers order_;
    Vector<Node> nodes_;  // the streams; the first ones are not made by a step
    std::map<Node, std::uint32_t, std::less<>,
             CountedAllocator<std::pair<const Node, std::uint32_t>>>
        known_;
    Numbers streamOfSet_;  // noneS for all bytes but newline
    Vector<Place> placeOf_;
    Vector<StreamPart::Accept> accepts_;
};

StreamPart::Traits StreamPart::traits(const Pattern& pattern, bool mustStartWild) {
    return StreamMaker(&pattern, 1).traits(mustStartWild);
}

std::unique_ptr<StreamPart> StreamPart::make(const Pattern* first, std::size_t count,
                                             const PatternOptions& options) {
    auto part = std::make_unique<StreamPart>();
    part->takesNul_ = options.takesNul ? 1 : 0;
    if (!StreamMaker(first, count).make(*part)) return nullptr;
    return part;
}

// Makes the streams of the next 64 places; `before` holds what goes over from the last ones, if the
// text is not short.
template <bool isShort>
inline void StreamPart::move(Word* streams, Word* before) const {
    const Step* step = steps_.data();
    Word* out = streams + firstStep();
    for (const Run& run : runs_.view()) {
        const Step* const end = steps_.data() + run.end;
        const auto forSteps = [&](auto make) __attribute__((always_inline)) {
            for (; step != end; ++step, ++out) {
                *out = make(streams[step->from], step->by, *before);
                if constexpr (!isShort) ++before;
            }
        };
        switch (run.move) {
            case Move::Take:
                forSteps([&](Word from, std::uint32_t by, Word& last) {
                    const Word taken = from & streams[by];
                    if constexpr (isShort) return taken << 1;
                    return taken << 1 | std::exchange(last, taken >> 63);
                });
                break;
            case Move::Shift:
                forSteps([](Word from, std::uint32_t by, Word& last) {  // by 1 to 64
                    const Word shifted = from << (by - 1) << 1;
                    if constexpr (isShort) return shifted;
                    return shifted | std::exchange(last, from) >> (64 - by);
                });
                break;
            case Move::Smear:
                forSteps([](Word from, std::uint32_t by, Word& last) {
                    Word low = 0;
                    if constexpr (!isShort) low = std::exchange(last, from);
                    if ((from | low) == 0) return from;
                    for (std::uint32_t covered = 0; covered < by;) {
                        const std::uint32_t more = std::min(covered + 1, by - covered);
                        from |= from << more;
                        if constexpr (!isShort) {
                            from |= low >> (64 - more);
                            low |= low << more;
                        }
                        covered += more;
                    }
                    return from;
                });
                break;
            case Move::Join:
                forSteps([&](Word from, std::uint32_t by, Word&) { return from | streams[by]; });
                break;
            case Move::Stay:
                forSteps([&](Word from, std::uint32_t by, Word& last) {
                    // A sum carries a bit to the end of the ones that it stands in.
                    const Word through = streams[by];
                    Word sum = 0;
                    Word carry = __builtin_add_overflow(from & through, through, &sum) ? 1 : 0;
                    if constexpr (!isShort) {
                        carry |= __builtin_add_overflow(sum, last, &sum) ? 1 : 0;
                        last = carry;
                    }
                    return (sum ^ through) | from;
                });
                break;
            case Move::Spread:
                forSteps([](Word from, std::uint32_t, Word& last) {
                    Word all = from | (0 - from);
                    if constexpr (!isShort) {
                        all |= last;
                        last = 0 - (all >> 63);
                    }
                    return all;
                });
                break;
        }
    }
}

bool StreamPart::match(std::string_view text, Found& found) const {
    constexpr std::size_t wordBits = 64;
    const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
    const unsigned char* const end = lineEnd(bytes, bytes + text.size(), takesNul_ != 0);
    if (end != bytes + text.size() && *end == '\n') return false;
    const auto length = static_cast<std::size_t>(end - bytes);
    const std::size_t count = streamCount();
    thread_local std::vector<Word> roomS;
    if (roomS.size() < 2 * count) roomS.resize(2 * count);
    Word* const streams = roomS.data();
    Word* const before = streams + count;
    const bool isShort = length < wordBits;
    if (!isShort) std::fill(before, before + steps_.size(), 0);
    for (std::size_t at = 0; at <= length; at += wordBits) {
        std::fill(streams, streams + classCount_, 0);
        streams[classCount_] = at == 0 ? 1 : 0;
        Word bit = 1;
        for (const auto* byte = bytes + at; byte != end && bit != 0; ++byte) {
            streams[classOf_[*byte]] |= bit;
            bit <<= 1;
        }
        if (isShort) {
            move<true>(streams, before);
        } else {
            move<false>(streams, before);
        }
    }
    for (const Accept& accept : accepts_.view()) {
        if ((streams[accept.stream] >> (length % wordBits) & 1) != 0) {
            lists_.add(accept.list, found);
        }
    }
    return true;
}

bool StreamPart::archive(Archive& archive) {
    archive.all(takesNul_, classCount_, classOf_, steps_, runs_, accepts_, lists_.values());
    return archive.isGood() && (!archive.isReading() || isSound());
}

bool StreamPart::isSound() const {
    if (classCount_ == 0 || classCount_ > classOf_.size() || steps_.size() >> 31 != 0) return false;
    for (const std::uint8_t c : classOf_) {
        if (c >= classCount_) return false;
    }
    std::size_t i = 0;
    for (const Run& run : runs_.view()) {
        if (static_cast<std::size_t>(run.move) >= movesCM || run.end < i ||
            run.end > steps_.size()) {
            return false;
        }
        for (; i < run.end; ++i) {
            // Steps read what was made before them.
            const std::size_t own = firstStep() + i;
            const std::uint32_t by = steps_[i].by;
            bool isIn = by < own;
            if (run.move == Move::Shift) isIn = by >= 1 && by <= 64;
            if (run.move == Move::Smear) isIn = by >= 1 && by <= 63;
            if (steps_[i].from >= own || !isIn) return false;
        }
    }
    return i == steps_.size() &&
           std::all_of(accepts_.view().begin(), accepts_.view().end(), [&](const Accept& accept) {
               return accept.stream < streamCount() && lists_.isSound(accept.list);
           });
}

std::size_t StreamPart::memory() const {
    return sizeof *this + steps_.bytes() + runs_.bytes() + accepts_.bytes() + lists_.bytes();
}

}  // namespace FSM

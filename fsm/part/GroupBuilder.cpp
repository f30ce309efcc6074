#include "fsm/part/GroupBuilder.h"

#include <algorithm>
#include <functional>
#include <map>
#include <span>
#include <string_view>
#include <utility>

#include "fsm/EngineGroup.h"
#include "fsm/part/BitPart.h"
#include "fsm/part/LiteralPart.h"
#include "fsm/part/StreamPart.h"
#include "fsm/part/TablePart.h"
#include "fsm/part/WordPart.h"
#include "fsm/pattern/Shape.h"
#include "fsm/table/Determiniser.h"
#include "fsm/table/Table.h"
#include "fsm/table/WordAutomaton.h"

namespace FSM {

namespace {

// A deterministic automaton with more states than this times those of the patterns grows with the
// product of its patterns, unless it is small.
constexpr std::size_t proportionS = 2;
constexpr std::size_t smallS = 512;
// What an automaton with tails apart may have in any case.
constexpr std::size_t wholeS = 4096;
// What one of several automata may have in any case.
constexpr std::size_t splitS = EngineGroup::defaultPartLimitCM;
// Fewer words are matched faster by a deterministic automaton.
constexpr std::size_t fewLiteralBytesS = 4096;
constexpr std::size_t fewWordBytesS = 2048;
constexpr std::size_t fewSequencesS = 6;
// More words between wild cards than this are kept apart at once.
constexpr std::size_t fewInnerS = 6;
// Patterns in which fewer places take several bytes do not explode by counting.
constexpr std::size_t fewWideS = 8;
constexpr std::size_t fewCountingS = 2;
// States of patterns that share a part with a bit for each place.
constexpr std::size_t bitsTogetherS = 120;
// Automata of single patterns tried before a list is split.
constexpr std::size_t fewPatternsS = 4096;
// Deterministic states that all parts of a group together may have, for each one that a single
// automaton may.
constexpr std::size_t groupFactorS = 16;

// Whether a part, ignoring its negation, matches "".
bool acceptsEmpty(const EnginePart& part) {
    for (const State* state : part.interior().members()) {
        static_cast<const NonDetState*>(state)->mark(0);
    }
    part.start()->mark(1);
    part.end()->mark(0);
    Vector<const State*> open;
    open.push_back(part.start());
    while (!open.empty() && part.end()->mark() == 0) {
        const State* const state = open.back();
        open.pop_back();
        for (const State* next : state->epsilonSuccStates()) {
            const auto* const to = static_cast<const NonDetState*>(next);
            if (to->mark() == 1) continue;
            to->mark(1);
            open.push_back(to);
        }
    }
    countWork(part.stateCount());
    return part.end()->mark() == 1;
}

std::size_t statesOf(const Pattern* first, std::size_t count) {
    std::size_t states = 0;
    for (std::size_t i = 0; i < count; ++i) states += first[i].part->stateCount();
    return states;
}

template <class Value>
using MapOfPaths = std::map<std::int32_t, Value, std::less<>,
                            CountedAllocator<std::pair<const std::int32_t, Value>>>;

// Joins patterns that a split must not separate: those that share a number, if one of them is
// negated. They become neighbours. Gives, for each pattern, whether it may be the first of a part.
Vector<bool> joinNegated(Vector<Pattern>& patterns) {
    const auto hasNegation = [](const Pattern& pattern) { return pattern.isNegated(); };
    if (std::none_of(patterns.begin(), patterns.end(), hasNegation)) {
        return Vector<bool>(patterns.size(), true);
    }
    MapOfPaths<std::size_t> firstOfPath;
    MapOfPaths<bool> isNegated;
    Vector<std::size_t> keys;
    for (std::size_t i = 0; i < patterns.size(); ++i) {
        countWork(16);
        isNegated[patterns[i].path] |= patterns[i].isNegated();
        keys.push_back(firstOfPath.try_emplace(patterns[i].path, i).first->second);
    }
    Vector<std::size_t> order(patterns.size());
    for (std::size_t i = 0; i < order.size(); ++i) {
        order[i] = i;
        if (!isNegated[patterns[i].path]) keys[i] = i;
    }
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return keys[a] < keys[b]; });
    Vector<Pattern> sorted;
    Vector<bool> mayStart;
    for (std::size_t i = 0; i < order.size(); ++i) {
        sorted.push_back(std::move(patterns[order[i]]));
        mayStart.push_back(i == 0 || keys[order[i]] != keys[order[i - 1]]);
    }
    patterns = std::move(sorted);
    return mayStart;
}

}  // namespace

struct GroupBuilder::Automaton {
    std::size_t first;
    std::size_t count;
    RawAutomaton raw;
};

struct GroupBuilder::Words {
    Shape shape;
    Vector<Literal> literals;
    WordPart::Maker sequences;

    // A copy of `word` that stays where it is.
    std::string_view keep(std::string_view word) {
        constexpr std::size_t blockSize = 16384;
        if (blocks.empty() || word.size() > blocks.back().capacity() - blocks.back().size()) {
            blocks.emplace_back().reserve(std::max(blockSize, word.size()));
        }
        Vector<char>& block = blocks.back();
        block.insert(block.end(), word.begin(), word.end());
        return {block.data() + block.size() - word.size(), word.size()};
    }
    Vector<Vector<char>> blocks;
};

GroupBuilder::GroupBuilder(Vector<Pattern> patterns, const PatternOptions& options,
                           const BuildLimits& limits, std::size_t partLimit)
    : patterns_(std::move(patterns)),
      options_(options),
      limits_(limits),
      partLimit_(partLimit),
      words_(std::make_unique<Words>()) {}

GroupBuilder::~GroupBuilder() = default;

bool GroupBuilder::build(GroupParts& result) {
    negated_ = PatternList::negatedPaths(patterns_.data(), patterns_.size());
    findEmpty();
    sortOut();
    joinNegated();
    if (guiltyPath_ >= 0) return false;
    makeAutomata();
    result.options = options_;
    result.acceptsEmpty = acceptsEmpty_;
    result.needsUtf8 = isLoose_;
    if (!words_->literals.empty()) {
        result.parts.push_back(std::make_unique<LiteralPart>(words_->literals, options_));
    }
    if (!words_->sequences.isEmpty()) {
        result.parts.push_back(std::make_unique<WordPart>(words_->sequences, options_));
    }
    return guiltyPath_ < 0 && makeTables(result) && makeStreams(result) && makeBits(result);
}

void GroupBuilder::findEmpty() {
    if (options_.leavesByTextbook) return;
    for (const Pattern& pattern : patterns_) {
        acceptsEmpty_ = pattern.part != nullptr ? acceptsEmpty(*pattern.part)
                                                : words_->shape.read(pattern.text, options_) &&
                                                      words_->shape.bytes.empty();
        countWork(4);
        if (acceptsEmpty_) return;
    }
}

// Words go into their own parts when there are many.
void GroupBuilder::sortOut() {
    std::size_t literalBytes = 0;
    std::size_t wordBytes = 0;
    std::size_t sequences = 0;
    for (const Pattern& pattern : patterns_) {
        countWork(4);
        if (pattern.part != nullptr || !words_->shape.read(pattern.text, options_)) continue;
        if (words_->shape.isLiteral()) {
            literalBytes += 8 + words_->shape.bytes.size();
        } else {
            wordBytes += words_->shape.bytes.size();
            if (words_->shape.wordCount() > 1) ++sequences;
        }
    }
    const bool takesLiterals = partLimit_ != 0 || literalBytes > fewLiteralBytesS;
    const bool takesWords =
        partLimit_ != 0 || wordBytes > fewWordBytesS || sequences > fewSequencesS;
    for (Pattern& pattern : patterns_) {
        if (takeWords(pattern, takesLiterals, takesWords)) continue;
        const Shape& shape = words_->shape;
        if (words_->shape.read(pattern.text, options_) && shape.startsWild && shape.endsWild) {
            ++inner_;
        }
        others_.push_back(std::move(pattern));
    }
}

bool GroupBuilder::takeWords(Pattern& pattern, bool takesLiterals, bool takesWords) {
    Shape& shape = words_->shape;
    // Patterns that share a number with a negated one depend on each other.
    if (pattern.isNegated() || std::binary_search(negated_.begin(), negated_.end(), pattern.path) ||
        !shape.read(pattern.text, options_)) {
        return false;
    }
    // Words do not tell how a text that is not UTF-8, or a letter cut in two, leaves.
    if (options_.isUtf8 && acceptsEmpty_ && (options_.ignoresCase || shape.isWild())) return false;
    countWork(8);
    if (shape.isLiteral()) {
        if (!takesLiterals) return false;
        words_->literals.push_back({words_->keep(shape.bytes), pattern.path, shape.endsWild});
        countBytes(pattern);
        return true;
    }
    // The part cannot tell how long a text without matches was the beginning of one.
    if (!takesWords || (acceptsEmpty_ && !shape.startsWild)) return false;
    words_->sequences.add(shape, pattern.path);
    countBytes(pattern);
    return true;
}

// Notes the bytes that a pattern of words will take in its part.
void GroupBuilder::countBytes(const Pattern& pattern) {
    constexpr std::size_t bytesPerWord = 48;
    bytes_ += bytesPerWord + words_->shape.bytes.size();
    if (bytes_ > limits_.bytes && guiltyPath_ < 0) fail(pattern, Limit::Bytes);
}

// Joins patterns that a split must not separate: those that share a number, if one of them is
// negated. They become neighbours.
void GroupBuilder::joinNegated() { mayStart_ = FSM::joinNegated(others_); }

void GroupBuilder::makeAutomata() {
    if (others_.empty() || (partLimit_ == 0 && determineWords())) return;
    if (!parseOthers()) return;
    if (partLimit_ == 0) {
        takeCounting();
        if (others_.empty() || determineWhole()) return;
        if (options_.isUtf8 && !acceptsEmpty_) {
            if (!loosen()) return;
            if (others_.empty() || determineWhole()) return;
        }
        // Words may be what makes it explode.
        Vector<Pattern> rest;
        for (Pattern& pattern : others_) {
            if (!takeWords(pattern, true, true)) rest.push_back(std::move(pattern));
        }
        const bool isAnyTaken = rest.size() < others_.size();
        others_ = std::move(rest);
        inner_ = 0;
        if (others_.empty()) return;
        joinNegated();
        if (isAnyTaken && determineWhole()) return;
    }
    split();
}

// Words that are no part of their own have not been parsed before.
bool GroupBuilder::parseOthers() {
    const StateRoom room(limits_.bytes - std::min(limits_.bytes, bytes_));
    for (Pattern& pattern : others_) {
        try {
            if (isLoose_) {
                pattern.parseForUtf8(options_);
            } else {
                pattern.parse(options_);
            }
        } catch (const NoStateRoom&) {
            return fail(pattern, Limit::Bytes);
        }
    }
    return true;
}

// Makes the patterns anew for texts in UTF-8 alone, whose loops over all characters are then loops
// over bytes: as states, parts of characters would multiply those of other patterns.
bool GroupBuilder::loosen() {
    isLoose_ = true;
    for (Pattern& pattern : streams_) others_.push_back(std::move(pattern));
    streams_.clear();
    if (!parseOthers()) return false;
    joinNegated();
    takeCounting();
    return true;
}

// Takes out the patterns that count bytes after any place: if there are few, those of them that
// explode by themselves, otherwise all, as their states would be multiplied.
void GroupBuilder::takeCounting() {
    Vector<bool> counts(others_.size());
    std::size_t count = 0;
    for (std::size_t i = 0; i < others_.size(); ++i) {
        counts[i] = maySuitStreams(others_[i]) &&
                    StreamPart::traits(others_[i], acceptsEmpty_).countsFromAnywhere;
        if (counts[i]) ++count;
    }
    if (count == 0) return;
    Vector<Pattern> rest;
    for (std::size_t i = 0; i < others_.size(); ++i) {
        RawAutomaton raw;
        const bool isTaken =
            counts[i] &&
            (count > fewCountingS ||
             determinise(&others_[i], 1, {smallS, limits_.bytes, trialWork()}, raw) != Limit::None);
        (isTaken ? streams_ : rest).push_back(std::move(others_[i]));
    }
    others_ = std::move(rest);
    joinNegated();
}

// Looks at little, as it is asked of all patterns. What counts has something after a loop.
bool GroupBuilder::maySuitStreams(const Pattern& pattern) const {
    const std::size_t loop = pattern.text.find_first_of("*+");
    if (loop == std::string::npos || loop + 1 == pattern.text.size()) return false;
    if (std::binary_search(negated_.begin(), negated_.end(), pattern.path)) return false;
    std::size_t wide = 0;
    for (const State* state : pattern.part->interior().members()) {
        const auto& each = *static_cast<const NonDetState*>(state);
        std::size_t bytes = 0;
        std::size_t difference = 0;
        for (const NonDetState::Transition& transition : each.transitions()) {
            // A character of several bytes is one place.
            if (options_.isUtf8 && transition.first >= 0x80) continue;
            bytes += transition.last - transition.first + std::size_t{1};
            difference ^= transition.first;
        }
        // A letter in both cases is no choice.
        const bool isLetter = bytes == 2 && difference == ('a' ^ 'A');
        if (each.wildCardState() != nullptr || (bytes > 1 && !isLetter)) ++wide;
    }
    countWork(pattern.part->stateCount() / 4 + 1);
    return wide >= fewWideS;
}

// One automaton for all, if they are words between wild cards.
bool GroupBuilder::determineWords() {
    Shape& shape = words_->shape;
    if (inner_ < others_.size() || options_.ignoresCase || (options_.isUtf8 && acceptsEmpty_)) {
        return false;
    }
    std::vector<InnerWord> words;
    Charge charge;
    std::size_t states = 2;
    for (const Pattern& pattern : others_) {
        if (!shape.read(pattern.text, options_) || shape.wordCount() > 1) return false;
        charge.take(sizeof(InnerWord) + blockBytes(shape.bytes.size()));
        words.push_back({shape.bytes, pattern.path});
        states += shape.bytes.size();
    }
    if (states > limits_.states) return false;
    automata_.push_back({0, others_.size(), {}});
    isLoose_ = options_.isUtf8;
    FSM::determine(words, automata_.back().raw);
    return true;
}

// One automaton for all, with the tails inside or apart, if it does not grow out of proportion.
bool GroupBuilder::determineWhole() { return determine(0, others_.size(), wholeS, true); }

// Adds an automaton for `count` patterns from `first` on, if it has no more than `leastStates` or
// grows in proportion.
bool GroupBuilder::determine(std::size_t first, std::size_t count, std::size_t leastStates,
                             bool mayKeepTails) {
    const Pattern* const patterns = &others_[first];
    const std::size_t proportionate =
        mayKeepTails ? statesOf(patterns, count) * proportionS : leastStates;
    struct Trial {
        std::size_t states;
        Tails tails;
    };
    const std::size_t inside = std::max(mayKeepTails ? smallS : leastStates, proportionate);
    const std::size_t apart = std::max(leastStates, proportionate);
    // Each state would tell which words have been met: with few of them, too many states already.
    const bool mustKeepTails = mayKeepTails && count == others_.size() && inner_ > fewInnerS;
    // Without tails the second trial is like the first, unless it may have more states.
    const bool isOnlyForTails = !mustKeepTails && inside == apart;
    const Trial trials[] = {{inside, Tails::Inside},
                            {apart, isOnlyForTails ? Tails::MustBeApart : Tails::Apart}};
    for (const Trial& trial : std::span(trials).subspan(mustKeepTails ? 1 : 0)) {
        if (trial.tails != Tails::Inside && !mayKeepTails) break;
        RawAutomaton raw;
        const BuildLimits limits{std::min(limits_.states, trial.states), limits_.bytes,
                                 trialWork()};
        if (determinise(patterns, count, limits, raw, trial.tails) != Limit::None) continue;
        automata_.push_back({first, count, std::move(raw)});
        return true;
    }
    return false;
}

// An automaton for what explodes, but has so many places that bits for them would pass the limit.
bool GroupBuilder::determineLarge(std::size_t first, std::size_t count) {
    return 2 * statesOf(&others_[first], count) > limits_.states &&
           determine(first, count, limits_.states, false);
}

// Halves the list until each half grows in proportion. What cannot be halved explodes.
void GroupBuilder::split() {
    const auto unitEnd = [&](std::size_t first) {
        ++first;
        while (first < others_.size() && !mayStart_[first]) ++first;
        return first;
    };
    const bool isFree = partLimit_ == 0;
    const std::size_t least = isFree ? splitS : partLimit_;
    struct Range {
        std::size_t first;
        std::size_t end;
    };
    // One that explodes by itself would make each half explode that it is in.
    Vector<Range> open;
    std::size_t begin = 0;
    for (std::size_t first = 0;
         isFree && others_.size() <= fewPatternsS && first < others_.size();) {
        const std::size_t end = unitEnd(first);
        // All together have been tried before.
        if (end - first < others_.size() && determine(first, end - first, smallS, true)) {
            automata_.pop_back();
        } else {
            if (begin < first) open.push_back({begin, first});
            if (!determineLarge(first, end - first)) exploding_.push_back(first);
            begin = end;
        }
        first = end;
    }
    if (begin < others_.size()) open.push_back({begin, others_.size()});
    while (!open.empty()) {
        const Range range = open.back();
        open.pop_back();
        if (determine(range.first, range.end - range.first, least, isFree)) continue;
        std::size_t middle = range.first + (range.end - range.first) / 2;
        while (middle > range.first && !mayStart_[middle]) --middle;
        if (middle == range.first) middle = unitEnd(range.first);
        if (middle >= range.end) {
            if (determineLarge(range.first, range.end - range.first)) continue;
            exploding_.push_back(range.first);
        } else {
            open.push_back({middle, range.end});
            open.push_back({range.first, middle});
        }
    }
    std::sort(exploding_.begin(), exploding_.end());
}

bool GroupBuilder::makeTables(GroupParts& result) {
    if (automata_.empty()) return true;
    auto part = std::make_unique<TablePart>();
    std::size_t states = 0;
    for (Automaton& automaton : automata_) {
        const Pattern* const first = &others_[automaton.first];
        states += automaton.raw.stateCount();
        if (states > limits_.states * groupFactorS) {
            guiltyPath_ = first->path;
            error_ = PatternList::limitError(*first, limits_.states * groupFactorS, "states");
            return false;
        }
        auto table = std::make_unique<Table>();
        const Table::MostListed mostListed(limits_);
        if (!table->build(std::move(automaton.raw),
                          PatternList::negatedPaths(first, automaton.count), options_,
                          acceptsEmpty_, mostListed.numbers)) {
            // Negated patterns are listed for nearly all states.
            return fail(first[lastNegated(first, automaton.count)], mostListed.limit());
        }
        bytes_ += table->memory();
        if (bytes_ > limits_.bytes) return fail(*first, Limit::Bytes);
        part->add(std::move(table));
    }
    result.parts.push_back(std::move(part));
    return true;
}

bool GroupBuilder::makeStreams(GroupParts& result) {
    // Patterns that explode in other ways move faster as streams, if they suit those.
    Vector<std::size_t> rest;
    for (const std::size_t first : exploding_) {
        Pattern& pattern = others_[first];
        const bool isAlone = first + 1 == others_.size() || mayStart_[first + 1];
        if (isAlone && !std::binary_search(negated_.begin(), negated_.end(), pattern.path) &&
            StreamPart::traits(pattern, acceptsEmpty_).suits) {
            streams_.push_back(std::move(pattern));
        } else {
            rest.push_back(first);
        }
    }
    exploding_ = std::move(rest);
    if (streams_.empty()) return true;
    auto part = StreamPart::make(streams_.data(), streams_.size(), options_);
    if (part == nullptr) {
        for (Pattern& pattern : streams_) {
            exploding_.push_back(others_.size());
            others_.push_back(std::move(pattern));
            mayStart_.push_back(true);
        }
        return true;
    }
    bytes_ += part->memory();
    if (bytes_ > limits_.bytes) return fail(streams_[0], Limit::Bytes);
    result.parts.push_back(std::move(part));
    return true;
}

bool GroupBuilder::makeBits(GroupParts& result) {
    const std::size_t byteLimit = limits_.bytes - std::min(limits_.bytes, bytes_);
    for (std::size_t i = 0; i < exploding_.size();) {
        // The patterns of one part lie together.
        Vector<Pattern> together;
        std::size_t states = 0;
        std::size_t units = 0;
        do {
            std::size_t at = exploding_[i];
            std::size_t added = 0;
            std::size_t end = at;
            do {
                added += others_[end++].part->stateCount();
            } while (end < others_.size() && !mayStart_[end]);
            if (units > 0 && states + added > bitsTogetherS) break;
            states += added;
            for (; at < end; ++at) together.push_back(std::move(others_[at]));
            ++units;
        } while (++i < exploding_.size());
        Limit passed = Limit::None;
        auto part = BitPart::make(together.data(), together.size(), options_,
                                  {limits_.states, byteLimit, limits_.work}, passed);
        if (part == nullptr) return fail(together[0], passed);
        bytes_ += part->memory();
        if (bytes_ > limits_.bytes) return fail(together[0], Limit::Bytes);
        result.parts.push_back(std::move(part));
    }
    return true;
}

bool GroupBuilder::fail(const Pattern& guilty, Limit passed) {
    guiltyPath_ = guilty.path;
    error_ = PatternList::limitError(guilty, limits_, passed);
    return false;
}

}  // namespace FSM

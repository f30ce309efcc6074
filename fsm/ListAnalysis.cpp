#include <algorithm>
#include <map>
#include <new>
#include <set>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "fnd/SeededHash.h"
#include "fsm/Analysis.h"
#include "fsm/Engine.h"
#include "fsm/EngineGroup.h"
#include "fsm/pattern/Shape.h"
#include "fsm/store/Account.h"

namespace FSM {

namespace {

using Paths = std::vector<std::int32_t>;

/// Looks at patterns pair by pair.
class ListAnalyser {
public:
    ListAnalyser(std::span<const FND::String> patterns, std::size_t maxOverlaps,
                 const PatternOptions& options)
        : patterns_(patterns),
          maxOverlaps_(maxOverlaps),
          options_(options),
          kinds_(patterns.size()),
          wordPairs_(patterns.size()) {
        group_.options(options);
    }

    bool run(Analysis& result) {
        for (std::size_t i = 0; i < patterns_.size(); ++i) {
            if (!group_.insertPattern(patterns_[i])) return false;
            kinds_[i] = kindOf(patterns_[i]);
            if (kinds_[i] == Kind::Inside) inside_.push_back(static_cast<std::int32_t>(i));
            if (kinds_[i] == Kind::General || kinds_[i] == Kind::Open) ++wideCount_;
        }
        wideCount_ += inside_.size();
        if (!group_.finalSetup()) return false;
        for (std::size_t i = 0; i < patterns_.size(); ++i) {
            const auto path = static_cast<std::int32_t>(i);
            if (kinds_[i] == Kind::General) {
                examineGeneral(path);
            } else {
                examineWord(path);
            }
        }
        findLeaving(result.leaving);
        give(result);
        return true;
    }

private:
    // A word; a word with a tail; a word with ".*" before and after; or something else.
    enum class Kind : std::uint8_t { Word, Open, Inside, General };
    // Automata made of pairs; most take a tenth of a millisecond.
    static constexpr std::size_t mostPairsCM = 20000;
    static constexpr std::size_t failedPairsCM = 19;  // pairs that take as long as one given up
    static constexpr std::size_t mostStatesCM = 4096;
    static constexpr std::size_t mostWorkCM = std::size_t{1} << 18;

    Kind kindOf(const FND::String& pattern) {
        if (!shape_.read(pattern, options_)) return Kind::General;
        if (shape_.isLiteral()) return shape_.endsWild ? Kind::Open : Kind::Word;
        const bool isInside = shape_.startsWild && shape_.endsWild && shape_.wordCount() == 1;
        return isInside ? Kind::Inside : Kind::General;
    }

    void findLeaving(Paths& leaving) {
        if (options_.leavesByTextbook) return;
        group_.process("", leaving);
        std::erase_if(leaving, [&](std::int32_t path) { return isNegated(path); });
    }

    // The shortest text of a pattern of words.
    FND::String textOf(std::int32_t path) {
        shape_.read(patterns_[static_cast<std::size_t>(path)], options_);
        return shape_.bytes;
    }
    // What a negated pattern matches depends on the other patterns of the list.
    bool isNegated(std::int32_t path) const {
        return patterns_[static_cast<std::size_t>(path)].substr(0, 1) == "!";
    }
    Kind kind(std::int32_t path) const { return kinds_[static_cast<std::size_t>(path)]; }

    // Whatever follows the shortest text of such a pattern, those that go on matching do so.
    void examineWord(std::int32_t path) {
        const FND::String text = textOf(path);
        const auto known =
            firstOf_.try_emplace(patterns_[static_cast<std::size_t>(path)], path).first;
        if (known->second != path && !hasRoom()) {
            // What was found for an equal one holds here, too.
            const auto first = shadowed_.find(known->second);
            shadow(path, first == shadowed_.end() ? known->second : first->second.first, text);
            return;
        }
        group_.process(text, matching_);
        const Paths matching = matching_;
        for (const std::int32_t other : matching) {
            if (other == path) continue;
            const bool coversAll = kind(path) == Kind::Word || kind(other) == Kind::Inside ||
                                   (kind(path) == Kind::Open && kind(other) == Kind::Open);
            overlap(path, other, text);
            if (kind(other) != Kind::General || kind(path) == Kind::Word) {
                if (coversAll && other < path) shadow(path, other, text);
            }
            // The other may have no texts besides the word, or cover what follows it.
            if (kind(other) == Kind::General && (kind(path) != Kind::Word || path < other)) {
                examinePair(path, other);
            }
        }
        if (kind(path) == Kind::Word || text.find('\n') != FND::String::npos) return;
        // Some texts begin with this word and hold the other one after it.
        for (const std::int32_t other : inside_) {
            if (!hasRoom()) break;
            countWork(1);
            if (other == path) continue;
            if (!std::binary_search(matching.begin(), matching.end(), other)) {
                overlap(path, other, text + textOf(other));
            }
        }
    }

    void examineGeneral(std::int32_t path) {
        ++generalsSeen_;
        if (!hasTime()) {
            notExamined_ += wideCount_ - generalsSeen_ - wordPairs_[static_cast<std::size_t>(path)];
            return;
        }
        Engine engine;
        engine.options(options_);
        engine.stateLimit(mostStatesCM);
        engine.workLimit(mostWorkCM);
        engine.addPattern(patterns_[static_cast<std::size_t>(path)]);
        const bool isAlone = !isNegated(path) && engine.finalSetup();
        if (isAlone && !analyse(engine, 0).value_or(Analysis()).empty.empty()) {
            empty_.push_back(path);
            return;
        }
        for (std::int32_t other = 0; other < static_cast<std::int32_t>(patterns_.size()); ++other) {
            // A word looks up what matches it, and of two of this kind the first one looks.
            if (kind(other) == Kind::Word || (kind(other) == Kind::General && other <= path))
                continue;
            examinePair(path, other);
        }
    }

    void examinePair(std::int32_t one, std::int32_t other) {
        const std::pair pair = std::minmax(one, other);
        if (!hasTime()) {
            // Those of other words are counted with the pattern that is none.
            const bool counts = kind(one) == Kind::Word || kind(one) == Kind::General;
            if (counts && !examined_.contains(pair)) ++notExamined_;
            return;
        }
        if (!examined_.insert(pair).second) return;
        if (kind(one) == Kind::Open || kind(one) == Kind::Inside) {
            ++wordPairs_[static_cast<std::size_t>(other)];
        }
        Engine engine;
        engine.options(options_);
        engine.stateLimit(mostStatesCM);
        engine.workLimit(mostWorkCM);
        ++pairs_;
        if (isNegated(one) || isNegated(other) ||
            !engine.addPattern(patterns_[static_cast<std::size_t>(pair.first)]) ||
            !engine.addPattern(patterns_[static_cast<std::size_t>(pair.second)]) ||
            !engine.finalSetup()) {
            // What is given up has taken long.
            pairs_ += failedPairsCM;
            ++notExamined_;
            return;
        }
        const std::optional<Analysis> both = analyse(engine, 1);
        if (!both) {
            ++notExamined_;
            return;
        }
        for (const Analysis::Overlap& found : both->overlaps) {
            overlap(pair.first, pair.second, found.text);
        }
        for (const Analysis::Shadowed& found : both->shadowed) {
            shadow(pair.second, pair.first, found.text);
        }
    }

    bool hasTime() const { return pairs_ < mostPairsCM; }
    bool hasRoom() const { return overlaps_.size() <= maxOverlaps_; }

    void overlap(std::int32_t one, std::int32_t other, const FND::String& text) {
        if (hasRoom()) overlaps_.try_emplace(std::minmax(one, other), text);
    }

    void shadow(std::int32_t path, std::int32_t by, const FND::String& text) {
        const auto [known, isNew] = shadowed_.try_emplace(path, by, text);
        if (!isNew && by < known->second.first) known->second.first = by;
    }

    void give(Analysis& result) {
        result.empty = std::move(empty_);
        for (const auto& [path, found] : shadowed_) {
            result.shadowed.push_back({path, {found.first}, found.second});
        }
        for (const auto& [pair, text] : overlaps_) {
            if (result.overlaps.size() == maxOverlaps_) {
                result.hasAllOverlaps = false;
                break;
            }
            result.overlaps.push_back({pair.first, pair.second, text});
        }
        result.notExamined = notExamined_;
    }

    const std::span<const FND::String> patterns_;
    const std::size_t maxOverlaps_;
    const PatternOptions options_;
    std::vector<Kind> kinds_;
    Paths inside_;               // those of this kind
    std::size_t wideCount_ = 0;  // of those that are more than a word
    std::size_t generalsSeen_ = 0;
    std::vector<std::uint32_t> wordPairs_;  // of each that is no word, how many are examined
    std::unordered_map<std::string_view, std::int32_t, FND::SeededHash, std::equal_to<>> firstOf_;
    Shape shape_;
    EngineGroup group_;
    Paths matching_;
    Paths empty_;
    std::set<std::pair<std::int32_t, std::int32_t>> examined_;
    std::map<std::pair<std::int32_t, std::int32_t>, FND::String> overlaps_;
    std::map<std::int32_t, std::pair<std::int32_t, FND::String>> shadowed_;
    std::size_t pairs_ = 0;
    std::size_t notExamined_ = 0;
};

}  // namespace

std::optional<Analysis> analyse(std::span<const FND::String> patterns, std::size_t maxOverlaps,
                                const PatternOptions& options) {
    try {
        Analysis result;
        if (ListAnalyser(patterns, maxOverlaps, options).run(result)) return result;
    } catch (const std::bad_alloc&) {
    }
    return std::nullopt;
}

}  // namespace FSM

// Measures the pattern engine next to libraries that do the same, and a rating table. All matchers
// see the same patterns and texts, and the matches that they find are compared.
//
// usage: fsm_bench [number of short texts, 1000000 [sets, "abcd8efghirs" [patient]]]
// With a third argument the others get the sets, too, that some of them take minutes for.
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>

#include "fsm/Engine.h"
#include "fsm/EngineGroup.h"
#include "fsm/MultiEngine.h"
#include "fsm_find.h"
#include "fsm_matcher.h"

namespace {

// Processor time, on which other work on the machine has less influence.
double seconds() {
    timespec now;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

std::mt19937 randomS(42);

std::size_t below(std::size_t limit) { return randomS() % limit; }

std::string randomText(const char* bytes, std::size_t length) {
    std::string_view all(bytes);
    std::string text;
    while (text.size() < length) text += all[below(all.size())];
    return text;
}

template <class Element>
const Element& oneOf(const std::vector<Element>& elements) {
    return elements[below(elements.size())];
}

constexpr const char* digitsS = "0123456789";
constexpr const char* lettersS = "abcdefghijklmnopqrstuvwxyz";
constexpr const char* wordBytesS = "abcdefghijklmnopqrstuvwxyz0123456789-_/.";

/// Patterns and a source of texts; many of the texts match a pattern or come close to it.
struct PatternSet {
    const char* name;
    std::vector<std::string> patterns;
    bool isSplit;    // too large for a single engine
    bool isNegated;  // the patterns are without the "!", which the others do not have
    std::function<std::string(std::size_t length)> text;
};

PatternSet telephoneNumbers() {
    PatternSet set{"a: 20 telephone prefixes", {}, false, false, {}};
    std::vector<std::string> prefixes;
    for (int i = 0; i < 20; ++i) {
        std::string prefix(i % 3 == 0 ? "00" : "0");
        prefix += randomText("123456789", 1 + below(4));
        prefixes.push_back(prefix);
        const char* const tails[] = {"[0-9]*", "[0-9]{6,60}", "[1-9][0-9]+", ".*"};
        set.patterns.push_back(prefix + tails[i % 4]);
    }
    set.text = [prefixes](std::size_t length) {
        std::string text = below(5) == 0 ? randomText(digitsS, 3) : oneOf(prefixes);
        return text + randomText(digitsS, length - text.size());
    };
    return set;
}

PatternSet productsAndAddresses() {
    PatternSet set{"b: 200 product codes and URLs", {}, false, false, {}};
    std::vector<std::string> heads;
    for (int i = 0; i < 100; ++i) {
        std::string code = randomText("ABCDEFGHJKLMNPQRSTUVWXYZ", 2 + below(2));
        set.patterns.push_back(code + "[0-9]{3,5}-[A-Z]+(/.*)?");
        heads.push_back(code + randomText(digitsS, 4) + "-XY/");
        std::string host = randomText(lettersS, 4 + below(6));
        set.patterns.push_back("https?://(www\\.)?" + host + "\\.(com|org|net)(/[^?]*)?(\\?.*)?");
        heads.push_back("https://www." + host + ".com/");
        heads.push_back("http://" + host + ".org/");
    }
    set.text = [heads](std::size_t length) {
        std::string text = oneOf(heads).substr(0, length);
        if (below(5) == 0) text[below(text.size())] = 'x';
        return text + randomText(wordBytesS, length - text.size());
    };
    return set;
}

PatternSet literals() {
    PatternSet set{"c: 2000 literals with wild-card tails", {}, false, false, {}};
    std::vector<std::string> heads;
    for (int i = 0; i < 2000; ++i) {
        heads.push_back(randomText(wordBytesS, 6 + below(8)));
        std::replace(heads.back().begin(), heads.back().end(), '.', ':');
        set.patterns.push_back(heads.back() + ".*");
    }
    set.text = [heads](std::size_t length) {
        std::string text = oneOf(heads).substr(0, length);
        if (below(4) == 0) text[below(text.size())] = '=';
        return text + randomText(wordBytesS, length - text.size());
    };
    return set;
}

PatternSet infixes(const char* name, int count) {
    PatternSet set{name, {}, true, false, {}};
    std::vector<std::string> words;
    for (int i = 0; i < count; ++i) {
        words.push_back(randomText(lettersS, 3 + below(5)));
        set.patterns.push_back(".*" + words.back() + ".*");
    }
    set.text = [words](std::size_t length) {
        std::string text = randomText(wordBytesS, length);
        for (std::size_t i = below(1 + length / 40) + below(2); i > 0; --i) {
            const std::string& word = oneOf(words);
            text.replace(below(length - word.size()), word.size(), word);
        }
        return text;
    };
    return set;
}

PatternSet negations() {
    PatternSet set{"e: 20 negated", {}, false, true, {}};
    std::vector<std::string> heads;
    std::vector<std::string> ends;
    for (int i = 0; i < 20; ++i) {
        std::string word = randomText(lettersS, 3 + below(4));
        switch (i % 4) {
            case 0:
                set.patterns.push_back(word + ".*");
                break;
            case 1:
                set.patterns.push_back(word + "[a-z]*[0-9]+");
                break;
            case 2:
                set.patterns.push_back(word + "(-[a-z0-9]+)*(/.*)?");
                break;
            default:
                set.patterns.push_back(".*\\." + word);
                ends.push_back("." + word);
                continue;
        }
        heads.push_back(word);
    }
    set.text = [heads, ends](std::size_t length) {
        std::string text = below(3) == 0 ? "" : oneOf(heads);
        std::string end = below(3) == 0 ? oneOf(ends) : "";
        if (text.size() + end.size() > length) end.clear();
        return text + randomText(wordBytesS, length - text.size() - end.size()) + end;
    };
    return set;
}

// Texts of which half hold words, a quarter of these with a byte changed.
std::function<std::string(std::size_t)> textsAround(std::vector<std::string> words, bool isInside) {
    return [words = std::move(words), isInside](std::size_t length) {
        std::string text = randomText(wordBytesS, length);
        if (below(4) == 0) return text;
        const std::string& word = oneOf(words);
        const std::size_t size = std::min(word.size(), length);
        const std::size_t place = isInside ? below(length - size + 1) : 0;
        text.replace(place, size, word, 0, size);
        if (below(3) == 0) text[place + below(size)] = '=';
        return text;
    };
}

// Ten digits each. Half of the short texts are one of them.
PatternSet manyLiterals(const char* name, int count) {
    PatternSet set{name, {}, true, false, {}};
    std::vector<std::string> words;
    for (int i = 0; i < count; ++i) words.push_back(randomText(digitsS, 10));
    set.patterns = words;
    set.text = [words](std::size_t length) {
        if (below(2) == 0 && length < 100) return oneOf(words);
        std::string text = oneOf(words).substr(0, length);
        if (below(2) == 0) text[below(text.size())] = 'x';
        return text + randomText(digitsS, length - text.size());
    };
    return set;
}

PatternSet manyWords(const char* name, int count, std::size_t shortest, std::size_t longest,
                     const std::string& before) {
    PatternSet set{name, {}, true, false, {}};
    std::vector<std::string> words;
    for (int i = 0; i < count; ++i) {
        words.push_back(randomText(lettersS, shortest + below(longest - shortest + 1)));
        const bool hasTail = !before.empty() || below(5) > 0;
        set.patterns.push_back(before + words.back() + (hasTail ? ".*" : ""));
    }
    set.text = textsAround(std::move(words), !before.empty());
    return set;
}

// 500 `.*a.*b.*`.
PatternSet pairs() {
    PatternSet set{"k: 500 pairs of words in order", {}, true, false, {}};
    std::vector<std::string> words;
    for (int i = 0; i < 500; ++i) {
        words.push_back(randomText(lettersS, 3 + below(4)));
        words.push_back(randomText(lettersS, 3 + below(4)));
        set.patterns.push_back(".*" + words[2 * i] + ".*" + words[2 * i + 1] + ".*");
    }
    set.text = [words](std::size_t length) {
        std::string text = randomText(wordBytesS, length);
        for (std::size_t i = below(3) + length / 100; i > 0; --i) {
            const std::string& word = oneOf(words);
            if (word.size() < length) {
                text.replace(below(length - word.size()), word.size(), word);
            }
        }
        return text;
    };
    return set;
}

// Each would have up to 2^40 deterministic states.
PatternSet exploding() {
    PatternSet set{"l: 50 exploding", {}, true, false, {}};
    std::vector<std::string> words;
    for (int i = 0; i < 25; ++i) {
        const std::string gap = std::to_string(8 + below(30));
        set.patterns.push_back(".*" + randomText(lettersS, 1) + ".{" + gap + "}" +
                               randomText(lettersS, 1) + ".*");
        for (int each = 0; each < 4; ++each) {
            words.push_back(randomText(lettersS, 3 + below(3)));
        }
        const std::string* const four = &words[words.size() - 4];
        set.patterns.push_back(".*(" + four[0] + "|" + four[1] + ").{0," + gap + "}(" + four[2] +
                               "|" + four[3] + ").*");
    }
    set.text = textsAround(std::move(words), true);
    return set;
}

std::string thousands(std::size_t number) {
    std::string text = std::to_string(number);
    for (std::size_t i = text.size(); i > 3;) text.insert(i -= 3, ",");
    return text;
}

class EngineMatcher : public Matcher {
public:
    const char* name() const override { return "Engine"; }

    bool build(const std::vector<std::string>& patterns) override {
        for (const std::string& pattern : patterns) {
            if (!engine_.insertPattern(pattern)) return false;
        }
        return engine_.finalSetup();
    }

    std::size_t matchAll(const std::vector<std::string_view>& texts) override {
        std::size_t count = 0;
        for (std::string_view text : texts) {
            count += engine_.process(text.data())->pathNumbers().size();
        }
        return count;
    }

    std::vector<std::int32_t> match(std::string_view text) override {
        return engine_.process(text)->pathNumbers();
    }

    std::string facts() const override {
        return thousands(engine_.stateCount()) + " states, " + thousands(engine_.memory()) +
               " bytes";
    }

private:
    FSM::Engine engine_;
};

class GroupMatcher : public Matcher {
public:
    explicit GroupMatcher(bool isBatched = false) : isBatched_(isBatched) {}
    const char* name() const override { return isBatched_ ? "matchAll" : "EngineGroup"; }

    bool build(const std::vector<std::string>& patterns) override {
        for (const std::string& pattern : patterns) {
            if (!group_.insertPattern(pattern)) return false;
        }
        return group_.finalSetup();
    }

    std::size_t matchAll(const std::vector<std::string_view>& texts) override {
        if (isBatched_) {
            group_.matchAll(texts, ends_, paths_);
            return paths_.size();
        }
        std::size_t count = 0;
        for (std::string_view text : texts) {
            group_.process(text, paths_);
            count += paths_.size();
        }
        return count;
    }

    std::vector<std::int32_t> match(std::string_view text) override {
        group_.process(text, paths_);
        return paths_;
    }

    std::string facts() const override {
        return std::to_string(group_.partCount()) + " parts, " + thousands(group_.stateCount()) +
               " states, " + thousands(group_.memory()) + " bytes";
    }

private:
    const bool isBatched_;
    FSM::EngineGroup group_;
    std::vector<std::size_t> ends_;
    std::vector<std::int32_t> paths_;
};

/// Texts one after the other, with a NUL after each.
struct Texts {
    Texts(const PatternSet& set, std::size_t count, std::size_t shortest, std::size_t longest) {
        std::vector<std::size_t> begins;
        for (std::size_t i = 0; i < count; ++i) {
            begins.push_back(bytes.size());
            bytes += set.text(shortest + below(longest - shortest + 1)) + '\0';
        }
        begins.push_back(bytes.size());
        for (std::size_t i = 0; i < count; ++i) {
            views.emplace_back(&bytes[begins[i]], begins[i + 1] - begins[i] - 1);
        }
    }

    std::string bytes;
    std::vector<std::string_view> views;
};

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/// The times of each round, in ns for each text, by matcher. In a round the matchers take turns, so
/// that a temporary slowdown of the machine affects all of them.
using Rounds = std::vector<std::vector<double>>;

Rounds nanoseconds(const std::vector<Matcher*>& matchers, const Texts& texts) {
    constexpr int rounds = 5;
    Rounds times(matchers.size());
    for (int round = 0; round <= rounds; ++round) {
        for (std::size_t i = 0; i < matchers.size(); ++i) {
            const double start = seconds();
            matchers[i]->matchAll(texts.views);
            // The first round warms up.
            if (round > 0) times[i].push_back((seconds() - start) / texts.views.size() * 1e9);
        }
    }
    return times;
}

/// The median over the rounds of the ratio of `other`'s time to that of `own`.
double ratio(const std::vector<double>& own, const std::vector<double>& other) {
    std::vector<double> ratios;
    for (std::size_t i = 0; i < own.size(); ++i) ratios.push_back(other[i] / own[i]);
    return median(ratios);
}

// False if the matchers do not agree.
bool measure(const PatternSet& set, std::size_t shortTexts, bool isPatient) {
    Texts shorts(set, shortTexts, 10, 60);
    Texts longs(set, 1000, 4096, 4096);

    std::vector<std::unique_ptr<Matcher>> matchers;
    matchers.push_back(std::make_unique<GroupMatcher>());
    if (!set.isSplit) matchers.push_back(std::make_unique<EngineMatcher>());
    if (std::string_view("mn").find(set.name[0]) != std::string_view::npos) {
        matchers.push_back(std::make_unique<GroupMatcher>(true));
    }
    const std::size_t ownCount = matchers.size();
    // The others take minutes, or fail.
    const bool isForOthers =
        isPatient || std::string_view("jJklmn").find(set.name[0]) == std::string_view::npos;
    for (MatcherFactory factory : otherMatchers()) {
        if (isForOthers) matchers.push_back(factory());
    }

    std::printf("%s\n", set.name);
    bool agrees = true;
    std::vector<Matcher*> built;
    std::vector<double> builds;
    for (auto& matcher : matchers) {
        std::vector<std::string> patterns = set.patterns;
        const bool isOwn = std::find(matchers.begin(), matchers.end(), matcher) - matchers.begin() <
                           static_cast<std::ptrdiff_t>(ownCount);
        if (isOwn && set.isNegated) {
            for (std::string& pattern : patterns) pattern.insert(0, "!");
        }
        const double start = seconds();
        if (matcher->build(patterns)) {
            built.push_back(matcher.get());
            builds.push_back((seconds() - start) * 1e3);
        } else {
            std::printf("  %-12s cannot build\n", matcher->name());
            agrees = agrees && !isOwn;
        }
    }
    if (!agrees) return false;
    const Rounds shortTimes = nanoseconds(built, shorts);
    const Rounds longTimes = nanoseconds(built, longs);
    for (std::size_t each = 0; each < built.size(); ++each) {
        Matcher* const matcher = built[each];
        const double shortTime = median(shortTimes[each]);
        const double longTime = median(longTimes[each]);
        if (each == 0) {
            std::printf(
                "  %-12s build %8.2f ms         short %6.0f ns        4 KiB %8.0f ns"
                "         %s\n",
                matcher->name(), builds[0], shortTime, longTime, matcher->facts().c_str());
        } else {
            std::printf(
                "  %-12s build %8.2f ms (%5.1fx) short %6.0f ns (%4.1fx) 4 KiB %8.0f ns "
                "(%5.1fx)\n",
                matcher->name(), builds[each], builds[each] / builds[0], shortTime,
                ratio(shortTimes[0], shortTimes[each]), longTime,
                ratio(longTimes[0], longTimes[each]));
            // All texts, put to all matchers one by one.
            for (const Texts* texts : {&shorts, &longs}) {
                std::size_t step = std::max<std::size_t>(1, texts->views.size() / 20000);
                for (std::size_t i = 0; i < texts->views.size() && agrees; i += step) {
                    std::vector<std::int32_t> own = built[0]->match(texts->views[i]);
                    std::vector<std::int32_t> other = matcher->match(texts->views[i]);
                    if (set.isNegated && each >= ownCount) {
                        std::vector<std::int32_t> rest;
                        for (int path = 0; path < static_cast<int>(set.patterns.size()); ++path) {
                            if (!std::binary_search(other.begin(), other.end(), path)) {
                                rest.push_back(path);
                            }
                        }
                        other = rest;
                    }
                    if (own == other) continue;
                    agrees = false;
                    std::printf("  DIFFERENT from %s on: %s\n", matcher->name(),
                                std::string(texts->views[i]).c_str());
                }
            }
        }
    }
    return agrees;
}

// Rows of eight words; in two of the columns each row has a prefix of its own.
void measureWideTable() {
    FSM::MultiEngine engine;
    constexpr std::size_t rows = 50000;
    constexpr std::size_t columns = 8;
    std::vector<std::string> own[2];
    const double start = seconds();
    for (std::size_t i = 0; i < rows; ++i) {
        std::vector<std::string> row;
        for (std::size_t column = 0; column < columns; ++column) {
            if (column == 2 || column == 5) {
                own[column / 3].push_back(randomText(digitsS, 5 + below(5)));
                row.push_back(own[column / 3].back() + ".*");
            } else {
                row.push_back(below(3) == 0 ? ".*" : "k" + std::to_string(below(20)) + ".*");
            }
        }
        engine.insertPatterns(row);
    }
    const bool isBuilt = engine.finalSetup();
    const double built = seconds();
    std::vector<std::string> words;
    for (std::size_t i = 0; i < rows; ++i) {
        const std::size_t row = below(rows);
        for (std::size_t column = 0; column < columns; ++column) {
            words.push_back(column == 2 || column == 5 ? own[column / 3][row] + "77"
                                                       : "k" + std::to_string(below(20)) + "x");
        }
    }
    const std::vector<std::string_view> views(words.begin(), words.end());
    std::vector<std::int32_t> paths;
    std::size_t matches = 0;
    const double matchStart = seconds();
    for (std::size_t i = 0; i < views.size(); i += columns) {
        engine.process({&views[i], columns}, paths);
        matches += paths.size();
    }
    std::printf(
        "50,000 rows of 8 patterns%s\n  MultiEngine  build %.1f ms, %s bytes; %.0f ns and "
        "%.2f matches a sequence\n",
        isBuilt ? "" : ": NOT BUILT", (built - start) * 1e3, thousands(engine.memory()).c_str(),
        (seconds() - matchStart) / rows * 1e9, static_cast<double>(matches) / rows);
}

void measureRatingTable() {
    FSM::MultiEngine engine;
    auto caller = [](std::size_t i) { return "49" + std::to_string(100 + i / 500); };
    auto called = [](std::size_t i) { return "00" + std::to_string(1000 + i / 4 % 125 * 71); };
    const char* const days[] = {"workday (0[89]|1[0-7])", "workday .*", "weekend .*", ".*"};
    constexpr std::size_t rows = 50000;
    double start = seconds();
    for (std::size_t i = 0; i < rows; ++i) {
        engine.insertPatterns({caller(i) + "[0-9]*", called(i) + "[0-9]{3,12}", days[i % 4]});
    }
    double inserted = seconds();
    bool isBuilt = engine.finalSetup();
    double built = seconds();
    std::vector<std::string> words;
    for (std::size_t i = 0; i < rows; ++i) {
        std::size_t row = below(rows);
        words.push_back(caller(row) + randomText(digitsS, 6));
        words.push_back(called(row) + randomText(digitsS, 6));
        words.push_back(row % 2 ? "workday 12" : "weekend 20");
    }
    std::vector<std::string_view> views(words.begin(), words.end());
    std::vector<std::int32_t> paths;
    std::size_t matches = 0;
    double matchStart = seconds();
    for (int round = 0; round < 10; ++round) {
        for (std::size_t i = 0; i < views.size(); i += 3) {
            engine.process({&views[i], 3}, paths);
            matches += paths.size();
        }
    }
    double matched = seconds();
    std::printf(
        "rating table of 50,000 rows of 3 patterns%s\n"
        "  MultiEngine  insert %.1f ms, build %.1f ms, %s states, %s bytes; "
        "%.0f ns and %.1f matches a sequence\n",
        isBuilt ? "" : ": NOT BUILT", (inserted - start) * 1e3, (built - inserted) * 1e3,
        thousands(engine.stateCount()).c_str(), thousands(engine.memory()).c_str(),
        (matched - matchStart) / 10 / rows * 1e9, matches / 10.0 / rows);
}

}  // namespace

int main(int argc, char** argv) {
    std::size_t shortTexts = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 1000000;
    bool agrees = true;
    const std::string_view sets = argc > 2 ? argv[2] : "abcd8efghirs";
    const std::pair<char, std::function<PatternSet()>> all[] = {
        {'a', telephoneNumbers},
        {'b', productsAndAddresses},
        {'c', literals},
        {'d', [] { return infixes("d: 50 infixes between wild cards", 50); }},
        {'8', [] { return infixes("8: 8 infixes between wild cards", 8); }},
        {'e', negations},
        {'f', [] { return manyLiterals("f: 30,000 literals", 30000); }},
        {'g', [] { return manyLiterals("g: 100,000 literals", 100000); }},
        {'h', [] { return manyWords("h: 30,000 word.*", 30000, 6, 14, ""); }},
        {'i', [] { return manyWords("i: 100,000 word.*", 100000, 6, 14, ""); }},
        {'j', [] { return manyWords("j: 20,000 .*word.*", 20000, 5, 9, ".*"); }},
        {'J', [] { return manyWords("J: 100,000 .*word.*", 100000, 5, 9, ".*"); }},
        {'k', pairs},
        {'l', exploding},
        {'m', [] { return manyLiterals("m: 1,000,000 literals", 1000000); }},
        {'n', [] { return manyWords("n: 1,000,000 word.*", 1000000, 6, 14, ""); }},
    };
    for (const auto& [letter, makeSet] : all) {
        if (sets.find(letter) == std::string_view::npos) continue;
        randomS.seed(42);
        agrees = measure(makeSet(), shortTexts, argc > 3) && agrees;
    }
    if (sets.find('r') != std::string_view::npos) {
        measureRatingTable();
        measureWideTable();
    }
    if (sets.find('s') != std::string_view::npos) agrees = measureSearches() && agrees;
    return agrees ? 0 : 1;
}

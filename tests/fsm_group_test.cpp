// Pattern lists split over several automata, and rows of patterns matched with word sequences.

#include <regex>

#include "Folder.h"
#include "Test.h"
#include "fsm/Analysis.h"
#include "fsm/Engine.h"
#include "fsm/EngineGroup.h"
#include "fsm/MultiEngine.h"
#include "fsm/store/SavedFile.h"
#include "fsm/store/SharedGroup.h"
#include "fsm_reference.h"

namespace {

using FSM::Engine;
using FSM::EngineGroup;
using FSM::MultiEngine;
using Paths = std::vector<std::int32_t>;
using Words = std::vector<std::string_view>;

template <class MultiEngineClass, class Input>
Paths processed(const MultiEngineClass& engine, const Input& input) {
    Paths paths{-7};
    engine.process(input, paths);
    EXPECT_EQ(engine.firstPath(input), paths.empty() ? -1 : paths[0]);
    return paths;
}

// Lists with many wild-card tails, which a group keeps apart, mixed with other patterns.
TEST(FsmGroup, TailsAmongRandomPatterns) {
    reference::RandomPatterns random(5);
    int listsApart = 0;
    for (int round = 0; round < 150; ++round) {
        EngineGroup group;
        std::vector<reference::Pattern> patterns;
        std::string all;
        auto insert = [&](const std::string& pattern) {
            ASSERT_TRUE(group.insertPattern(pattern)) << pattern;
            patterns.push_back(std::move(*reference::Parser::parse(pattern)));
            all.append(pattern).append("  ");
        };
        const char* const heads[] = {".*", ".*", ".*", "[^a]*", "(.|\n)*", "!.*", "a|.*"};
        const char* const tails[] = {".*", ".*", ".*", ".+", ".*.*", ".*|b", "(.|\n)*"};
        const bool isWords = round % 3 == 0;  // between wild cards, all of them
        for (int i = 0; i < 14; ++i) {
            std::string pattern = heads[isWords ? 0 : random.below(std::size(heads))];
            for (std::size_t n = random.below(3) + 2; n > 0; --n) {
                pattern += "abcabcabc\n"[random.below(isWords ? 9 : 10)];
            }
            insert(pattern.append(tails[isWords ? 0 : random.below(std::size(tails))]));
            if (!isWords && random.below(5) == 0) insert(random.below(2) == 0 ? "!a" : "b*");
        }
        ASSERT_TRUE(group.finalSetup()) << group.error();
        listsApart += group.partCount() == 1 && !FSM::analyse(group).has_value();
        for (int i = 0; i < 200; ++i) {
            std::string text;
            for (std::size_t n = random.below(40); n > 0; --n) {
                text += "abcabcabcabcd\n"[random.below(14)];
            }
            ASSERT_EQ(processed(group, text), reference::report(patterns, text))
                << all << "and " << testing::PrintToString(text);
        }
    }
    EXPECT_GT(listsApart, 100);
}

// Words at a distance in texts of any length, saved and loaded, against another matcher.
TEST(FsmGroup, CountedBytes) {
    const Harness::Folder folder;
    reference::RandomPatterns random(8);
    const auto oneOf = [&](const auto& pieces) { return pieces[random.below(std::size(pieces))]; };
    std::size_t matches = 0;
    for (int round = 0; round < 60; ++round) {
        EngineGroup group;
        std::vector<std::regex> patterns;
        for (int i = 0; i < 6; ++i) {
            const char* const words[] = {"a", "b", "ab", "(ab|ba)", "[ab]c", "c*a", "(a|b)[bc]?"};
            const char* const gaps[] = {".{9}",     ".{8,20}", ".{0,40}", ".*", ".{70}",
                                        ".{3,130}", "[ab]*",   ".?",      ".+"};
            std::string pattern = std::string(i == 0 ? ".{0,9}" : ".*") + oneOf(words);
            for (std::size_t n = random.below(3) + 1; n > 0; --n) {
                pattern.append(oneOf(gaps)).append(oneOf(words));
            }
            pattern += random.below(2) == 0 ? ".*" : "";
            ASSERT_TRUE(group.insertPattern(pattern));
            patterns.emplace_back(pattern);
        }
        ASSERT_TRUE(group.finalSetup()) << group.error();
        EngineGroup loaded;
        FND::String error;
        ASSERT_TRUE(group.save(folder.path() + "/counted", error)) << error;
        ASSERT_TRUE(loaded.load(folder.path() + "/counted")) << loaded.error();
        for (int i = 0; i < 25; ++i) {
            std::string text;
            const std::size_t length = i < 4 ? 62 + i : random.below(220);
            while (text.size() < length) {
                // Runs go on from one word of places to the next.
                text.append(random.below(20) == 0 ? random.below(40) : 1,
                            "abcccddd"[random.below(8)]);
            }
            if (length > 0 && random.below(8) == 0) text[random.below(length)] = '\n';
            Paths expected;
            for (std::int32_t path = 0; path < std::ssize(patterns); ++path) {
                if (std::regex_match(text, patterns[static_cast<std::size_t>(path)]))
                    expected.push_back(path);
            }
            ASSERT_EQ(processed(group, text), expected) << round << ' ' << text;
            ASSERT_EQ(processed(loaded, text), expected) << round << ' ' << text;
            matches += expected.size();
        }
    }
    EXPECT_GT(matches, 1000U);
}

// A few words in texts of which most bytes begin none of them.
TEST(FsmGroup, WordsInLongTexts) {
    reference::RandomPatterns random(3);
    const auto letters = [&](std::size_t length) {
        std::string text;
        while (text.size() < length) text += static_cast<char>('a' + random.below(20));
        return text;
    };
    for (int round = 0; round < 120; ++round) {
        EngineGroup group;
        FSM::Engine engine;
        std::vector<std::string> words;
        for (std::int32_t i = 0; i < 2 + round % 8; ++i) {
            words.push_back(letters(1 + random.below(round % 3 == 0 ? 2 : 5)));
            const char* const kinds[][2] = {{".*", ".*"},  {".*", ""},  {"", ".*"},
                                            {"!.*", ".*"}, {"!.*", ""}, {"!", ".*"}};
            const auto& kind = kinds[i % (round % 2 == 0 ? 6 : 1)];
            ASSERT_TRUE(group.insertPattern(kind[0] + words.back() + kind[1]));
            ASSERT_TRUE(engine.addPattern(kind[0] + words.back() + kind[1]));
        }
        ASSERT_TRUE(group.finalSetup() && engine.finalSetup());
        for (int i = 0; i < 100; ++i) {
            std::string text;
            for (std::size_t n = random.below(10); n > 0; --n) {
                const std::string& word = words[random.below(words.size())];
                text.append(letters(random.below(20)), 0).append(word, random.below(2));
                if (random.below(40) == 0) text += random.below(2) == 0 ? '\n' : '\0';
            }
            const std::string line = text.substr(0, text.find('\0'));
            Paths expected;
            for (std::int32_t path = 0; path < std::ssize(words); ++path) {
                const std::string& word = words[static_cast<std::size_t>(path)];
                const int kind = round % 2 == 0 ? path % 6 : 0;
                const bool isFound = kind % 3 == 0   ? line.find(word) != std::string::npos
                                     : kind % 3 == 1 ? line.ends_with(word)
                                                     : line.starts_with(word);
                const bool matches = isFound && line.find('\n') == std::string::npos;
                if (matches != (kind >= 3)) expected.push_back(path);
            }
            ASSERT_EQ(processed(group, text), expected) << round << ' ' << text;
            ASSERT_EQ(engine.process(std::string_view(text))->pathNumbers(), expected) << text;
        }
    }
}

TEST(FsmGroup, Failures) {
    EngineGroup group;
    EXPECT_EQ(processed(group, std::string("a")), Paths{});
    EXPECT_TRUE(group.finalSetup());
    EXPECT_FALSE(group.insertPatterns({"a", "b"}));
    EXPECT_EQ(group.error(), "a row of an engine group has one pattern, not 2");
    EXPECT_TRUE(group.insertPatterns({"a"}, 5));
    group.stateLimit(30);
    EXPECT_TRUE(group.insertPattern("(a|b)*a(a|b){20}", 8));
    EXPECT_FALSE(group.finalSetup());
    EXPECT_EQ(group.guiltyPath(), 8);
    EXPECT_EQ(group.error(), "limit of 30 states passed at pattern 8: (a|b)*a(a|b){20}");
    EXPECT_EQ(processed(group, std::string("a")), Paths{});
    EXPECT_FALSE(group.insertPattern("a"));
    EXPECT_EQ(group.error(), "no pattern may be inserted after finalSetup");
    EXPECT_FALSE(group.finalSetup());
    EXPECT_EQ(group.error(), "limit of 30 states passed at pattern 8: (a|b)*a(a|b){20}");
    group.clear();
    EXPECT_TRUE(group.insertPattern("a"));
    EXPECT_TRUE(group.finalSetup());
    EXPECT_EQ(processed(group, Words{"a"}), Paths{0});
    EXPECT_EQ(processed(group, Words{"a", "a"}), Paths{});
    // More moves than the work allows.
    EngineGroup busy;
    busy.workLimit(10000);
    EXPECT_TRUE(busy.insertPattern("x.*") && busy.insertPattern("(a|b)*a(a|b){300}"));
    EXPECT_FALSE(busy.finalSetup());
    EXPECT_EQ(busy.error(), "limit of 10000 steps of work passed at pattern 1: (a|b)*a(a|b){300}");
    // Words that need an automaton, as one of the patterns matches "".
    EngineGroup words;
    words.byteLimit(200'000);
    EXPECT_TRUE(words.insertPattern("x*"));
    for (int i = 0; i < 400; ++i) {
        EXPECT_TRUE(words.insertPattern("w" + std::to_string(i) + ".*b"));
    }
    EXPECT_FALSE(words.finalSetup());
    EXPECT_EQ(words.error().substr(0, 39), "limit of 200000 bytes passed at pattern");
    MultiEngine rows;
    rows.stateLimit(30);
    EXPECT_TRUE(rows.insertPatterns({"a", "a"}, 4) && rows.insertPatterns({"a", "a"}, 5));
    EXPECT_TRUE(rows.insertPatterns({"b", "(a|b)*a(a|b){20}"}, 7));
    EXPECT_FALSE(rows.finalSetup());
    EXPECT_EQ(rows.guiltyPath(), 7);
    // Too many places for bits, but few states of an automaton that passes the limit of a part.
    EngineGroup tight;
    tight.partLimit(1);
    tight.stateLimit(8);
    EXPECT_TRUE(tight.insertPattern("(a|b|c|d|e|f)*x"));
    EXPECT_TRUE(tight.finalSetup()) << tight.error();
    EXPECT_EQ(processed(tight, std::string("abx")), Paths{0});
}

// Words one right after the other, and such as share bytes.
TEST(FsmGroup, WordsInOrder) {
    EngineGroup group;
    group.partLimit(1);
    std::vector<reference::Pattern> patterns;
    for (const char* pattern : {".*ab.*c.*", "a.*bc", ".*ab.*ba.*", ".*b.*b.*b", ".*a.*abcb.*"}) {
        ASSERT_TRUE(group.insertPattern(pattern));
        patterns.push_back(std::move(*reference::Parser::parse(pattern)));
    }
    ASSERT_TRUE(group.finalSetup());
    for (const std::string& text : reference::textsOf("abc", 7)) {
        ASSERT_EQ(processed(group, text), reference::report(patterns, text)) << text;
    }
}

// Letters in both cases neither count bytes nor make an automaton explode.
TEST(FsmGroup, CasesStayTogether) {
    EngineGroup group;
    group.options({.ignoresCase = true});
    for (char c = 'a'; c <= 'z'; ++c) {
        ASSERT_TRUE(group.insertPattern(std::string(".*some").append(2, c) + "words[0-9].*"));
    }
    ASSERT_TRUE(group.finalSetup());
    EXPECT_EQ(group.partCount(), 1U);
    EXPECT_EQ(processed(group, std::string("1SoMeBbWORDS2 sOmeZZwords3")), (Paths{1, 25}));
}

// Long lists whose loops over characters go byte by byte, against an engine for each pattern.
TEST(FsmGroup, LoopsOverCharacters) {
    const FSM::PatternOptions characters{.isUtf8 = true};
    reference::RandomPatterns random(9);
    const std::string kinds[] = {
        ".*W[0-9].*", ".*W.*",       "[^x]*W.+",        "!.*W[^5]*W", ".*W.[\u00e9-\u0436]+",
        "W.*\u0436",  "(.|\n)*W.*W", ".+W.?[^\u00e9]*", ".*W.{2}W.*"};
    const std::string pieces[] = {"5",    "x",    "\u00e9", "\u0436",       "\U0001d11e", "\n",
                                  "\xc3", "\xa9", "\xff",   "\xf0\x9d\x84", "ab",         "ba"};
    for (int round = 0; round < 12; ++round) {
        EngineGroup group;
        group.options(characters);
        std::vector<std::unique_ptr<Engine>> engines;
        std::vector<std::string> words;
        for (int i = 0; i < 60; ++i) {
            words.emplace_back(random.below(6) == 0 ? "\u00e9" : "");
            for (int n = 0; n < 3; ++n) words.back() += "abc"[random.below(3)];
            std::string pattern = kinds[round < 9 ? round : random.below(std::size(kinds))];
            for (std::size_t at; (at = pattern.find('W')) != std::string::npos;) {
                pattern.replace(at, 1, words[random.below(words.size())]);
            }
            ASSERT_TRUE(group.insertPattern(pattern)) << pattern << ": " << group.error();
            engines.push_back(std::make_unique<Engine>(1));
            engines.back()->options(characters);
            ASSERT_TRUE(engines.back()->insertPattern(pattern));
            ASSERT_TRUE(engines.back()->finalSetup());
        }
        ASSERT_TRUE(group.finalSetup()) << group.error();
        for (int i = 0; i < 150; ++i) {
            std::string text;
            const std::size_t known = random.below(2) == 0 ? 6 : std::size(pieces);
            for (std::size_t n = random.below(9); n > 0; --n) {
                text += random.below(2) == 0 ? words[random.below(words.size())]
                                             : pieces[random.below(known)];
            }
            Paths expected;
            for (std::size_t path = 0; path < engines.size(); ++path) {
                if (engines[path]->process(std::string_view(text))->pathNumbers().size() == 1) {
                    expected.push_back(static_cast<std::int32_t>(path));
                }
            }
            ASSERT_EQ(processed(group, std::string_view(text)), expected)
                << round << ' ' << testing::PrintToString(text);
        }
    }
}

TEST(FsmGroup, ChangesMasksAndBatches) {
    EngineGroup group;
    group.isChangeable(true);
    for (const char* pattern : {"a.*", "ab", ".*b", "!b*"}) {
        ASSERT_TRUE(group.insertPattern(pattern));
    }
    ASSERT_TRUE(group.finalSetup());
    EXPECT_EQ(processed(group, std::string("ab")), (Paths{0, 1, 2, 3}));
    EXPECT_TRUE(group.insertPattern("[ab]+"));
    EXPECT_EQ(group.removePatterns(1), 1U);
    EXPECT_EQ(processed(group, std::string("ab")), (Paths{0, 1, 2, 3}));
    ASSERT_TRUE(group.finalSetup());
    EXPECT_EQ(processed(group, std::string("ab")), (Paths{0, 2, 3, 4}));
    Paths paths;
    group.process("ab", {true, true, true}, paths);
    EXPECT_EQ(paths, (Paths{0, 2}));
    const Words texts{"ab", "", "\n", "ba"};
    std::vector<std::size_t> ends;
    group.matchAll(texts, ends, paths);
    Paths joined;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        const Paths each = processed(group, texts[i]);
        joined.insert(joined.end(), each.begin(), each.end());
        EXPECT_EQ(ends[i], joined.size());
    }
    EXPECT_EQ(paths, joined);
    EXPECT_TRUE(group.insertPattern("c"));
    group.byteLimit(1);
    EXPECT_FALSE(group.finalSetup());
    EXPECT_EQ(processed(group, std::string("ab")), (Paths{0, 2, 3, 4}));
    EXPECT_EQ(group.removePatterns(5), 1U);
    for (const std::int32_t path : {0, 2, 3, 4}) EXPECT_EQ(group.removePatterns(path), 1U);
    EXPECT_TRUE(group.finalSetup());
    EXPECT_EQ(processed(group, std::string("ab")), Paths{});
}

// A group that is changed again and again, also after it is saved, against one made at once.
TEST(FsmGroup, RandomChanges) {
    const Harness::Folder folder;
    const std::vector<std::string> texts = reference::textsOf("abc\n", 4);
    reference::RandomPatterns random(21);
    for (int round = 0; round < 12; ++round) {
        EngineGroup group;
        group.isChangeable(true);
        group.options({.leavesByTextbook = round % 2 == 0});
        std::multimap<std::int32_t, std::string> patterns;
        for (int step = 0; step < 8; ++step) {
            for (std::size_t n = random.below(step == 0 ? 20 : 3); n > 0; --n) {
                const auto path = static_cast<std::int32_t>(random.below(30));
                const std::string word = "a" + random.pattern();
                const std::string& pattern = patterns.emplace(path, word)->second;
                ASSERT_TRUE(group.insertPattern(pattern, static_cast<unsigned long>(path)));
            }
            const auto removed = static_cast<std::int32_t>(random.below(30));
            EXPECT_EQ(group.removePatterns(removed), patterns.erase(removed));
            EngineGroup fresh;
            fresh.options(group.options());
            for (const auto& [path, pattern] : patterns)
                fresh.insertPattern(pattern, static_cast<unsigned long>(path));
            ASSERT_TRUE(group.finalSetup() && fresh.finalSetup());
            FND::String error;
            EngineGroup loaded;
            const bool isSaved = group.save(folder.path() + "/changed", error);
            EXPECT_NE(isSaved, patterns.empty());
            EXPECT_TRUE(!isSaved || loaded.load(folder.path() + "/changed")) << loaded.error();
            for (const std::string& text : texts) {
                const Paths expected = processed(fresh, text);
                ASSERT_EQ(processed(group, text), expected) << round << ' ' << step;
                ASSERT_TRUE(!isSaved || processed(loaded, text) == expected) << round;
            }
        }
    }
}

// Equal lists are shared while somebody holds them, and each holder is charged.
TEST(FsmGroup, Shared) {
    struct Counted final : FSM::Budget {
        void take(std::size_t more) override { bytes += more; }
        void give(std::size_t fewer) noexcept override { bytes -= fewer; }
        void work(std::size_t) override {}
        std::size_t bytes = 0;
    };
    const auto taken = [](FSM::SharedGroup& shared, FSM::Budget& budget, const char* last,
                          const FSM::PatternOptions& options = {}) {
        const FSM::BudgetScope scope(&budget);
        auto list = std::make_unique<EngineGroup>();
        list->options(options);
        list->stateLimit(1000);
        EXPECT_TRUE(list->insertPattern("[ab]c") && list->insertPattern(last));
        FND::String error;
        return shared.take(std::move(list), error) ? "" : error;
    };
    Counted first, second, third;
    {
        FSM::SharedGroup one, other, different, refused;
        EXPECT_EQ(taken(one, first, "[xy]z"), "");
        EXPECT_EQ(taken(other, second, "[xy]z"), "");
        EXPECT_EQ(taken(different, third, "[xy]z", {.ignoresCase = true}), "");
        EXPECT_EQ(&*one, &*other);
        EXPECT_NE(&*one, &*different);
        EXPECT_EQ(first.bytes, second.bytes);
        EXPECT_GT(first.bytes, one->memory());
        EXPECT_NE(taken(refused, third, "(a|b)*a(a|b){2000}"), "");
        EXPECT_FALSE(refused);
        one = FSM::SharedGroup();
        EXPECT_EQ(first.bytes, 0U);
        EXPECT_EQ(other->firstPath("yz"), 1);
    }
    EXPECT_EQ(second.bytes + third.bytes, 0U);
}

// Saved groups of all kinds of parts. What is changed in a file is refused, or does no harm.
TEST(FsmGroup, SavedAndLoaded) {
    const Harness::Folder folder;
    const std::string file = folder.path() + "/saved";
    reference::RandomPatterns random(9);
    int refused = 0;
    for (int round = 0; round < 60; ++round) {
        EngineGroup group;
        group.options({.ignoresCase = round % 4 == 0,
                       .isUtf8 = round % 5 == 0,
                       .leavesByTextbook = round % 3 == 0});
        group.partLimit(random.below(3) * 9);
        const char* const texts[] = {"ab", "abc.*", ".*bca.*", ".*ab.*c.*", ".*a.{9}b"};
        for (std::size_t n = random.below(20) + 1; n > 0; --n) {
            const std::string pattern = random.pattern();
            group.insertPattern(n % 2 == 0 ? pattern : pattern + "|" + texts[random.below(5)]);
            group.insertPattern(texts[random.below(5)] + std::string(random.below(9), 'c'));
        }
        ASSERT_TRUE(group.finalSetup());
        FND::String error;
        ASSERT_TRUE(group.save(file, error)) << error;
        EngineGroup loaded;
        ASSERT_TRUE(loaded.load(file)) << loaded.error();
        EXPECT_FALSE(loaded.insertPattern("a") || loaded.load(file));
        EXPECT_EQ(loaded.options(), group.options());
        FSM::SavedFile saved;
        ASSERT_EQ(saved.map(file, 'g'), "");
        std::string content(saved.content());
        for (std::size_t n = random.below(4) + 1; n > 0; --n) {
            content[random.below(content.size())] ^= static_cast<char>(1 << random.below(8));
        }
        ASSERT_EQ(FSM::SavedFile::write(file + "2", content, 'g'), "");
        EngineGroup changed;
        const bool isTaken = changed.load(file + "2");
        EXPECT_NE(isTaken, changed.error() == file + "2: damaged");
        refused += isTaken ? 0 : 1;
        for (const std::string& text : reference::textsOf("abc\n", 4)) {
            ASSERT_EQ(processed(loaded, text), processed(group, text));
            Paths paths;
            changed.process(text, paths);
        }
    }
    EXPECT_GT(refused, 5);
    EngineGroup wrong;
    EXPECT_FALSE(wrong.load(folder.path()));
    EXPECT_EQ(wrong.error(), folder.path() + ": not a file of patterns");
}

TEST(FsmMultiEngine, Rows) {
    MultiEngine engine;
    EXPECT_TRUE(engine.insertPatterns({"a*", "b", "c"}));
    EXPECT_TRUE(engine.insertPatterns({"a", "!b"}));
    EXPECT_TRUE(engine.insertPatterns({"a", "b"}));
    EXPECT_TRUE(engine.insertPatterns({"a", "b"}, 1));
    EXPECT_TRUE(engine.insertPatterns({"!a"}, 70));
    EXPECT_TRUE(engine.insertPatterns({".", ".", "."}, 7));
    EXPECT_FALSE(engine.insertPatterns({}));
    EXPECT_EQ(engine.error(), "a row has 1 to 32 patterns, not 0");
    EXPECT_FALSE(engine.insertPatterns(std::vector<std::string>(33, "a")));
    testing::internal::CaptureStdout();
    EXPECT_FALSE(engine.insertPatterns({"new", "(", "c"}));
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(engine.error(), "row 6, pattern 2: unexpected end of pattern");
    EXPECT_EQ(processed(engine, Words{"a"}), Paths{});
    ASSERT_TRUE(engine.finalSetup()) << engine.error();
    EXPECT_FALSE(engine.insertPatterns({"a"}));
    struct Case {
        Words words;
        Paths paths;
    };
    const Case cases[] = {{{}, {}},
                          {{"a"}, {}},
                          {{""}, {70}},
                          {{"a", "b"}, {1, 2}},
                          {{"a", "c"}, {1}},
                          {{"a", "b", "c"}, {0, 7}},
                          {{"", "b", "c"}, {0}},
                          {{"x", "b", "c"}, {7}},
                          {{"xx", "b", "c"}, {}},
                          {{"a", "b", "c", "d"}, {}}};
    for (const Case& c : cases) {
        EXPECT_EQ(processed(engine, c.words), c.paths) << testing::PrintToString(c.words);
    }
}

// Rows whose second word makes an automaton that is split, against matching each pattern by itself.
TEST(FsmMultiEngine, RandomRows) {
    reference::RandomPatterns random(11);
    const std::vector<std::string> texts = reference::textsOf("abc\n", 3);
    for (int round = 0; round < 20; ++round) {
        MultiEngine engine;
        std::vector<std::vector<reference::Pattern>> rows;
        for (int i = 0; i < 40; ++i) {
            std::vector<std::string> patterns;
            for (std::size_t n = random.below(3) + 1; n > 0; --n) {
                std::string pattern = random.pattern();
                if (pattern.size() > 12) pattern = "[ab]*";
                if (patterns.size() == 1)
                    pattern.append("|.*").append(1 + i % 5, 'a').append(".*c");
                patterns.push_back(pattern);
            }
            ASSERT_TRUE(engine.insertPatterns(patterns));
            rows.emplace_back();
            for (const std::string& pattern : patterns) {
                rows.back().push_back(std::move(*reference::Parser::parse(pattern)));
            }
        }
        ASSERT_TRUE(engine.finalSetup()) << engine.error();
        for (int i = 0; i < 300; ++i) {
            Words words;
            for (std::size_t n = random.below(3) + 1; n > 0; --n) {
                words.push_back(texts[random.below(texts.size())]);
            }
            Paths expected;
            for (std::size_t row = 0; row < rows.size(); ++row) {
                bool matches = rows[row].size() == words.size();
                for (std::size_t w = 0; matches && w < words.size(); ++w) {
                    const reference::Pattern& pattern = rows[row][w];
                    matches = reference::Matcher::match(*pattern.root, words[w]).matches !=
                              pattern.isNegated;
                }
                if (matches) expected.push_back(static_cast<std::int32_t>(row));
            }
            ASSERT_EQ(processed(engine, words), expected) << testing::PrintToString(words);
        }
    }
}

}  // namespace

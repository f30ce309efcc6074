// The engine's interface: what it reports, its limits and its failures.

#include "Folder.h"
#include "Test.h"
#include "fsm/Engine.h"
#include "fsm/store/SavedFile.h"
#include "fsm/table/WindowScan.h"
#include "fsm_reference.h"

namespace {

using FSM::Engine;
using Paths = std::vector<std::int32_t>;

std::unique_ptr<Engine> engineOf(const std::vector<std::string>& patterns) {
    auto engine = std::make_unique<Engine>(static_cast<unsigned>(patterns.size()));
    for (const std::string& pattern : patterns) {
        EXPECT_TRUE(engine->insertPattern(pattern)) << pattern << ": " << engine->error();
    }
    EXPECT_TRUE(engine->finalSetup()) << engine->error();
    return engine;
}

TEST(FsmEngine, LineLoopsAtAllAlignments) {
    auto engine = engineOf({"a.*", "a[^x]*b", ".*\n.*c"});
    for (std::size_t start = 0; start < 32; ++start) {
        for (std::size_t length = 0; length < 70; ++length) {
            std::string text = std::string(start, '\n').append("a").append(length, 'd');
            for (std::string tail : {"", "b", "\n", "\nc", "d\nb"}) {
                std::string whole = text + tail;
                const char* view = whole.c_str() + start;
                bool hasNewline = tail.find('\n') != std::string::npos;
                Paths expected;
                if (!hasNewline) expected.push_back(0);
                if (!tail.empty() && tail.back() == 'b') expected.push_back(1);
                if (tail == "\nc") expected.push_back(2);
                ASSERT_EQ(engine->process(view)->pathNumbers(), expected) << view;
                ASSERT_EQ(engine->process(std::string_view(view))->pathNumbers(), expected) << view;
            }
        }
    }
}

// Each width gives the place that a look at one after the other gives, and reads no byte more.
TEST(FsmEngine, WindowsOfEachWidth) {
    using FSM::WindowScan;
    using namespace std::string_view_literals;
    FSM::Vector<WindowScan::Product> products(2);
    const char* const words[] = {"cat", "dOg"};
    for (std::size_t i = 0; i < 6; ++i) {
        products[i / 3][i % 3].set(static_cast<unsigned char>(words[i / 3][i % 3]));
    }
    const WindowScan scan(products);
    const auto passes = [&](std::string_view at) {
        return at.starts_with(words[0]) || at.starts_with(words[1]);
    };
    for (const auto width : {WindowScan::Width::Narrow, WindowScan::Width::Wide}) {
        if (width > WindowScan::mostWidth()) continue;
        const auto least = static_cast<std::size_t>(WindowScan::leastSize(width));
        for (std::size_t size = least; size < 150; ++size) {
            for (std::size_t place = 0; place + 3 <= size; ++place) {
                for (const std::string_view what : {"cat"sv, "dOg"sv, "cOt"sv, "\0xx"sv}) {
                    const std::unique_ptr<char[]> bytes(new char[size]);
                    std::string text(size, place % 2 == 0 ? 'c' : 'a');
                    text.replace(place, what.size(), what);
                    text.copy(bytes.get(), size);
                    const auto* const begin = reinterpret_cast<unsigned char*>(bytes.get());
                    for (const bool takesNul : {false, true}) {
                        std::size_t expected = 0;
                        while (expected + 2 < size && !passes(text.substr(expected)) &&
                               (takesNul || text[expected + 2] != '\0')) {
                            ++expected;
                        }
                        if (!takesNul && text.substr(0, 2).find('\0') != std::string::npos) {
                            expected = 0;
                        }
                        const auto found = scan.skip(begin, begin + size, takesNul, width) - begin;
                        ASSERT_EQ(found, static_cast<std::ptrdiff_t>(expected))
                            << size << ' ' << place << ' ' << what << ' ' << takesNul;
                    }
                }
            }
        }
    }
}

TEST(FsmEngine, PathNumbers) {
    Engine engine;
    EXPECT_EQ(engine.process("a"), nullptr);
    EXPECT_TRUE(engine.finalSetup());
    EXPECT_EQ(engine.process("a"), nullptr);
    EXPECT_EQ(engine.firstPath("a"), -1);
    EXPECT_TRUE(engine.insertPattern("a", 2147483647));
    EXPECT_EQ(engine.process("a"), nullptr);
    EXPECT_TRUE(engine.insertPattern("a"));
    EXPECT_TRUE(engine.insertPattern("a|b", 7));
    EXPECT_TRUE(engine.insertPattern("b", 7));
    EXPECT_TRUE(engine.insertPattern("!c", 5));
    EXPECT_FALSE(engine.insertPattern("a", 2147483648));
    EXPECT_EQ(engine.error(), "path number 2147483648 is above 2147483647");
    EXPECT_EQ(engine.patternCount(), 5);
    EXPECT_EQ(engine.pathString(), "1 5 7 2147483647");
    ASSERT_TRUE(engine.finalSetup());
    EXPECT_EQ(engine.process("a")->pathNumbers(), (Paths{1, 5, 7, 2147483647}));
    EXPECT_EQ(engine.process("a")->pathString(), "1 5 7 2147483647");
    EXPECT_EQ(engine.firstPath("b"), 5);
    EXPECT_EQ(engine.process("c")->pathNumbers(), Paths{});
    std::vector<bool> bits(3, true);
    engine.process("b")->pathNumbers(bits);
    EXPECT_EQ(bits, (std::vector<bool>{false, false, false, false, false, true, false, true}));

    EXPECT_FALSE(engine.insertPattern("a"));
    EXPECT_EQ(engine.error(), "no pattern may be inserted after finalSetup");
    EXPECT_TRUE(engine.finalSetup());
    engine.clear();
    EXPECT_EQ(engine.error(), "");
    EXPECT_EQ(engine.process("a"), nullptr);
    EXPECT_TRUE(engine.insertPattern("z"));
    EXPECT_TRUE(engine.finalSetup());
    EXPECT_EQ(engine.firstPath("z"), 0);
}

TEST(FsmEngine, RefusedPattern) {
    Engine engine;
    testing::internal::CaptureStdout();
    EXPECT_FALSE(engine.insertPattern("a(b|(c"));
    EXPECT_FALSE(engine.insertPattern("[a.]", 3));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "FSM:Engine:insertPattern error=unexpected end of pattern\n"
              "FSM:Engine:insertPattern pattern=a(b|(c, pathNumber=18446744073709551615\n"
              "FSM:Engine:insertPattern error=parse error near .\n"
              "FSM:Engine:insertPattern pattern=[a.], pathNumber=3\n");
    EXPECT_EQ(engine.error(), "parse error near .");
    EXPECT_TRUE(engine.insertPattern("ab"));
    EXPECT_TRUE(engine.finalSetup());
    EXPECT_EQ(engine.process("ab")->pathNumbers(), Paths{0});
}

TEST(FsmEngine, StateLimit) {
    std::vector<std::string> patterns;
    for (char c = 'a'; c <= 'l'; ++c) patterns.push_back(std::string(".*").append(1, c) + "x.*");
    patterns[2] = "!.*.*c";
    Engine engine;
    engine.stateLimit(1000);
    for (const std::string& pattern : patterns) ASSERT_TRUE(engine.insertPattern(pattern));
    EXPECT_FALSE(engine.finalSetup());
    std::int32_t guilty = engine.guiltyPath();
    ASSERT_GT(guilty, 5);
    EXPECT_EQ(engine.error(), "limit of 1000 states passed at pattern " + std::to_string(guilty) +
                                  ": " + patterns[guilty]);
    EXPECT_EQ(engine.process("ax"), nullptr);
    EXPECT_FALSE(engine.finalSetup());
    EXPECT_EQ(engine.memory(), 0u);

    // The patterns before the guilty one fit; with it they do not.
    for (int more = 0; more < 2; ++more) {
        engine.clear();
        EXPECT_EQ(engine.guiltyPath(), -1);
        for (std::int32_t i = 0; i < guilty + more; ++i) engine.insertPattern(patterns[i]);
        EXPECT_EQ(engine.finalSetup(), more == 0);
    }
}

TEST(FsmEngine, LimitsNameTheGuilty) {
    std::vector<std::string> infixes, negated;
    for (char c = 'a'; c <= 'o'; ++c) {
        infixes.push_back(std::string(".*").append(1, c) + "x.*");
        for (char d = 'a'; d <= 'v'; ++d) negated.push_back({'!', c, d});
    }
    struct Case {
        std::vector<std::string> patterns;
        std::size_t states, bytes, work;
        std::int32_t leastGuilty, mostGuilty;
        const char* error;
    };
    constexpr std::size_t many = std::size_t{1} << 24;
    const Case cases[] = {
        {infixes, many, many, 100'000, 4, 12, "limit of 100000 steps of work"},
        {infixes, many, 400'000, many, 6, 12, "limit of 400000 bytes"},
        {{"a", ".*a.{40}", "b"}, many, 400'000, many, 1, 1, "limit of 400000 bytes"},
        {negated, 400, many, many, 329, 329, "limit of 400 states"},
        {negated, many, 400'000, many, 329, 329, "limit of 400000 bytes"},
    };
    for (const Case& c : cases) {
        Engine engine;
        engine.stateLimit(c.states);
        engine.byteLimit(c.bytes);
        engine.workLimit(c.work);
        for (const std::string& pattern : c.patterns) ASSERT_TRUE(engine.addPattern(pattern));
        EXPECT_FALSE(engine.finalSetup()) << c.error;
        const std::int32_t guilty = engine.guiltyPath();
        ASSERT_TRUE(guilty >= c.leastGuilty && guilty <= c.mostGuilty) << guilty << c.error;
        EXPECT_EQ(engine.error(), c.error + (" passed at pattern " + std::to_string(guilty)) +
                                      ": " + c.patterns[static_cast<std::size_t>(guilty)]);
    }
}

// Patterns whose automata would grow out of proportion are refused before they cost much.
TEST(FsmEngine, Hostile) {
    std::string options;
    std::string nested;
    for (int i = 0; i < 20000; ++i) options += "a?";
    for (int i = 0; i < 500; ++i) nested += "(a*b";
    for (int i = 0; i < 500; ++i) nested += ")*";
    struct Case {
        std::string pattern;
        bool isBuilt;
    };
    const Case cases[] = {
        {"(a|b)*a(a|b){40}", false}, {".*a.{3000}", false}, {options, false}, {nested, true}};
    for (const Case& c : cases) {
        Engine engine;
        engine.stateLimit(20000);
        ASSERT_TRUE(engine.insertPattern(c.pattern));
        EXPECT_EQ(engine.finalSetup(), c.isBuilt) << c.pattern.substr(0, 30);
        EXPECT_EQ(engine.guiltyPath(), c.isBuilt ? -1 : 0);
    }
    Engine engine;
    engine.byteLimit(10'000'000);
    while (engine.patternCount() < 100 && engine.insertPattern("a{10000}")) continue;
    EXPECT_EQ(engine.patternCount(), 7);
    EXPECT_EQ(engine.error(), "limit of 10000000 bytes passed at pattern 7: a{10000}");
}

using Matches = std::vector<FSM::Match>;

// Searches in whole texts and in texts cut anywhere, against trying all places.
TEST(FsmEngine, FindsWithinTexts) {
    reference::RandomPatterns random(3);
    for (int round = 0; round < 400; ++round) {
        Engine engine;
        engine.isSearching(true);
        std::vector<reference::Pattern> patterns;
        const bool isWords = round % 2 == 0;
        for (std::size_t n = random.below(4) + 1; n > 0; --n) {
            std::string pattern = isWords ? "" : random.pattern();
            for (std::size_t k = random.below(7); isWords && k > 0; --k) pattern += "abb"[k % 3];
            if (pattern.substr(0, 1) == "!") pattern.erase(0, 1);
            if (!engine.insertPattern(pattern)) continue;
            patterns.push_back(std::move(*reference::Parser::parse(pattern)));
        }
        if (!engine.finalSetup()) continue;
        FSM::Walk walk(engine);
        for (int i = 0; i < 20; ++i) {
            std::string text;
            for (std::size_t n = random.below(24); n > 0; --n) text += "aabbc\n"[random.below(6)];
            const auto [ends, leftmost] = reference::matches<FSM::Match>(patterns, text);
            Matches found;
            ASSERT_TRUE(engine.find(text, FSM::Find::LeftmostLongest, found));
            ASSERT_EQ(found, leftmost) << testing::PrintToString(text) << " in round " << round;
            ASSERT_TRUE(engine.find(text, FSM::Find::AllEnds, found));
            Matches inPieces;
            walk.begin();
            for (std::size_t at = 0, size = 0; at < text.size(); at += size) {
                size = random.below(text.size() - at + 1);
                walk.feed(std::string_view(text).substr(at, size), inPieces);
            }
            ASSERT_EQ(inPieces, found) << testing::PrintToString(text) << " in round " << round;
            ASSERT_EQ(walk.end(), patterns.empty() ? nullptr : engine.process(text));
            for (FSM::Match& match : found) match.begin = 0;
            std::sort(found.begin(), found.end());
            ASSERT_EQ(found, ends) << testing::PrintToString(text) << " in round " << round;
        }
    }
}

// All texts of a loaded engine, and none of a file with any bit changed that is not refused.
TEST(FsmEngine, SavedAndLoaded) {
    const Harness::Folder folder;
    const std::string file = folder.path() + "/saved";
    auto engine = engineOf({"a.*", "[^b]+c", "!.*\n", "b*"});
    FND::String error;
    ASSERT_TRUE(engine->save(file, error)) << error;
    Engine loaded;
    ASSERT_TRUE(loaded.load(file)) << loaded.error();
    EXPECT_EQ(loaded.pathString(), "0 1 2 3");
    const std::vector<std::string> texts = reference::textsOf("abc\n", 4);
    for (const std::string& text : texts) {
        ASSERT_EQ(loaded.process(text)->pathNumbers(), engine->process(text)->pathNumbers());
    }
    FSM::SavedFile saved;
    ASSERT_EQ(saved.map(file, 'e'), "");
    std::string content(saved.content());
    for (std::size_t bit = 0; bit < 8 * content.size(); bit += 3) {
        content[bit / 8] ^= static_cast<char>(1 << bit % 8);
        ASSERT_EQ(FSM::SavedFile::write(file, content, 'e'), "");
        Engine changed;
        if (changed.load(file)) {
            for (const std::string& text : texts) changed.process(text.c_str())->pathString();
        }
        content[bit / 8] ^= static_cast<char>(1 << bit % 8);
    }
}

TEST(FsmEngine, Successors) {
    auto engine = engineOf({"ab|[^a]\n"});
    const FSM::State* start = engine->startState();
    const FSM::State* state = start->succState('a');
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(state->succState('a'), nullptr);
    EXPECT_EQ(state->succState('b'), engine->process("ab"));
    EXPECT_EQ(start->succState('\n')->succState('\n'), engine->process("\n\n"));
    EXPECT_NE(start->succState(0), nullptr);
    EXPECT_EQ(state->id(), -1);
    std::ostringstream out;
    out << *engineOf({"ab"});
    EXPECT_EQ(out.str(),
              "engine with 1 patterns, 3 states, start 1\n"
              "state 1\n  a -> 2\nstate 2\n  b -> 3\nstate 3 paths 0\n");
}

}  // namespace

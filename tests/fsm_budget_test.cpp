// What building takes is asked for before it is taken, and can be refused at every question.

#include "Allocations.h"
#include "Test.h"
#include "fsm/Analysis.h"
#include "fsm/Budget.h"
#include "fsm/Engine.h"
#include "fsm/EngineGroup.h"
#include "fsm/MultiEngine.h"

namespace {

struct Refused {};

/// Refuses question number `last`, and anything that would pass `most` bytes.
class TestBudget final : public FSM::Budget {
public:
    explicit TestBudget(long last = -1, std::size_t most = ~std::size_t{0})
        : last_(last), most_(most), heldBefore_(Allocations::bytesHeldCM) {}

    void take(std::size_t bytes) override {
        untold = std::max(untold, Allocations::bytesHeldCM - heldBefore_ - held);
        ask();
        if (bytes > most_ - static_cast<std::size_t>(held)) throw Refused();
        held += static_cast<long>(bytes);
    }
    void give(std::size_t bytes) noexcept override { held -= static_cast<long>(bytes); }
    void work(std::size_t done) override {
        ask();
        steps += done;
    }

    void refuseNoMore() {
        last_ = -1;
        most_ = ~std::size_t{0};
    }

    long held = 0;
    long untold = 0;  // the most bytes held without being asked for
    long questions = 0;
    std::size_t steps = 0;

private:
    void ask() {
        if (questions++ == last_) throw Refused();
    }

    long last_;
    std::size_t most_;
    const long heldBefore_;
};

using Patterns = std::vector<std::string>;

bool insert(FSM::Engine& engine, const std::string& pattern) {
    return engine.insertPattern(pattern);
}
bool insert(FSM::MultiEngineIf& engine, const std::string& pattern) {
    return engine.insertPatterns({pattern});
}
bool matches(const FSM::Engine& engine, std::string_view text) {
    return engine.firstPath(text) >= 0;
}
bool matches(const FSM::MultiEngineIf& engine, std::string_view text) {
    return engine.firstPath(std::span(&text, 1)) >= 0;
}

// Whether the patterns, one of which matches "ab", were built and inspected without a refusal.
// After a refusal everything can be used again.
template <class Engine>
bool build(const Patterns& patterns, TestBudget& budget) {
    const FSM::BudgetScope scope(&budget);
    Engine engine;
    bool isBuilt = true;
    bool isDone = false;
    try {
        for (const std::string& pattern : patterns) isBuilt = isBuilt && insert(engine, pattern);
        isBuilt = isBuilt && engine.finalSetup();
        isDone = true;
        if constexpr (!std::is_same_v<Engine, FSM::MultiEngine>) FSM::analyse(engine, 0);
    } catch (const Refused&) {
        isBuilt = isBuilt && isDone;
        isDone = false;
    }
    budget.refuseNoMore();
    EXPECT_EQ(isBuilt, matches(engine, "ab"));
    engine.clear();
    EXPECT_TRUE(insert(engine, "b+") && engine.finalSetup() && matches(engine, "bb"));
    return isBuilt && isDone;
}

struct SplitGroup final : FSM::EngineGroup {
    SplitGroup() { partLimit(12); }
};

using Build = bool (*)(const Patterns&, TestBudget&);
constexpr Build buildsS[] = {build<FSM::Engine>, build<FSM::EngineGroup>, build<SplitGroup>,
                             build<FSM::MultiEngine>};

Patterns numbered(int count, const std::string& before, const std::string& after) {
    Patterns patterns;
    for (int i = 0; i < count; ++i) patterns.push_back(before + std::to_string(i) + after);
    return patterns;
}

// Nothing is taken without being asked for, and everything is given back.
TEST(FsmBudget, ChargesWhatTheHeapGives) {
    std::string options = "ab|";
    for (int i = 0; i < 300; ++i) options += "a?";
    Patterns negated = numbered(200, "", "[^x]");
    for (int i = 0; i < 200; i += 7) negated[i].insert(0, 1, '!');
    const Patterns rows[] = {
        numbered(8, "ab|.*", ".{4}.*"),
        numbered(200, "ab|49", "[0-9]*"),
        numbered(12, "ab|.*", ".*"),
        {"ab|a{5000}"},
        {"ab|(a|b)*a.{200}"},
        {options},
        {"ab|(a?b){300}([dce]|d{0,30})x"},
        negated,
    };
    for (const Patterns& patterns : rows) {
        for (const Build build : buildsS) {
            const long before = Allocations::bytesHeldCM;
            TestBudget budget;
            build(patterns, budget);
            EXPECT_EQ(budget.held, 0) << patterns[0].substr(0, 30);
            EXPECT_GT(budget.steps, 500U) << patterns[0].substr(0, 30);
            // The pools keep some blocks.
            EXPECT_LE(budget.untold, 256 << 10) << patterns[0].substr(0, 30);
            EXPECT_LE(Allocations::bytesHeldCM - before, 256 << 10) << patterns[0].substr(0, 30);
        }
    }
}

TEST(FsmBudget, MayBeRefusedAtEveryQuestion) {
    const Patterns patterns{"a(b|[cdef])*", "!a{2,4}b?", ".*x.*", ".*y.*\n", "[^a-e]+"};
    long refused = 0;
    long all = 0;
    for (const Build build : buildsS) {
        for (bool isBuilt = false; !isBuilt;) {
            TestBudget budget(refused++);
            isBuilt = build(patterns, budget);
            ASSERT_EQ(budget.held, 0) << "refused at question " << refused;
        }
        EXPECT_GT(refused, 300);
        all += std::exchange(refused, 0);
        TestBudget budget(-1, 8'000);
        EXPECT_FALSE(build(patterns, budget));
    }
    RecordProperty("refusals", static_cast<int>(all));
}

// A pattern that passes the limit is refused before its states are there.
TEST(FsmBudget, RefusedEarly) {
    const std::string set = "[acegikmoqsuwyACEGIKMOQSUWY02468]";
    const std::string patterns[] = {std::string(100'000, 'a') + "x?", "(a?b){50000}(cd){50000}",
                                    "(" + set + "{5000})" + set + "{5000}"};
    constexpr std::size_t limit = 2'000'000;
    for (const std::string& pattern : patterns) {
        const long before = Allocations::startPeak();
        FSM::Engine engine;
        engine.byteLimit(limit);
        EXPECT_FALSE(engine.addPattern(pattern));
        EXPECT_EQ(engine.error(),
                  "limit of 2000000 bytes passed at pattern 0: " + pattern.substr(0, 200));
        EXPECT_LT(Allocations::peak() - before, 2 * limit) << pattern.substr(0, 30);
    }
}

// After the first text, whose scratch space a thread keeps.
TEST(FsmBudget, MatchingTakesNoMemory) {
    Patterns mixed = numbered(80, ".*w", ".*ab.*");
    for (const Patterns& more : {numbered(600, "w", ""), Patterns{".*a.{30}b.*", ".*x.{40}y"},
                                 Patterns{"(a|b)*a(a|b){300}", "[0-9]+w"}}) {
        mixed.insert(mixed.end(), more.begin(), more.end());
    }
    const std::string_view texts[] = {"w1", "xw70 ab w7 ab", "abbaabw12ab", "", "1w", "nothing"};
    for (const bool isChanged : {false, true}) {
        for (const bool ignoresCase : {false, true}) {
            FSM::EngineGroup group;
            group.isChangeable(isChanged);
            group.options({.ignoresCase = ignoresCase});
            for (const std::string& pattern : mixed) ASSERT_TRUE(group.insertPattern(pattern));
            ASSERT_TRUE(group.finalSetup());
            if (isChanged) {
                ASSERT_TRUE(group.insertPattern("x.*") && group.removePatterns(7) == 1);
                ASSERT_TRUE(group.finalSetup());
            }
            std::vector<std::int32_t> paths;
            std::vector<std::size_t> ends;
            long before = 0;
            std::size_t found = 0;
            for (int round = 0; round < 2; ++round) {
                before = Allocations::madeCM;
                for (const std::string_view text : texts) {
                    group.process(text, paths);
                    found += paths.size() + (group.firstPath(text) >= 0 ? 1 : 0);
                }
                group.matchAll(texts, ends, paths);
            }
            EXPECT_EQ(Allocations::madeCM, before) << isChanged << ignoresCase;
            EXPECT_GT(found, 10U);
        }
    }
}

}  // namespace

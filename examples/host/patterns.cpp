// Matches texts with patterns, without any script.

#include <fsm/Analysis.h>
#include <fsm/Budget.h>
#include <fsm/Engine.h>
#include <fsm/EngineGroup.h>
#include <fsm/MultiEngine.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Paths = std::vector<std::int32_t>;

int checksS = 0;
int failuresS = 0;

void check(bool holds) {
    ++checksS;
    if (!holds) ++failuresS;
}

// Limits the bytes that patterns of strangers take while they are built and afterwards.
class Bytes final : public FSM::Budget {
public:
    explicit Bytes(std::size_t bytes) : left_(bytes) {}
    void take(std::size_t bytes) override {
        if (bytes > left_) throw std::bad_alloc();
        left_ -= bytes;
    }
    void give(std::size_t bytes) noexcept override { left_ += bytes; }
    void work(std::size_t) override {}  // a good place to look at the clock

private:
    std::size_t left_;
};

int fail(const FND::String& error) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return 1;
}

}  // namespace

int main() {
    FSM::Engine engine;
    engine.insertPattern("49[1-9][0-9]*");  // reported as 0
    engine.insertPattern("4989.*");         // reported as 1
    if (!engine.finalSetup()) return fail(engine.error());
    check(engine.process("4989123")->pathNumbers() == Paths{0, 1});
    check(engine.process("4989-x")->pathNumbers() == Paths{1});
    check(engine.firstPath("4989123") == 0);  // the lowest; -1 when nothing matches

    FSM::EngineGroup group;
    for (const char* word : {"red", "green", "blue"}) {
        group.insertPattern(std::string(".*") + word + ".*");
    }
    if (!group.finalSetup()) return fail(group.error());
    Paths paths;  // keeps its memory between texts
    group.process("a blue hat and a red one", paths);
    check(paths == Paths{0, 2});

    FSM::EngineGroup german;
    german.options({.ignoresCase = true, .isUtf8 = true});
    german.insertPattern("gr.n.*");
    if (!german.finalSetup()) return fail(german.error());
    german.process("GRÜNKOHL", paths);
    check(paths == Paths{0});

    FSM::Engine search;
    search.isSearching(true);
    search.insertPattern("cat");
    search.insertPattern("cat[a-z]+");
    if (!search.finalSetup()) return fail(search.error());
    std::vector<FSM::Match> matches;
    search.find("a cat and cattle", FSM::Find::LeftmostLongest, matches);
    check(matches == std::vector<FSM::Match>{{2, 5, 0}, {10, 16, 1}});
    FSM::Walk walk(search);
    matches.clear();
    walk.feed("a c", matches);
    walk.feed("at", matches);
    check(matches.size() == 1 && matches[0].end == 5);

    FSM::MultiEngine table;
    table.insertPatterns({"4989.*", "00[1-9].*", "workday|weekend"});
    table.insertPatterns({".*", "0044.*", "workday"});
    if (!table.finalSetup()) return fail(table.error());
    const std::string_view words[] = {"498912", "00441", "workday"};
    table.process(words, paths);
    check(paths == Paths{0, 1});
    check(table.firstPath(words) == 0);

    const std::optional<FSM::Analysis> analysis = FSM::analyse(engine);
    check(analysis && analysis->shadowed.empty() && analysis->overlaps.size() == 1);
    check(analysis->overlaps[0].text == "4989");

    FSM::Engine cases;
    cases.insertPattern("a.*");
    cases.insertPattern("ab");
    if (!cases.finalSetup()) return fail(cases.error());
    const std::int32_t lines[] = {9, 12};
    check(FSM::unreachedCases(*FSM::analyse(cases), lines) ==
          std::vector<FND::String>{
              "the case in line 12 is never reached: line 9 matches all its texts"});

    Bytes budget(1'000'000);
    const FSM::BudgetScope scope(&budget);
    FSM::Engine strange;
    strange.insertPattern(".*a.{16}");
    check(!strange.finalSetup() && strange.error() == "no memory available for the automaton");

    std::printf("%d checks, %d failures\n", checksS, failuresS);
    return failuresS == 0 ? 0 : 1;
}

#include "fsm_find.h"

#include <time.h>

#include <algorithm>
#include <cstdio>
#include <queue>
#include <random>
#include <set>

#include "fsm/Engine.h"
#include "fsm_matcher.h"

namespace {

double nanoseconds() {
    timespec now;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

class EngineSearcher : public Matcher {
public:
    explicit EngineSearcher(FSM::Find what) : what_(what) {}
    const char* name() const override {
        return what_ == FSM::Find::AllEnds ? "find, all ends" : "find, leftmost";
    }
    bool build(const std::vector<std::string>& words) override {
        engine_.isSearching(true);
        for (const std::string& word : words) {
            if (!engine_.addPattern(word)) return false;
        }
        return engine_.finalSetup();
    }
    std::size_t matchAll(const std::vector<std::string_view>& texts) override {
        std::size_t count = 0;
        for (const std::string_view text : texts) {
            engine_.find(text, what_, matches_);
            count += matches_.size();
        }
        return count;
    }
    std::vector<std::int32_t> match(std::string_view) override { return {}; }

private:
    const FSM::Find what_;
    FSM::Engine engine_;
    std::vector<FSM::Match> matches_;
};

/// Aho and Corasick's automaton over the bytes of the words, in dense rows.
class AhoCorasick : public Matcher {
public:
    const char* name() const override { return "Aho-Corasick"; }
    bool build(const std::vector<std::string>& words) override {
        for (const std::string& word : words) {
            for (const char c : word) classOf_[static_cast<unsigned char>(c)] = 1;
        }
        for (unsigned& c : classOf_) c = c == 0 ? 0 : classes_++;
        rows_.assign(classes_, 0);
        ends_.assign(1, 0);
        for (const std::string& word : words) {
            std::size_t state = 0;
            for (const char c : word) {
                const std::size_t move = state * classes_ + classOf_[static_cast<unsigned char>(c)];
                if (rows_[move] == 0) {
                    rows_[move] = static_cast<std::uint32_t>(ends_.size());
                    rows_.resize(rows_.size() + classes_);
                    ends_.push_back(0);
                }
                state = rows_[move];
            }
            ++ends_[state];
        }
        std::vector<std::uint32_t> fallback(ends_.size());
        std::queue<std::uint32_t> open({0});
        for (; !open.empty(); open.pop()) {
            const std::size_t state = open.front();
            for (unsigned c = 0; c < classes_; ++c) {
                std::uint32_t& to = rows_[state * classes_ + c];
                const std::uint32_t back = state == 0 ? 0 : rows_[fallback[state] * classes_ + c];
                if (to == 0) {
                    to = back;
                } else {
                    fallback[to] = back;
                    ends_[to] += ends_[back];
                    open.push(to);
                }
            }
        }
        return true;
    }
    std::size_t matchAll(const std::vector<std::string_view>& texts) override {
        std::size_t count = 0;
        for (const std::string_view text : texts) {
            std::size_t state = 0;
            for (const char c : text) {
                state = rows_[state * classes_ + classOf_[static_cast<unsigned char>(c)]];
                count += ends_[state];
            }
        }
        return count;
    }
    std::vector<std::int32_t> match(std::string_view) override { return {}; }

private:
    unsigned classOf_[256] = {};
    unsigned classes_ = 1;
    std::vector<std::uint32_t> rows_;
    std::vector<std::uint32_t> ends_;  // words that end in each state
};

bool measure(std::size_t wordCount) {
    std::mt19937 random(42);
    const auto letters = [&](std::size_t length) {
        std::string text;
        while (text.size() < length) text += static_cast<char>('a' + random() % 26);
        return text;
    };
    std::set<std::string> words;
    while (words.size() < wordCount) words.insert(letters(5 + random() % 5));
    const std::vector<std::string> list(words.begin(), words.end());
    std::string text;
    while (text.size() < std::size_t{1} << 20) {
        text += letters(60 + random() % 60) + ' ' + list[random() % list.size()] + ' ';
    }
    const std::vector<std::string_view> texts(20, text);

    std::vector<std::unique_ptr<Matcher>> searchers;
    searchers.push_back(std::make_unique<EngineSearcher>(FSM::Find::AllEnds));
    searchers.push_back(std::make_unique<AhoCorasick>());
    for (MatcherFactory factory : otherSearchers()) searchers.push_back(factory());
    searchers.push_back(std::make_unique<EngineSearcher>(FSM::Find::LeftmostLongest));
    std::printf("%zu words of 5 to 9 letters, searched in texts of 1 MiB\n", wordCount);
    bool agrees = true;
    std::size_t ends = 0;
    for (const auto& searcher : searchers) {
        const double start = nanoseconds();
        if (!searcher->build(list)) {
            std::printf("  %-14s cannot build\n", searcher->name());
            continue;
        }
        const double built = nanoseconds();
        std::size_t count = searcher->matchAll({text});  // warms up
        double best = 1e30;
        for (int round = 0; round < 3; ++round) {
            const double begin = nanoseconds();
            count = searcher->matchAll(texts) / texts.size();
            best = std::min(best, nanoseconds() - begin);
        }
        std::printf("  %-14s build %8.2f ms, %6.2f ns a byte, %zu matches\n", searcher->name(),
                    (built - start) * 1e-6, best / static_cast<double>(text.size() * texts.size()),
                    count);
        const bool isLeftmost = searcher->facts() == "leftmost" || searcher == searchers.back();
        if (!isLeftmost && ends == 0) ends = count;
        agrees = agrees && (isLeftmost || count == ends);
    }
    return agrees;
}

}  // namespace

bool measureSearches() { return measure(1000) && measure(20000); }

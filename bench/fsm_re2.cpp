// RE2's sets of patterns, for comparison in fsm_bench.
#include <re2/re2.h>
#include <re2/set.h>

#include <algorithm>

#include "fsm_matcher.h"

namespace {

class Re2Matcher : public Matcher {
public:
    const char* name() const override { return "RE2::Set"; }

    bool build(const std::vector<std::string>& patterns) override {
        RE2::Options options(RE2::Latin1);
        options.set_log_errors(false);
        options.set_max_mem(std::int64_t{256} << 20);
        set_ = std::make_unique<RE2::Set>(options, RE2::ANCHOR_BOTH);
        for (const std::string& pattern : patterns) {
            if (set_->Add(pattern, nullptr) < 0) return false;
        }
        return set_->Compile();
    }

    std::size_t matchAll(const std::vector<std::string_view>& texts) override {
        std::size_t count = 0;
        for (std::string_view text : texts) {
            if (set_->Match({text.data(), text.size()}, &matches_)) count += matches_.size();
        }
        return count;
    }

    std::vector<std::int32_t> match(std::string_view text) override {
        std::vector<std::int32_t> result;
        set_->Match({text.data(), text.size()}, &result);
        std::sort(result.begin(), result.end());
        return result;
    }

private:
    std::unique_ptr<RE2::Set> set_;
    std::vector<int> matches_;
};

/// Leftmost longest matches of any of the words.
class Re2Searcher : public Matcher {
public:
    const char* name() const override { return "RE2, leftmost"; }

    bool build(const std::vector<std::string>& words) override {
        RE2::Options options(RE2::Latin1);
        options.set_log_errors(false);
        options.set_longest_match(true);
        options.set_max_mem(std::int64_t{256} << 20);
        std::string all = "(";
        for (const std::string& word : words) all.append(all.size() > 1 ? "|" : "").append(word);
        words_ = std::make_unique<RE2>(all + ")", options);
        return words_->ok();
    }

    std::size_t matchAll(const std::vector<std::string_view>& texts) override {
        std::size_t count = 0;
        for (const std::string_view text : texts) {
            re2::StringPiece left(text.data(), text.size());
            while (RE2::FindAndConsume(&left, *words_)) ++count;
        }
        return count;
    }

    std::vector<std::int32_t> match(std::string_view) override { return {}; }
    std::string facts() const override { return "leftmost"; }

private:
    std::unique_ptr<RE2> words_;
};

const RegisterMatcher registerS(
    []() -> std::unique_ptr<Matcher> { return std::make_unique<Re2Matcher>(); },
    []() -> std::unique_ptr<Matcher> { return std::make_unique<Re2Searcher>(); });

}  // namespace

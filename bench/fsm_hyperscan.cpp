// Hyperscan's databases of patterns, for comparison in fsm_bench.
#include <hs.h>

#include <algorithm>
#include <numeric>

#include "fsm_matcher.h"

namespace {

class HyperscanMatcher : public Matcher {
public:
    /// Of words within texts, or of patterns for whole texts.
    explicit HyperscanMatcher(bool isSearching) : isSearching_(isSearching) {}
    ~HyperscanMatcher() override {
        hs_free_scratch(scratch_);
        hs_free_database(database_);
    }

    const char* name() const override { return "Hyperscan"; }

    bool build(const std::vector<std::string>& patterns) override {
        std::vector<std::string> given;
        for (const std::string& pattern : patterns) {
            given.push_back(isSearching_ ? pattern : "\\A(?:" + pattern + ")\\z");
        }
        std::vector<const char*> texts;
        for (const std::string& pattern : given) texts.push_back(pattern.c_str());
        std::vector<unsigned> flags(texts.size(),
                                    isSearching_ ? 0 : HS_FLAG_SINGLEMATCH | HS_FLAG_ALLOWEMPTY);
        std::vector<unsigned> ids(texts.size());
        std::iota(ids.begin(), ids.end(), 0u);
        hs_compile_error_t* error = nullptr;
        hs_error_t result = hs_compile_multi(texts.data(), flags.data(), ids.data(),
                                             static_cast<unsigned>(texts.size()), HS_MODE_BLOCK,
                                             nullptr, &database_, &error);
        hs_free_compile_error(error);
        return result == HS_SUCCESS && hs_alloc_scratch(database_, &scratch_) == HS_SUCCESS;
    }

    std::size_t matchAll(const std::vector<std::string_view>& texts) override {
        std::size_t count = 0;
        for (std::string_view text : texts) {
            matches_.clear();
            scan(text);
            count += matches_.size();
        }
        return count;
    }

    std::vector<std::int32_t> match(std::string_view text) override {
        matches_.clear();
        scan(text);
        std::sort(matches_.begin(), matches_.end());
        return matches_;
    }

private:
    void scan(std::string_view text) {
        hs_scan(database_, text.data(), static_cast<unsigned>(text.size()), 0, scratch_, onMatch,
                this);
    }

    static int onMatch(unsigned id, unsigned long long, unsigned long long, unsigned,
                       void* matcher) {
        static_cast<HyperscanMatcher*>(matcher)->matches_.push_back(static_cast<std::int32_t>(id));
        return 0;
    }

    const bool isSearching_;
    hs_database_t* database_ = nullptr;
    hs_scratch_t* scratch_ = nullptr;
    std::vector<std::int32_t> matches_;
};

const RegisterMatcher registerS(
    []() -> std::unique_ptr<Matcher> { return std::make_unique<HyperscanMatcher>(false); },
    []() -> std::unique_ptr<Matcher> { return std::make_unique<HyperscanMatcher>(true); });

}  // namespace

#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// One way to find out which of many patterns match a whole text, for comparison.
class Matcher {
public:
    virtual ~Matcher() = default;
    virtual const char* name() const = 0;
    /// False if the library cannot take the patterns.
    virtual bool build(const std::vector<std::string>& patterns) = 0;
    /// Matches all texts, each followed by a NUL; gives the total number of matches.
    virtual std::size_t matchAll(const std::vector<std::string_view>& texts) = 0;
    /// The matching patterns of one text, ascending.
    virtual std::vector<std::int32_t> match(std::string_view text) = 0;
    /// Information about the built automaton.
    virtual std::string facts() const { return ""; }
};

/// The matchers of other libraries that were found when this was built.
using MatcherFactory = std::unique_ptr<Matcher> (*)();
inline std::vector<MatcherFactory>& otherMatchers() {
    static std::vector<MatcherFactory> factories;
    return factories;
}
/// The same for those that take words without operators and count their matches within texts.
inline std::vector<MatcherFactory>& otherSearchers() {
    static std::vector<MatcherFactory> factories;
    return factories;
}
struct RegisterMatcher {
    RegisterMatcher(MatcherFactory matcher, MatcherFactory searcher) {
        otherMatchers().push_back(matcher);
        otherSearchers().push_back(searcher);
    }
};

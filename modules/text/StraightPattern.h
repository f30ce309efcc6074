#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Modules::TextModule {

/// A regular expression that is matched straight on, since no choice has to be taken back: bytes,
/// classes of bytes and repetitions of them, each of which ends where what follows begins, and
/// groups. Most patterns for the fields of a line are such. They are found several times as fast as
/// by the library, with the same result.
class StraightPattern {
public:
    static constexpr std::size_t mostGroupsCM = 16;
    /// The match, then the groups; parts of the text.
    using Groups = std::array<std::string_view, mostGroupsCM>;

    /// Nothing when the pattern is of another kind, or is wrong.
    static std::optional<StraightPattern> read(std::string_view pattern);

    enum class Outcome { None, Found, Unknown };
    /// The first match at or after `from`. `Unknown` when that is for the library to say: where the
    /// text is not ASCII, or would be read too often. Adds to `weight` the work that is not counted
    /// yet.
    Outcome find(std::string_view text, std::size_t from, Groups& groups,
                 std::size_t& weight) const;

private:
    enum class Fits : std::uint8_t { No, Yes, Unknown };
    using Class = std::array<Fits, 256>;
    struct Item {
        Class fits{};
        std::size_t least = 1;
        std::size_t most = 1;
        std::vector<std::uint8_t> before;  // the ends and beginnings of groups, see `mark`
    };
    struct PrefixMark {
        std::size_t offset;
        std::uint8_t mark;
    };
    class Reader;

    // Where a group begins, for an even number, or ends.
    static std::uint8_t mark(std::size_t group, bool isEnd) {
        return static_cast<std::uint8_t>(2 * group + (isEnd ? 1 : 0));
    }

    static void setMark(Groups& groups, std::uint8_t mark, const char* at) {
        std::string_view& group = groups[mark / 2U];
        const char* const begin = mark % 2 == 0 ? at : group.data();
        group = {begin, static_cast<std::size_t>(at - begin)};
    }

    bool needsNoChoice() const;
    void findStart();
    std::size_t nextStart(std::string_view text, std::size_t from) const;
    // The text has the prefix at `start`. `end` becomes the place where it failed or ended; `run`
    // that after the first item.
    Outcome matchAt(std::string_view text, std::size_t start, Groups& groups, std::size_t& end,
                    std::size_t& run) const;

    std::vector<Item> items_;  // after the prefix; the last one has marks only
    bool isAtStart_ = false;
    bool isAtEnd_ = false;
    std::string prefix_;  // bytes that each match begins with
    std::vector<PrefixMark> prefixMarks_;
    Class starts_{};  // the bytes that it may begin with
};

}  // namespace Modules::TextModule

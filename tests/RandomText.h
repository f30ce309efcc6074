#pragma once

#include <cstddef>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace Harness {

/// Makes random texts by rules. A rule has texts separated by " | ", one of which is taken at
/// random: one of its `branches`, or of its `leaves` when there are no branches or the text has
/// become deep enough. A name in small letters after "$" stands for a text of that rule. "#" is a
/// number that no other text of the object has.
class RandomText {
public:
    struct Rule {
        std::string_view leaves, branches = {};
    };
    using Rules = std::map<std::string_view, Rule>;

    RandomText(const Rules& rules, unsigned long seed) : rules_(rules), dice_(seed) {}

    std::size_t below(std::size_t limit) { return dice_() % limit; }

    std::string made(std::string_view name, int depth) {
        const Rule& rule = rules_.at(name);
        std::string_view list = depth > 0 && !rule.branches.empty() ? rule.branches : rule.leaves;
        std::vector<std::string_view> texts;
        for (std::size_t end = 0; end != list.npos;) {
            end = list.find(" | ");
            texts.push_back(list.substr(0, end));
            if (end != list.npos) list.remove_prefix(end + 3);
        }
        const std::string_view chosen = texts[below(texts.size())];
        const std::string number = std::to_string(++numbers_);
        const auto isLetter = [&](std::size_t at) {
            return at < chosen.size() && chosen[at] >= 'a' && chosen[at] <= 'z';
        };
        std::string text;
        for (std::size_t at = 0; at < chosen.size(); ++at) {
            if (chosen[at] == '#') {
                text += number;
            } else if (chosen[at] == '$' && isLetter(at + 1)) {
                const std::size_t begin = at + 1;
                while (isLetter(at + 1)) ++at;
                text += made(chosen.substr(begin, at + 1 - begin), depth - 1);
            } else {
                text += chosen[at];
            }
        }
        return text;
    }

private:
    const Rules& rules_;
    std::mt19937_64 dice_;
    int numbers_ = 0;
};

}  // namespace Harness

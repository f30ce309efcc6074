#include "scr/builtin/search/RegExprSize.h"

#include <algorithm>
#include <charconv>
#include <vector>

namespace SCR {

namespace {

// Far more than the library takes; products of two of them do not overflow.
constexpr std::size_t mostS = std::size_t{1} << 31;

class SizeReader {
public:
    explicit SizeReader(std::string_view pattern) : left_(pattern) {}

    RegExprSize read() {
        while (!left_.empty()) {
            const char byte = left_.front();
            left_.remove_prefix(1);
            switch (byte) {
                case '(':
                    addItem(1);
                    groups_.push_back(sum_);
                    sum_ = {};
                    break;
                case ')':
                    closeGroup();
                    break;
                case '[':
                    addItem(bracketSize());
                    break;
                case '\\':
                    // A class such as \w consists of several ranges.
                    if (!left_.empty()) left_.remove_prefix(1);
                    addItem(5);
                    break;
                case '{':
                    repeat();
                    break;
                case '*':
                case '+':
                case '?':
                    add(sum_, {0, 1, 1});
                    add(last_, {0, 1, 1});
                    break;
                case '|':
                    add(sum_, {0, 1, 0});
                    last_ = {};
                    break;
                default:
                    addItem(1);
                    break;
            }
        }
        while (!groups_.empty()) closeGroup();
        return sum_;
    }

private:
    void addItem(std::size_t instructions) {
        last_ = {1, instructions, 0};
        add(sum_, last_);
    }

    static void add(RegExprSize& sum, const RegExprSize& item) {
        sum.items = std::min(sum.items + item.items, mostS);
        sum.instructions = std::min(sum.instructions + item.instructions, mostS);
        sum.loops = std::min(sum.loops + item.loops, mostS);
    }

    void closeGroup() {
        if (groups_.empty()) return;
        last_ = sum_;
        sum_ = groups_.back();
        groups_.pop_back();
        add(sum_, last_);
    }

    // Counts the instructions of a bracket expression, one for each range, and moves after it.
    std::size_t bracketSize() {
        std::size_t ranges = 1;
        if (left_.starts_with("^")) left_.remove_prefix(1);
        for (bool isFirst = true; !left_.empty(); isFirst = false) {
            if (left_.front() == ']' && !isFirst) {
                left_.remove_prefix(1);
                break;
            }
            std::size_t length = 1;
            if (left_.starts_with("[:")) {
                length = std::max<std::size_t>(left_.find(":]"), 1);
                ranges += 4;
            } else if (left_.front() == '\\') {
                length = 2;
                ranges += 4;
            }
            // The end of a range adds nothing.
            if (left_.substr(std::min(length, left_.size())).starts_with("-")) length += 1;
            left_.remove_prefix(std::min(length, left_.size()));
            ++ranges;
        }
        return std::min<std::size_t>(ranges, 256);
    }

    void repeat() {
        std::size_t times = 0;
        std::size_t most = 0;
        std::size_t optional = 0;
        if (!number(times)) return addItem(1);
        if (left_.starts_with(",")) {
            left_.remove_prefix(1);
            if (!number(most)) most = times + 1;
            optional = most - std::min(times, most);
            times = std::max(times, most);
        }
        if (!left_.starts_with("}")) return addItem(1);
        left_.remove_prefix(1);
        // Each part may need an extra instruction that skips it.
        add(sum_, {0, optional, optional});
        if (times < 2) return;
        RegExprSize more;
        more.items = std::min(last_.items * (times - 1), mostS);
        more.instructions = std::min(last_.instructions * (times - 1), mostS);
        more.loops = std::min(last_.loops * (times - 1), mostS);
        add(sum_, more);
        add(last_, more);
        add(last_, {0, optional, optional});
    }

    bool number(std::size_t& value) {
        constexpr std::size_t longest = 6;  // more digits than any repetition may have
        const char* const begin = left_.data();
        const auto [end, error] =
            std::from_chars(begin, begin + std::min(left_.size(), longest), value);
        if (error != std::errc()) return false;
        left_.remove_prefix(static_cast<std::size_t>(end - begin));
        return true;
    }

    std::string_view left_;
    RegExprSize sum_;   // of the open group
    RegExprSize last_;  // of the part that a repetition would repeat
    std::vector<RegExprSize> groups_;
};

}  // namespace

RegExprSize sizeOfRegExpr(std::string_view pattern) { return SizeReader(pattern).read(); }

}  // namespace SCR

#include "scr/builtin/RegExprSize.h"

#include <algorithm>
#include <charconv>
#include <vector>

namespace SCR {

namespace {

// Far beyond all that the library takes.
constexpr std::size_t mostS = std::size_t{1} << 40;

class Reader {
public:
    explicit Reader(std::string_view pattern) : left_(pattern) {}

    RegExprSize read() {
        while (!left_.empty()) {
            const char byte = left_.front();
            left_.remove_prefix(1);
            switch (byte) {
                case '(':
                    addItem({1, 1});
                    groups_.push_back(sum_);
                    sum_ = {};
                    break;
                case ')':
                    closeGroup();
                    break;
                case '[':
                    addItem({1, bracketSize()});
                    break;
                case '\\':
                    // A class such as \w is of several ranges.
                    if (!left_.empty()) left_.remove_prefix(1);
                    addItem({1, 5});
                    break;
                case '{':
                    repeat();
                    break;
                case '*':
                case '+':
                case '?':
                    sum_.instructions += 1;
                    last_.instructions += 1;
                    break;
                case '|':
                    sum_.instructions += 1;
                    last_ = {};
                    break;
                default:
                    addItem({1, 1});
                    break;
            }
        }
        while (!groups_.empty()) closeGroup();
        return sum_;
    }

private:
    void addItem(RegExprSize item) {
        last_ = item;
        add(sum_, item);
    }

    static void add(RegExprSize& sum, const RegExprSize& item) {
        sum.items = std::min(sum.items + item.items, mostS);
        sum.instructions = std::min(sum.instructions + item.instructions, mostS);
    }

    void closeGroup() {
        if (groups_.empty()) return;
        last_ = sum_;
        sum_ = groups_.back();
        groups_.pop_back();
        add(sum_, last_);
    }

    // The instructions of what stands in brackets; goes behind them.
    std::size_t bracketSize() {
        std::size_t end = left_.starts_with("^") ? 1 : 0;
        if (end < left_.size() && left_[end] == ']') ++end;
        while (end < left_.size() && left_[end] != ']') {
            if (left_[end] == '\\') ++end;
            if (left_.substr(end).starts_with("[:")) {
                end = std::min(left_.find(":]", end + 2), left_.size());
                if (end < left_.size()) ++end;
            }
            ++end;
        }
        end = std::min(end, left_.size());
        left_.remove_prefix(std::min(end + 1, left_.size()));
        return std::min<std::size_t>(4 + end, 256);
    }

    void repeat() {
        std::size_t times = 0;
        std::size_t most = 0;
        if (!number(times)) return addItem({1, 1});
        if (left_.starts_with(",")) {
            left_.remove_prefix(1);
            if (number(most)) {
                times = std::max(times, most);
            } else {
                ++times;
            }
        }
        if (!left_.starts_with("}")) return addItem({1, 1});
        left_.remove_prefix(1);
        // Each repetition may be left out by an instruction of its own.
        if (times < 2) return;
        RegExprSize more{last_.items * (times - 1), (last_.instructions + 1) * (times - 1)};
        more.items = std::min(more.items, mostS);
        more.instructions = std::min(more.instructions, mostS);
        add(sum_, more);
        add(last_, more);
    }

    bool number(std::size_t& value) {
        constexpr std::size_t longest = 6;  // more than any repetition may have
        const char* const begin = left_.data();
        const auto [end, error] =
            std::from_chars(begin, begin + std::min(left_.size(), longest), value);
        if (error != std::errc()) return false;
        left_.remove_prefix(static_cast<std::size_t>(end - begin));
        return true;
    }

    std::string_view left_;
    RegExprSize sum_;   // of the group that is open
    RegExprSize last_;  // of what a repetition would repeat
    std::vector<RegExprSize> groups_;
};

}  // namespace

RegExprSize sizeOfRegExpr(std::string_view pattern) { return Reader(pattern).read(); }

}  // namespace SCR

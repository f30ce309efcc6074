#pragma once

#include <algorithm>
#include <bitset>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "RandomText.h"

/// The textbook meaning of patterns, written to be obviously right: a tree is matched by following
/// the sets of text positions that it can reach. Shares no code with the engine.
namespace reference {

struct Node {
    enum Kind { Empty, Bytes, Sequence, Choice, Repeat } kind = Empty;
    std::bitset<256> bytes;
    std::unique_ptr<Node> left;
    std::unique_ptr<Node> right;
    unsigned minimum = 0;
    unsigned maximum = 0;  // of repetitions; 0 with isEndless
    bool isEndless = false;
};

struct Pattern {
    std::unique_ptr<Node> root;
    bool isNegated = false;
};

/// A recursive descent parser; gives nothing for a text that is not a pattern.
class Parser {
public:
    static std::optional<Pattern> parse(std::string_view text) {
        Parser parser{text.substr(0, text.find('\0'))};
        Pattern pattern;
        pattern.isNegated = parser.text_.substr(0, 1) == "!";
        if (pattern.isNegated) ++parser.at_;
        pattern.root = parser.choice();
        if (parser.failed_ || parser.at_ != parser.text_.size()) return std::nullopt;
        return pattern;
    }

private:
    explicit Parser(std::string_view text) : text_(text) {}

    int look(std::size_t distance = 0) const {
        return at_ + distance < text_.size() ? static_cast<unsigned char>(text_[at_ + distance])
                                             : -1;
    }
    bool isDigit(std::size_t distance = 0) const {
        return look(distance) >= '0' && look(distance) <= '9';
    }
    bool fail() {
        failed_ = true;
        return false;
    }
    static std::unique_ptr<Node> make(Node::Kind kind, std::unique_ptr<Node> left = nullptr,
                                      std::unique_ptr<Node> right = nullptr) {
        auto node = std::make_unique<Node>();
        node->kind = kind;
        node->left = std::move(left);
        node->right = std::move(right);
        return node;
    }

    std::unique_ptr<Node> choice() {
        auto node = sequence();
        while (!failed_ && look() == '|') {
            ++at_;
            node = make(Node::Choice, std::move(node), sequence());
        }
        return node;
    }

    std::unique_ptr<Node> sequence() {
        auto node = make(Node::Empty);
        while (!failed_ && look() != -1 && look() != '|' && look() != ')') {
            node = make(Node::Sequence, std::move(node), repetition());
        }
        return node;
    }

    std::unique_ptr<Node> repetition() {
        auto node = atom();
        int c = look();
        if (failed_ || (c != '?' && c != '+' && c != '*' && c != '{')) return node;
        ++at_;
        node = make(Node::Repeat, std::move(node));
        if (c == '?') node->maximum = 1;
        if (c == '+') node->minimum = 1;
        if (c == '+' || c == '*') node->isEndless = true;
        if (c != '{') return node;
        if (!number(node->minimum)) return node;
        node->maximum = node->minimum;
        if (look() == ',') {
            ++at_;
            if (!number(node->maximum)) return node;
            if (node->maximum == 0) node->maximum = node->minimum;
            if (node->maximum < node->minimum) node->minimum = node->maximum;
        }
        if (look() != '}') fail();
        ++at_;
        return node;
    }

    bool number(unsigned& value) {
        if (!isDigit()) return fail();
        for (value = 0; isDigit(); ++at_) value = value * 10 + (look() - '0');
        return true;
    }

    std::unique_ptr<Node> atom() {
        int c = look();
        if (c == '(') {
            ++at_;
            auto node = choice();
            if (look() != ')') fail();
            ++at_;
            return node;
        }
        if (c == '[') return set();
        auto node = make(Node::Bytes);
        if (c == '.') {
            node->bytes.set().reset('\n');
            ++at_;
        } else if (c == '?' || c == '+' || c == '*' || c == '{') {
            fail();
        } else if (c == '!' && at_ > 0 && text_[at_ - 1] == '\n') {
            fail();
        } else {
            unsigned char byte = 0;
            if (byteOf(byte)) node->bytes.set(byte);
        }
        return node;
    }

    bool byteOf(unsigned char& byte) {
        if (look() != '\\' || look(1) == -1 || look(1) == '\n') {
            byte = static_cast<unsigned char>(look());
            ++at_;
            return true;
        }
        if (isDigit(1) && isDigit(2) && isDigit(3)) {
            int code = (look(1) - '0') * 100 + (look(2) - '0') * 10 + look(3) - '0';
            at_ += 4;
            byte = static_cast<unsigned char>(code);
            return code <= 255 || fail();
        }
        byte = static_cast<unsigned char>(look(1));
        if (byte == 'n') byte = '\n';
        if (byte == 't') byte = '\t';
        at_ += 2;
        return true;
    }

    bool member(unsigned char& byte) {
        int c = look();
        if (c == -1 ||
            std::string_view("[](){|.-").find(static_cast<char>(c)) != std::string::npos) {
            return fail();
        }
        if (c == '!' && text_[at_ - 1] == '\n') return fail();
        return byteOf(byte);
    }

    std::unique_ptr<Node> set() {
        auto node = make(Node::Bytes);
        ++at_;
        bool isNegated = look() == '^';
        if (isNegated) ++at_;
        do {
            unsigned char first = 0;
            if (!member(first)) return node;
            unsigned char last = first;
            if (look() == '-') {
                ++at_;
                if (!member(last)) return node;
            }
            for (int byte = first; byte <= last; ++byte) node->bytes.set(byte);
        } while (look() != ']');
        ++at_;
        if (isNegated) node->bytes.flip();
        return node;
    }

    std::string_view text_;
    std::size_t at_ = 0;
    bool failed_ = false;
};

/// The result of one pattern for a text of up to 63 bytes.
struct Outcome {
    bool matches = false;   ///< the whole text, negation left out
    bool isInside = false;  ///< the end of the text lies at or before a byte of the pattern
};

class Matcher {
public:
    static Outcome match(const Node& root, std::string_view text) {
        Matcher matcher{text};
        std::uint64_t ends = matcher.step(root, 1);
        Outcome outcome;
        outcome.matches = (ends >> text.size()) & 1;
        outcome.isInside = outcome.matches || matcher.isInside_;
        return outcome;
    }

private:
    explicit Matcher(std::string_view text) : text_(text) {}

    // The positions, one bit each, where `node` may end if it starts at one of `starts`.
    std::uint64_t step(const Node& node, std::uint64_t starts) {
        if (starts == 0) return 0;
        switch (node.kind) {
            case Node::Empty:
                return starts;
            case Node::Bytes: {
                if ((starts >> text_.size()) & 1) isInside_ = true;
                std::uint64_t ends = 0;
                for (std::size_t i = 0; i < text_.size(); ++i) {
                    if (((starts >> i) & 1) && node.bytes[static_cast<unsigned char>(text_[i])]) {
                        ends |= std::uint64_t{2} << i;
                    }
                }
                return ends;
            }
            case Node::Sequence:
                return step(*node.right, step(*node.left, starts));
            case Node::Choice:
                return step(*node.left, starts) | step(*node.right, starts);
            case Node::Repeat:
                break;
        }
        std::uint64_t ends = node.minimum == 0 ? starts : 0;
        for (unsigned i = 1; node.isEndless || i <= node.maximum; ++i) {
            starts = step(*node.left, starts);
            std::uint64_t before = ends;
            if (i >= node.minimum) ends |= starts;
            if (starts == 0 || (node.isEndless && i > text_.size() && ends == before)) break;
        }
        return ends;
    }

    std::string_view text_;
    bool isInside_ = false;
};

/// The path numbers that one engine with `patterns`, numbered from 0, reports for `text`.
inline std::vector<std::int32_t> report(const std::vector<Pattern>& patterns,
                                        std::string_view text) {
    std::vector<std::int32_t> paths;
    bool isInside = false;
    for (std::size_t i = 0; i < patterns.size(); ++i) {
        Outcome outcome = Matcher::match(*patterns[i].root, text);
        isInside = isInside || outcome.isInside;
        if (outcome.matches != patterns[i].isNegated) paths.push_back(static_cast<int>(i));
    }
    return isInside || text.empty() ? paths : report(patterns, "");
}

/// The non-empty matches within `text`, by trying all places: each pattern at each end of one, with
/// 0 for its beginning; and the leftmost longest ones. `Match` is {begin, end, pattern}.
template <class Match>
std::pair<std::vector<Match>, std::vector<Match>> matches(const std::vector<Pattern>& patterns,
                                                          const std::string& text) {
    std::vector<Match> ends;
    std::vector<Match> longest(text.size(), Match{0, 0, -1});
    for (std::size_t end = 1; end <= text.size(); ++end) {
        for (std::size_t path = 0; path < patterns.size(); ++path) {
            bool isFound = false;
            for (std::size_t begin = 0; begin < end; ++begin) {
                const std::string part = text.substr(begin, end - begin);
                if (!Matcher::match(*patterns[path].root, part).matches) continue;
                isFound = true;
                const auto number = static_cast<std::int32_t>(path);
                if (longest[begin].end < end) longest[begin] = {begin, end, number};
            }
            if (isFound) ends.push_back({0, end, static_cast<std::int32_t>(path)});
        }
    }
    std::vector<Match> leftmost;
    for (std::size_t at = 0; at < text.size();) {
        if (longest[at].path >= 0) leftmost.push_back(longest[at]);
        at = std::max(at + 1, longest[at].end);
    }
    return {ends, leftmost};
}

/// All texts over `bytes` of up to `length` bytes, the short ones first.
inline std::vector<std::string> textsOf(const std::string& bytes, std::size_t length) {
    std::vector<std::string> texts{""};
    for (std::size_t i = 0; i < texts.size(); ++i) {
        if (texts[i].size() == length) break;
        for (char byte : bytes) texts.push_back(texts[i] + byte);
    }
    return texts;
}

/// Makes patterns over the bytes a, b, c and newline.
class RandomPatterns : public Harness::RandomText {
public:
    explicit RandomPatterns(unsigned seed) : RandomText(rulesCM, seed) {}
    std::string pattern() { return made("pattern", 6); }

private:
    static inline const Rules rulesCM = {
        {"pattern", {"$choice | $choice | $choice | $choice | $choice | !$choice"}},
        {"choice",
         {"$sequence",
          "$sequence | $sequence | $sequence | $sequence|$sequence | "
          "$sequence|$choice | $sequence|"}},
        {"sequence", {"$part", "$part | $part$part | $part$part$part | $part$part$part$part"}},
        {"part",
         {"$atom | $atom | $atom$suffix",
          "$atom | $atom | $atom | $atom$suffix | $atom$suffix | ($choice) | ($choice)$suffix"}},
        {"suffix", {"? | + | * | * | {0} | {1} | {3} | {0,2} | {2,3} | {3,1}"}},
        {"atom", {"a | b | c | . | [ab] | [^a] | [^ab] | [a-c] | \\n | [b-a] | \\098 | [^b-a]"}},
    };
};

}  // namespace reference

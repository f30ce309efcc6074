#include "scr/builtin/search/SearchAutomaton.h"

#include <optional>
#include <utility>

#include "fsm/table/ByteClasses.h"
#include "fsm/table/Determiniser.h"
#include "scr/value/LargeText.h"

namespace SCR {

namespace {

using Bytes = FSM::ByteSet;
using Piece = std::unique_ptr<FSM::EnginePart>;

// Reads an expression into a part of an automaton; null when the expression is not plain.
class PieceReader {
public:
    explicit PieceReader(std::string_view pattern) : left_(pattern) {}

    Piece read() {
        Piece all = alternatives(0);
        return left_.empty() ? std::move(all) : nullptr;
    }

private:
    static constexpr int deepest = 50;
    static constexpr int mostItems = 50;

    Piece alternatives(int depth) {
        Piece all = sequence(depth);
        while (all && take('|')) {
            const Piece next = sequence(depth);
            if (!next) return nullptr;
            all->alternative(*next);
        }
        return all;
    }

    Piece sequence(int depth) {
        Piece all = repetition(depth);
        while (all && !left_.empty() && left_.front() != '|' && left_.front() != ')') {
            const Piece next = repetition(depth);
            if (!next) return nullptr;
            all->concatenate(*next);
        }
        return all;
    }

    Piece repetition(int depth) {
        Piece piece = item(depth);
        if (!piece || left_.empty()) return piece;
        const char sign = left_.front();
        if (sign == '*') {
            piece->makeZeroOrMore();
        } else if (sign == '+') {
            piece->makeOneOrMore();
        } else if (sign == '?') {
            piece->makeZeroOrOne();
        } else {
            return piece;
        }
        left_.remove_prefix(1);
        // A character after a repetition may change its meaning.
        const bool isRead =
            left_.empty() || std::string_view("*+?{").find(left_.front()) == std::string_view::npos;
        return isRead ? std::move(piece) : nullptr;
    }

    Piece item(int depth) {
        if (left_.empty()) return nullptr;
        if (take('(')) {
            if (depth == deepest) return nullptr;
            Piece inner = alternatives(depth + 1);
            return take(')') ? std::move(inner) : nullptr;
        }
        const std::optional<Bytes> bytes = byteSet();
        if (!bytes || ++items_ > mostItems) return nullptr;
        auto piece = std::make_unique<FSM::EnginePart>(false);
        for (unsigned byte = 0; byte < bytes->size(); ++byte) {
            if ((*bytes)[byte]) piece->addCharacters(static_cast<unsigned char>(byte));
        }
        return piece;
    }

    std::optional<Bytes> byteSet() {
        const char byte = left_.front();
        left_.remove_prefix(1);
        switch (byte) {
            case '.':
                return ~Bytes();
            case '[':
                return bracket();
            case '\\':
                return escape();
            case '*':
            case '+':
            case '?':
            case '{':
            case '}':
            case ']':
            case ')':
            case '|':
            case '^':
            case '$':
                return std::nullopt;
            default:
                return isPlain(byte) ? std::optional(Bytes().set(indexOf(byte))) : std::nullopt;
        }
    }

    std::optional<Bytes> escape() {
        if (left_.empty()) return std::nullopt;
        const char byte = left_.front();
        left_.remove_prefix(1);
        switch (byte) {
            case 'd':
                return digits();
            case 'D':
                return ~digits();
            case 'w':
                return words();
            case 'W':
                return ~words();
            case 's':
                return blanks();
            case 'S':
                return ~blanks();
            default:
                break;
        }
        if (!isPlain(byte) || byte == ' ' || words()[indexOf(byte)]) return std::nullopt;
        return Bytes().set(indexOf(byte));
    }

    std::optional<Bytes> bracket() {
        const bool isNegated = take('^');
        Bytes bytes;
        for (bool isFirst = true; !take(']'); isFirst = false) {
            const std::optional<char> low = bracketByte(isFirst);
            if (!low) return std::nullopt;
            char high = *low;
            if (left_.size() > 1 && left_[0] == '-' && left_[1] != ']') {
                left_.remove_prefix(1);
                const std::optional<char> end = bracketByte(false);
                if (*low == '-' || !end || *end < *low) return std::nullopt;
                high = *end;
            }
            for (std::size_t i = indexOf(*low); i <= indexOf(high); ++i) bytes.set(i);
        }
        if (bytes.none()) return std::nullopt;
        return isNegated ? ~bytes : bytes;
    }

    // A byte that stands for itself in brackets; a "-" at either end is one.
    std::optional<char> bracketByte(bool isFirst) {
        if (left_.size() < 2) return std::nullopt;
        const char byte = left_.front();
        if (!isPlain(byte) || byte == '[' || byte == '\\' || byte == ']') return std::nullopt;
        if (byte == '-' && !isFirst && left_[1] != ']') return std::nullopt;
        left_.remove_prefix(1);
        return byte;
    }

    bool take(char byte) {
        if (left_.empty() || left_.front() != byte) return false;
        left_.remove_prefix(1);
        return true;
    }

    static bool isPlain(char byte) { return byte >= ' ' && byte <= '~'; }
    static std::size_t indexOf(char byte) { return static_cast<unsigned char>(byte); }

    static Bytes range(char low, char high) {
        Bytes bytes;
        for (std::size_t i = indexOf(low); i <= indexOf(high); ++i) bytes.set(i);
        return bytes;
    }
    static Bytes digits() { return range('0', '9'); }
    static Bytes words() { return digits() | range('A', 'Z') | range('a', 'z') | range('_', '_'); }
    static Bytes blanks() { return range('\t', '\n') | range('\f', '\r') | range(' ', ' '); }

    std::string_view left_;
    int items_ = 0;
};

}  // namespace

std::unique_ptr<SearchAutomaton> SearchAutomaton::make(std::string_view pattern) {
    const FSM::Pattern read{PieceReader(pattern).read(), 0, {}};
    FSM::RawAutomaton raw;
    if (!read.part ||
        FSM::determinise(&read, 1, {maxStatesCM - firstCM}, raw) != FSM::Limit::None ||
        raw.acceptsEmpty())
        return nullptr;

    std::unique_ptr<SearchAutomaton> made(new SearchAutomaton);
    made->rows_.resize(raw.stateCount() + firstCM);
    made->isFinal_.resize(raw.stateCount() + firstCM);
    made->rows_[deadCM].fill(deadCM);
    for (std::size_t state = 0; state < raw.stateCount(); ++state) {
        made->isFinal_[state + firstCM] = raw.acceptedLists[state] != 0 ? 1 : 0;
        const std::uint32_t* const next = raw.next.row(state);
        Row& row = made->rows_[state + firstCM];
        for (std::size_t byte = 0; byte < row.size(); ++byte) {
            const std::uint32_t to = next[raw.classOf[byte]];
            row[byte] =
                to != FSM::RawAutomaton::noStateCM ? static_cast<State>(to + firstCM) : deadCM;
        }
    }
    for (std::size_t byte = 0; byte < made->isBegin_.size(); ++byte) {
        made->isBegin_[byte] = made->rows_[firstCM][byte] != deadCM;
    }
    return made;
}

SearchAutomaton::Result SearchAutomaton::search(std::string_view text, std::size_t start,
                                                bool isLongest) const {
    return text.size() - start <= textPieceSizeS ? find<false>(text, start, isLongest)
                                                 : find<true>(text, start, isLongest);
}

template <bool counts>
SearchAutomaton::Result SearchAutomaton::find(std::string_view text, std::size_t start,
                                              bool isLongest) const {
    const auto count = [](std::size_t place) {
        if (counts && place % textPieceSizeS == 0) [[unlikely]]
            countWork(textPieceSizeS);
    };
    const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
    std::size_t budget = 4 * (text.size() - start) + 256;
    for (std::size_t begin = start;; ++begin) {
        while (begin < text.size() && !isBegin_[bytes[begin]]) count(++begin);
        if (begin == text.size()) return {Outcome::None, begin, begin};
        std::size_t end = 0;  // of the match found, which is never empty
        std::size_t at = begin;
        for (State state = firstCM; at < text.size();) {
            state = rows_[state][bytes[at]];
            count(++at);
            if (state == deadCM) break;
            if (isFinal_[state] != 0) {
                end = at;
                if (!isLongest) break;
            }
        }
        if (end != 0) return {Outcome::Found, begin, end};
        if (at - begin > budget) return {Outcome::Stuck, begin + 1, 0};
        budget -= at - begin;
    }
}

}  // namespace SCR

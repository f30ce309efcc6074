#include "fsm/pattern/PatternScanner.h"

#include <cstdint>
#include <istream>
#include <iterator>
#include <limits>
#include <string_view>
#include <utility>

#include "PatternGrammar.h"
#include "fsm/pattern/Characters.h"

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// The value of a byte that stands for itself: that of a signed char, whatever `char` is.
int signedValue(char c) {
    const auto code = static_cast<unsigned char>(c);
    return code > 127 ? code - 256 : code;
}

}  // namespace

FSM_FlexLexer::FSM_FlexLexer(std::istream* in, std::ostream*)
    : FSM_FlexLexer(std::string(std::istreambuf_iterator<char>(*in), {})) {}

FSM_FlexLexer::FSM_FlexLexer(std::string pattern, const FSM::PatternOptions& options)
    : options_(options), pattern_(std::move(pattern)) {
    if (!options.takesNul) pattern_.resize(std::char_traits<char>::length(pattern_.c_str()));
}

int FSM_FlexLexer::yylex(int& value) {
    value = 0;
    tokenBegin_ = position_;
    int token = scan(value);
    lastValue_ = value;
    atLineStart_ = position_ > 0 && pattern_[position_ - 1] == '\n';
    return token;
}

bool FSM_FlexLexer::takeText() {
    const auto fits = [&](unsigned char byte) {
        return byte != 0 && (byte < 128 || !options_.isUtf8);
    };
    const auto first = static_cast<unsigned char>(lastValue_);
    const bool isOneByte = !options_.isUtf8 || lastValue_ < 128;
    if (condition_ != Condition::Initial || options_.ignoresCase || !isOneByte || !fits(first)) {
        return false;
    }
    // An operator, or what is one at the beginning of a line, ends the text.
    constexpr std::string_view operators("\\[({?+*|.)!\n");
    std::size_t end = position_;
    while (end < pattern_.size() && fits(static_cast<unsigned char>(pattern_[end])) &&
           operators.find(pattern_[end]) == std::string_view::npos) {
        ++end;
    }
    constexpr std::string_view repetitions("?+*{");
    if (end > position_ && end < pattern_.size() &&
        repetitions.find(pattern_[end]) != std::string_view::npos) {
        --end;
    }
    if (end == position_) return false;
    text_.assign(1, static_cast<char>(first));
    text_.append(pattern_, position_, end - position_);
    position_ = end;
    atLineStart_ = false;
    return true;
}

void* FSM_FlexLexer::takeMemory(std::size_t bytes) {
    memory_.push_back(std::make_unique_for_overwrite<std::byte[]>(bytes));
    return memory_.back().get();
}

char FSM_FlexLexer::look(std::size_t distance) const {
    return position_ + distance < pattern_.size() ? pattern_[position_ + distance] : '\0';
}

int FSM_FlexLexer::scan(int& value) {
    if (position_ == pattern_.size()) return 0;
    const char c = look(0);
    if (c == '\\' && position_ + 1 < pattern_.size() && look(1) != '\n') return scanEscape(value);
    if (condition_ == Condition::Count && isDigit(c)) return scanNumber(value);
    value = takeCharacter();
    if (isMisencoded_) return FSM_ERROR;

    if (condition_ == Condition::Set) {
        switch (c) {
            case ']':
                condition_ = Condition::Initial;
                return SET_END;
            case '-':
                return HYPHEN;
            case '*':
            case '+':
            case '?':
                return FSM_CHAR;
            default:
                break;
        }
    } else if (condition_ == Condition::Count) {
        switch (c) {
            case '}':
                condition_ = Condition::Initial;
                return COUNT_END;
            case ',':
                return COMMA;
            default:
                break;
        }
    }

    switch (c) {
        case '[':
            condition_ = Condition::Set;
            if (look(0) != '^') return SET_START;
            ++position_;
            return SET_START_NEG;
        case '{':
            condition_ = Condition::Count;
            return COUNT_START;
        case '(':
            return OPEN_PARENTHESIS;
        case ')':
            return CLOSE_PARENTHESIS;
        case '?':
            return ZERO_OR_ONE;
        case '+':
            return ONE_OR_MORE;
        case '*':
            return ZERO_OR_MORE;
        case '|':
            return FSM_OR;
        case '.':
            return FSM_POINT;
        case '!':
            return atLineStart_ ? NEGATION : FSM_CHAR;
        default:
            return FSM_CHAR;
    }
}

// The byte here, or with UTF-8 the character, as the value of a token.
int FSM_FlexLexer::takeCharacter() {
    const char c = look(0);
    if (!options_.isUtf8) {
        ++position_;
        return signedValue(c);
    }
    const FSM::Character character = FSM::characterOf(std::string_view(pattern_).substr(position_));
    isMisencoded_ = character.length == 0;
    position_ += isMisencoded_ ? 1 : character.length;
    return isMisencoded_ ? signedValue(c) : static_cast<int>(character.code);
}

// A backslash and three digits is the byte with that decimal code; a backslash and any other byte
// is that byte, or with UTF-8 that character.
int FSM_FlexLexer::scanEscape(int& value) {
    if (isDigit(look(1)) && isDigit(look(2)) && isDigit(look(3))) {
        value = (look(1) - '0') * 100 + (look(2) - '0') * 10 + (look(3) - '0');
        position_ += 4;
        return value > 255 ? FSM_ERROR : FSM_CHAR;
    }
    ++position_;
    value = takeCharacter();
    if (value == 'n') value = '\n';
    if (value == 't') value = '\t';
    return isMisencoded_ ? FSM_ERROR : FSM_CHAR;
}

int FSM_FlexLexer::scanNumber(int& value) {
    constexpr std::int64_t maxNumber = std::numeric_limits<int>::max();
    std::int64_t number = 0;
    for (; isDigit(look(0)); ++position_) {
        if (number <= maxNumber) number = number * 10 + (look(0) - '0');
    }
    value = static_cast<int>(number <= maxNumber ? number : maxNumber);
    return number <= maxNumber ? NUMBER : FSM_ERROR;
}

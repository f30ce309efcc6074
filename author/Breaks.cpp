#include "author/Breaks.h"

#include <algorithm>

namespace Author {

using SCR::SourceKind;
using SCR::SourceToken;
using SCR::Word;

namespace {

// Brackets nested deeper are not broken.
constexpr int mostLevelsS = 50;
// Parts do not stand below one another further right.
constexpr std::size_t mostAlignedS = 60;

}  // namespace

std::size_t columnsOf(std::string_view text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
    }));
}

bool Breaks::isUnary(std::size_t index) const {
    if (lines_.textOf(index) != "-" || index == 0) return lines_.textOf(index) == "-";
    const SourceToken& before = lines_.word(index - 1);
    switch (before.kind) {
        case SourceKind::Keyword:
            return before.word != Word::BoolConstant;
        case SourceKind::Comparison:
            return true;
        case SourceKind::Sign: {
            const std::string_view sign = lines_.textOf(index - 1);
            return sign != ")" && sign != "]" && sign != "}";
        }
        default:
            return false;
    }
}

bool Breaks::hasBlank(const Line& line, std::size_t index) const {
    const auto isBlockBrace = [&](std::size_t word) {
        return (line.opensBlock && word + 1 == line.end) ||
               (line.closesBlock && word == line.first);
    };
    const SourceToken& word = lines_.word(index);
    const SourceToken& before = lines_.word(index - 1);
    const std::string_view text = lines_.textOf(index);
    const std::string_view last = lines_.textOf(index - 1);
    if (isBlockBrace(index) || isBlockBrace(index - 1)) return true;
    if (word.kind == SourceKind::Sign) {
        if (text == ":") {
            // Some words and a colon are one token.
            return last == "RESULTS" || last == "CONDITIONS" || last == "QUERY" ||
                   last == "MAPPING";
        }
        if (text == "," || text == ";" || text == ")" || text == "]" || text == "{" ||
            text == "}" || text == "[") {
            return false;
        }
    }
    if (before.kind == SourceKind::Sign) {
        if (last == "(" || last == "[" || last == "{") return false;
        if (last == "-" && isUnary(index - 1)) return false;
    }
    if (text == "(" && word.kind == SourceKind::Sign) {
        return before.kind == SourceKind::Keyword || before.kind == SourceKind::Comparison ||
               (before.kind == SourceKind::Sign && last != ")" && last != "]" && last != "}");
    }
    return true;
}

std::size_t Breaks::width(const Line& line) const {
    std::size_t width = 0;
    for (std::size_t i = line.first; i < line.end; ++i) {
        if (i > line.first && hasBlank(line, i)) ++width;
        const std::string_view text = lines_.textOf(i);
        const std::size_t end = text.find('\n');
        width += columnsOf(text.substr(0, end));
        if (end != std::string_view::npos) break;
    }
    return width;
}

Breaks::Strength Breaks::strengthOf(std::size_t index) const {
    const SourceToken& word = lines_.word(line_.first + index);
    switch (word.kind) {
        case SourceKind::Comparison:
            return Strength::Comparison;
        case SourceKind::Keyword:
            return word.word == Word::BoolOperator ? Strength::Bool : Strength::None;
        case SourceKind::Sign:
            break;
        default:
            return Strength::None;
    }
    switch (lines_.text()[word.begin]) {
        case ';':
            return Strength::Semicolon;
        case ',':
            return Strength::Comma;
        case '=':
            return Strength::Assignment;
        case '+':
            return Strength::Sum;
        case '-':
            return isUnary(line_.first + index) ? Strength::None : Strength::Sum;
        case '*':
        case '/':
        case '%':
            return Strength::Product;
        default:
            return Strength::None;
    }
}

Breaks::Strength Breaks::weakest(std::size_t begin, std::size_t end) const {
    Strength found = Strength::None;
    for (std::size_t i = begin; i < end; ++i) {
        const bool isText = i > begin && lines_.word(line_.first + i).kind == SourceKind::String &&
                            lines_.word(line_.first + i - 1).kind == SourceKind::String;
        // A sign at the end splits nothing.
        const Strength strength = isText ? Strength::Text : strengthOf(i);
        if (i + 1 < end || isText) found = std::min(found, strength);
        i = closing_[i];
    }
    return found;
}

std::size_t Breaks::blankBefore(std::size_t index) const {
    return hasBlank(line_, line_.first + index) ? 1 : 0;
}

std::size_t Breaks::columns(std::size_t begin, std::size_t end) const {
    return begin < end ? starts_[end - 1] + widths_[end - 1] - starts_[begin] : 0;
}

bool Breaks::fits(std::size_t begin, std::size_t end, std::size_t tail) const {
    return column_ + columns(begin, end) + tail <= mostColumnsS;
}

void Breaks::startLine(std::size_t index, std::size_t column) { placed_[index] = column_ = column; }

// A word that begins a line has no blank before it.
void Breaks::put(std::size_t index, bool isFirst) {
    const std::string_view text = lines_.textOf(line_.first + index);
    const std::size_t end = text.rfind('\n');
    if (!isFirst && placed_[index] == stay) column_ += blankBefore(index);
    if (end == std::string_view::npos) {
        column_ += widths_[index];
    } else {
        column_ = columnsOf(text.substr(end + 1));
    }
}

std::vector<std::size_t> Breaks::place(const Line& line) {
    line_ = line;
    const std::size_t count = line.end - line.first;
    starts_.assign(count, 0);
    widths_.assign(count, 0);
    placed_.assign(count, stay);
    closing_.resize(count);
    std::vector<std::size_t> open;
    for (std::size_t i = 0; i < count; ++i) {
        const std::string_view text = lines_.textOf(line.first + i);
        widths_[i] = columnsOf(text);
        if (i > 0) starts_[i] = starts_[i - 1] + widths_[i - 1] + blankBefore(i);
        closing_[i] = i;
        const bool isBlockBrace =
            (line.opensBlock && i + 1 == count) || (line.closesBlock && i == 0);
        if (lines_.word(line.first + i).kind != SourceKind::Sign || isBlockBrace) continue;
        if (text == "(" || text == "[" || text == "{") open.push_back(i);
        if ((text == ")" || text == "]" || text == "}") && !open.empty()) {
            closing_[open.back()] = i;
            open.pop_back();
        }
    }
    column_ = line.level * stepS;
    range(0, count, 0, 0);
    return placed_;
}

void Breaks::range(std::size_t begin, std::size_t end, std::size_t tail, int depth) {
    if (fits(begin, end, tail) || depth > mostLevelsS) {
        for (std::size_t i = begin; i < end; ++i) put(i, i == begin);
        return;
    }
    // What ends a statement or a label belongs to no part.
    const std::string_view last = lines_.textOf(line_.first + end - 1);
    if (depth == 0 && end - begin > 1 && (last == ";" || last == ":")) {
        range(begin, end - 1, tail + 1, depth + 1);
        put(end - 1, false);
        return;
    }
    // What these words say goes on to the right of them.
    const Word word = lines_.word(line_.first + begin).word;
    if ((word == Word::Return || word == Word::Case) && end - begin > 1) {
        put(begin, true);
        column_ += blankBefore(begin + 1);
        range(begin + 1, end, tail, depth + 1);
        return;
    }
    const Strength strength = weakest(begin, end);
    if (strength == Strength::None) {
        group(begin, end, tail, depth);
    } else {
        split(begin, end, tail, strength, depth);
    }
}

void Breaks::split(std::size_t begin, std::size_t end, std::size_t tail, Strength strength,
                   int depth) {
    // The parts, each with the sign after it.
    std::vector<std::size_t> ends;
    for (std::size_t i = begin; i + 1 < end; ++i) {
        const std::size_t next = closing_[i] + 1;
        const bool isText = strength == Strength::Text && next < end &&
                            lines_.word(line_.first + next).kind == SourceKind::String;
        if (strengthOf(i) == strength || isText) ends.push_back(next);
        if (strength == Strength::Assignment && !ends.empty()) break;
        i = closing_[i];
    }
    if (strength == Strength::Assignment) {
        assignment(begin, ends.front() - 1, end, tail, depth);
        return;
    }
    ends.push_back(end);
    std::size_t widest = 0;
    for (std::size_t i = 0, from = begin; i < ends.size(); from = ends[i++]) {
        widest = std::max(widest, columns(from, ends[i]));
    }
    std::size_t aligned = column_;
    const std::size_t hanging = (line_.level + 2) * stepS;
    if (aligned > mostAlignedS && aligned + widest + tail > mostColumnsS && hanging < aligned) {
        aligned = hanging;
        if (begin > 0) startLine(begin, aligned);
    }
    const bool isList = strength == Strength::Bool || strength == Strength::Semicolon;
    for (std::size_t i = 0, from = begin; i < ends.size(); from = ends[i++]) {
        const std::size_t to = ends[i];
        const bool isLast = to == end;
        const std::size_t rest = isLast ? tail : 0;
        const std::size_t blank = i > 0 ? blankBefore(from) : 0;
        if (i > 0) {
            column_ += blank;
            if (isList || !fits(from, to, rest)) startLine(from, aligned);
        }
        if (fits(from, to, rest)) {
            for (std::size_t word = from; word < to; ++word) put(word, word == from);
            continue;
        }
        // The sign after the part stays with it.
        const bool hasSign = !isLast && strengthOf(to - 1) == strength && to - from > 1;
        if (!hasSign) {
            range(from, to, rest, depth + 1);
            continue;
        }
        const std::size_t sign = to - 1;
        range(from, sign, widths_[sign] + blankBefore(sign), depth + 1);
        put(sign, false);
    }
}

void Breaks::assignment(std::size_t begin, std::size_t sign, std::size_t end, std::size_t tail,
                        int depth) {
    range(begin, sign, 1 + blankBefore(sign), depth + 1);
    put(sign, false);
    const std::size_t value = sign + 1;
    const std::size_t hanging = (line_.level + 1) * stepS;
    column_ += blankBefore(value);
    // What cannot be broken well here may fit in a line of its own.
    const bool isWhole = hanging + columns(value, end) + tail <= mostColumnsS;
    const bool isParted = weakest(value, end) != Strength::None;
    bool hasParts = false;
    std::size_t first = end;  // after what the value begins with
    for (std::size_t i = value; i < end; ++i) {
        hasParts = hasParts || strengthOf(i) != Strength::None;
        if (first == end && (closing_[i] != i || strengthOf(i) != Strength::None)) first = i + 1;
    }
    const bool startFits = column_ + columns(value, first) <= mostColumnsS;
    if (!startFits || (isWhole && !isParted && (!hasParts || column_ > mostAlignedS))) {
        startLine(value, hanging);
    }
    range(value, end, tail, depth + 1);
}

void Breaks::group(std::size_t begin, std::size_t end, std::size_t tail, int depth) {
    for (std::size_t i = begin; i < end; ++i) {
        put(i, i == begin);
        const std::size_t close = closing_[i];
        if (close == i) continue;
        if (close > i + 1) range(i + 1, close, columns(close, end) + tail, depth + 1);
        put(close, false);
        i = close;
    }
}

}  // namespace Author

#include "author/Lines.h"

#include <utility>

namespace Author {

using SCR::SourceKind;
using SCR::Word;

namespace {

// More levels of statements than any script that compiles has.
constexpr std::size_t mostDepthS = 2000;

bool isOpening(std::string_view sign) { return sign == "(" || sign == "[" || sign == "{"; }
bool isClosing(std::string_view sign) { return sign == ")" || sign == "]" || sign == "}"; }

bool isPair(std::string_view open, std::string_view close) {
    return (open == "(" && close == ")") || (open == "[" && close == "]") ||
           (open == "{" && close == "}");
}

bool beginsStatement(Word word) {
    return word == Word::If || word == Word::While || word == Word::For || word == Word::Do ||
           word == Word::Switch || word == Word::RegExprSwitch || word == Word::Case ||
           word == Word::Default || word == Word::Break || word == Word::Return ||
           word == Word::Else || word == Word::Function || word == Word::Const || word == Word::Use;
}

}  // namespace

Lines::Lines(std::string_view text) : text_(text), source_(SCR::sourceTokens(text)) {
    for (std::size_t i = 0; i < source_.tokens.size(); ++i) {
        if (source_.tokens[i].isSeen()) words_.push_back(i);
    }
    const auto failAt = [this](const char* fault, std::size_t at) {
        fault_ = fault;
        faultAt_ = at;
    };
    if (source_.openComment != none) {
        failAt("the comment that begins here is not closed", source_.openComment);
        return;
    }
    if (source_.badLineMark != none) {
        failAt("this line says no line and file", source_.badLineMark);
        return;
    }
    for (std::size_t i = 0; i < words_.size(); ++i) {
        if (word(i).kind != SourceKind::Strange) continue;
        fail(textOf(i) == "\"" ? "the text that begins here is not closed"
                               : "no statement has this sign",
             i);
        return;
    }
    list(0, false);
}

bool Lines::isSign(std::size_t index, char sign) const {
    return index < words_.size() && word(index).kind == SourceKind::Sign &&
           text_[word(index).begin] == sign;
}

Word Lines::wordAt(std::size_t index) const {
    return index < words_.size() ? word(index).word : Word::None;
}

bool Lines::isUnseenBefore(std::size_t index) const {
    return index > 0 && words_[index] != words_[index - 1] + 1;
}

bool Lines::isIncludeBefore(std::size_t index) const {
    for (std::size_t i = words_[index - 1] + 1; i < words_[index]; ++i) {
        if (source_.tokens[i].kind == SourceKind::IncludeLine) return true;
    }
    return false;
}

bool Lines::fail(const std::string& fault, std::size_t index) {
    fault_ = fault;
    faultAt_ = index < words_.size() ? word(index).begin : text_.size();
    return false;
}

bool Lines::failAtOpen(std::size_t index) {
    std::string fault = "`";
    fault.append(textOf(index)).append("` is not closed");
    return fail(fault, index);
}

Line& Lines::add(std::size_t from, std::size_t level) {
    Line line;
    line.first = from;
    line.end = next_;
    line.level = level;
    line.closesBlock = isSign(from, '}');
    lines_.push_back(line);
    return lines_.back();
}

void Lines::flush(std::size_t level) {
    if (std::exchange(pending_, none) != none) add(next_ - 1, level);
}

std::size_t Lines::goOn(std::size_t level) {
    if (pending_ != none && isUnseenBefore(next_)) flush(level);
    const std::size_t from = std::exchange(pending_, none);
    return from != none ? from : next_;
}

bool Lines::list(std::size_t level, bool isBlock) {
    while (next_ < words_.size()) {
        if (isSign(next_, '}')) {
            if (isBlock) return true;
            return fail("this `}` closes nothing", next_);
        }
        if (!statement(level)) return false;
        flush(level);
    }
    return true;
}

bool Lines::statement(std::size_t level) {
    if (++depth_ > mostDepthS) return fail("the statements are nested too deep", next_);
    const auto parse = [&] {
        if (isSign(next_, '{')) return block(level, next_);
        switch (wordAt(next_)) {
            case Word::If:
                return conditional(level, next_);
            case Word::While:
            case Word::For:
                return loop(level);
            case Word::Do:
                return doLoop(level);
            case Word::Switch:
            case Word::RegExprSwitch:
                return choice(level);
            case Word::Function:
                return function(level);
            case Word::Else:
            case Word::Case:
            case Word::Default:
            case Word::Break:
                return fail("no statement begins with `" + std::string(textOf(next_)) + "` here",
                            next_);
            default:
                return simple(level);
        }
    };
    const bool isParsed = parse();
    --depth_;
    return isParsed;
}

bool Lines::block(std::size_t level, std::size_t from) {
    const std::size_t open = next_++;
    add(from, level).opensBlock = true;
    if (!list(level + 1, true)) return false;
    if (next_ == words_.size()) return failAtOpen(open);
    pending_ = next_++;
    return true;
}

bool Lines::body(std::size_t level, std::size_t from) {
    if (isSign(next_, '{')) return block(level, from);
    add(from, level).joins = 1;
    if (next_ == words_.size()) return fail("a statement is missing at the end", next_);
    if (!statement(level + 1)) return false;
    flush(level + 1);
    return true;
}

bool Lines::conditional(std::size_t level, std::size_t from) {
    for (;;) {
        if (!header() || !body(level, from)) return false;
        if (wordAt(next_) != Word::Else) return true;
        from = goOn(level);
        ++next_;
        if (wordAt(next_) != Word::If || isUnseenBefore(next_)) return body(level, from);
    }
}

bool Lines::loop(std::size_t level) {
    const std::size_t from = next_;
    return header() && body(level, from);
}

bool Lines::doLoop(std::size_t level) {
    const std::size_t from = next_++;
    if (!body(level, from)) return false;
    if (wordAt(next_) != Word::While) return fail("`do` needs a `while` here", next_);
    const std::size_t begin = goOn(level);
    if (!header() || !expect(';', "`;` is missing here")) return false;
    add(begin, level);
    return true;
}

bool Lines::choice(std::size_t level) {
    const std::size_t from = next_;
    if (!header()) return false;
    const std::size_t open = next_;
    if (!expect('{', "`{` is missing here")) return false;
    add(from, level).opensBlock = true;
    while (!isSign(next_, '}')) {
        if (next_ == words_.size()) return failAtOpen(open);
        if (!oneCase(level + 1)) return false;
    }
    pending_ = next_++;
    return true;
}

bool Lines::oneCase(std::size_t level) {
    const std::size_t from = next_;
    if (wordAt(next_) != Word::Case && wordAt(next_) != Word::Default) {
        return fail("`case` or `default` is missing here", next_);
    }
    for (++next_; !isSign(next_, ':');) {
        if (next_ == words_.size() || isSign(next_, ';') || beginsStatement(wordAt(next_))) {
            return fail("`:` is missing before this", next_);
        }
        if (!brackets()) return false;
    }
    if (!operandsFit(from)) return false;
    ++next_;
    const auto isBreak = [&] { return wordAt(next_) == Word::Break; };
    const auto leave = [&](std::size_t begin, std::size_t breakLevel) {
        ++next_;
        if (!expect(';', "`;` is missing here")) return false;
        add(begin, breakLevel).isSimple = true;
        return true;
    };
    const Word word = wordAt(next_);
    if (isSign(next_, '{')) {
        if (!block(level, from)) return false;
        if (!isBreak()) {
            flush(level);
            return true;
        }
        return leave(goOn(level), level);
    }
    const std::size_t head = lines_.size();
    add(from, level);
    if (isBreak()) {
        lines_[head].joins = 1;
        return leave(next_, level + 1);
    }
    if (word == Word::Case || word == Word::Default || isSign(next_, '}')) return true;
    lines_[head].joins = 1;
    if (next_ == words_.size()) return fail("a statement is missing at the end", next_);
    if (!statement(level + 1)) return false;
    flush(level + 1);
    if (!isBreak()) return true;
    lines_[head].joins = 2;
    return leave(next_, level + 1);
}

bool Lines::function(std::size_t level) {
    const std::size_t from = next_;
    while (!isSign(next_, '{')) {
        if (next_ == words_.size() || isSign(next_, ';')) {
            return fail("`{` is missing before this", next_);
        }
        if (!brackets()) return false;
    }
    return block(level, from);
}

bool Lines::simple(std::size_t level) {
    const std::size_t from = next_;
    while (!isSign(next_, ';')) {
        const bool isStart = next_ > from && beginsStatement(wordAt(next_));
        if (next_ == words_.size() || isStart || isSign(next_, '}')) {
            return fail("`;` is missing before this", next_);
        }
        if (!brackets()) return false;
    }
    if (!operandsFit(from)) return false;
    ++next_;
    add(from, level).isSimple = true;
    return true;
}

bool Lines::operandsFit(std::size_t from) {
    const auto endsOperand = [&](std::size_t index) {
        const SCR::SourceToken& token = word(index);
        return token.kind == SourceKind::Name || token.kind == SourceKind::ModuleName ||
               token.kind == SourceKind::Long || token.kind == SourceKind::Decimal ||
               token.kind == SourceKind::String || token.word == Word::BoolConstant ||
               (token.kind == SourceKind::Sign && isClosing(textOf(index)));
    };
    for (std::size_t i = from + 1; i < next_; ++i) {
        const bool beginsOperand = endsOperand(i) && word(i).kind != SourceKind::Sign;
        const bool areTexts =
            word(i).kind == SourceKind::String && word(i - 1).kind == SourceKind::String;
        if (beginsOperand && endsOperand(i - 1) && !areTexts && !isIncludeBefore(i)) {
            return fail("`;` or an operator is missing before this", i);
        }
    }
    return true;
}

// A word, or brackets with what is in them.
bool Lines::brackets() {
    std::vector<std::size_t> open;
    do {
        if (next_ == words_.size()) return failAtOpen(open.back());
        if (word(next_).kind == SourceKind::Sign) {
            const std::string_view sign = textOf(next_);
            if (isOpening(sign)) {
                open.push_back(next_);
            } else if (isClosing(sign)) {
                if (open.empty()) return fail("this bracket closes nothing", next_);
                if (!isPair(textOf(open.back()), sign)) return failAtOpen(open.back());
                open.pop_back();
            }
        }
        ++next_;
    } while (!open.empty());
    return true;
}

// The word that begins the statement, and the parentheses after it.
bool Lines::header() {
    ++next_;
    if (!isSign(next_, '(')) return fail("`(` is missing before this", next_);
    const std::size_t from = next_;
    return brackets() && operandsFit(from);
}

bool Lines::expect(char sign, const char* fault) {
    if (!isSign(next_, sign)) return fail(fault, next_);
    ++next_;
    return true;
}

}  // namespace Author

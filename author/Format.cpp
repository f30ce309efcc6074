#include "author/Format.h"

#include <algorithm>
#include <vector>

#include "author/Breaks.h"
#include "author/Lines.h"
#include "scr/parser/Crypt.h"

namespace Author {

using SCR::SourceKind;
using SCR::SourceToken;
using SCR::Word;

namespace {

constexpr std::string_view ignoreS = "kestrel: ignore";
constexpr std::string_view blanksS = " \t\r";

std::string_view withoutBlanksAtEnd(std::string_view text) {
    const std::size_t last = text.find_last_not_of(blanksS);
    return text.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

std::string_view withoutBlanks(std::string_view text) {
    const std::size_t first = text.find_first_not_of(blanksS);
    return first == std::string_view::npos ? std::string_view()
                                           : withoutBlanksAtEnd(text.substr(first));
}

// Calls visit(line) for the lines of `text`.
template <class Visit>
void eachLine(std::string_view text, Visit visit) {
    for (;;) {
        const std::size_t end = text.find('\n');
        visit(text.substr(0, end));
        if (end == std::string_view::npos) return;
        text.remove_prefix(end + 1);
    }
}

class Layout {
public:
    explicit Layout(const Lines& lines) : lines_(lines), text_(lines.text()), breaks_(lines) {
        const std::size_t end = text_.find('\n');
        if (end != std::string_view::npos && end > 0 && text_[end - 1] == '\r') end_ = "\r\n";
        findFixed();
    }

    std::string take() {
        const std::vector<Line>& lines = lines_.lines();
        out_.reserve(text_.size() + text_.size() / 8);
        for (std::size_t i = 0; i < lines.size(); ++i) {
            const std::size_t joined = joinedTo(i);
            if (joined > 0) {
                unseenBefore(lines[i].first, indentOf(lines[i]), &lines[i]);
                for (std::size_t k = i; k <= i + joined; ++k) {
                    plain(lines[k], k > i);
                }
                i += joined;
            } else {
                line(lines[i]);
            }
        }
        unseenBefore(lines_.words().size(), 0, nullptr);
        return std::move(out_);
    }

private:
    static std::size_t indentOf(const Line& line) { return line.level * stepS; }

    // Lines that a comment with "ignore" is about keep their line breaks: a warning is switched off
    // by the line that it is in.
    void findFixed() {
        const std::size_t first = text_.find(ignoreS);
        if (first == std::string_view::npos) return;
        fixed_.assign(lines_.words().size(), false);
        bool isAfter = false;
        std::size_t word = 0;
        std::size_t at = 0;
        eachLine(text_, [&](std::string_view line) {
            const bool isIgnored = line.find(ignoreS) != std::string_view::npos;
            const std::size_t end = at + line.size();
            for (; word < fixed_.size() && lines_.word(word).begin <= end; ++word) {
                fixed_[word] = isIgnored || isAfter;
            }
            isAfter = isIgnored;
            at = end + 1;
        });
    }
    bool isFixed(std::size_t word) const { return !fixed_.empty() && fixed_[word]; }

    std::size_t gapBegin(std::size_t word) const {
        return word == 0 ? 0 : lines_.word(word - 1).end;
    }
    std::string_view between(std::size_t begin, std::size_t end) const {
        return text_.substr(begin, end - begin);
    }
    bool isBroken(std::size_t begin, std::size_t end) const {
        return between(begin, end).find('\n') != std::string_view::npos;
    }
    // The same, where a comment may have several lines.
    bool isBrokenOutside(std::size_t begin, std::size_t end, std::size_t firstToken,
                         std::size_t endToken) const {
        for (std::size_t k = firstToken; k < endToken; ++k) {
            const SourceToken& token = lines_.tokens()[k];
            if (token.kind != SourceKind::BlockComment || isBroken(begin, token.begin)) return true;
            begin = token.end;
        }
        return isBroken(begin, end);
    }
    // The unseen tokens before the word; those at the end for the number of words.
    std::pair<std::size_t, std::size_t> unseen(std::size_t word) const {
        const auto& words = lines_.words();
        const std::size_t first = word == 0 ? 0 : words[word - 1] + 1;
        return {first, word == words.size() ? lines_.tokens().size() : words[word]};
    }
    bool hasUnseen(std::size_t word) const {
        const auto [first, end] = unseen(word);
        return first < end;
    }

    // Whether the line keeps its breaks: it holds a comment, or one with "ignore" is about it.
    bool keepsBreaks(const Line& line) const {
        for (std::size_t i = line.first; i < line.end; ++i) {
            if (isFixed(i) || (i > line.first && hasUnseen(i))) return true;
        }
        return false;
    }

    // How many of the lines after the one given stand in the same one.
    std::size_t joinedTo(std::size_t index) {
        const std::vector<Line>& lines = lines_.lines();
        const Line& head = lines[index];
        if (head.joins == 0 || index + head.joins >= lines.size() || keepsBreaks(head)) return 0;
        std::size_t width = indentOf(head) + breaks_.width(head);
        for (std::size_t i = index + 1; i <= index + head.joins; ++i) {
            if (!lines[i].isSimple || hasUnseen(lines[i].first) || keepsBreaks(lines[i])) return 0;
            width += 1 + breaks_.width(lines[i]);
        }
        return width <= mostColumnsS ? head.joins : 0;
    }

    void newLine() {
        out_ += end_;
        isAtBegin_ = true;
    }
    void indent(std::size_t column) {
        if (isAtBegin_) out_.append(column, ' ');
        isAtBegin_ = false;
    }

    void plain(const Line& line, bool isJoined) {
        for (std::size_t i = line.first; i < line.end; ++i) {
            if (i > line.first ? breaks_.hasBlank(line, i) : isJoined) out_ += ' ';
            out_ += lines_.textOf(i);
        }
        isAtBegin_ = false;
        isAfterOpen_ = line.opensBlock;
    }

    void line(const Line& line) {
        const std::size_t column = indentOf(line);
        unseenBefore(line.first, column, &line);
        if (keepsBreaks(line)) {
            kept(line);
        } else if (column + breaks_.width(line) <= mostColumnsS) {
            plain(line, false);
        } else {
            const std::vector<std::size_t> places = breaks_.place(line);
            for (std::size_t i = line.first; i < line.end; ++i) {
                const std::size_t place = places[i - line.first];
                if (place != Breaks::stay) {
                    newLine();
                    indent(place);
                } else if (i > line.first && breaks_.hasBlank(line, i)) {
                    out_ += ' ';
                }
                out_ += lines_.textOf(i);
            }
            isAfterOpen_ = line.opensBlock;
        }
    }

    // The words of a line with the breaks that they have.
    void kept(const Line& line) {
        for (std::size_t i = line.first; i < line.end; ++i) {
            if (i > line.first) {
                std::size_t last = gapBegin(i);
                const auto [first, end] = unseen(i);
                const Word word = lines_.word(i).word;
                const bool isAligned = word == Word::Else || word == Word::While ||
                                       (line.opensBlock && i + 1 == line.end);
                const std::size_t column = indentOf(line) + (isAligned ? 0 : 2 * stepS);
                for (std::size_t k = first; k < end; ++k) {
                    inner(lines_.tokens()[k], last, indentOf(line) + 2 * stepS);
                    last = lines_.tokens()[k].end;
                }
                const bool isNew = isBroken(last, lines_.word(i).begin) ||
                                   (first < end && endsLine(lines_.tokens()[end - 1]));
                if (isNew) {
                    if (!isAtBegin_) newLine();
                    indent(column);
                } else if (first < end || breaks_.hasBlank(line, i)) {
                    out_ += ' ';
                }
            }
            out_ += lines_.textOf(i);
            isAtBegin_ = false;
        }
        isAfterOpen_ = line.opensBlock;
    }

    static bool endsLine(const SourceToken& token) {
        return token.isSeen() ? false : token.kind != SourceKind::BlockComment;
    }

    // An unseen token within a line.
    void inner(const SourceToken& token, std::size_t last, std::size_t column) {
        const bool isLine =
            token.kind == SourceKind::IncludeLine || token.kind == SourceKind::LineMark;
        if (isLine || isBroken(last, token.begin)) {
            if (!isAtBegin_) newLine();
        } else if (!isAtBegin_ && token.kind == SourceKind::LineComment) {
            out_ += "  ";
        } else if (!isAtBegin_ && !out_.ends_with('(') && !out_.ends_with('[')) {
            out_ += ' ';
        }
        unseenToken(token, column);
    }

    void unseenToken(const SourceToken& token, std::size_t column) {
        std::string_view text = token.in(text_);
        if (token.kind == SourceKind::LineMark) column = 0;
        indent(column);
        if (token.kind != SourceKind::BlockComment) {
            out_ += withoutBlanksAtEnd(text);
            return;
        }
        bool isFirst = true;
        eachLine(text, [&](std::string_view line) {
            if (!isFirst) {
                newLine();
                const std::string_view rest = withoutBlanks(line);
                if (rest.starts_with('*')) {
                    out_.append(column + 1, ' ');
                    line = rest;
                }
            }
            isFirst = false;
            out_ += withoutBlanksAtEnd(line);
            isAtBegin_ = false;
        });
    }

    // What stands before the first word of a line, or at the end of the text, and how the line
    // before ends. Afterwards the word can follow.
    void unseenBefore(std::size_t word, std::size_t column, const Line* line) {
        const std::size_t next = line != nullptr ? lines_.word(word).begin : text_.size();
        const std::size_t begin = gapBegin(word);
        const auto [first, end] = unseen(word);
        const std::size_t commentColumn =
            line != nullptr && line->closesBlock ? column + stepS : column;
        if (word > 0 && line != nullptr && isFixed(word) &&
            !isBrokenOutside(begin, next, first, end)) {
            for (std::size_t k = first; k < end; ++k) addWithBlank(k, commentColumn);
            out_ += ' ';
            return;
        }
        std::size_t k = word > 0 ? trailing(first, end, begin, next, commentColumn) : first;
        std::size_t last = k > first ? lines_.tokens()[k - 1].end : begin;
        bool isInLine = false;  // the last comment and what follows may share a line
        for (; k < end; ++k) {
            const SourceToken& token = lines_.tokens()[k];
            if (isInLine && isComment(token) && !isBroken(last, token.begin)) {
                addWithBlank(k, commentColumn);
            } else {
                if (!isAtBegin_) newLine();
                if (mayBeBlank(last, token.begin)) blankLine();
                unseenToken(token, commentColumn);
                isAfterOpen_ = false;
            }
            isInLine = token.kind == SourceKind::BlockComment;
            last = token.end;
        }
        if (line == nullptr) {
            if (!isAtBegin_) newLine();
            return;
        }
        if (isInLine && !isBroken(last, next)) {
            out_ += ' ';
            return;
        }
        if (!isAtBegin_) newLine();
        if (mayBeBlank(last, next) && (!line->closesBlock || isAfterIgnore(last))) blankLine();
        indent(column);
    }

    static bool isComment(const SourceToken& token) {
        return token.kind == SourceKind::LineComment || token.kind == SourceKind::BlockComment;
    }
    void addWithBlank(std::size_t index, std::size_t column) {
        out_ += ' ';
        unseenToken(lines_.tokens()[index], column);
    }

    // Adds the comments that end the line before; gives the first token that does not.
    std::size_t trailing(std::size_t first, std::size_t end, std::size_t begin, std::size_t next,
                         std::size_t column) {
        std::size_t last = begin;
        std::size_t k = first;
        while (k < end && isComment(lines_.tokens()[k]) &&
               !isBroken(last, lines_.tokens()[k].begin)) {
            last = lines_.tokens()[k++].end;
        }
        // One that is about the line before cannot leave it.
        const bool isAboutIt = between(begin, last).find(ignoreS) != std::string_view::npos;
        const bool endsHere = k == first || isAboutIt || endsLine(lines_.tokens()[k - 1]) ||
                              k < end || next == text_.size() || isBroken(last, next);
        if (!endsHere) return first;
        for (std::size_t i = first; i < k; ++i) {
            if (i == first) out_ += ' ';
            addWithBlank(i, column);
        }
        return k;
    }

    // Whether a blank line between two places of the text stays one.
    bool mayBeBlank(std::size_t begin, std::size_t end) const {
        if (out_.empty() || (isAfterOpen_ && !isAfterIgnore(begin))) return false;
        const std::string_view gap = between(begin, end);
        return std::count(gap.begin(), gap.end(), '\n') > 1;
    }
    // Whether the line of the text that ends at `end` switches a warning off.
    bool isAfterIgnore(std::size_t end) const {
        if (fixed_.empty()) return false;
        const std::size_t line = text_.rfind('\n', end);
        const std::size_t begin = line == std::string_view::npos ? 0 : line + 1;
        return between(begin, end).find(ignoreS) != std::string_view::npos;
    }
    void blankLine() {
        if (!out_.ends_with(std::string(end_).append(end_))) newLine();
    }

    const Lines& lines_;
    const std::string_view text_;
    Breaks breaks_;
    std::string_view end_ = "\n";
    std::vector<bool> fixed_;
    std::string out_;
    bool isAtBegin_ = true;     // of a line
    bool isAfterOpen_ = false;  // the last line opened a block
};

// A token without what the layout may change: the blanks at the ends of a comment's lines.
std::string essence(const SourceToken& token, std::string_view text) {
    if (token.isSeen()) return std::string(token.in(text));
    std::string result;
    eachLine(token.in(text), [&](std::string_view line) {
        result += withoutBlanks(line);
        result += '\n';
    });
    return result;
}

// The warnings that comments switch off at each token of the parser, in their order.
std::vector<std::string> ignored(std::string_view text, const SCR::SourceTokens& source) {
    std::vector<std::string> result;
    if (text.find(ignoreS) == std::string_view::npos) return result;
    const auto codesOf = [](std::string_view line) {
        std::string codes;
        std::size_t at = line.find(ignoreS);
        while (at != std::string_view::npos && (at = line.find('K', at)) != std::string_view::npos)
            codes += line.substr(at++, 5);
        return codes;
    };
    std::string before;
    std::size_t at = 0;
    std::size_t next = 0;
    eachLine(text, [&](std::string_view line) {
        std::string here = codesOf(line);
        const std::size_t end = at + line.size();
        for (; next < source.tokens.size() && source.tokens[next].begin <= end; ++next) {
            if (!source.tokens[next].isSeen()) continue;
            result.push_back(before);
            result.back().append(",").append(here);
        }
        before = std::move(here);
        at = end + 1;
    });
    return result;
}

// Why `to` is not proved to say the same as `from`; empty when it is. `at` is the place in `from`.
std::string difference(std::string_view from, const SCR::SourceTokens& source, std::string_view to,
                       std::size_t& at) {
    const SCR::SourceTokens result = SCR::sourceTokens(to);
    const std::size_t count = source.tokens.size();
    for (std::size_t i = 0; i < std::max(count, result.tokens.size()); ++i) {
        at = i < count ? source.tokens[i].begin : from.size();
        const bool isSame = i < count && i < result.tokens.size() &&
                            source.tokens[i].kind == result.tokens[i].kind &&
                            essence(source.tokens[i], from) == essence(result.tokens[i], to);
        if (!isSame) return "this would be read in another way in another line";
    }
    at = 0;
    if (result.openComment != SCR::SourceTokens::none ||
        result.badLineMark != SCR::SourceTokens::none) {
        return "a comment would swallow the rest";
    }
    if (ignored(from, source) != ignored(to, result)) {
        at = from.find(ignoreS);
        return "this comment would be about other statements";
    }
    return {};
}

}  // namespace

Formatted format(std::string_view text) {
    Formatted result;
    // Some editors put a byte order mark before a text.
    constexpr std::string_view mark = "\xEF\xBB\xBF";
    const std::size_t skipped = text.starts_with(mark) ? mark.size() : 0;
    const std::string_view body = text.substr(skipped);
    const Lines lines(body);
    if (!lines.fault().empty()) {
        result.fault = lines.fault();
        result.at = skipped + lines.faultAt();
        return result;
    }
    std::string laidOut = Layout(lines).take();
    result.fault = difference(body, SCR::sourceTokens(body), laidOut, result.at);
    result.at += skipped;
    if (std::string plain; SCR::Crypt::decrypt(laidOut, plain)) {
        result.fault = "this would be read as a scrambled text";
    }
    if (result.fault.empty()) result.text = std::string(text.substr(0, skipped)) + laidOut;
    return result;
}

Formatted formatFile(const std::string& content) {
    std::string plain;
    if (!SCR::Crypt::decrypt(content, plain)) return format(content);
    Formatted result = format(plain);
    if (!result.fault.empty()) return result;
    // Each scrambling differs.
    if (result.text == plain) {
        result.text = content;
        return result;
    }
    std::string scrambled;
    std::string again;
    if (!SCR::Crypt::encrypt(result.text, scrambled) || !SCR::Crypt::decrypt(scrambled, again) ||
        again != result.text) {
        result = {};
        result.fault = "the text cannot be scrambled again";
        return result;
    }
    result.text = std::move(scrambled);
    return result;
}

}  // namespace Author

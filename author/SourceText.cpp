#include "author/SourceText.h"

#include <algorithm>

namespace Author {

using SCR::SourceKind;
using SCR::SourceToken;

namespace {

// The UTF-16 units of the character that begins with `byte`; none for the other bytes of one.
// Characters beyond the first plane, of four bytes, are two units.
std::size_t unitsOf(char byte) {
    const auto value = static_cast<unsigned char>(byte);
    return (value & 0xC0) == 0x80 ? 0 : value >= 0xF0 ? 2 : 1;
}

}  // namespace

void LineTable::update(std::string_view text) {
    begins_.assign(1, 0);
    columns_.clear();
    std::size_t column = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (i % blockCM == 0) columns_.push_back(column);
        const char byte = text[i];
        column += unitsOf(byte);
        const bool isPair = byte == '\r' && i + 1 < text.size() && text[i + 1] == '\n';
        if ((byte == '\n' || byte == '\r') && !isPair) {
            begins_.push_back(i + 1);
            column = 0;
        }
    }
    columns_.push_back(column);
}

std::size_t LineTable::lineOf(std::size_t offset) const {
    const auto after = std::upper_bound(begins_.begin(), begins_.end(), offset);
    return static_cast<std::size_t>(after - begins_.begin()) - 1;
}

Position LineTable::position(std::string_view text, std::size_t offset) const {
    offset = std::min(offset, text.size());
    Position position;
    position.line = lineOf(offset);
    // A line may be long: not all of it is counted.
    std::size_t i = begins_[position.line];
    const std::size_t block = offset / blockCM;
    if (i < block * blockCM) {
        i = block * blockCM;
        position.column = columns_[block];
    }
    for (; i < offset; ++i) position.column += unitsOf(text[i]);
    return position;
}

std::size_t LineTable::offset(std::string_view text, Position position) const {
    if (position.line >= begins_.size()) return text.size();
    std::size_t at = begins_[position.line];
    const std::size_t next =
        position.line + 1 < begins_.size() ? begins_[position.line + 1] : text.size();
    for (std::size_t column = 0; at < next && text[at] != '\r' && text[at] != '\n';) {
        column += unitsOf(text[at]);
        if (column > position.column) break;
        ++at;
        while (at < text.size() && unitsOf(text[at]) == 0) ++at;
    }
    return at;
}

Position PositionWalk::to(std::size_t offset) {
    while (position_.line + 1 < lines_.count() && lines_.begin(position_.line + 1) <= offset) {
        at_ = lines_.begin(++position_.line);
        position_.column = 0;
    }
    for (; at_ < offset; ++at_) position_.column += unitsOf(text_[at_]);
    return position_;
}

SourceText::SourceText(std::string path, std::string text)
    : path_(std::move(path)),
      text_(std::move(text)),
      source_(SCR::sourceTokens(text_)),
      lines_(text_) {}

std::size_t SourceText::tokenAt(std::size_t offset) const {
    const auto found =
        std::lower_bound(tokens().begin(), tokens().end(), offset,
                         [](const SourceToken& token, std::size_t at) { return token.end < at; });
    return static_cast<std::size_t>(found - tokens().begin());
}

std::string SourceText::commentBefore(std::size_t offset) const {
    std::size_t line = lines_.lineOf(offset);
    std::size_t index = tokenAt(offset);
    // The first token of the line.
    while (index > 0 && tokens()[index - 1].begin >= lines_.begin(line)) --index;
    std::vector<std::string_view> comments;
    while (index > 0) {
        const SourceToken& token = tokens()[--index];
        const bool isComment =
            token.kind == SourceKind::LineComment || token.kind == SourceKind::BlockComment;
        if (!isComment || lines_.lineOf(token.end) + 1 != line) break;
        line = lines_.lineOf(token.begin);
        if (index > 0 && tokens()[index - 1].end > lines_.begin(line)) break;
        comments.push_back(textOf(token));
    }
    std::string result;
    for (auto comment = comments.rbegin(); comment != comments.rend(); ++comment) {
        std::string_view words = comment->substr(2);
        if (comment->starts_with("/*") && words.ends_with("*/")) words.remove_suffix(2);
        while (!words.empty()) {
            std::string_view row = words.substr(0, words.find('\n'));
            words.remove_prefix(std::min(row.size() + 1, words.size()));
            row.remove_prefix(std::min(row.find_first_not_of(" \t*"), row.size()));
            while (!row.empty() && (row.back() == ' ' || row.back() == '\r')) row.remove_suffix(1);
            // What is meant for tools says nothing to people.
            if (!row.empty() && !row.starts_with("kestrel: ")) result.append(row).append("\n");
        }
    }
    return result;
}

}  // namespace Author

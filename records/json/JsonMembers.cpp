#include "records/json/JsonMembers.h"

#include "records/json/JsonText.h"

namespace Records {

void JsonMembers::skipSpace(std::size_t& at) const {
    while (JsonText::isSpace(text_[at])) ++at;
}

std::string_view JsonMembers::string(std::size_t& at) {
    const std::size_t begin = at + 1;
    at = JsonText::skipString(text_, at);
    const std::string_view inner = std::string_view(text_).substr(begin, at - 1 - begin);
    if (inner.find('\\') == std::string_view::npos) return inner;
    JsonText::unescape(inner, scratch_);
    return scratch_;
}

// The text was checked, which bounds the depth of the recursion.
void JsonMembers::walk(std::size_t& at, const Visit& visit) {
    const std::size_t size = path_.size();
    for (skipSpace(++at); text_[at] != '}'; skipSpace(at)) {
        if (text_[at] == ',') skipSpace(++at);
        if (size != 0) path_ += '.';
        path_ += string(at);
        skipSpace(at);
        skipSpace(++at);  // after the colon
        const std::size_t begin = at;
        if (text_[at] == '{') {
            walk(at, visit);
        } else if (text_[at] == '"') {
            visit(path_, string(at));
        } else {
            int depth = 0;
            do {
                const char c = text_[at];
                if (depth == 0 && JsonText::endsWord(c)) break;
                depth += c == '[' || c == '{' ? 1 : c == ']' || c == '}' ? -1 : 0;
                at = c == '"' ? JsonText::skipString(text_, at) : at + 1;
            } while (depth > 0 || text_[begin] != '[');
            const std::string_view word = std::string_view(text_).substr(begin, at - begin);
            visit(path_, word == "null" ? std::string_view() : word);
        }
        path_.resize(size);
    }
    ++at;
}

const char* JsonMembers::visit(std::string_view text, const Visit& visit) {
    text_.assign(text);
    text_.append(JsonRecord::paddingCM, ' ');
    const char* const malformed = record_.take(std::string_view(text_).substr(0, text.size()));
    if (malformed != nullptr) return malformed;
    std::size_t at = 0;
    skipSpace(at);
    path_.clear();
    walk(at, visit);
    return nullptr;
}

}  // namespace Records

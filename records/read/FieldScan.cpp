#include "records/read/FieldScan.h"

#include <algorithm>
#include <array>

namespace Records {
namespace {

bool isWord(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '.';
}

// Cuts a script into words, strings with their quotes, and other characters.
class Tokens {
public:
    explicit Tokens(std::string_view text) : text_(text) {}

    // The next one; empty at the end.
    std::string_view next() {
        skip();
        const std::size_t begin = at_;
        if (begin == text_.size()) return {};
        if (text_[at_] == '"') {
            for (++at_; at_ < text_.size() && text_[at_] != '"'; ++at_) {
                if (text_[at_] == '\\') ++at_;
            }
            at_ = std::min(at_ + 1, text_.size());
        } else if (isWord(text_[at_])) {
            while (at_ < text_.size() && isWord(text_[at_])) ++at_;
        } else {
            at_ += text_.substr(at_).starts_with("==") ? 2 : 1;
        }
        return text_.substr(begin, at_ - begin);
    }

private:
    // Skips blanks and comments.
    void skip() {
        while (at_ < text_.size()) {
            const std::string_view rest = text_.substr(at_);
            std::size_t end = 0;
            if (rest.starts_with("//") || rest.starts_with("#line")) {
                end = rest.find('\n');
            } else if (rest.starts_with("/*")) {
                end = rest.find("*/", 2);
                end += end != std::string_view::npos ? 2 : 0;
            } else if (std::string_view(" \t\r\n\f\v").find(rest.front()) !=
                       std::string_view::npos) {
                end = 1;
            } else {
                return;
            }
            at_ += std::min(end, rest.size());
        }
    }

    std::string_view text_;
    std::size_t at_ = 0;
};

// The name that an argument is: a word or a string. Escapes stay, as no name has any.
std::string nameOf(std::string_view token) {
    if (token.size() >= 2 && token.front() == '"') token = token.substr(1, token.size() - 2);
    return std::string(token);
}

}  // namespace

FieldScan::FieldScan(std::string_view script) {
    Tokens tokens(script);
    // The last tokens: function, "(", name, ")" and what follows.
    std::array<std::string_view, 5> last;
    for (std::string_view token = tokens.next(); !token.empty(); token = tokens.next()) {
        std::rotate(last.begin(), last.begin() + 1, last.end());
        last.back() = token;
        const auto& [function, open, name, close, after] = last;
        if (open != "(" || close != ")") continue;
        constexpr std::array<std::string_view, 4> fields{"edrString", "edrLong", "edrDecimal",
                                                         "edrDate"};
        const bool isField = std::find(fields.begin(), fields.end(), function) != fields.end();
        if (isField && after == "=") assigned.push_back(nameOf(name));
        if (function == "edrDeleteField") deleted.push_back(nameOf(name));
    }
}

}  // namespace Records

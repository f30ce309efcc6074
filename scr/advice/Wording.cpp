#include "scr/advice/Wording.h"

#include <algorithm>

#include "Grammar.h"

namespace SCR {

FND::String quoted(std::string_view text) { return FND::String("`").append(text).append("`"); }

FND::String lowered(std::string_view text) {
    FND::String lower(text);
    for (char& byte : lower) {
        if (byte >= 'A' && byte <= 'Z') byte = static_cast<char>(byte - 'A' + 'a');
    }
    return lower;
}

bool isDigits(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(),
                                        [](char byte) { return byte >= '0' && byte <= '9'; });
}

bool isOpening(int code) {
    return code == SCR_OPEN_BRACE || code == SCR_OPEN_PARENTHESIS || code == SCR_OPEN_BRACKET;
}

bool isClosing(int code) {
    return code == SCR_CLOSE_BRACE || code == SCR_CLOSE_PARENTHESIS || code == SCR_CLOSE_BRACKET;
}

}  // namespace SCR
